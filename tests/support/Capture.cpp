#include "tests/support/Capture.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <thread>

// Under a sanitizer, too, an allocation that is too large gives a null pointer.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }

// On a terminal, too, launches announce nothing.
[[maybe_unused]] static const int kFullyBuffered = std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);

namespace support {

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
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
  // pread, since a seek would move the position that the captured descriptor shares.
  struct stat status {};
  ::fstat(m_file, &status);
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  text.resize(static_cast<std::size_t>(::pread(m_file, text.data(), text.size(), 0)));
  return text;
}

bool DescriptorCapture::eventuallyContains(const std::string& part) const {
  return eventually([&] { return text().find(part) != std::string::npos; });
}

LogCapture::LogCapture() : DescriptorCapture(STDOUT_FILENO) {
  install_log_task();
  set_log_colors(false);
}

std::string LogCapture::messages() const {
  flush_log(-1);
  std::fflush(stdout);
  return withoutStamps(text());
}

std::string withoutStamps(std::string text) {
  const std::size_t size = std::strlen("[2026-01-31 23:59:59.999]  ");
  for (std::size_t at = 0; (at = text.find("[20", at)) != std::string::npos;) text.erase(at, size);
  return text;
}

std::string filled(std::string text, const std::vector<int>& numbers) {
  auto number = numbers.begin();
  for (std::size_t at = 0; (at = text.find('#', at)) != std::string::npos && number != numbers.end();)
    text.replace(at, 1, std::to_string(*number++));
  return text;
}

int countOf(const std::string& part, const std::string& text) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
  return count;
}

int openDescriptors() {
  const std::filesystem::directory_iterator numbers("/proc/self/fd");
  return static_cast<int>(std::distance(begin(numbers), end(numbers)));
}

}  // namespace support
