#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "oxu/CApi.h"
#include "oxu/Mutex.h"
#include "oxu/ProcessMonitor.h"
#include "oxu/StartProcess.h"
#include "tests/support/Capture.h"
#include "tests/support/Faults.h"

namespace {

using oxu::ProcessInfo;
using oxu::ProcessMonitor;

// A child of the test that runs until it is killed, or ends at once.
pid_t forkChild(bool endsAtOnce) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (endsAtOnce) ::_exit(0);
    ::alarm(60);
    for (;;) ::pause();
  }
  return pid;
}

bool isReaped(pid_t pid) {
  return support::eventually([pid] { return ::kill(pid, 0) == -1 && errno == ESRCH; });
}

std::string withPid(std::string text, long pid) {
  text.replace(text.find('#'), 1, std::to_string(pid));
  return text;
}

TEST(ProcessMonitor, ReapsAChildThatEndsAndCallsItsCallbackOnce) {
  support::LogCapture log;
  std::atomic<int> calls{0};
  ProcessMonitor monitor;
  const pid_t pid = forkChild(false);
  monitor.addProcess("worker", ProcessInfo(pid, [&] { return ++calls + 40; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(calls, 0);
  ::kill(pid, SIGKILL);
  EXPECT_TRUE(isReaped(pid));
  EXPECT_TRUE(log.eventuallyContains("result:41"));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(
      log.messages(),
      withPid("ERROR [ProcessMonitor]Process(worker) Pid(#) is not exist, call quit callback\n\n",
              pid) +
          withPid("DEBUG [ProcessMonitor]Node Process(worker) Pid(#)  quit callback result:41\n\n",
                  pid));
}

TEST(ProcessMonitor, WatchesAnUpdatedProcessThroughProcAndReapsItsOwnChildAfterwards) {
  support::LogCapture log;
  std::atomic<int> calls{0};
  ProcessMonitor monitor;
  const pid_t own = forkChild(true);
  const pid_t watched = forkChild(false);
  ProcessInfo info(watched, [&] { return ++calls; });
  info.setPid(own);
  monitor.addProcess("node", info);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(calls, 0);
  ::kill(watched, SIGKILL);
  ::waitpid(watched, nullptr, 0);
  EXPECT_TRUE(isReaped(own));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(
      log.messages(),
      withPid("ERROR [ProcessMonitor]Node Process(node) Pid(#) is not exist, call quit callback.\n",
              own));
}

TEST(ProcessMonitor, UpdateKeepsOwnPidAndCallbackOfAKnownName) {
  std::atomic<int> first{0};
  std::atomic<int> second{0};
  ProcessMonitor monitor;
  const pid_t own = forkChild(false);
  const pid_t watched = forkChild(false);
  monitor.addProcess("node", ProcessInfo(own, [&] { return ++first; }));
  monitor.updateProcess("node", ProcessInfo(watched, [&] { return ++second; }));
  ::kill(own, SIGKILL);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(first, 0);
  ::kill(watched, SIGKILL);
  ::waitpid(watched, nullptr, 0);
  EXPECT_TRUE(isReaped(own));
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 0);
}

// The names, callbacks and pids of entries that are taken as gone at the first check.
TEST(ProcessMonitor, HandlesEntriesWithoutAProcessOrACallback) {
  support::LogCapture log;
  std::atomic<int> calls{0};
  const pid_t own = forkChild(true);
  const pid_t silent = forkChild(true);
  {
    ProcessMonitor monitor;
    ProcessInfo onlyPid;
    onlyPid.setPid(own);
    onlyPid.setQuitCallback([&] { return ++calls; });
    monitor.addProcess("only pid", onlyPid);
    monitor.addProcess("silent", ProcessInfo(silent, nullptr));
    ProcessInfo onlyCurrent(INT_MAX, [&] { return ++calls; });
    onlyCurrent.setPid(0);
    monitor.addProcess("only current", onlyCurrent);
    EXPECT_TRUE(isReaped(own));
    EXPECT_TRUE(isReaped(silent));
    EXPECT_TRUE(log.eventuallyContains("result:0"));
    EXPECT_TRUE(support::eventually([&] { return calls == 2; }));
  }
  EXPECT_EQ(log.messages().find("failed"), std::string::npos) << log.messages();
}

TEST(ProcessMonitor, AReplacedEntryIsGoneWithItsCallback) {
  std::atomic<int> first{0};
  std::atomic<int> second{0};
  ProcessMonitor monitor;
  const pid_t pid = forkChild(false);
  monitor.addProcess("name", ProcessInfo(pid, [&] { return ++first; }));
  monitor.addProcess("name", ProcessInfo(pid, [&] { return ++second; }));
  ::kill(pid, SIGKILL);
  EXPECT_TRUE(support::eventually([&] { return second == 1; }));
  EXPECT_EQ(first, 0);
}

// The callable owns memory that it uses after it has registered its name again: had its entry still
// been in the table, it would run on freed memory, and the new entry would go with the old.
TEST(ProcessMonitor, AQuitCallbackMayRestartItsOwnProcess) {
  constexpr int kRestarts = 3;
  std::atomic<int> quits{0};
  std::vector<std::unique_ptr<oxu::StartProcess>> processes;
  ProcessMonitor monitor;
  std::function<void()> start = [&] {
    processes.push_back(
        std::make_unique<oxu::StartProcess>("", "", "exit 0", "", nullptr, 4096, false));
    const std::string text(1000, 'o');
    monitor.addProcess("restarted", ProcessInfo(processes.back()->pid(), [&, text] {
                         if (quits < kRestarts) start();
                         return ++quits + static_cast<int>(text.size() - std::string(text).size());
                       }));
  };
  start();
  EXPECT_TRUE(support::eventually([&] { return quits == kRestarts + 1; }));
  for (const auto& process : processes) EXPECT_TRUE(isReaped(process->pid()));
}

TEST(ProcessMonitor, AStoppedChildCountsAsGone) {
  std::atomic<int> calls{0};
  ProcessMonitor monitor;
  const pid_t pid = forkChild(false);
  ::kill(pid, SIGSTOP);
  monitor.addProcess("stopped", ProcessInfo(pid, [&] { return ++calls; }));
  EXPECT_TRUE(support::eventually([&] { return calls == 1; }));
  ::kill(pid, SIGKILL);
  EXPECT_EQ(::waitpid(pid, nullptr, 0), pid);
}

// A process is listed for reaping for one iteration, about 200 milliseconds; a few attempts make
// sure that the monitor's end falls into one.
TEST(ProcessMonitor, EndsWithEntriesLeftAndNamesThoseItWasToReap) {
  support::LogCapture log;
  std::atomic<bool> called{false};
  const pid_t left = forkChild(false);
  const pid_t own = forkChild(false);
  const std::string message =
      withPid("ERROR [ProcessMonitor]Child Process(pid:#) exist, may be a zombie process.\n", own);
  const auto attempt = [&] {
    {
      ProcessMonitor monitor;
      monitor.addProcess("left", ProcessInfo(left, [&] {
                           called = true;
                           return 0;
                         }));
      ProcessInfo gone;
      gone.setPid(own);
      monitor.addProcess("gone", gone);
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }
    return log.messages().find(message) != std::string::npos;
  };
  EXPECT_TRUE(support::eventually(attempt));
  EXPECT_FALSE(called);
  for (const pid_t pid : {left, own}) {
    ::kill(pid, SIGKILL);
    EXPECT_EQ(::waitpid(pid, nullptr, 0), pid);
  }
}

TEST(ProcessMonitor, ReportsFailedChecksAndTakesTheProcessAsRunning) {
  using namespace faults;
  const struct {
    Call call;
    int error;
    bool result;
    const char* message;
  } rows[] = {
      {kWaitpid, ECHILD, false, "ERROR [ProcessMonitor]waitpid(#) failed: No child processes\n\n"},
      {kStat, ENOENT, false, ""},
      {kStat, EACCES, true, "DEBUG No permission to check the status of the process (pid=#).\n"},
      {kStat, EPERM, true, "DEBUG No permission to check the status of the process (pid=#).\n"},
      {kStat, EIO, true,
       "DEBUG An error occurred while checking the existence status of the process: Input/output "
       "error\n"},
  };
  ProcessMonitor monitor;
  const int pid = ::getpid();
  for (const auto& row : rows) {
    support::LogCapture log;
    const Fault fault(row.call, row.error, 1);
    EXPECT_EQ(row.call == kStat ? monitor.isProcessExist(pid) : monitor.waitProcess(pid),
              row.result);
    const std::string message = row.message;
    EXPECT_EQ(log.messages(),
              message.find('#') == std::string::npos ? message : withPid(message, pid));
  }
  EXPECT_TRUE(monitor.isProcessExist(pid));
  EXPECT_FALSE(monitor.isProcessExist(INT_MAX));
  EXPECT_FALSE(monitor.isProcessExist(-1));
}

TEST(ProcessMonitor, WaitCollectsAChildOnceAndReportsAnotherOne) {
  support::LogCapture log;
  ProcessMonitor monitor;
  const pid_t running = forkChild(false);
  EXPECT_FALSE(monitor.waitProcess(running));
  ::kill(running, SIGKILL);
  EXPECT_TRUE(support::eventually([&] { return monitor.waitProcess(running); }));
  EXPECT_FALSE(monitor.waitProcess(running));
  const pid_t other = forkChild(true);
  EXPECT_TRUE(support::eventually([&] { return monitor.waitProcess(-1), ::kill(other, 0) == -1; }));
  EXPECT_NE(log.messages().find("An error occurred while waiting for the process to exit: "),
            std::string::npos);
}

TEST(ProcessMonitor, TakesEntriesFromManyThreadsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kEntries = 25;
  std::atomic<int> calls{0};
  {
    ProcessMonitor monitor;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        for (int i = 0; i < kEntries; ++i) {
          const std::string name = std::to_string(thread) + "/" + std::to_string(i);
          ProcessInfo info(INT_MAX - i, [&] { return ++calls; });
          info.setPid(0);
          monitor.updateProcess(name, info);
          if (i % 5 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(30));
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(support::eventually([&] { return calls == kThreads * kEntries; }));
  }
  EXPECT_EQ(calls, kThreads * kEntries);
}

TEST(RecursiveMutex, LocksAgainForItsHolder) {
  OS::TRecursiveMutex mutex;
  const std::lock_guard<OS::TBaseMutex> outer(mutex);
  const std::lock_guard<OS::TRecursiveMutex> inner(mutex);
}

}  // namespace
