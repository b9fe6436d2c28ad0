#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "oxu/OutputRedirector.h"
#include "tests/support/Capture.h"
#include "tests/support/Child.h"
#include "tests/support/Faults.h"

namespace {

using namespace faults;
using support::openDescriptors;

const std::string kLine = "Redirecting stdout/stderr to pipes:#\n";

// A redirector after open, and what it has delivered.
struct Opened : oxu::OutputRedirector, support::SharedText {
  Opened() {
    m_output_callback = [this](const std::string& chunk) {
      chunkSizes.push_back(chunk.size());
      append(chunk);
    };
    m_forwarding = true;
    open();
  }
  void forward() { EXPECT_EQ(sendOutToNetwork(static_cast<oxu::OutputRedirector*>(this)), nullptr); }

  std::vector<std::size_t> chunkSizes;
};

// The line that open prints waits in the buffer of stdout, so it arrives first. The host closes its output when it has
// printed, so the loop meets the end of the pipe.
TEST(OutputRedirector, DeliversInOrderAndInChunksUntilAReadFailsOrForwardingIsOver) {
  const struct {
    const char* what;
    std::size_t printed;
    std::vector<std::size_t> chunks;
    int unread = 0;
    bool forwarding = true, hasCallback = true;
    Call call = kRead;
    int error = 0, times = 0;
  } rows[] = {
      {"one byte more", 1025, {1024, 1}},
      {"forwarding is over", 2000, {}, 976, false},
      {"no callback", 2000, {}, 0, true, false},
      {"reads that a signal interrupts", 2000, {1024, 976}, 0, true, true, kRead, EINTR, 3},
      {"a read that fails", 2000, {}, 2000, true, true, kRead, EIO, 1},
      {"an output that stays blocking", 2000, {1024, 976}, 0, true, true, kFcntl, EINVAL, kEveryTime},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    support::inChild([&row] {
      std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
      const Fault fault(row.call, row.error, row.times);
      Opened redirector;
      redirector.m_forwarding = row.forwarding;
      if (!row.hasCallback) redirector.m_output_callback = nullptr;
      const std::string text = support::filled(kLine, {redirector.readFd()}) + "print, error, write";
      const std::string rest(row.printed - text.size(), '.');
      std::printf("print, ");
      std::fflush(stdout);
      ::dprintf(STDERR_FILENO, "error, ");
      ::dprintf(STDOUT_FILENO, "write%s", rest.c_str());
      ::close_range(STDOUT_FILENO, STDERR_FILENO, 0);
      redirector.forward();
      EXPECT_EQ(redirector.chunkSizes, row.chunks);
      EXPECT_EQ(redirector.get(), row.chunks.empty() ? "" : text + rest);
      int unread = 0;
      EXPECT_EQ(::ioctl(redirector.readFd(), FIONREAD, &unread), 0);
      EXPECT_EQ(unread, row.unread);
    });
  }
}

TEST(OutputRedirector, LeavesTheHostsOutputAsItWasWhenItFails) {
  const struct {
    Call call;
    int argument, closed;
    std::string terminal;
  } rows[] = {
      {kPipe, kAnyArgument, -1, "pipe error: Input/output error\nout\n"},
      {kFcntl, F_DUPFD_CLOEXEC, STDIN_FILENO, "pipe error: Input/output error\nout\n"},
      {kDup2, STDOUT_FILENO, -1, kLine + "Failed to redirect stdout/stderr\nout\n"},
      {kDup2, STDERR_FILENO, -1, kLine + "out\n"},
      {kDup2, STDERR_FILENO, STDOUT_FILENO, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    const support::DescriptorCapture output(STDOUT_FILENO), error(STDERR_FILENO);
    const int readEnd = ::dup(STDERR_FILENO);
    ::close(readEnd);
    support::inChild([&row] {
      std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
      ::close(row.closed);
      const auto before = openDescriptors();
      const Fault fault(row.call, EIO, 1, row.argument);
      const Opened redirector;
      EXPECT_FALSE(redirector.isRedirected());
      EXPECT_EQ(redirector.readFd(), -1);
      EXPECT_EQ(openDescriptors(), before);
      const bool isPrinted = std::puts("out") >= 0 && std::fflush(stdout) == 0;
      EXPECT_EQ(isPrinted, row.closed != STDOUT_FILENO);
    });
    EXPECT_EQ(error.text() + output.text(), support::filled(row.terminal, {readEnd}));
  }
}

// The line that open prints meets a pipe whose reader has gone.
TEST(OutputRedirector, WorksWithoutStandardDescriptorsAndHidesItsOwnFromCommands) {
  for (const std::vector<int>& closed : {std::vector<int>{}, {0}, {1}, {2}, {0, 1, 2}}) {
    SCOPED_TRACE("closed: " + testing::PrintToString(closed));
    support::inChildWithPipe([&closed](int readEnd) {
      ::close(readEnd);
      std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
      std::for_each(closed.begin(), closed.end(), ::close);
      Opened redirector;
      EXPECT_GT(redirector.readFd(), STDERR_FILENO);
      for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) EXPECT_EQ(::fcntl(fd, F_GETFL), O_WRONLY | O_NONBLOCK);
      std::thread forwarder(&Opened::forward, &redirector);
      const std::string command = "[ ! -e /dev/fd/# ] && echo error >&2 && echo end";
      EXPECT_EQ(::system(support::filled(command, {redirector.readFd()}).c_str()), 0);
      EXPECT_TRUE(redirector.eventuallyContains("end\n"));
      redirector.m_forwarding = false;
      EXPECT_EQ(::dprintf(STDERR_FILENO, "last"), 4);
      forwarder.join();
    });
  }
}

TEST(OutputRedirector, SecondOpenReplacesTheFirstAndAFailedThirdKeepsTheReader) {
  support::inChild([] {
    Opened redirector;
    const int first = redirector.readFd();
    const auto before = openDescriptors();
    redirector.open();
    EXPECT_NE(redirector.readFd(), first);
    EXPECT_EQ(::fcntl(first, F_GETFD), -1);
    EXPECT_EQ(openDescriptors(), before);
    const Fault fault(kDup2, EIO, 1, STDERR_FILENO);
    redirector.open();
    EXPECT_EQ(redirector.readFd(), -1);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(::dprintf(STDOUT_FILENO, "read"), 4);
  });
}

}  // namespace
