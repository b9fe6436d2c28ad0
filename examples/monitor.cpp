// Being told when a process has gone, and starting it again.
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
  const std::function<void()> start = [&] {
    processes.push_back(std::make_unique<oxu::StartProcess>("", "", "exit 1", "", nullptr, 4096, false));
  };
  start();
  {
    oxu::ProcessMonitor monitor;
    // Runs on the monitor's thread once the child is gone and reaped. Registering the same name again is safe.
    const std::function<int()> onQuit = [&] {
      std::printf("worker has quit\n");
      if (quits + 1 < kStarts) {
        start();
        monitor.addProcess("worker", oxu::ProcessInfo(processes.back()->pid(), onQuit));
      }
      return ++quits;
    };
    monitor.addProcess("worker", oxu::ProcessInfo(processes.back()->pid(), onQuit));
    while (quits < kStarts) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  std::printf("%zu starts\n", processes.size());
}
