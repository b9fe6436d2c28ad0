#include "oxu/CApi.h"
#include "oxu/StartProcess.h"
#include "process/LaunchLine.h"
#include "process/RootPrivilege.h"
#include "tests/support/Launched.h"
#include "tests/support/Test.h"

namespace {

using oxu::StartProcess;
using support::Launched;

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
      {"execve", kExec, ENOENT, 1, kAnyArgument, 1, "", "", "execvp failed: No such file or directory\n"},
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

TEST(StartProcess, AnnouncesThatItsGroupCouldNotBeMade) {
  EXPECT_TRUE(support::holdsInChild([] {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const faults::Fault fault(faults::kPgid, EPERM);
    Launched child("echo done");
    const std::string text = support::filled(
        "Child process(#) setpgid failed: Operation not permitted\necho done\ndone\n", {child.process.pid()});
    return child.eventuallyContains(text) && child.get() == text;
  }));
}

// A kill right after the launch must find the child's own group, however late the child itself comes to make it.
TEST(StartProcess, PutsTheChildIntoItsGroupBeforeTheLaunchReturns) {
  auto held = std::make_unique<faults::HeldChildren>();
  Launched child("exit 0");
  EXPECT_EQ(::getpgid(child.process.pid()), child.process.pid());
  held.reset();
  EXPECT_EQ(child.wait(), 0);
}

// A command can make its pipe a blocking one again at any moment. Here no flag of the pipe can be set at all.
TEST(StartProcess, EndsAtOnceThoughItsFullPipeBlocks) {
  const support::DescriptorCapture standardError(STDERR_FILENO);
  const faults::Fault fault(faults::kFcntl, EBADF, faults::kEveryTime, F_SETFL);
  std::atomic<bool> mayGoOn{false};
  const auto wait = [&mayGoOn](const std::string&) {
    while (!mayGoOn) ::usleep(1000);
  };
  auto process = std::make_unique<StartProcess>("", "", "yes", "", wait, 4096, false);
  const int pid = process->pid();
  ::usleep(100000);
  mayGoOn = true;
  const auto begin = std::chrono::steady_clock::now();
  process.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
  int status = 0;
  ::waitpid(pid, &status, 0);
  EXPECT_EQ(WTERMSIG(status), SIGPIPE);
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
