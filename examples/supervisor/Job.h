// One supervised command: its process, its output line by line, and its figures.
#ifndef SUPERVISOR_JOB_H
#define SUPERVISOR_JOB_H

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "Config.h"
#include "Forwarder.h"
#include "common/LinePrinter.h"
#include "oxu/StartProcess.h"

namespace supervisor {

// Used from the main thread, but for the capture, which runs on the reader thread of the process.
class Job {
 public:
  using Clock = std::chrono::steady_clock;

  // Gives what the command writes to the forwarder, which outlives the job.
  Job(JobConfig config, Forwarder& forwarder)
      : m_config(std::move(config)), m_forwarder(forwarder), m_printer(m_config.name, common::Controls::kKept) {}

  // Launches the command, with the password where it is to run as root; false when that failed.
  bool start(const std::string& password);

  // Whether it is to be started again now that it has quit.
  bool mayRestart() const { return m_starts <= m_config.restart; }

  // To be called once the monitor has reported the process as gone, with the time when it did: ends what is left
  // of the process's group, takes the rest of its output and ends the capture.
  void finish(Clock::time_point quitTime);

  // Whether the command runs as root while the supervisor does not.
  bool runsThroughSudo() const;

  const std::string& name() const { return m_config.name; }
  int pid() const { return m_pid; }
  bool isAlive() const { return m_process != nullptr; }
  int starts() const { return m_starts; }
  unsigned long lines() const { return m_printer.lines(); }
  unsigned long bytes() const { return m_bytes; }
  double seconds() const { return std::chrono::duration<double>(m_ran).count(); }

 private:
  void capture(const std::string& chunk);
  void captureLastWords(const std::string& chunk);
  void pass(const std::string& text);
  void endGroup() const;
  void waitForRestOfOutput();

  JobConfig m_config;
  Forwarder& m_forwarder;
  common::LinePrinter m_printer;
  std::unique_ptr<oxu::StartProcess> m_process;
  std::atomic<bool> m_ending{false};
  std::atomic<bool> m_capturing{false};
  std::atomic<bool> m_has_mark{false};
  std::string m_last_words;  // the end of what came once the end had begun
  std::atomic<unsigned long> m_bytes{0};
  int m_pid = -1;
  int m_starts = 0;
  Clock::time_point m_started;
  Clock::duration m_ran{0};
};

}  // namespace supervisor

#endif
