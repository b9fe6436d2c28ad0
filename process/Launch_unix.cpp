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

// All that the child needs, made before there is one.
struct Child {
  int readEnd;
  int writeEnd;
  bool isBlocking;
  bool announces;
  int messageEnd;  // leads into the pipe too, and never blocks: the launching thread waits for what is written
  const std::vector<std::string>& announcements;
  char* const* arguments;
  char* const* environment;
};

// The host's environment with `entry`, a NAME=VALUE, in place of any other of that name, and the null at the end.
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

// Whether a line that is printed leaves stdout at once. A stream that was neither used nor set has no buffer yet, and
// an unbuffered one has one byte. Neither look takes the stream's lock.
bool isStdoutImmediate() { return ::__flbf(stdout) != 0 || ::__fbufsize(stdout) == 1; }

// A short line, put together on the stack and written at once.
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
  // A console that stands still takes nothing.
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
void complainInChild(int fd, const char* what) { (Line() << what << ": " << errorText() << "\n").writeTo(fd); }

// The child, up to the shell. It runs in the host's memory while the launching thread waits and all others go on. So it
// makes system calls only: they act on the child's own descriptors, group, signal actions and mask. It takes no lock,
// allocates nothing, and writes to no memory but its own frames and errno.
//
// Not inlined, so that its frames lie below the one to which the launching thread returns.
[[noreturn, gnu::noinline]] void becomeShell(const Child& child) {
  ::close(child.readEnd);
  if (!child.isBlocking && ::fcntl(child.writeEnd, F_SETFL, O_NONBLOCK) == -1) {
    complainInChild(STDERR_FILENO, "fcntl set nonblock");
  }
  if (::dup2(child.writeEnd, STDOUT_FILENO) == -1 || ::dup2(child.writeEnd, STDERR_FILENO) == -1) {
    complainInChild(STDERR_FILENO, "dup2 failed");
    ::_exit(1);
  }
  // An end that could not be moved away may have had one of these numbers, and is close-on-exec still.
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
  // Last, when a signal that ends the child has nothing left to tear. Until here all of them are blocked.
  os_signal_reset_for_exec();
  ::execve(kShell, child.arguments, child.environment);
  complainInChild(child.messageEnd, "execvp failed");
  ::_exit(1);
}

// The child's pid, once it has become the shell or has ended; -1 where there is none. A handler of the host must not
// run in the child, and a thread that is cancelled must not end in it.
pid_t launch(const Child& child) {
  const os_signal_all_guard undisturbed;
  // Not by fork, which copies the host's page tables; becomeShell keeps the rules that vfork has for the child.
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
  // The child does the same for itself. Where it has not come to that yet, a kill that follows at once finds the
  // child's own group and never the host's.
  ::setpgid(pid, pid);
  m_pid = pid;
  return pid;
}

}  // namespace oxu
