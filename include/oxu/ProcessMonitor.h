/// Watches processes by name and calls a quit callback for each one that has gone.
///
/// | event                | name not in the table | name in the table                               |
/// |----------------------|-----------------------|-------------------------------------------------|
/// | addProcess           | adds the entry        | replaces it                                     |
/// | updateProcess        | adds the entry        | watches the new pid; own pid and callback stay  |
/// | the process has gone |                       | removes the entry, then calls its callbacks     |
/// | ~ProcessMonitor      |                       | drops it, without a call                        |
///
/// Two kinds of entries. Where both pids of a ProcessInfo are the same, the process is a child of the host, and the
/// monitor reaps it; a child that is stopped by a signal counts as gone, and is neither reaped nor ended. A pid that
/// is no child of the host stays in the table and is reported as an error in each pass. After updateProcess (or
/// setPid) has made the pids differ, the process is any other one, looked up in /proc; when it has gone, the entry's
/// own pid is reaped.
///
/// Threads: addProcess and updateProcess may be called from any thread. Quit and exit callbacks run one at a time on
/// the monitor's thread, at most about 200 milliseconds after the process ended. A callback may call addProcess and
/// updateProcess, to register its own name again as well. It must not throw, not destroy the monitor, and not wait for
/// a thread that calls the monitor, since it runs with the monitor's mutex held.
#ifndef OXU_PROCESSMONITOR_H
#define OXU_PROCESSMONITOR_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "oxu/Export.h"
#include "oxu/Mutex.h"

namespace oxu {

/// What the monitor knows of a process. A plain value; not for use by several threads at once.
class OXU_EXPORT ProcessInfo {
 public:
  /// Process id 0 and no callback.
  ProcessInfo();

  /// A child of the host. The callback's result is logged; an empty callback counts as one that
  /// returns 0.
  ProcessInfo(int pid, const std::function<int()>& quitCallback);

  ~ProcessInfo();
  ProcessInfo(const ProcessInfo&) = default;
  ProcessInfo& operator=(const ProcessInfo&) = default;

  /// Sets the host's child alone, not the process that is watched.
  void setPid(int pid);

  void setQuitCallback(const std::function<int()>& quitCallback);

  /// For a child of the host: is called right before the quit callback, in the same way, with the status that waitpid
  /// gave, for WIFEXITED and its kin. Not called where updateProcess has moved the entry to another process.
  void setExitCallback(const std::function<void(int waitStatus)>& exitCallback);

  /// Takes over the watched process of `other`, and nothing else.
  void updateProcessInfo(const ProcessInfo& other);

 private:
  friend class ProcessMonitor;

  int m_pid;
  int m_current_pid;
  std::function<int()> m_quit_callback;
  std::function<void(int)> m_exit_callback;
};

class OXU_EXPORT ProcessMonitor {
 public:
  /// Starts the monitor's thread.
  ProcessMonitor();

  /// Waits for the thread: for the pass that it is in, with the callbacks still due there, and at most about 200
  /// milliseconds more.
  ~ProcessMonitor();

  ProcessMonitor(const ProcessMonitor&) = delete;
  ProcessMonitor& operator=(const ProcessMonitor&) = delete;

  void addProcess(const std::string& name, const ProcessInfo& info);
  void updateProcess(const std::string& name, const ProcessInfo& info);

  /// True when the child has ended or stopped, and was collected; never waits. Failures are logged.
  bool waitProcess(const int& pid);

  /// True when the process exists, be it as a zombie, and when that cannot be found out.
  bool isProcessExist(const int& pid);

 private:
  struct Snapshot;

  static void* watcherLoop(void* monitor);
  static bool collect(int pid, int& status);
  void refresh(Snapshot& snapshot);
  void checkChild(const std::string& name, const ProcessInfo& info);
  void checkOtherProcess(const std::string& name, const ProcessInfo& info);
  void reapListed(const Snapshot& snapshot);

  std::unordered_map<std::string, ProcessInfo> m_processes;
  std::vector<int> m_reap_pids;
  OS::TRecursiveMutex m_mutex;
  std::uint64_t m_watcher_thread;
  std::atomic<bool> m_running;
  std::atomic<bool> m_changed;
};

}  // namespace oxu

#endif
