// Receives the output of supervised commands, prints it, and counts it.
#ifndef LOG_COLLECTOR_COLLECTOR_H
#define LOG_COLLECTOR_COLLECTOR_H

#include <map>
#include <mutex>
#include <string>

#include "common/Address.h"
#include "oxu/Json.h"
#include "oxu/LogService.h"

namespace collector {

// Used from the main thread; what the connections bring is counted under a lock.
class Collector {
 public:
  Collector();

  // False when the address cannot be listened on.
  bool start(const common::Address& address);

  int port() const { return m_service.port(); }

  // Ends all connections.
  void stop() { m_service.stopServer(); }

  // What came, by name.
  oxu::json::Json summary();

 private:
  struct Total {
    unsigned long frames = 0;
    unsigned long bytes = 0;
    unsigned long lines = 0;
  };
  class Connection;

  // The name under which to print and count; those of a sender that never uses one twice go together.
  std::string admitted(const std::string& name);
  void count(const std::string& name, const Total& more);

  std::mutex m_mutex;
  std::map<std::string, Total> m_totals;
  LogService m_service;  // last: its threads use the others
};

}  // namespace collector

#endif
