#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "oxu/CApi.h"
#include "oxu/StartProcess.h"

namespace oxu {

namespace {

// -1, with a logged message, where there is no such process.
int groupOf(int pid) {
  const int pgid = ::getpgid(pid);
  if (pgid == -1) push_log(ERROR, "Failed to get pgid for pid: %d.\n", pid);
  return pgid;
}

std::string killCommand(int pgid) { return "kill -9 -- -" + std::to_string(pgid); }

// Runs the commands in a background shell, the first of them as root; system() returns once that shell runs. A null
// password counts as an empty one.
bool startShell(const std::string& commands, const std::string* password) {
  std::string line = "bash -c \"";
  if (::geteuid() != 0) line += "echo '" + (password != nullptr ? *password : "") + "' | sudo -S ";
  return std::system((line + commands + "\" &").c_str()) == 0;
}

}  // namespace

bool StartProcess::kill(int pid) {
  if (pid < 0) {
    push_log(ERROR, "Invalid process id: %ld.\n", static_cast<long>(pid));
    return false;
  }
  const int pgid = groupOf(pid);
  if (pgid == -1) return false;
  if (!startShell(killCommand(pgid), m_su_passwd)) {
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
  std::string commands;
  for (const int pid : pids) {
    const int pgid = groupOf(pid);
    if (pgid != -1) commands += killCommand(pgid) + "; ";
  }
  if (!startShell(commands, m_su_passwd)) {
    push_log(ERROR, "Failed to kill process groups: %s.\n", std::strerror(errno));
    return false;
  }
  push_log(INFO, "All process groups killed.");
  return true;
}

}  // namespace oxu
