#include "Report.h"

#include "common/JsonText.h"

namespace supervisor {

oxu::json::Json reportOf(const Job& job) {
  using common::number;
  oxu::json::Json report;
  report["name"] = common::escaped(job.name());
  report["pid"] = job.pid();
  report["starts"] = job.starts();
  report["lines"] = number(job.lines());
  report["bytes"] = number(job.bytes());
  report["seconds"] = job.seconds();
  return report;
}

}  // namespace supervisor
