#include "oxu/CApi.h"
#include "oxu/StartProcess.h"
#include "process/LaunchLine.h"
#include "process/RootPrivilege.h"
#include "tests/support/Test.h"

namespace {

using oxu::StartProcess;

// A launched command, its output, and its end: the wait status, -1 when there is no child.
class Launched : public support::SharedText {
 public:
  explicit Launched(const std::string& command, unsigned long bufferSize = 4096, const std::string& envNames = "",
                    const std::string& workDir = "")
      : process(
            workDir, envNames, command, "secret", [this](const std::string& chunk) { append(chunk); }, bufferSize,
            false) {}
  ~Launched() { wait(); }

  int wait() {
    if (process.pid() > 0 && m_status == -1) ::waitpid(process.pid(), &m_status, 0);
    return m_status;
  }

 private:
  int m_status = -1;

 public:
  StartProcess process;  // last, so that the capture ends first
};

TEST(LaunchLine, ExportsChangesDirectoryAndRunsTheCommand) {
  ::setenv("OXU_A", "one", 1);
  ::setenv("OXU_B", "t w'o;x", 1);
  ::unsetenv("OXU_NONE");
  const char* const rows[][4] = {
      {"", "", "ls", "ls"},
      {"/opt/x", "OXU_NONE,", "", "export OXU_NONE=;cd /opt/x;"},
      {"", " OXU_A \r,\tOXU_B\n", "ls", "export OXU_A=one;export OXU_B=t w'o;x;ls"},
      {"", ",,OXU_A", "x", "export =;export =;export OXU_A=one;x"},
      {"", "", "$SU_PASSWD$ b$SU_PASSWD$SU_PASSWD$", "\"$__SU_PASSWD__\" b\"$__SU_PASSWD__\"SU_PASSWD$"},
  };
  for (const auto& [workDir, envNames, command, shellLine] : rows) {
    EXPECT_EQ(oxu::makeLaunchLine(workDir, envNames, command, "", false).shellLine, shellLine);
  }
}

TEST(RootPrivilege, WrapsEachCommandOfTheLineInSudo) {
  const std::string sudo = "echo \"$__SU_PASSWD__\" | sudo -S -E ";
  const std::string rows[][2] = {{"run.sh a;stop.sh", sudo + "run.sh a;" + sudo + "stop.sh;"},
                                 {";;a ; b $SU_PASSWD$;;", sudo + "a ;" + sudo + " b $SU_PASSWD$;"},
                                 {";;", ""}};
  for (const auto& [command, wrapped] : rows) {
    EXPECT_EQ(oxu::addRootPrivilege(command, "of " + command), wrapped);
    EXPECT_EQ(::getenv("__SU_PASSWD__"), "of " + command);
  }
  EXPECT_FALSE(oxu::needRootPrivilege(false));
  EXPECT_EQ(oxu::needRootPrivilege(true), ::geteuid() != 0);
}

TEST(StartProcess, DeliversWhatTheCommandWritesUnchangedAndInOrder) {
  std::string more;
  for (int i = 1; i <= 200000; ++i) more += std::to_string(i) + "\n";
  const struct {
    const char* command;
    unsigned long bufferSize;
    std::string output;
  } rows[] = {
      {"printf 'no line end'", 4096, "no line end"},
      {"echo out; echo err >&2", 1, "out\nerr\n"},
      {"printf 'a\\0b\\nc'", 4096, std::string("a\0b\nc", 5)},
      {"exec >/dev/stdout 2>&1; seq 200000", 100, more},  // far more than the pipe holds
      {"echo $SU_PASSWD$ $__SU_PASSWD__", 4096, "secret secret\n"},
      {"pwd; echo \"$OXU_VALUE\"", 4096, "/\nof the host\n"},
      {"read -r _ _ _ _ group _ < /proc/$$/stat; [ $group = $$ ] && echo leader", 4096, "leader\n"},
  };
  ::setenv("OXU_VALUE", "\"of the host\"", 1);
  for (const auto& row : rows) {
    Launched child(row.command, row.bufferSize, "OXU_VALUE", "/");
    EXPECT_TRUE(child.process.isRunning());
    EXPECT_TRUE(child.eventuallyContains(row.output)) << child.get();
    EXPECT_EQ(child.wait(), 0);
  }
}

TEST(StartProcess, EndWakesTheReaderAndLeavesTheChildToFailOnItsNextWrite) {
  support::SharedText output;
  const auto collect = [&](const std::string& chunk) { output.append(chunk); };
  auto unread = std::make_unique<StartProcess>("", "", "seq 100000 200000", "", nullptr, 4096, false);
  auto process = std::make_unique<StartProcess>("", "", "echo ready; sleep 0.3; echo more", "", collect, 4096, false);
  const int pid = process->pid();
  EXPECT_TRUE(output.eventuallyContains("ready\n"));
  EXPECT_EQ(::waitpid(unread->pid(), nullptr, 0), unread->pid());
  process.reset();
  EXPECT_TRUE(output.get() == "ready\nStop Process!\n" || output.get() == "ready\n") << output.get();
  int status = 0;
  EXPECT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
}

// Line buffering makes the child print its announcements at once, as on a terminal.
TEST(StartProcess, AnnouncesWhatItRunsAndNeverRepeatsTheHostsOwnText) {
  const support::DescriptorCapture terminal(STDOUT_FILENO);
  EXPECT_TRUE(support::holdsInChild([] {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::printf("half a line of the host");
    ::setenv("OXU_A", "1", 1);
    const faults::Fault fault(faults::kPgid, EPERM);
    Launched child("echo done", 4096, "OXU_A", "/");
    const std::string text = support::filled(
        "Child process(#) setpgid failed: Operation not permitted\nexport OXU_A=1;\ncd /;\necho done\ndone\n",
        {child.process.pid()});
    return child.eventuallyContains(text) && child.get() == text;
  }));
  EXPECT_EQ(terminal.text(), "half a line of the host");
}

TEST(StartProcess, GivesNoCommandADescriptorOfAnotherObject) {
  Launched first("readlink /proc/$$/fd/1"), second("readlink /proc/$$/fd/*; echo end");
  ASSERT_TRUE(first.eventuallyContains("]\n") && second.eventuallyContains("end\n"));
  EXPECT_EQ(second.get().find(first.get()), std::string::npos);
}

TEST(StartProcess, WorksWhateverTheHostsDescriptorsAre) {
  const auto captures = [] {
    Launched child("echo out && echo err >&2 && echo end");
    std::fputs("text of the host\n", stderr);
    return child.eventuallyContains("out\nerr\nend\n") && child.get().find("host") == std::string::npos;
  };
  EXPECT_TRUE(support::holdsInChild([&] {
    const rlimit limit{4096, 4096};
    for (::setrlimit(RLIMIT_NOFILE, &limit); ::dup(STDERR_FILENO) < 2000;) continue;
    return captures();
  }));
  EXPECT_TRUE(support::holdsWithPipe([&](int readEnd) {
    ::close(readEnd);
    std::printf("text that waits for a reader who has gone");
    return captures();
  }));
  for (const std::vector<int>& closed : {std::vector<int>{0}, {1}, {0, 1}, {1, 2}, {0, 1, 2}}) {
    const auto body = [&] { return std::for_each(closed.begin(), closed.end(), ::close), captures(); };
    EXPECT_TRUE(support::holdsInChild(body)) << closed.size() << " from " << closed[0];
  }
}

TEST(StartProcess, LaunchesWhileOtherThreadsFlushPrintAndSetVariables) {
  EXPECT_TRUE(support::holdsInChild([] {
    ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
    std::atomic<bool> stop{false};
    std::thread flusher([&] {
      while (!stop) std::fflush(nullptr);
    });
    std::thread setter([&] {
      while (!stop) ::setenv("OXU_BUSY", "1", 1);
    });
    bool complete = true;
    for (int i = 0; i < 200; ++i) complete = complete && Launched("echo \"$OXU_A\"").wait() == 0;
    stop = true;
    flusher.join();
    setter.join();
    return complete;
  }));
}

// What a failing call prints on the host's standard error and output, in the log, and in the output of the
// command, and how the command ends (-1: it is not launched). Null stands for anything.
TEST(StartProcess, ReportsEachFailureAndGoesOnWhereItCan) {
  using namespace faults;
  const struct {
    const char* what;
    Call call;
    int error, times, argument, exitStatus;
    const char *terminal, *log, *output;
    unsigned long bufferSize = 4096;
  } rows[] = {
      {"pipe", kPipe, EMFILE, 1, kAnyArgument, -1, "pipe failed: Too many open files\nprepatePipe failed\n", "", ""},
      {"fork", kFork, EAGAIN, 1, kAnyArgument, -1, "fork failed: Resource temporarily unavailable\n", nullptr, ""},
      {"F_GETFL", kFcntl, EINVAL, 1, F_GETFL, 0, "", "ERROR fcntl F_GETFL error: Invalid argument\n", "ran\n"},
      {"F_SETFL", kFcntl, EBADF, kEveryTime, F_SETFL, 0, "fcntl set nonblock: Bad file descriptor\n",
       "ERROR fcntl F_SETFL error: Bad file descriptor\n", "ran\n"},
      {"F_SETFD", kFcntl, EINVAL, kEveryTime, F_SETFD, 0, "", "", "ran\n"},
      {"dup2 to 1", kDup2, EBUSY, kEveryTime, 1, 1, "dup2 failed: Device or resource busy\n", "", ""},
      {"dup2 to 2", kDup2, EBUSY, kEveryTime, 2, 1, "dup2 failed: Device or resource busy\n", "", ""},
      {"setpgid", kPgid, EPERM, kEveryTime, kAnyArgument, 0, "", "", "ran\n"},
      {"execvp", kExec, ENOENT, 1, kAnyArgument, 1, "", "", "execvp failed: No such file or directory\n"},
      {"select", kSelect, ENOMEM, 1, kAnyArgument, 0, "", "ERROR Select error: Cannot allocate memory\n", ""},
      {"select, by a signal", kSelect, EINTR, 3, kAnyArgument, 0, "", "", "ran\n"},
      {"read", kRead, EIO, 1, kAnyArgument, 0, "", "ERROR Read pipe error: Input/output error\n", ""},
      {"read, without data", kRead, EAGAIN, 3, kAnyArgument, 0, "", "", "ran\n"},
      {"wake-up", kWrite, EAGAIN, 1, kAnyArgument, 0, "", "ERROR write pipe error\n", "ran\n"},
      {"no buffer", kStat, 0, 0, 0, 0, "", "ERROR Pipe closed\n", "", 0},
      {"buffer", kStat, 0, 0, 0, 0, nullptr, "ERROR Read pipe error: Cannot allocate memory\n", "", ~0UL >> 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const support::DescriptorCapture standardError(STDERR_FILENO);
    support::LogCapture log;
    {
      const Fault fault(row.call, row.error, row.times, row.argument);
      Launched child("echo ran", row.bufferSize);
      const int status = child.wait();
      EXPECT_EQ(status == -1 ? -1 : WEXITSTATUS(status), row.exitStatus);
      EXPECT_TRUE(child.process.isRunning() == (status != -1) && (child.process.pid() > 0) == (status != -1));
      EXPECT_TRUE(child.eventuallyContains(row.output));
      if (row.log != nullptr && row.call != kWrite) {
        EXPECT_TRUE(support::eventually([&] { return log.messages().find(row.log) != std::string::npos; }));
      }
      EXPECT_EQ(child.get(), row.output);
    }
    const std::string messages = log.messages();
    const std::size_t firstRecord = std::min(messages.find("ERROR"), messages.size());
    const std::string terminal = standardError.text() + messages.substr(0, firstRecord);
    EXPECT_EQ(terminal, row.terminal != nullptr ? row.terminal : terminal);
    EXPECT_EQ(messages.substr(firstRecord), row.log != nullptr ? row.log : messages.substr(firstRecord));
  }
}

// The number of the read end is given to another file as soon as it is closed.
TEST(StartProcess, ReaderNeverReadsAnotherFileAfterAFailedFork) {
  const support::DescriptorCapture standardError(STDERR_FILENO);
  support::LogCapture log;
  std::atomic<bool> stop{false};
  std::thread opener([&stop] {
    for (int fds[2]; !stop && ::pipe2(fds, O_CLOEXEC) == 0; std::this_thread::yield()) {
      EXPECT_EQ(::write(fds[1], "foreign", 7), 7);
      ::close(fds[0]);
      ::close(fds[1]);
    }
  });
  for (int i = 0; i < 300; ++i) {
    const faults::Fault fault(faults::kFork, EAGAIN);
    const auto refuse = [](const std::string& chunk) { ADD_FAILURE() << chunk; };
    const StartProcess process("", "", "true", "", refuse, 64, false);
    if (i % 2 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  stop = true;
  opener.join();
  EXPECT_EQ(log.messages().find("Read pipe error"), std::string::npos);
}

// The fake stands for sudo where the tests run as an ordinary user: it runs what it is given, without a password.
TEST(Kill, EndsWholeGroupsAndSkipsProcessesThatAreGone) {
  char directory[] = "/tmp/oxutool-test-XXXXXX";
  const std::string sudo = std::string(::mkdtemp(directory)) + "/sudo";
  std::ofstream(sudo) << "#!/bin/sh\nshift\nexec \"$@\"\n";
  ::chmod(sudo.c_str(), 0700);
  ::setenv("PATH", (directory + std::string(":") + ::getenv("PATH")).c_str(), 1);
  support::LogCapture log;
  Launched first("sleep 1000"), gone("true"), second("sleep 1000 & echo $!. ; wait"), third("sleep 1000");
  EXPECT_TRUE(second.eventuallyContains(".\n"));
  const int grandchild = std::atoi(second.get().c_str());
  gone.wait();
  EXPECT_TRUE(StartProcess::kill({first.process.pid(), gone.process.pid(), second.process.pid()}));
  EXPECT_TRUE(StartProcess::kill(third.process.pid()));
  std::filesystem::remove_all(directory);
  for (Launched* child : {&first, &second, &third}) EXPECT_EQ(WTERMSIG(child->wait()), SIGKILL);
  EXPECT_TRUE(support::eventually([&] { return ::getpgid(grandchild) != second.process.pid(); }));
  EXPECT_EQ(log.messages(), support::filled("ERROR Failed to get pgid for pid: #.\n\nINFO All process groups killed.\n"
                                            "INFO Process group #(pgid: #)killed.\n",
                                            {gone.process.pid(), third.process.pid(), third.process.pid()}));
}

TEST(Kill, ReportsWhatItCannotKill) {
  support::LogCapture log;
  const int self = getPid();
  EXPECT_FALSE(StartProcess::kill(-1) || StartProcess::kill(INT_MAX) || StartProcess::kill(std::vector<int>{}));
  EXPECT_TRUE(StartProcess::kill(std::vector<int>{INT_MAX}));
  const faults::Fault fault(faults::kSystem, ENOMEM);
  EXPECT_FALSE(StartProcess::kill(self) || StartProcess::kill({self, self}));
  EXPECT_EQ(log.messages(), support::filled("ERROR Invalid process id: -1.\n\n"
                                            "ERROR Failed to get pgid for pid: 2147483647.\n\n"
                                            "ERROR Invalid process id list.\n\n"
                                            "ERROR Failed to get pgid for pid: 2147483647.\n\n"
                                            "INFO All process groups killed.\n"
                                            "ERROR Failed to kill process group #(pgid: #): Cannot allocate memory.\n\n"
                                            "ERROR Failed to kill process groups: Cannot allocate memory.\n\n",
                                            {self, ::getpgrp()}));
}

}  // namespace
