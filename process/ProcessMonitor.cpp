#include "oxu/ProcessMonitor.h"

#include <mutex>

#include "os/os_mutex.h"
#include "os/os_thread.h"

namespace OS {

TBaseMutex::~TBaseMutex() { os_mutex_destroy(&m_handle); }

void TBaseMutex::lock() { os_mutex_lock(m_handle); }

void TBaseMutex::unlock() { os_mutex_unlock(m_handle); }

TRecursiveMutex::TRecursiveMutex() { m_handle = os_mutex_create(1, 2, 0); }

TRecursiveMutex::~TRecursiveMutex() = default;

}  // namespace OS

namespace oxu {

ProcessInfo::ProcessInfo() : m_pid(0), m_current_pid(0) {}

ProcessInfo::ProcessInfo(int pid, const std::function<int()>& quitCallback)
    : m_pid(pid), m_current_pid(pid), m_quit_callback(quitCallback) {}

ProcessInfo::~ProcessInfo() = default;

void ProcessInfo::setPid(int pid) { m_pid = pid; }

void ProcessInfo::setQuitCallback(const std::function<int()>& quitCallback) { m_quit_callback = quitCallback; }

void ProcessInfo::setExitCallback(const std::function<void(int)>& exitCallback) { m_exit_callback = exitCallback; }

void ProcessInfo::updateProcessInfo(const ProcessInfo& other) { m_current_pid = other.m_current_pid; }

ProcessMonitor::ProcessMonitor() : m_watcher_thread(0), m_running(true), m_changed(true) {
  os_thread_create(&m_watcher_thread, watcherLoop, this, 0, 0);
}

ProcessMonitor::~ProcessMonitor() {
  m_running = false;
  if (m_watcher_thread == 0) return;
  os_thread_join(m_watcher_thread, nullptr);
  m_watcher_thread = 0;
}

void ProcessMonitor::addProcess(const std::string& name, const ProcessInfo& info) {
  {
    const std::lock_guard<OS::TRecursiveMutex> lock(m_mutex);
    m_processes[name] = info;
  }
  m_changed = true;
}

void ProcessMonitor::updateProcess(const std::string& name, const ProcessInfo& info) {
  {
    const std::lock_guard<OS::TRecursiveMutex> lock(m_mutex);
    const auto entry = m_processes.find(name);
    if (entry != m_processes.end()) {
      entry->second.updateProcessInfo(info);
    } else {
      m_processes[name] = info;
    }
  }
  m_changed = true;
}

}  // namespace oxu
