// Logs a stream of output line by line, under the name of what wrote it.
#ifndef COMMON_LINEPRINTER_H
#define COMMON_LINEPRINTER_H

#include <atomic>
#include <string>

namespace common {

// Whether control characters are printed: a terminal obeys them.
enum class Controls { kKept, kReplaced };

// Used by one thread at a time, but for lines().
class LinePrinter {
 public:
  LinePrinter(const std::string& name, Controls controls);

  // Logs the lines that are complete now. A line that is too long for a record is logged in pieces.
  void add(const std::string& text);

  // Logs what is left, a line without its end.
  void finish();

  unsigned long lines() const { return m_lines; }

 private:
  void print(std::string line);

  std::string m_label;
  Controls m_controls;
  std::string m_unfinished;
  std::atomic<unsigned long> m_lines{0};
};

}  // namespace common

#endif
