// What the main functions share: the command line, and the summary at the end.
#ifndef COMMON_HOST_H
#define COMMON_HOST_H

#include <functional>
#include <ostream>
#include <string>

#include "oxu/Json.h"
#include "oxu/Option.h"

namespace common {

// Parses the command line, prints `help` where --help asks for it, and otherwise calls `read`, which takes the options,
// and then `run`. What the two throw is printed. Returns the exit status: that of `run`, 1 where `run` throws, 2 for a
// wrong command line.
int runHost(int argc, char** argv, Option& options, const char* help, const std::function<void()>& read,
            const std::function<int()>& run);

// The value of an option. Throws std::runtime_error when it was not given.
std::string requiredValue(const Option& options, const std::string& name);

// A count as Json. Its integers have 32 bits: a larger count becomes a double, which is exact up to 2^53.
oxu::json::Json number(unsigned long value);

// Writes the summary to the file, or to `fallback` where `path` is empty. False where that fails. Where the file cannot
// be written, the summary goes to `fallback` all the same.
bool writeReport(const oxu::json::Json& report, const std::string& path, std::ostream& fallback);

}  // namespace common

#endif
