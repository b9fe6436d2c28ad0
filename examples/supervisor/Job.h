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
// Used from the main thread, but for the capture, which runs on the reader thread of the process.
class Job {
 public:
  using Clock = std::chrono::steady_clock;

  // Gives what the command writes to the forwarder, which outlives the job.
  Job(const JobConfig& config, Forwarder& forwarder);

  // Launches the command, with the password where it is to run as root; false when that failed.
  bool start(const std::string& password);

  // To be called once the monitor has reported the shell as gone, with its wait status and the time when it did.
  void noteQuit(int status, Clock::time_point time);

  // Sends SIGTERM to the group at the first call, and SIGKILL in a call when the grace, or what `atOnce` leaves of it,
  // is over. Both reach what sudo runs.
  void end(bool atOnce);

  // Whether nothing is left of the shell, which has quit, and of its group.
  bool isGone() const;

  // Takes the rest of the output, and tells how it ended, in a line. With `mayRestart` it pauses if it is to start
  // again.
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
  std::string force() const;
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
  bool m_has_left = false;              // something behind, and quit by itself
  int m_signal = 0;                     // the last that was sent to end this run
  Clock::time_point m_started;
  Clock::time_point m_ending;  // when the first one was sent
  Clock::time_point m_next_start;
  Clock::duration m_ran{0};    // all runs
  Clock::duration m_pause{0};  // before the next start
};

}  // namespace supervisor

#endif
