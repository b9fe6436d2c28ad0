// A launched command, its output and its end.
#ifndef TESTS_SUPPORT_LAUNCHED_H
#define TESTS_SUPPORT_LAUNCHED_H

#include <sys/wait.h>

#include <string>

#include "oxu/StartProcess.h"
#include "tests/support/Capture.h"

namespace support {

class Launched : public support::SharedText {
 public:
  explicit Launched(const std::string& command, unsigned long bufferSize = 4096, const std::string& envNames = "",
                    const std::string& workDir = "", bool blockingOutput = false)
      : process(
            workDir, envNames, command, "secret", [this](const std::string& chunk) { append(chunk); }, bufferSize,
            false, blockingOutput) {}
  ~Launched() { wait(); }

  // Both wait for the end. The status is -1 for a command that a signal has ended, and where there is none.
  int exitStatus() { return WIFEXITED(wait()) ? WEXITSTATUS(m_status) : -1; }
  int endingSignal() { return WTERMSIG(wait()); }

 private:
  int wait() {
    if (process.pid() > 0 && m_status == -1) ::waitpid(process.pid(), &m_status, 0);
    return m_status;
  }

  int m_status = -1;

 public:
  oxu::StartProcess process;  // last, so that the capture ends first
};

}  // namespace support

#endif
