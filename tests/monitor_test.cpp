#include "oxu/ProcessMonitor.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/support/Capture.h"
#include "tests/support/Faults.h"

namespace {

using oxu::ProcessInfo;
using oxu::ProcessMonitor;

void sleepForMoreThanOnePass() { std::this_thread::sleep_for(std::chrono::milliseconds(300)); }

// A child that waits for a signal.
pid_t forkChild() {
  const pid_t pid = ::fork();
  if (pid == -1) std::abort();
  if (pid == 0) {
    ::alarm(60);
    ::pause();
    ::_exit(1);
  }
  return pid;
}

void endChild(pid_t pid) {
  ::kill(pid, SIGKILL);
  EXPECT_EQ(::waitpid(pid, nullptr, 0), pid);
}

bool isReaped(pid_t pid) {
  return support::eventually([pid] { return ::kill(pid, 0) == -1 && errno == ESRCH; });
}

// For a name that is in the table, addProcess replaces the old process. updateProcess only watches the new one: the old
// one is reaped and reported, without its exit status.
TEST(ProcessMonitor, ReapsAnEndedChildAndCallsItsCallbacksOnce) {
  support::LogCapture log;
  support::SharedText told;
  const auto infoOf = [&told](const std::string& name, pid_t pid) {
    const auto quit = [&told, name] {
      told.append(name + " quit. ");
      return 41;
    };
    ProcessInfo info(pid, quit);
    info.setExitCallback(
        [&told, name](int status) { told.append(name + " signal " + std::to_string(WTERMSIG(status)) + ". "); });
    return info;
  };
  ProcessMonitor monitor;
  const pid_t pid = forkChild(), own = forkChild(), watched = forkChild();
  monitor.addProcess("worker", infoOf("replaced", pid));
  monitor.addProcess("worker", infoOf("worker", pid));
  monitor.updateProcess("node", infoOf("own", own));
  monitor.updateProcess("node", infoOf("watched", watched));
  ::kill(own, SIGKILL);
  sleepForMoreThanOnePass();
  EXPECT_EQ(told.get(), "");
  ::kill(pid, SIGKILL);
  EXPECT_TRUE(told.eventuallyContains("quit"));
  EXPECT_TRUE(isReaped(pid));
  endChild(watched);
  EXPECT_TRUE(isReaped(own));
  sleepForMoreThanOnePass();
  EXPECT_EQ(told.get(), "worker signal 9. worker quit. own quit. ");
  EXPECT_EQ(log.messages(),
            support::filled("ERROR [ProcessMonitor]Process(worker) Pid(#) is not exist, call quit callback\n\n"
                            "DEBUG [ProcessMonitor]Node Process(worker) Pid(#)  quit callback result:41\n\n"
                            "ERROR [ProcessMonitor]Node Process(node) Pid(#) is not exist, call quit callback.\n",
                            {pid, pid, own}));
}

// Entries without a callback, with only one of the two pids, and with a child that is merely stopped.
TEST(ProcessMonitor, CountsStoppedAndNonexistentProcessesAsGone) {
  support::LogCapture log;
  std::atomic<int> calls{0};
  const auto count = [&] { return ++calls; };
  const pid_t own = forkChild(), silent = forkChild(), stopped = forkChild();
  ::kill(own, SIGKILL);
  ::kill(silent, SIGKILL);
  ::kill(stopped, SIGSTOP);
  ProcessMonitor monitor;
  ProcessInfo onlyOwn;
  onlyOwn.setPid(own);
  onlyOwn.setQuitCallback(count);
  monitor.addProcess("only own pid", onlyOwn);
  ProcessInfo onlyWatched(INT_MAX, count);
  onlyWatched.setPid(0);
  monitor.addProcess("only watched pid", onlyWatched);
  monitor.addProcess("silent", ProcessInfo(silent, nullptr));
  monitor.addProcess("stopped", ProcessInfo(stopped, count));
  EXPECT_TRUE(isReaped(own));
  EXPECT_TRUE(isReaped(silent));
  EXPECT_TRUE(support::eventually([&] { return calls == 3; }));
  EXPECT_TRUE(log.eventuallyContains("Process(silent) Pid(" + std::to_string(silent) + ")  quit callback result:0"));
  EXPECT_EQ(log.messages().find("failed"), std::string::npos) << log.messages();
  endChild(stopped);
}

// A process is listed for reaping for one pass; so several monitors are made, until one ends during that
// pass.
TEST(ProcessMonitor, EndsWithEntriesLeftAndNamesThoseItWasToReap) {
  support::LogCapture log;
  std::atomic<int> calls{0};
  const pid_t left = forkChild(), own = forkChild();
  const std::string message =
      support::filled("ERROR [ProcessMonitor]Child Process(pid:#) exist, may be a zombie process.\n", {own});
  const auto attempt = [&] {
    {
      ProcessMonitor monitor;
      monitor.addProcess("left", ProcessInfo(left, [&] { return ++calls; }));
      ProcessInfo gone;
      gone.setPid(own);
      monitor.addProcess("gone", gone);
      sleepForMoreThanOnePass();
    }
    return log.messages().find(message) != std::string::npos;
  };
  EXPECT_TRUE(support::eventually(attempt));
  EXPECT_EQ(calls, 0);
  endChild(left);
  endChild(own);
}

TEST(IsProcessExist, IsFalseOnlyWhereProcHasNoEntry) {
  using namespace faults;
  const char* const noPermission = "DEBUG No permission to check the status of the process (pid=#).\n";
  const struct {
    int error;
    bool exists;
    const char* message;
  } rows[] = {
      {ENOENT, false, ""},
      {EACCES, true, noPermission},
      {EPERM, true, noPermission},
      {EIO, true, "DEBUG An error occurred while checking the existence status of the process: Input/output error\n"},
  };
  ProcessMonitor monitor;
  const int pid = ::getpid();
  for (const auto& row : rows) {
    support::LogCapture log;
    const Fault fault(kStat, row.error, 1);
    EXPECT_EQ(monitor.isProcessExist(pid), row.exists);
    EXPECT_EQ(log.messages(), support::filled(row.message, {pid}));
  }
  EXPECT_TRUE(monitor.isProcessExist(pid));
  EXPECT_FALSE(monitor.isProcessExist(INT_MAX));
  EXPECT_FALSE(monitor.isProcessExist(-1));
}

TEST(WaitProcess, IsTrueOnlyForTheAskedChildAndLogsAnyOtherResult) {
  support::LogCapture log;
  ProcessMonitor monitor;
  EXPECT_FALSE(monitor.waitProcess(INT_MAX));
  const pid_t child = forkChild();
  EXPECT_FALSE(monitor.waitProcess(child));
  EXPECT_EQ(log.messages(), "ERROR [ProcessMonitor]waitpid(2147483647) failed: No child processes\n\n");
  ::kill(child, SIGSTOP);
  EXPECT_TRUE(support::eventually([&] { return monitor.waitProcess(child); }));
  ::kill(child, SIGKILL);
  EXPECT_TRUE(support::eventually([&] { return !monitor.waitProcess(-1) && ::kill(child, 0) == -1; }));
  EXPECT_TRUE(log.eventuallyContains("[ProcessMonitor]An error occurred while waiting for the process to exit: "));
}

}  // namespace
