#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "os/os_thread.h"
#include "oxu/CApi.h"
#include "oxu/ProcessMonitor.h"

namespace oxu {

namespace {

constexpr std::int64_t kPauseMs = 200;

int callQuitCallback(const std::function<int()>& callback) { return callback ? callback() : 0; }

}  // namespace

// The watcher's private copy. The watcher walks through this copy without the mutex, and changes the live table.
struct ProcessMonitor::Snapshot {
  std::unordered_map<std::string, ProcessInfo> processes;
  std::vector<int> reapPids;
};

bool ProcessMonitor::waitProcess(const int& pid) {
  int status = 0;
  return collect(pid, status);
}

bool ProcessMonitor::collect(int pid, int& status) {
  const int collected = ::waitpid(pid, &status, WNOHANG | WUNTRACED);
  if (collected == -1) {
    push_log(ERROR, "[ProcessMonitor]waitpid(%ld) failed: %s\n", static_cast<long>(pid), std::strerror(errno));
    return false;
  }
  if (collected == 0) return false;
  if (collected == pid) return true;
  push_log(ERROR, "[ProcessMonitor]An error occurred while waiting for the process to exit: %s", std::strerror(errno));
  return false;
}

bool ProcessMonitor::isProcessExist(const int& pid) {
  const std::string path = "/proc/" + std::to_string(pid);
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode);
  const int error = errno;
  if (error == ENOENT) return false;
  if (error == EACCES || error == EPERM) {
    push_log(DEBUG, "No permission to check the status of the process (pid=%ld).", static_cast<long>(pid));
  } else {
    push_log(DEBUG, "An error occurred while checking the existence status of the process: %s", std::strerror(error));
  }
  return true;
}

void* ProcessMonitor::watcherLoop(void* monitor) {
  auto* self = static_cast<ProcessMonitor*>(monitor);
  Snapshot snapshot;
  while (self->m_running) {
    self->refresh(snapshot);
    for (const auto& [name, info] : snapshot.processes) {
      if (info.m_pid == info.m_current_pid) {
        self->checkChild(name, info);
      } else {
        self->checkOtherProcess(name, info);
      }
    }
    self->reapListed(snapshot);
    os_thread_sleep_milliseconds(kPauseMs, 0);
  }
  for (const int pid : snapshot.reapPids) {
    push_log(ERROR, "[ProcessMonitor]Child Process(pid:%ld) exist, may be a zombie process.", static_cast<long>(pid));
  }
  return nullptr;
}

void ProcessMonitor::refresh(Snapshot& snapshot) {
  if (!m_changed) return;
  const std::lock_guard<OS::TRecursiveMutex> lock(m_mutex);
  snapshot.processes = m_processes;
  snapshot.reapPids = m_reap_pids;
  m_changed = false;
}

// Here and in checkOtherProcess the entry leaves the table before its callbacks run. So a callback that registers its
// own name again does not destroy the callable that is running, and its new entry stays.
void ProcessMonitor::checkChild(const std::string& name, const ProcessInfo& info) {
  int status = 0;
  if (!collect(info.m_pid, status)) return;
  const long pid = info.m_pid;
  push_log(ERROR, "[ProcessMonitor]Process(%s) Pid(%ld) is not exist, call quit callback\n", name.c_str(), pid);
  {
    const std::lock_guard<OS::TRecursiveMutex> lock(m_mutex);
    if (const auto entry = m_processes.extract(name)) {
      const ProcessInfo& own = entry.mapped();
      const bool isSame = own.m_pid == info.m_pid && own.m_current_pid == info.m_pid;
      if (isSame && own.m_exit_callback) own.m_exit_callback(status);
      const int result = callQuitCallback(own.m_quit_callback);
      push_log(DEBUG, "[ProcessMonitor]Node Process(%s) Pid(%ld)  quit callback result:%d\n", name.c_str(), pid,
               result);
    }
  }
  m_changed = true;
}

void ProcessMonitor::checkOtherProcess(const std::string& name, const ProcessInfo& info) {
  if (isProcessExist(info.m_current_pid)) return;
  push_log(ERROR, "[ProcessMonitor]Node Process(%s) Pid(%ld) is not exist, call quit callback.", name.c_str(),
           static_cast<long>(info.m_pid));
  {
    const std::lock_guard<OS::TRecursiveMutex> lock(m_mutex);
    if (const auto entry = m_processes.extract(name)) {
      if (info.m_pid != 0) m_reap_pids.push_back(entry.mapped().m_pid);
      callQuitCallback(entry.mapped().m_quit_callback);
    }
  }
  m_changed = true;
}

// Waits once for each listed process, without blocking, and takes it off the list, collected or not.
void ProcessMonitor::reapListed(const Snapshot& snapshot) {
  for (const int pid : snapshot.reapPids) {
    waitProcess(pid);
    {
      const std::lock_guard<OS::TRecursiveMutex> lock(m_mutex);
      const auto listed = std::find(m_reap_pids.begin(), m_reap_pids.end(), pid);
      if (listed != m_reap_pids.end()) m_reap_pids.erase(listed);
    }
    m_changed = true;
  }
}

}  // namespace oxu
