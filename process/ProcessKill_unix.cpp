#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "oxu/CApi.h"
#include "oxu/StartProcess.h"

namespace oxu {

namespace {

// The shells run in the background, so that system() returns once the outer one has started.
const char* const kTail = "\" &";

std::string sudoHead(const std::string& password) { return "bash -c \"echo '" + password + "' | sudo -S "; }

}  // namespace

bool StartProcess::kill(int pid) {
  if (pid < 0) {
    push_log(ERROR, "Invalid process id: %ld.\n", static_cast<long>(pid));
    return false;
  }
  const int pgid = ::getpgid(pid);
  if (pgid == -1) {
    push_log(ERROR, "Failed to get pgid for pid: %d.\n", pid);
    return false;
  }
  const std::string head = ::geteuid() == 0 ? "bash -c \"" : sudoHead(m_su_passwd);
  const std::string line = head + "kill -9 -- -" + std::to_string(pgid) + kTail;
  if (std::system(line.c_str()) != 0) {
    push_log(ERROR, "Failed to kill process group %ld(pgid: %d): %s.\n", static_cast<long>(pid), pgid,
             std::strerror(errno));
    return false;
  }
  push_log(INFO, "Process group %ld(pgid: %d)killed.", static_cast<long>(pid), pgid);
  return true;
}

bool StartProcess::kill(const std::vector<int>& pids) {
  if (pids.empty()) {
    push_log(ERROR, "Invalid process id list.\n");
    return false;
  }
  std::string line = ::geteuid() == 0 ? "bash -c \"" : sudoHead(m_su_passwd);
  for (const int pid : pids) {
    const int pgid = ::getpgid(pid);
    if (pgid == -1) {
      push_log(ERROR, "Failed to get pgid for pid: %d.\n", pid);
      continue;
    }
    line += "kill -9 -- -" + std::to_string(pgid) + "; ";
  }
  line += kTail;
  if (std::system(line.c_str()) != 0) {
    push_log(ERROR, "Failed to kill process groups: %s.\n", std::strerror(errno));
    return false;
  }
  push_log(INFO, "All process groups killed.");
  return true;
}

}  // namespace oxu
