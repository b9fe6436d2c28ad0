// What every test file uses: the framework, and the capture of a descriptor, of the logger and of a child.
#ifndef TESTS_SUPPORT_CAPTURE_H
#define TESTS_SUPPORT_CAPTURE_H

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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
  int m_fd;
  int m_saved;
  int m_file;
};

// An installed logger, and its output.
class LogCapture : public DescriptorCapture {
 public:
  LogCapture();
  ~LogCapture();

  // All that was pushed before: tag, blank, message and line feed of each record. What the host itself
  // printed stands in front of the record that followed.
  std::string messages();
};

// A text that one thread appends to and another waits for.
class SharedText {
 public:
  void append(const std::string& text);
  std::string get() const;
  bool eventuallyContains(const std::string& text) const;

 private:
  mutable std::mutex m_mutex;
  std::string m_text;
};

// Runs `body` in a forked child with a watchdog, and returns its wait status: 0 when the body returns true.
int statusOfChild(const std::function<bool()>& body);

}  // namespace support

#endif
