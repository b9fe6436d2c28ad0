// What a pass of the monitor over many processes that are no children costs, beside the bare stat calls, and beside one
// epoll over pidfds. Processor time of the process, in microseconds per pass; in a process of its own.
//
// Usage: monitor_scan PROCESSES PASSES. Prints the figures of the three.
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Figures.h"
#include "oxu/ProcessMonitor.h"

namespace {

double processorMicroseconds() { return 1e6 * bench::processorSeconds(RUSAGE_SELF); }

std::vector<pid_t> startProcesses(int count) {
  std::vector<pid_t> pids;
  for (int i = 0; i < count; ++i) {
    const pid_t pid = ::fork();
    // Kept, it would be killed at the end, and -1 stands for every process.
    if (pid == -1) std::abort();
    if (pid == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::pause();
      ::_exit(0);
    }
    pids.push_back(pid);
  }
  return pids;
}

// The monitor makes one pass each 200 ms. What its thread costs in so many passes, the start of the table aside.
double monitorPass(const std::vector<pid_t>& pids, int passes) {
  oxu::ProcessMonitor monitor;
  for (const pid_t pid : pids) {
    oxu::ProcessInfo info(pid, nullptr);
    info.setPid(0);  // looked up in /proc
    monitor.addProcess("process " + std::to_string(pid), info);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  const double before = processorMicroseconds();
  std::this_thread::sleep_for(std::chrono::milliseconds(200) * passes);
  return (processorMicroseconds() - before) / passes;
}

// As often, and with the same pauses: a processor that has rested is slower.
template <class Pass>
double pacedPass(int passes, const Pass& pass) {
  double sum = 0;
  for (int i = 0; i < passes; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const double before = processorMicroseconds();
    pass();
    sum += processorMicroseconds() - before;
  }
  return sum / passes;
}

double barePass(const std::vector<pid_t>& pids, int passes) {
  return pacedPass(passes, [&pids] {
    for (const pid_t pid : pids) {
      char path[32];
      struct stat status {};
      std::snprintf(path, sizeof path, "/proc/%d", pid);
      if (::stat(path, &status) != 0) std::abort();
    }
  });
}

double epollPass(const std::vector<pid_t>& pids, int passes) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
  for (const pid_t pid : pids) {
    const int fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    epoll_event event{EPOLLIN, {}};
    if (fd == -1 || ::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) return -1;
  }
  return pacedPass(passes, [epoll] {
    epoll_event event{};
    if (::epoll_wait(epoll, &event, 1, 0) != 0) std::abort();
  });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: monitor_scan PROCESSES PASSES\n", stderr);
    return 2;
  }
  const int passes = std::atoi(argv[2]);
  const std::vector<pid_t> pids = startProcesses(std::atoi(argv[1]));
  const double monitor = monitorPass(pids, passes);
  const double bare = barePass(pids, passes);
  const double epoll = epollPass(pids, passes);
  for (const pid_t pid : pids) ::kill(pid, SIGKILL);
  for (const pid_t pid : pids) ::waitpid(pid, nullptr, 0);
  std::fprintf(stderr, "monitor_us %.1f\nstat_us %.1f\n", monitor, bare);
  if (epoll >= 0) std::fprintf(stderr, "pidfd_us %.1f\n", epoll);
}
