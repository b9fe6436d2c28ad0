// The supervisor's summary as JSON.
#ifndef SUPERVISOR_REPORT_H
#define SUPERVISOR_REPORT_H

#include "Job.h"
#include "oxu/Json.h"

namespace supervisor {

// What became of a job.
oxu::json::Json reportOf(const Job& job);

}  // namespace supervisor

#endif
