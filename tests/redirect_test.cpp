#include "oxu/OutputRedirector.h"
#include "tests/support/Test.h"

namespace {

using namespace faults;
using support::openDescriptors;

const std::string kLine = "Redirecting stdout/stderr to pipes:#\n";

// A redirector that is open; the end of each chunk shows as a bar.
struct Host : oxu::OutputRedirector, support::SharedText {
  Host() {
    m_output_callback = [this](const std::string& chunk) { append(chunk + "|"); };
    m_forwarding = true;
    open();
  }
  void* forward() { return sendOutToNetwork(static_cast<oxu::OutputRedirector*>(this)); }
};

// Each host closes its output when it has printed its bytes, so that the loop meets the end of the pipe.
TEST(OutputRedirector, DeliversWhatIsPrintedInOrderAndInChunks) {
  const struct {
    std::size_t bytes;
    Call call;
    int error, times, mode, unread;
    bool forwarding, hasCallback, isDelivered;
  } rows[] = {
      {1024, kRead, 0, 0, _IOLBF, 0, true, true, true},
      {1025, kRead, 0, 0, _IOFBF, 0, true, true, true},
      {2000, kRead, 0, 0, _IOLBF, 976, false, true, false},
      {2000, kRead, 0, 0, _IOLBF, 0, true, false, false},
      {2000, kRead, EINTR, 3, _IOLBF, 0, true, true, true},
      {2000, kRead, EIO, 1, _IOLBF, 2000, true, true, false},
      {2000, kFcntl, EINVAL, kEveryTime, _IOLBF, 0, true, true, true},
  };
  for (const auto& row : rows) {
    EXPECT_TRUE(support::holdsInChild([&row] {
      std::setvbuf(stdout, nullptr, row.mode, BUFSIZ);
      const Fault fault(row.call, row.error, row.times);
      Host host;
      host.m_forwarding = row.forwarding;
      if (!row.hasCallback) host.m_output_callback = nullptr;
      std::string text = (row.mode == _IOFBF ? support::filled(kLine, {host.readFd()}) : "") + "print, error, write";
      const std::string rest(row.bytes - text.size(), '.');
      text += rest + "|";
      if (row.bytes > 1024) text.insert(1024, "|");
      std::printf("print, ");
      std::fflush(stdout);
      ::dprintf(STDERR_FILENO, "error, ");
      ::dprintf(STDOUT_FILENO, "write%s", rest.c_str());
      ::close_range(STDOUT_FILENO, STDERR_FILENO, 0);
      int unread = 0;
      const bool isEnded = host.forward() == nullptr && ::ioctl(host.readFd(), FIONREAD, &unread) == 0;
      return isEnded && unread == row.unread && host.get() == (row.isDelivered ? text : "");
    })) << "row "
        << &row - rows;
  }
}

TEST(OutputRedirector, LeavesTheHostsOutputAsItWasWhenItFails) {
  const struct {
    Call call;
    int argument, closed;
    std::string terminal;
  } rows[] = {
      {kPipe, kAnyArgument, -1, "pipe error: Input/output error\nout\n"},
      {kFcntl, F_DUPFD_CLOEXEC, 0, "pipe error: Input/output error\nout\n"},
      {kDup2, 1, -1, kLine + "Failed to redirect stdout/stderr\nout\n"},
      {kDup2, 2, -1, kLine + "out\n"},
      {kDup2, 2, 1, ""},
  };
  for (const auto& row : rows) {
    const support::DescriptorCapture output(STDOUT_FILENO), error(STDERR_FILENO);
    const int next = ::dup(STDERR_FILENO);
    ::close(next);
    EXPECT_TRUE(support::holdsInChild([&row] {
      std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
      ::close(row.closed);
      const auto before = openDescriptors();
      const Fault fault(row.call, EIO, 1, row.argument);
      const Host host;
      const bool isWritten = std::puts("out") > 0 && std::fflush(stdout) == 0;
      return isWritten == (row.closed != 1) && openDescriptors() == before && !host.isRedirected() && host.readFd() < 0;
    })) << row.terminal;
    EXPECT_EQ(error.text() + output.text(), support::filled(row.terminal, {next}));
  }
}

// The first line that is printed meets a pipe without a reader.
TEST(OutputRedirector, WorksWhateverTheHostsDescriptorsAreAndHidesItsOwnFromCommands) {
  for (const std::vector<int>& closed : {std::vector<int>{}, {0}, {1}, {2}, {0, 1, 2}}) {
    EXPECT_TRUE(support::holdsWithPipe([&closed](int readEnd) {
      ::close(readEnd);
      std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
      std::for_each(closed.begin(), closed.end(), ::close);
      Host host;
      std::thread forwarder(&Host::forward, &host);
      const std::string command = "[ ! -e /dev/fd/# ] && echo launched && echo error >&2 && echo end";
      bool good = ::system(support::filled(command, {host.readFd()}).c_str()) == 0 && host.eventuallyContains("end\n");
      host.m_forwarding = false;
      good = ::dprintf(STDERR_FILENO, "last") == 4 && good;
      forwarder.join();
      const int flags = ::fcntl(STDOUT_FILENO, F_GETFL) & ::fcntl(STDERR_FILENO, F_GETFL);
      return good && flags == (O_WRONLY | O_NONBLOCK) && host.readFd() > STDERR_FILENO;
    })) << closed.size()
        << " closed, last " << (closed.empty() ? -1 : closed.back());
  }
}

TEST(OutputRedirector, SecondOpenReplacesTheFirstAndAFailedOneLeavesItsPipeAReader) {
  EXPECT_TRUE(support::holdsInChild([] {
    Host host;
    const int first = host.readFd();
    const auto before = openDescriptors();
    host.open();
    const bool isReplaced = host.readFd() != first && ::fcntl(first, F_GETFD) == -1 && openDescriptors() == before;
    const Fault fault(kDup2, EIO, 1, STDERR_FILENO);
    host.open();
    return isReplaced && openDescriptors() == before && host.readFd() == -1 && ::dprintf(STDOUT_FILENO, "read") == 4;
  }));
}

}  // namespace
