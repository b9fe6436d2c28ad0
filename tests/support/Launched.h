// A launched command, its output and its end.
#ifndef TESTS_SUPPORT_LAUNCHED_H
#define TESTS_SUPPORT_LAUNCHED_H

#include <sys/wait.h>

#include <string>

#include "oxu/StartProcess.h"
#include "tests/support/Capture.h"

namespace support {

class Launched : public SharedText {
 public:
  explicit Launched(const std::string& command, unsigned long bufferSize = 4096, const std::string& envNames = "",
                    const std::string& workDir = "", bool blockingOutput = false)
      : process(
            workDir, envNames, command, /*password=*/"secret", [this](const std::string& chunk) { append(chunk); },
            bufferSize, /*needRoot=*/false, blockingOutput) {}
  ~Launched() { wait(); }

  // Both wait for the end. exitStatus is -1 for a command that was not launched or that a signal has ended.
  int exitStatus() { return WIFEXITED(wait()) ? WEXITSTATUS(m_status) : -1; }
  int endingSignal() { return WTERMSIG(wait()); }

  oxu::StartProcess process;

 private:
  int wait() {
    if (process.pid() > 0 && m_status == -1) ::waitpid(process.pid(), &m_status, 0);
    return m_status;
  }

  int m_status = -1;
};

}  // namespace support

#endif
