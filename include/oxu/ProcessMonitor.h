/// Watches processes by name and calls a quit callback for each one that has gone.
///
/// | event                | name not in the table | name in the table                               |
/// |----------------------|-----------------------|-------------------------------------------------|
/// | addProcess           | adds the entry        | replaces the entry                              |
/// | updateProcess        | adds the entry        | watches the new pid; own pid and callbacks stay |
/// | the process has gone |                       | removes the entry, then calls its callbacks     |
/// | ~ProcessMonitor      |                       | drops the entry, without a call                 |
///
/// An entry has its own pid and a watched pid.
/// - While both are the same, as at first, the process is a child of the host, and the monitor reaps it. A child that
///   is stopped by a signal counts as gone; it is neither reaped nor ended. A pid that is no child of the host stays in
///   the table, and each pass of the monitor logs an error.
/// - Once updateProcess or setPid has made them differ, the watched process may be any, and is looked up in /proc,
///   where a child of the host stays until the host reaps it. When it has gone, the entry's own pid is reaped if it has
///   ended by the next pass; later ends are not noticed.
///
/// Threads: all members may be called from any thread. Quit and exit callbacks run one at a time on the monitor's
/// thread, at most about 200 milliseconds after the process ended and the callbacks before it, with the monitor's mutex
/// held: addProcess and updateProcess on other threads wait meanwhile.
/// - A callback may call addProcess and updateProcess, even to register its own name again.
/// - It must not throw, not destroy the monitor, and not wait for a thread that calls the monitor.
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

/// What the monitor knows of a process. A plain value, used by one thread at a time.
class OXU_EXPORT ProcessInfo {
 public:
  /// Both process ids are 0, and there is no callback.
  ProcessInfo();

  /// A child of the host: both process ids are `pid`, which is positive: with 0 or -1 the monitor would reap other
  /// children. The result of the callback is logged, unless updateProcess has moved the entry; an empty callback counts
  /// as one that returns 0.
  ProcessInfo(int pid, const std::function<int()>& quitCallback);

  ~ProcessInfo();
  ProcessInfo(const ProcessInfo&) = default;
  ProcessInfo& operator=(const ProcessInfo&) = default;

  /// Sets the own pid, and leaves the watched one.
  void setPid(int pid);

  void setQuitCallback(const std::function<int()>& quitCallback);

  /// Sets what is called for a child of the host right before the quit callback, with the status that waitpid gave, for
  /// WIFEXITED and its kin. Not called where updateProcess has moved the entry to another process.
  void setExitCallback(const std::function<void(int waitStatus)>& exitCallback);

  /// Takes over the watched pid of `other`, and nothing else.
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
  /// Starts the monitor's thread. Where that fails, nothing is watched.
  ProcessMonitor();

  /// Waits for the thread. The thread ends its current pass, with the callbacks that are still due in it, and takes at
  /// most about 200 milliseconds more.
  ~ProcessMonitor();

  ProcessMonitor(const ProcessMonitor&) = delete;
  ProcessMonitor& operator=(const ProcessMonitor&) = delete;

  /// The table above says what these two do.
  void addProcess(const std::string& name, const ProcessInfo& info);
  void updateProcess(const std::string& name, const ProcessInfo& info);

  /// True when the child has stopped, or has ended and was reaped by this call. Never waits. Failures are logged.
  /// Not for a child in the table, whose entry would then stay for ever, with an error logged in each pass.
  bool waitProcess(const int& pid);

  /// True when the process exists, even as a zombie, and when that cannot be found out.
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
