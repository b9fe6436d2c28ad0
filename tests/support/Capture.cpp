#include "tests/support/Capture.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "oxu/CApi.h"

// A size that cannot be allocated is a null pointer here, as it is without the sanitizer.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }

namespace support {

namespace {
const std::string kEndMark = "end of log ";
}

bool eventually(const std::function<bool()>& condition, std::chrono::seconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

DescriptorCapture::DescriptorCapture(int fd)
    : m_fd(fd), m_saved(::dup(fd)), m_file(::memfd_create("capture", MFD_CLOEXEC)) {
  std::fflush(stdout);
  ::dup2(m_file, fd);
}

DescriptorCapture::~DescriptorCapture() {
  std::fflush(stdout);
  ::dup2(m_saved, m_fd);
  // What the test framework had to say about a failure went into the capture too.
  if (testing::Test::HasFailure()) std::fputs(text().c_str(), stderr);
  ::close(m_saved);
  ::close(m_file);
}

std::string DescriptorCapture::text() const {
  struct stat status {};
  ::fstat(m_file, &status);
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  const ssize_t size = ::pread(m_file, text.data(), text.size(), 0);
  text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  return text;
}

LogCapture::LogCapture() : m_stdout(STDOUT_FILENO) { install_log_task(); }

LogCapture::~LogCapture() { uninstall_log_task(); }

std::string LogCapture::messages() {
  static int calls = 0;
  const std::string last = kEndMark + std::to_string(++calls);
  while (!push_log(oxu::INFO, "%s", last.c_str())) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  eventually([&] { return m_stdout.text().find(last + "\x1b[0m\n") != std::string::npos; });

  // A line is COLOUR TAG [STAMP]  MESSAGE RESET.
  const std::string text = m_stdout.text();
  const std::string reset = "\x1b[0m\n";
  std::string messages;
  for (std::size_t begin = 0, end; (end = text.find(reset, begin)) != std::string::npos;
       begin = end + reset.size()) {
    // What the host itself printed in between comes first.
    messages += text.substr(begin, text.find('\x1b', begin) - begin);
    const std::size_t tag = text.find('m', begin) + 1;
    const std::size_t stamp = text.find(" [", tag);
    const std::size_t message = text.find("]  ", stamp) + 3;
    if (text.compare(message, kEndMark.size(), kEndMark) == 0) continue;
    messages += text.substr(tag, stamp - tag) + " " + text.substr(message, end - message) + "\n";
  }
  return messages;
}

bool LogCapture::eventuallyContains(const std::string& text) {
  return eventually([&] { return m_stdout.text().find(text) != std::string::npos; });
}

void SharedText::operator+=(const std::string& text) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_text += text;
}

std::string SharedText::get() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_text;
}

bool SharedText::eventuallyContains(const std::string& text) const {
  return eventually([&] { return get().find(text) != std::string::npos; });
}

int statusOfChild(const std::function<bool()>& body) {
  std::fflush(stdout);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::alarm(60);
    ::_exit(body() ? 0 : 1);
  }
  int status = -1;
  ::waitpid(pid, &status, 0);
  return status;
}

}  // namespace support
