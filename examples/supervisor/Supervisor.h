// Starts commands, restarts those that quit, and ends them all when asked to.
#ifndef SUPERVISOR_SUPERVISOR_H
#define SUPERVISOR_SUPERVISOR_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Config.h"
#include "Forwarder.h"
#include "Job.h"
#include "oxu/Json.h"
#include "oxu/ProcessMonitor.h"

namespace supervisor {

// Used from the main thread. Launching and killing must not happen at the same time, so quit
// callbacks, which come on the monitor's thread, only tell the main thread which job has quit.
class Supervisor {
 public:
  explicit Supervisor(const Config& config);

  // Returns when no job is alive any more, which happens soon after stopRequested() has become
  // true.
  void run(const std::function<bool()>& stopRequested);

  // What became of each.
  oxu::json::Json report() const;

 private:
  void start(Job& job);
  struct Quit {
    Job* job = nullptr;
    Job::Clock::time_point time;
  };
  void handleQuit(const Quit& quit);
  void killAll();
  bool nextQuit(Quit& quit);
  std::vector<const Job*> aliveJobs() const;

  std::string m_password;
  Forwarder m_forwarder;
  bool m_stopping = false;
  std::deque<Job> m_jobs;  // a deque: the jobs stay at their addresses
  std::mutex m_mutex;
  std::condition_variable m_wake_up;
  std::deque<Quit> m_quits;  // guarded by m_mutex
  oxu::ProcessMonitor m_monitor;
};

}  // namespace supervisor

#endif
