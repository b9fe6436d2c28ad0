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
                    const std::string& workDir = "")
      : process(
            workDir, envNames, command, "secret", [this](const std::string& chunk) { append(chunk); }, bufferSize,
            false) {}
  ~Launched() { wait(); }

  // The wait status; -1 when there is no child.
  int wait() {
    if (process.pid() > 0 && m_status == -1) ::waitpid(process.pid(), &m_status, 0);
    return m_status;
  }

 private:
  int m_status = -1;

 public:
  oxu::StartProcess process;  // last, so that the capture ends first
};

}  // namespace support

#endif
