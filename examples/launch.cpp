// Launching a command, capturing its output, and killing it with all that it started.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>

#include "oxu/StartProcess.h"

int main() {
  std::atomic<bool> ready{false};
  const auto print = [&](const std::string& chunk) {
    std::printf("captured: %s", chunk.c_str());
    ready = true;
  };
  // In /tmp, with the host's HOME exported; the sleep stands for a server that does not end by itself.
  const oxu::StartProcess process("/tmp", "HOME", "echo \"server in $PWD\"; sleep 1000", "", print, 4096, false);
  if (!process.isRunning()) return 1;
  while (!ready) std::this_thread::sleep_for(std::chrono::milliseconds(10));

  // The group is the child's own: the shell and the sleep go, this process stays. An ordinary user without sudo
  // calls ::kill(-process.pid(), SIGKILL) instead.
  if (::geteuid() != 0 ? ::kill(-process.pid(), SIGKILL) != 0 : !oxu::StartProcess::kill(process.pid())) return 1;
  int status = 0;
  ::waitpid(process.pid(), &status, 0);
  std::printf("ended by signal %d\n", WTERMSIG(status));
}
