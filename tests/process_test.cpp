#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "oxu/CApi.h"
#include "oxu/StartProcess.h"
#include "process/LaunchLine.h"
#include "tests/support/Capture.h"
#include "tests/support/Child.h"
#include "tests/support/Faults.h"
#include "tests/support/Launched.h"

namespace {

using oxu::StartProcess;
using support::Launched;

TEST(LaunchLine, ExportsThenEntersTheDirectoryThenRunsTheCommand) {
  ::setenv("OXU_A", "one", 1);
  ::setenv("OXU_B", "t w'o;x", 1);
  ::unsetenv("OXU_NONE");
  const struct {
    const char *workDir, *envNames, *command, *shellLine;
  } rows[] = {
      {"/opt/x", "OXU_NONE,", "", "export OXU_NONE=;cd /opt/x;"},
      {"", " OXU_A \r,,\tOXU_B\n", "ls", "export OXU_A=one;export =;export OXU_B=t w'o;x;ls"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(oxu::makeLaunchLine(row.workDir, row.envNames, row.command, "", false).shellLine, row.shellLine);
  }
}

TEST(StartProcess, ReportsEachFailureAndGoesOnWhereItCan) {
  using namespace faults;
  constexpr int kNotLaunched = -1;
  const struct {
    const char* what;
    Call call;
    int argument, error, times;
    const char* printed;  // outside the capture: on standard error, then on standard output and in the log
    const char* output;
    int exitStatus = 0;
  } rows[] = {
      {"pipe", kPipe, kAnyArgument, EMFILE, 1, "pipe failed: Too many open files\nprepatePipe failed\n", "",
       kNotLaunched},
      {"F_GETFL", kFcntl, F_GETFL, EINVAL, 1, "ERROR fcntl F_GETFL error: Invalid argument\n", "ran\n"},
      {"F_SETFL", kFcntl, F_SETFL, EBADF, kEveryTime,
       "fcntl set nonblock: Bad file descriptor\nERROR fcntl F_SETFL error: Bad file descriptor\n", "ran\n"},
      {"F_SETFD", kFcntl, F_SETFD, EINVAL, kEveryTime, "", "ran\n"},
      {"dup2 to 1", kDup2, STDOUT_FILENO, EBUSY, kEveryTime, "dup2 failed: Device or resource busy\n", "", 1},
      {"dup2 to 2", kDup2, STDERR_FILENO, EBUSY, kEveryTime, "dup2 failed: Device or resource busy\n", "", 1},
      {"setpgid", kPgid, kAnyArgument, EPERM, kEveryTime, "", "ran\n"},
      {"execve", kExec, kAnyArgument, ENOENT, 1, "", "execvp failed: No such file or directory\n", 1},
      {"reader thread", kThread, kAnyArgument, EAGAIN, 1, "", ""},
      {"select", kSelect, kAnyArgument, ENOMEM, 1, "ERROR Select error: Cannot allocate memory\n", ""},
      {"select, by a signal", kSelect, kAnyArgument, EINTR, 3, "", "ran\n"},
      {"read", kRead, kAnyArgument, EIO, 1, "ERROR Read pipe error: Input/output error\n", ""},
      {"read, without data", kRead, kAnyArgument, EAGAIN, 3, "", "ran\n"},
      {"wake-up", kWrite, kAnyArgument, EAGAIN, 1, "ERROR write pipe error\n", "ran\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const support::DescriptorCapture standardError(STDERR_FILENO);
    support::LogCapture log;
    {
      const Fault fault(row.call, row.error, row.times, row.argument);
      Launched child("echo ran");
      EXPECT_EQ(child.process.isRunning(), row.exitStatus != kNotLaunched);
      EXPECT_EQ(child.process.pid() != -1, row.exitStatus != kNotLaunched);
      EXPECT_EQ(child.exitStatus(), row.exitStatus);
      child.process.flushOutput(-1);
      EXPECT_EQ(child.get(), row.output);
    }
    EXPECT_EQ(standardError.text() + log.messages(), row.printed);
  }
}

TEST(StartProcess, AnnouncesThatTheChildsGroupCouldNotBeMade) {
  support::inChild([] {
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const faults::Fault fault(faults::kPgid, EPERM);
    Launched child("echo done");
    EXPECT_TRUE(child.eventuallyContains("\ndone\n"));
    EXPECT_EQ(child.get(),
              support::filled("Child process(#) setpgid failed: Operation not permitted\necho done\ndone\n",
                              {child.process.pid()}));
  });
}

// A kill right after the launch must find the child's own group, however late the child itself comes to make it.
TEST(StartProcess, PutsTheChildIntoItsGroupBeforeTheLaunchReturns) {
  auto held = std::make_unique<faults::HeldChildren>();
  Launched child("exit 0");
  EXPECT_EQ(::getpgid(child.process.pid()), child.process.pid());
  held.reset();
  EXPECT_EQ(child.exitStatus(), 0);
}

// Another thread opens files all the time, which take the number of a closed read end. A reader that finds the
// descriptor closed logs that, and nothing else.
TEST(StartProcess, ReaderNeverReadsAnotherFileAfterAFailedFork) {
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
    const support::DescriptorCapture standardError(STDERR_FILENO);
    const faults::Fault fault(faults::kFork, EAGAIN);
    const auto refuse = [](const std::string& chunk) { ADD_FAILURE() << chunk; };
    const StartProcess process("", "", "true", "", refuse, 64, false);
    if (i % 2 == 0) ::usleep(1000);
    EXPECT_FALSE(process.isRunning());
    EXPECT_EQ(process.pid(), -1);
    EXPECT_EQ(standardError.text(), "fork failed: Resource temporarily unavailable\n");
  }
  stop = true;
  opener.join();
  const std::string messages = log.messages();
  const std::string closed = "ERROR Select error: Bad file descriptor\n";
  EXPECT_EQ(support::countOf(closed, messages), support::countOf("\n", messages)) << messages;
}

// An ordinary user's kill goes through sudo. This fake runs what it is given, without a password.
TEST(Kill, EndsWholeGroupsAndSkipsProcessesThatAreGone) {
  char directory[] = "/tmp/oxutool-test-XXXXXX";
  const std::string sudo = std::string(::mkdtemp(directory)) + "/sudo";
  std::ofstream(sudo) << "#!/bin/sh\nshift\nexec \"$@\"\n";
  ::chmod(sudo.c_str(), 0700);
  ::setenv("PATH", (directory + std::string(":") + ::getenv("PATH")).c_str(), 1);
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  support::LogCapture log;
  Launched first("sleep 50"), gone("true"), second("(sleep 50 & echo $!.); sleep 50"), third("sleep 50");
  EXPECT_TRUE(second.eventuallyContains(".\n"));
  const int grandchild = std::atoi(second.get().c_str());
  EXPECT_EQ(gone.exitStatus(), 0);
  EXPECT_TRUE(StartProcess::kill({first.process.pid(), gone.process.pid(), second.process.pid()}));
  EXPECT_TRUE(StartProcess::kill(third.process.pid()));
  for (Launched* child : {&first, &second, &third}) EXPECT_EQ(child->endingSignal(), SIGKILL);
  EXPECT_EQ(::waitpid(grandchild, nullptr, 0), grandchild);
  EXPECT_EQ(log.messages(), support::filled("ERROR Failed to get pgid for pid: #.\n\nINFO All process groups killed.\n"
                                            "INFO Process group #(pgid: #)killed.\n",
                                            {gone.process.pid(), third.process.pid(), third.process.pid()}));
  std::filesystem::remove_all(directory);
}

TEST(Kill, ReportsWhatItCannotKill) {
  ::setpgid(0, 0);
  support::LogCapture log;
  const int self = getPid();
  EXPECT_FALSE(StartProcess::kill(-1));
  EXPECT_FALSE(StartProcess::kill(INT_MAX));
  EXPECT_FALSE(StartProcess::kill(std::vector<int>{}));
  EXPECT_TRUE(StartProcess::kill(std::vector<int>{INT_MAX}));
  const faults::Fault fault(faults::kSystem, ENOMEM);
  EXPECT_FALSE(StartProcess::kill(self));
  EXPECT_FALSE(StartProcess::kill({self, self}));
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
