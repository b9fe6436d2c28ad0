// Cuts a stream of output into lines.
#ifndef COMMON_LINECUTTER_H
#define COMMON_LINECUTTER_H

#include <atomic>
#include <functional>
#include <string>
#include <utility>

namespace common {

// Used by one thread at a time; lines() may be called from any thread.
class LineCutter {
 public:
  using OnLine = std::function<void(const std::string&)>;

  // A line of more than `longest` bytes is handed on in pieces.
  LineCutter(std::size_t longest, OnLine onLine) : m_longest(longest), m_on_line(std::move(onLine)) {}

  // Hands on each line that `text` completes, without its line feed.
  void add(const std::string& text);

  // Hands on the unfinished line, if any.
  void finish();

  unsigned long lines() const { return m_lines; }

 private:
  void handOn(const std::string& line);

  std::size_t m_longest;
  OnLine m_on_line;
  std::string m_unfinished;
  std::atomic<unsigned long> m_lines{0};
};

}  // namespace common

#endif
