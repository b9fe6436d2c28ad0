// The host's standard output, to which the logger writes whole lines.
//
// Lines bypass stdio's buffer, after what the host has left there: stdio drops what a console that does not block
// refuses, without telling how much of it. For one thread; the host's threads may print meanwhile.
#ifndef LOG_CONSOLE_H
#define LOG_CONSOLE_H

#include <atomic>
#include <cstddef>

namespace oxu {

class Console {
 public:
  explicit Console(const std::atomic<bool>& running) : m_running(running) {}

  // Returns when the line is out or cannot be written. A console without room is waited for; one that does not block is
  // given up, before any of the line is out, once `running` is false.
  void write(const char* line, std::size_t size);

 private:
  const std::atomic<bool>& m_running;
};

}  // namespace oxu

#endif
