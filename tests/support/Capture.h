// Captures what goes to a descriptor, whoever writes it, and what the logger prints.
#ifndef TESTS_SUPPORT_CAPTURE_H
#define TESTS_SUPPORT_CAPTURE_H

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

namespace support {

// True as soon as the condition holds; false after a time-out that only a hanging program reaches.
bool eventually(const std::function<bool()>& condition,
                std::chrono::seconds timeout = std::chrono::seconds(30));

// While it lives, descriptor `fd` leads into a temporary file without a name.
class DescriptorCapture {
 public:
  explicit DescriptorCapture(int fd);
  ~DescriptorCapture();
  DescriptorCapture(const DescriptorCapture&) = delete;
  DescriptorCapture& operator=(const DescriptorCapture&) = delete;

  std::string text() const;

 private:
  int m_fd;
  int m_saved;
  int m_file;
};

// An installed logger whose lines are captured.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();

  // The lines so far, all that was pushed before included: tag, blank, message, line feed.
  std::string messages();
  bool eventuallyContains(const std::string& text);

 private:
  DescriptorCapture m_stdout;
};

// A text that threads append to and a test waits for. Usable as an output callback.
class SharedText {
 public:
  void operator+=(const std::string& text);
  std::string get() const;
  bool eventuallyContains(const std::string& text) const;

 private:
  mutable std::mutex m_mutex;
  std::string m_text;
};

// Runs `body` in a forked child with a watchdog, and returns its wait status; the child exits with
// 0 when the body returns true, with 1 when it returns false.
int statusOfChild(const std::function<bool()>& body);

}  // namespace support

#endif
