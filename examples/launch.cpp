// Launching a command, capturing its output, and killing it with all that it started.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "oxu/StartProcess.h"

int main() {
  std::string output;
  const auto collect = [&output](const std::string& chunk) { output += chunk; };  // runs on the reader thread
  // In /tmp, with the host's HOME exported. The sleep stands for a server that does not end by itself. A server that
  // writes faster than its output is collected waits.
  const oxu::StartProcess process("/tmp", "HOME", "echo \"server in $PWD\"; sleep 1000", "", collect, 4096, false,
                                  true);
  if (!process.isRunning()) return 1;
  ::sleep(1);

  // The group is the child's own: the shell and the sleep go, this process stays. An ordinary user without sudo
  // calls ::kill(-process.pid(), SIGKILL) instead.
  if (::geteuid() != 0 ? ::kill(-process.pid(), SIGKILL) != 0 : !oxu::StartProcess::kill(process.pid())) return 1;
  int status = 0;
  ::waitpid(process.pid(), &status, 0);
  // Once the callback has got all that was written, this thread may use the output.
  if (!process.flushOutput(1000)) return 1;
  std::printf("captured: %sended by signal %d\n", output.c_str(), WTERMSIG(status));
}
