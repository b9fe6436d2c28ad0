// Captures what goes to a descriptor, whoever writes it, and what the logger and child processes print.
#ifndef TESTS_SUPPORT_CAPTURE_H
#define TESTS_SUPPORT_CAPTURE_H

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "oxu/CApi.h"

namespace support {

// True as soon as the condition holds; false after a time-out that only a hanging program reaches.
bool eventually(const std::function<bool()>& condition);

// While it lives, descriptor `fd` leads into a temporary file without a name.
class DescriptorCapture {
 public:
  explicit DescriptorCapture(int fd);
  ~DescriptorCapture();
  DescriptorCapture(const DescriptorCapture&) = delete;
  DescriptorCapture& operator=(const DescriptorCapture&) = delete;

  std::string text() const;
  bool eventuallyContains(const std::string& text) const;

 private:
  int m_fd, m_saved, m_file;
};

// An installed logger without colors, and its output.
class LogCapture : public DescriptorCapture {
 public:
  LogCapture();
  ~LogCapture() { uninstall_log_task(); }

  // All that was printed without stamps: "TAG MESSAGE\n" for each record, and what the host printed in between.
  std::string messages() const;
};

// A text that one thread appends to and another waits for.
class SharedText {
 public:
  void append(const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_text += text;
  }
  std::string get() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_text;
  }
  bool eventuallyContains(const std::string& text) const {
    return eventually([&] { return get().find(text) != std::string::npos; });
  }

 private:
  mutable std::mutex m_mutex;
  std::string m_text;
};

// What the logger has printed, without the time stamps and the blanks behind them.
std::string withoutStamps(std::string text);

// Replaces each # by the next number.
std::string filled(std::string text, const std::vector<int>& numbers);

// How often a text stands in another.
int countOf(const std::string& part, const std::string& text);

// One more than there are: for comparisons.
int openDescriptors();

}  // namespace support

#endif
