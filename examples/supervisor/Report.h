// The supervisor's summary as JSON.
#ifndef SUPERVISOR_REPORT_H
#define SUPERVISOR_REPORT_H

#include <string>

#include "Job.h"
#include "oxu/Json.h"

namespace supervisor {

// The text as it may stand between the quotes of a JSON string: Json writes strings as they are. Bytes that are
// no UTF-8 become U+FFFD.
std::string escaped(const std::string& text);

// What became of a job.
oxu::json::Json reportOf(const Job& job);

}  // namespace supervisor

#endif
