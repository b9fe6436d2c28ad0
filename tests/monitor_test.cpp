#include "oxu/ProcessMonitor.h"
#include "tests/support/Test.h"

namespace {

using oxu::ProcessInfo;
using oxu::ProcessMonitor;

constexpr std::chrono::milliseconds kMoreThanOnePass(300);

// A child that waits for a signal.
pid_t forkChild() {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::alarm(60);
    ::pause();
    ::_exit(1);
  }
  return pid;
}

void endChild(pid_t pid) {
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
}

bool isReaped(pid_t pid) {
  return support::eventually([pid] { return ::kill(pid, 0) == -1 && errno == ESRCH; });
}

// Of a name that is given again, addProcess reaps and reports the new process; updateProcess watches it, and what it
// reaps and reports stays the old one.
TEST(ProcessMonitor, ReapsAChildThatEndsAndCallsItsCallbackOnce) {
  support::LogCapture log;
  std::atomic<int> calls{0}, updated{0}, otherCalls{0};
  ProcessMonitor monitor;
  const pid_t pid = forkChild(), own = forkChild(), watched = forkChild();
  monitor.addProcess("worker", ProcessInfo(pid, nullptr));
  monitor.addProcess("worker", ProcessInfo(pid, [&] { return ++calls + 40; }));
  monitor.updateProcess("node", ProcessInfo(own, [&] { return ++updated; }));
  monitor.updateProcess("node", ProcessInfo(watched, [&] { return ++otherCalls; }));
  ::kill(own, SIGKILL);
  std::this_thread::sleep_for(kMoreThanOnePass);
  EXPECT_EQ(calls + updated, 0);
  ::kill(pid, SIGKILL);
  EXPECT_TRUE(isReaped(pid) && log.eventuallyContains("result:41"));
  endChild(watched);
  EXPECT_TRUE(isReaped(own));
  std::this_thread::sleep_for(kMoreThanOnePass);
  EXPECT_TRUE(calls == 1 && updated == 1 && otherCalls == 0);
  EXPECT_EQ(log.messages(),
            support::filled("ERROR [ProcessMonitor]Process(worker) Pid(#) is not exist, call quit callback\n\n"
                            "DEBUG [ProcessMonitor]Node Process(worker) Pid(#)  quit callback result:41\n\n"
                            "ERROR [ProcessMonitor]Node Process(node) Pid(#) is not exist, call quit callback.\n",
                            {pid, pid, own}));
}

// Entries without a callback, with only one of the two pids, and with a child that is merely stopped.
TEST(ProcessMonitor, TakesProcessesThatNeverWereOrAreStoppedAsGone) {
  support::LogCapture log;
  std::atomic<int> calls{0};
  const auto count = [&] { return ++calls; };
  const pid_t own = forkChild(), silent = forkChild(), stopped = forkChild();
  ::kill(own, SIGKILL);
  ::kill(silent, SIGKILL);
  ::kill(stopped, SIGSTOP);
  ProcessMonitor monitor;
  ProcessInfo onlyPid;
  onlyPid.setPid(own);
  onlyPid.setQuitCallback(count);
  monitor.addProcess("only pid", onlyPid);
  ProcessInfo onlyCurrent(INT_MAX, count);
  onlyCurrent.setPid(0);
  monitor.addProcess("only current", onlyCurrent);
  monitor.addProcess("silent", ProcessInfo(silent, nullptr));
  monitor.addProcess("stopped", ProcessInfo(stopped, count));
  EXPECT_TRUE(isReaped(own) && isReaped(silent));
  EXPECT_TRUE(support::eventually([&] { return calls == 3; }));
  EXPECT_TRUE(log.eventuallyContains("Process(silent) Pid(" + std::to_string(silent) + ")  quit callback result:0"));
  EXPECT_EQ(log.messages().find("failed"), std::string::npos) << log.messages();
  endChild(stopped);
}

