#include <fcntl.h>
#include <poll.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "os/os_descriptor.h"
#include "os/os_print.h"
#include "os/os_signal.h"
#include "os/os_thread.h"
#include "oxu/CApi.h"
#include "oxu/StartProcess.h"
#include "process/LaunchLine.h"

extern "C" int getPid() { return ::getpid(); }

namespace oxu {

namespace {

constexpr char kShell[] = "/bin/bash";

// All that the child needs; made before the child exists.
struct Child {
  int readEnd;
  int writeEnd;
  bool isBlocking;
  bool announces;
  int messageEnd;  // leads into the pipe too. Never blocks, since the launching thread waits for the child
  const std::vector<std::string>& announcements;
  char* const* arguments;
  char* const* environment;
};

// The host's environment, with `entry`, a NAME=VALUE, in place of any entry of that name, and a null at the end.
std::vector<char*> environmentWith(std::string& entry) {
  const std::size_t prefix = entry.find('=') + 1;
  std::vector<char*> environment;
  for (char** at = ::environ; at != nullptr && *at != nullptr; ++at) {
    if (std::strncmp(*at, entry.c_str(), prefix) != 0) environment.push_back(*at);
  }
  environment.push_back(entry.data());
  environment.push_back(nullptr);
  return environment;
}

// Whether stdout is line-buffered or unbuffered. An unbuffered stream has a buffer of one byte; a stream that was never
// used or set has none yet. Neither call takes the stream's lock.
bool isStdoutImmediate() { return ::__flbf(stdout) != 0 || ::__fbufsize(stdout) == 1; }

// A short line, put together on the stack and written by one call.
class Line {
 public:
  Line& operator<<(const char* text) {
    for (; *text != '\0' && m_size < sizeof m_text; ++text) m_text[m_size++] = *text;
    return *this;
  }
  Line& operator<<(int number) {
    m_size = static_cast<std::size_t>(std::to_chars(m_text + m_size, m_text + sizeof m_text, number).ptr - m_text);
    return *this;
  }
  // Does not wait for room: a console that stands still gets no line.
  void writeTo(int fd) const {
    pollfd room{fd, POLLOUT, 0};
    if (::poll(&room, 1, 0) == 1) (void)!::write(fd, m_text, m_size);
  }

 private:
  char m_text[256];
  std::size_t m_size = 0;
};

const char* errorText() {
  const char* const text = ::strerrordesc_np(errno);
  return text != nullptr ? text : "Unknown error";
}

// As perror does, without stdio and its locks.
void printErrorInChild(int fd, const char* what) { (Line() << what << ": " << errorText() << "\n").writeTo(fd); }

// The child, up to the shell. It runs in the host's memory, while the launching thread waits and all other threads go
// on. So it makes system calls only, and these act on what is the child's own: descriptors, group, signal actions and
// mask. It takes no lock, allocates nothing, and writes to no memory but its own stack frames and errno.
//
// Not inlined, so that its frames lie below the frame to which the launching thread returns.
[[noreturn, gnu::noinline]] void becomeShell(const Child& child) {
  ::close(child.readEnd);
  if (!child.isBlocking && ::fcntl(child.writeEnd, F_SETFL, O_NONBLOCK) == -1) {
    printErrorInChild(STDERR_FILENO, "fcntl set nonblock");
  }
  if (::dup2(child.writeEnd, STDOUT_FILENO) == -1 || ::dup2(child.writeEnd, STDERR_FILENO) == -1) {
    printErrorInChild(STDERR_FILENO, "dup2 failed");
    ::_exit(1);
  }
  // A write end that could not be moved off 1 or 2 is close-on-exec still: dup2 to its own number changes no flag.
  ::fcntl(STDOUT_FILENO, F_SETFD, 0);
  ::fcntl(STDERR_FILENO, F_SETFD, 0);
  if (::setpgid(0, 0) == -1 && child.announces) {
    Line line;
    line << "Child process(" << ::getpid() << ") setpgid failed: " << errorText() << "\n";
    line.writeTo(child.messageEnd);
  }
  if (child.announces) {
    for (const std::string& line : child.announcements) (void)!::write(child.messageEnd, line.data(), line.size());
  }
  // Last: until here all signals are blocked, so that none ends the child halfway through its announcements.
  os_signal_reset_for_exec();
  ::execve(kShell, child.arguments, child.environment);
  printErrorInChild(child.messageEnd, "execvp failed");
  ::_exit(1);
}

// Returns the child's pid once the child has become the shell or has ended; -1 where no child could be made. In the
// child no handler of the host must run, and no request to cancel the thread must end it.
pid_t launch(const Child& child) {
  const os_signal_all_guard undisturbed;
  // fork would copy the host's page tables. becomeShell keeps the rules that vfork has for the child.
  // NOLINTBEGIN(clang-analyzer-security.insecureAPI.vfork, clang-analyzer-unix.Vfork)
  const pid_t pid = ::vfork();
  if (pid == 0) becomeShell(child);
  // NOLINTEND(clang-analyzer-security.insecureAPI.vfork, clang-analyzer-unix.Vfork)
  return pid;
}

}  // namespace

int StartProcess::addProcess(const std::string& workDir, const std::string& envNames, const std::string& command,
                             const std::string& password, bool needRoot) {
  const os_thread_cancel_guard uncancelled;
  LaunchLine line = makeLaunchLine(workDir, envNames, command, password, needRoot);
  std::string shell = kShell, option = "-c";
  char* const arguments[] = {shell.data(), option.data(), line.shellLine.data(), nullptr};
  const std::vector<char*> environment = environmentWith(line.passwordEntry);
  int messageEnd = openWriteEnd();
  const pid_t pid = launch({readEnd(), m_pipe_write, m_blocking_output, isStdoutImmediate(), messageEnd,
                            line.announcements, arguments, environment.data()});
  os_descriptor_close(messageEnd);
  if (pid < 0) {
    os_print_error("fork failed");
    closePipe();
    return -1;
  }
  // The child does the same for itself. Where it has not come to that yet, a kill that follows at once still finds the
  // child's own group, and never the host's.
  ::setpgid(pid, pid);
  m_pid = pid;
  return pid;
}

}  // namespace oxu
