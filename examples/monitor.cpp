// Being told when a process has gone, and how, and starting it again.
#include <sys/wait.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "oxu/ProcessMonitor.h"
#include "oxu/StartProcess.h"

int main() {
  constexpr int kStarts = 3;
  std::vector<std::unique_ptr<oxu::StartProcess>> processes;
  std::atomic<int> quits{0};
  oxu::ProcessMonitor monitor;

  // Both callbacks run on the monitor's thread once the child is gone and reaped; the exit callback comes first.
  std::function<int()> onQuit;
  const auto start = [&] {
    processes.push_back(std::make_unique<oxu::StartProcess>("", "", "exit 3", "", nullptr, 4096, false));
    oxu::ProcessInfo worker(processes.back()->pid(), onQuit);
    worker.setExitCallback([](int status) { std::printf("worker ended with exit %d\n", WEXITSTATUS(status)); });
    monitor.addProcess("worker", worker);
  };
  // Registering the same name again is safe.
  onQuit = [&] {
    if (quits + 1 < kStarts) start();
    return ++quits;
  };
  start();
  while (quits < kStarts) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  std::printf("%d starts\n", quits.load());
}
