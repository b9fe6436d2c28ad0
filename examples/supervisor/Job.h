// One supervised command: its process, its output line by line, and its figures.
#ifndef SUPERVISOR_JOB_H
#define SUPERVISOR_JOB_H

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "oxu/StartProcess.h"

namespace supervisor {

// Used from the main thread, but for the capture, which runs on the reader thread of the process.
class Job {
 public:
  Job(std::string name, std::string command);

  // Launches the command; false when that failed.
  bool start();

  // To be called once the process has gone: takes the rest of its output and ends the capture.
  void finish();

  const std::string& name() const { return m_name; }
  int pid() const { return m_pid; }
  bool isAlive() const { return m_process != nullptr; }
  int starts() const { return m_starts; }
  unsigned long lines() const { return m_lines; }
  unsigned long bytes() const { return m_bytes; }
  double seconds() const { return std::chrono::duration<double>(m_ran).count(); }

 private:
  void capture(const std::string& chunk);
  void printWholeLines();
  void print(const std::string& line);
  void waitForRestOfOutput() const;

  std::string m_name;
  std::string m_command;
  std::unique_ptr<oxu::StartProcess> m_process;
  std::atomic<bool> m_ending{false};
  std::string m_unfinished_line;
  std::atomic<unsigned long> m_lines{0};
  std::atomic<unsigned long> m_bytes{0};
  int m_pid = -1;
  int m_starts = 0;
  std::chrono::steady_clock::time_point m_started;
  std::chrono::steady_clock::duration m_ran{0};
};

}  // namespace supervisor

#endif
