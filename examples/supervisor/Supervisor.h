// Starts commands, restarts those that end, and ends them all when asked to.
#ifndef SUPERVISOR_SUPERVISOR_H
#define SUPERVISOR_SUPERVISOR_H

#include <deque>
#include <functional>
#include <string>

#include "Config.h"
#include "Forwarder.h"
#include "Job.h"
#include "common/Queue.h"
#include "oxu/Json.h"
#include "oxu/ProcessMonitor.h"

namespace supervisor {

// Used from the main thread. Launching and killing must not happen at the same time, so the exit callbacks, which run
// on the monitor's thread, only tell the main thread which job has quit.
//
// The supervisor becomes the parent of the processes that its commands leave behind, and collects them. So the host
// must have no other children.
class Supervisor {
 public:
  explicit Supervisor(const Config& config);

  // Returns when every job has ended for good. Asks all of them to end when stopSignals() is above 0, and kills them
  // when it is above 1.
  void run(const std::function<int()>& stopSignals);

  // The figures of each job.
  oxu::json::Json report() const;

 private:
  struct Quit {
    Job* job = nullptr;
    int status = 0;
    Job::Clock::time_point time;
  };

  void start(Job& job);
  void advance(Job& job);
  void stop(int signals);
  void collectOrphans();

  std::string m_password;
  Forwarder m_forwarder;
  int m_stop_signals = 0;
  std::deque<Job> m_jobs;  // a deque: the jobs stay at their addresses
  common::Queue<Quit> m_quits;
  oxu::ProcessMonitor m_monitor;
};

}  // namespace supervisor

#endif
