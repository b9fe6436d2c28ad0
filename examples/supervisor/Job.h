// One supervised command: its process, its output line by line, and its figures.
#ifndef SUPERVISOR_JOB_H
#define SUPERVISOR_JOB_H

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "Config.h"
#include "Forwarder.h"
#include "common/LineCutter.h"
#include "oxu/Json.h"
#include "oxu/StartProcess.h"

namespace supervisor {

// | state   | reached by                            | left by                                |
// |---------|---------------------------------------|----------------------------------------|
// | idle    | construction, finish, cancelRestart   | start                                  |
// | running | start                                 | noteQuit                               |
// | quit    | noteQuit: the shell has gone          | finish, once its group has gone too    |
// | pausing | finish, where it is to start again    | start, once isDue; cancelRestart       |
//
// Used from the main thread. Only the capture runs on the reader thread of the process.
class Job {
 public:
  using Clock = std::chrono::steady_clock;

  // Gives what the command writes to the forwarder, which outlives the job.
  Job(const JobConfig& config, Forwarder& forwarder);

  // Launches the command, with the password where it is to run as root; false when that failed.
  bool start(const std::string& password);

  // The monitor has reported the shell as gone, with this wait status, at that time.
  void noteQuit(int status, Clock::time_point time);

  // Called again and again until the job is gone. The first call sends SIGTERM to the group. The first call after the
  // grace sends SIGKILL; with `atOnce` there is no grace. Both signals reach what sudo runs.
  void end(bool atOnce);

  // Whether the shell has quit and nothing is left of it and its group.
  bool isGone() const;

  // Takes the rest of the output, and returns a line that tells how the run ended. With `mayRestart` the job pauses
  // where it is to start again.
  std::string finish(bool mayRestart);

  void cancelRestart() {
    if (m_state == State::kPausing) m_state = State::kIdle;
  }

  const std::string& name() const { return m_config.name; }
  int pid() const { return m_pid; }
  bool isRunning() const { return m_state == State::kRunning; }
  bool hasQuit() const { return m_state == State::kQuit; }
  bool isIdle() const { return m_state == State::kIdle; }
  bool hasSucceeded() const { return m_ended == "exit 0"; }
  bool isDue() const { return m_state == State::kPausing && Clock::now() >= m_next_start; }
  oxu::json::Json report() const;

 private:
  enum class State { kIdle, kRunning, kQuit, kPausing };

  void capture(const std::string& chunk);
  void show(const std::string& line);
  void showLast();
  void signal(int number) const;
  void killThroughSudo() const;
  std::string signalNeeded() const;
  bool runsThroughSudo() const { return m_config.root && ::geteuid() != 0; }

  const JobConfig m_config;
  Forwarder& m_forwarder;
  common::LineCutter m_lines;
  std::unique_ptr<oxu::StartProcess> m_process;
  std::atomic<bool> m_is_capture_over{false};
  std::atomic<unsigned long> m_bytes{0};
  unsigned long m_run_lines = 0;
  std::string m_last_line;
  State m_state = State::kIdle;
  int m_pid = -1;
  int m_starts = 0;
  std::string m_ended = "not started";  // how the last run has ended
  bool m_has_left_processes = false;    // the shell quit by itself, and left processes in its group
  int m_signal = 0;                     // the last one that was sent to end this run
  Clock::time_point m_started;
  Clock::time_point m_first_signal_sent;
  Clock::time_point m_next_start;
  Clock::duration m_ran{0};    // all runs together
  Clock::duration m_pause{0};  // before the next start
};

}  // namespace supervisor

#endif
