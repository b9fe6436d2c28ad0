// What the main functions share: the command line, and the summary at the end.
#ifndef COMMON_HOST_H
#define COMMON_HOST_H

#include <functional>
#include <ostream>
#include <string>

#include "oxu/Json.h"
#include "oxu/Option.h"

namespace common {

// Parses the command line, answers --help, and calls `read`, which takes the options, and then `run`. What they throw
// is printed. Returns the exit status: that of `run`, 1 where it throws, 2 for a wrong command line.
int runHost(int argc, char** argv, Option& options, const char* help, const std::function<void()>& read,
            const std::function<int()>& run);

// The value of an option, which must have been given: throws otherwise.
std::string requiredValue(const Option& options, const std::string& name);

// Json's integers have 32 bits: a larger count is a double, which is exact up to 2^53.
oxu::json::Json number(unsigned long value);

// Writes the summary to the file, or to `otherwise` where none is named. False where that fails; where it is the file
// that cannot be written, the summary goes to `otherwise` all the same.
bool writeReport(const oxu::json::Json& report, const std::string& path, std::ostream& otherwise);

}  // namespace common

#endif