// The status comes first, and only to the entry of the process that ended.
TEST(ProcessMonitor, TellsHowAChildHasEndedRightBeforeItsQuitCallback) {
  support::LogCapture log;
  support::SharedText told;
  const auto infoOf = [&told](const std::string& name, int pid) {
    ProcessInfo info(pid, [&told, name] { return told.append(name + " quit\n"), 0; });
    info.setExitCallback([&told, name](int status) {
      const std::string how = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                                : "signal " + std::to_string(WTERMSIG(status));
      told.append(name + " " + how + "\n");
    });
    return info;
  };
  const pid_t exits = ::fork();
  if (exits == 0) ::_exit(3);
  const pid_t killed = forkChild(), own = forkChild(), watched = forkChild();
  ProcessMonitor monitor;
  monitor.addProcess("exits", infoOf("exits", exits));
  EXPECT_TRUE(told.eventuallyContains("exits exit 3\nexits quit\n"));
  monitor.addProcess("killed", infoOf("killed", killed));
  ::kill(killed, SIGKILL);
  EXPECT_TRUE(told.eventuallyContains("killed signal 9\nkilled quit\n"));
  monitor.addProcess("moved", infoOf("moved", own));
  monitor.updateProcess("moved", ProcessInfo(watched, nullptr));
  endChild(watched);
  EXPECT_TRUE(told.eventuallyContains("moved quit\n"));
  EXPECT_EQ(told.get().find("moved exit"), std::string::npos);
  EXPECT_EQ(told.get().find("moved signal"), std::string::npos);
  endChild(own);
}

// A process is listed for reaping for one pass; a few attempts make sure that the monitor's end meets one.
TEST(ProcessMonitor, EndsWithEntriesLeftAndNamesThoseItWasToReap) {
  support::LogCapture log;
  std::atomic<bool> called{false};
  const pid_t left = forkChild(), own = forkChild();
  const std::string message =
      support::filled("ERROR [ProcessMonitor]Child Process(pid:#) exist, may be a zombie process.\n", {own});
  const auto attempt = [&] {
    {
      ProcessMonitor monitor;
      monitor.addProcess("left", ProcessInfo(left, [&] { return called = true, 0; }));
      ProcessInfo gone;
      gone.setPid(own);
      monitor.addProcess("gone", gone);
      std::this_thread::sleep_for(kMoreThanOnePass);
    }
    return log.messages().find(message) != std::string::npos;
  };
  EXPECT_TRUE(support::eventually(attempt));
  EXPECT_FALSE(called);
  endChild(left);
  endChild(own);
}

TEST(ProcessMonitor, ReportsFailedChecksAndTakesTheProcessAsRunning) {
  using namespace faults;
  const char* const noPermission = "DEBUG No permission to check the status of the process (pid=#).\n";
  const struct {
    Call call;
    int error;
    bool result;
    const char* message;
  } rows[] = {
      {kWait, ECHILD, false, "ERROR [ProcessMonitor]waitpid(#) failed: No child processes\n\n"},
      {kStat, ENOENT, false, ""},
      {kStat, EACCES, true, noPermission},
      {kStat, EPERM, true, noPermission},
      {kStat, EIO, true,
       "DEBUG An error occurred while checking the existence status of the process: Input/output error\n"},
  };
  ProcessMonitor monitor;
  const int pid = ::getpid();
  for (const auto& row : rows) {
    support::LogCapture log;
    const Fault fault(row.call, row.error, 1);
    EXPECT_EQ(row.call == kStat ? monitor.isProcessExist(pid) : monitor.waitProcess(pid), row.result);
    EXPECT_EQ(log.messages(), support::filled(row.message, {pid}));
  }
  EXPECT_TRUE(monitor.isProcessExist(pid));
  EXPECT_FALSE(monitor.isProcessExist(INT_MAX) || monitor.isProcessExist(-1));

  const support::LogCapture log;
  const pid_t child = forkChild();
  EXPECT_FALSE(monitor.waitProcess(child));
  ::kill(child, SIGKILL);
  EXPECT_TRUE(support::eventually([&] { return !monitor.waitProcess(-1) && ::kill(child, 0) == -1; }));
  EXPECT_TRUE(log.eventuallyContains("[ProcessMonitor]An error occurred while waiting for the process to exit: "));
}

}  // namespace
