// Receives the output of supervised commands, prints it, and counts it.
#ifndef LOG_COLLECTOR_COLLECTOR_H
#define LOG_COLLECTOR_COLLECTOR_H

#include <map>
#include <string>

#include "WorkQueue.h"
#include "common/Address.h"
#include "oxu/Json.h"
#include "oxu/LogService.h"

namespace collector {

// Used from the main thread. Each connection has a thread that takes its frames apart, and one thread prints them all.
class Collector {
 public:
  Collector();

  // False when the address cannot be listened on.
  bool start(const common::Address& address);

  int port() const { return m_service.port(); }

  // Ends all connections, and prints what has come.
  void stop();

  // What came, by name; to be called after stop.
  oxu::json::Json summary();

 private:
  struct Total {
    unsigned long frames = 0;
    unsigned long bytes = 0;
    unsigned long lines = 0;
  };
  class Lines;
  class Connection;

  // The name under which to print and count; those of a sender that never uses one twice go together.
  std::string admitted(const std::string& name);
  void count(const std::string& name, const Total& more);

  std::map<std::string, Total> m_totals;
  WorkQueue m_queue;     // uses those above
  LogService m_service;  // last: its threads use the others
};

}  // namespace collector

#endif
