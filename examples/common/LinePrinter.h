// Logs a stream of output line by line, under the name of what wrote it.
#ifndef COMMON_LINEPRINTER_H
#define COMMON_LINEPRINTER_H

#include <atomic>
#include <string>

namespace common {

// Used by one thread at a time, but for lines().
class LinePrinter {
 public:
  explicit LinePrinter(const std::string& name);

  // Logs the lines that are complete now. A line that is too long for a record is logged in pieces.
  void add(const std::string& text);

  // Logs what is left, a line without its end.
  void finish();

  unsigned long lines() const { return m_lines; }

 private:
  void print(std::string line);

  std::string m_label;
  std::string m_unfinished;
  std::atomic<unsigned long> m_lines{0};
};

}  // namespace common

#endif
