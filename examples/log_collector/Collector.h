// Receives the output of supervised commands, prints it, and counts it.
#ifndef LOG_COLLECTOR_COLLECTOR_H
#define LOG_COLLECTOR_COLLECTOR_H

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <utility>

#include "common/Address.h"
#include "common/Queue.h"
#include "oxu/Json.h"
#include "oxu/LogService.h"

namespace collector {

using Clock = std::chrono::system_clock;

// A line of output.
struct Line {
  std::string peer;  // IP:PORT of who sent it
  std::string name;  // what wrote it
  std::string text;
  Clock::time_point time;  // when its end came
};

// Used from the main thread. A thread per connection takes the frames, and one worker for all of them cuts the lines
// and hands them on.
class Collector {
 public:
  using OnLine = std::function<void(const Line&)>;

  // Calls `onLine` with each line, on the worker's thread. A line of more than `longest` bytes comes in pieces.
  Collector(std::size_t longest, OnLine onLine);
  ~Collector() { stop(); }

  // False when the address cannot be listened on.
  bool start(const common::Address& address);

  int port() const { return m_service.port(); }

  // Ends all connections, and hands on all that was received.
  void stop();

  // Counts of what was received, by name. Called after stop.
  oxu::json::Json summary() const;

 private:
  struct Total {
    unsigned long frames = 0;
    unsigned long bytes = 0;
    unsigned long lines = 0;
  };
  class Lines;
  class Connection;

  // The entry under whose name lines are printed and counted. Beyond 1000 names, further ones share the entry "others".
  std::pair<const std::string, Total>& entryOf(const std::string& name);

  std::size_t m_longest;
  OnLine m_on_line;
  std::map<std::string, Total> m_totals;
  common::Queue<std::function<void()>> m_work;
  std::thread m_worker;  // uses those above
  LogService m_service;  // last: its threads use the others
};

}  // namespace collector

#endif
