#include "tests/support/Child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <string>

namespace support {

namespace {

constexpr std::size_t kReportBytes = 1 << 16;

// Collects the failures of the child in memory that its parent sees, wherever the child's output leads by then.
class Reporter : public testing::EmptyTestEventListener {
 public:
  explicit Reporter(char* report) : m_report(report) {}

  void OnTestPartResult(const testing::TestPartResult& part) override {
    std::ostringstream text;
    text << part;
    m_size += text.str().copy(m_report + m_size, kReportBytes - 1 - m_size);
  }

 private:
  char* m_report;
  std::size_t m_size = 0;
};

// noexcept: the framework must not catch what the body throws, and go on with the next test in the child.
[[noreturn]] void runAndExit(const std::function<void()>& body, char* report) noexcept {
  ::alarm(60);
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new Reporter(report));
  body();
  ::_exit(report[0] == '\0' ? 0 : 1);
}

}  // namespace

void inChild(const std::function<void()>& body) {
  void* const shared = ::mmap(nullptr, kReportBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  char* const report = static_cast<char*>(shared);
  std::fflush(stdout);
  const pid_t pid = ::fork();
  ASSERT_NE(pid, -1);
  if (pid == 0) runAndExit(body, report);
  int status = -1;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_EQ(status, 0) << "in the child:\n" << report;
  ::munmap(shared, kReportBytes);
}

void inChildWithPipe(const std::function<void(int readEnd)>& body) {
  inChild([&] {
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ASSERT_EQ(::dup2(fds[1], STDOUT_FILENO), STDOUT_FILENO);
    ::close(fds[1]);
    body(fds[0]);
  });
}

void fillStandardOutput() {
  ::fcntl(STDOUT_FILENO, F_SETPIPE_SZ, 4096);
  const std::string pipeful(4096, 'f');
  ASSERT_EQ(::write(STDOUT_FILENO, pipeful.data(), pipeful.size()), 4096);
}

}  // namespace support
