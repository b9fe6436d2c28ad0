// The host's standard output, to which the logger writes whole lines.
//
// Text that the host has left in stdio's buffer goes first. The lines then bypass that buffer: stdio drops text that a
// non-blocking console refuses, without telling how much. For one thread; the host's threads may print meanwhile.
#ifndef LOG_CONSOLE_H
#define LOG_CONSOLE_H

#include <atomic>
#include <cstddef>

namespace oxu {

class Console {
 public:
  explicit Console(const std::atomic<bool>& running) : m_running(running) {}

  // Waits for a console without room, and returns when the line is out or cannot be written. Once `running` is false, a
  // line of which a non-blocking console has taken nothing is given up.
  void write(const char* line, std::size_t size);

 private:
  const std::atomic<bool>& m_running;
};

}  // namespace oxu

#endif
