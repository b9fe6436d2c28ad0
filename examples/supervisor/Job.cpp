#include "Job.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "common/Host.h"
#include "common/Log.h"

namespace supervisor {

namespace {

constexpr std::chrono::seconds kLongRun(10);
constexpr Job::Clock::duration kShortestPause = std::chrono::seconds(1);
constexpr Job::Clock::duration kLongestPause = std::chrono::seconds(30);

std::string nameOfSignal(int signal) {
  const char* name = ::sigabbrev_np(signal);
  return name != nullptr ? std::string("SIG") + name : "signal " + std::to_string(signal);
}

std::string nameOfEnd(int status) {
  if (WIFEXITED(status)) return "exit " + std::to_string(WEXITSTATUS(status));
  // The monitor reports a stopped process as gone, too.
  return nameOfSignal(WIFSTOPPED(status) ? WSTOPSIG(status) : WTERMSIG(status));
}

}  // namespace

Job::Job(const JobConfig& config, Forwarder& forwarder)
    : m_config(config),
      m_forwarder(forwarder),
      m_lines(common::kLongestLogLine, [this](const std::string& line) { show(line); }) {}

bool Job::start(const std::string& password) {
  m_is_capture_over = false;
  m_signal = 0;
  m_started = Clock::now();
  m_state = State::kIdle;
  m_process = std::make_unique<oxu::StartProcess>(
      m_config.workdir, m_config.env, m_config.command, password, [this](const std::string& chunk) { capture(chunk); },
      m_config.buffer, m_config.root, m_config.blocking);
  if (!m_process->isRunning()) return false;
  m_state = State::kRunning;
  ++m_starts;
  m_pid = m_process->pid();
  return true;
}

void Job::noteQuit(int status, Clock::time_point time) {
  m_state = State::kQuit;
  m_ended = nameOfEnd(status);
  const Clock::duration ran = time - m_started;
  m_ran += ran;
  m_pause = ran >= kLongRun ? Clock::duration(0) : std::clamp(2 * m_pause, kShortestPause, kLongestPause);
}

// A process that has left its group for another, the supervisor's own for example, is signalled alone.
void Job::signal(int number) const {
  ::kill(-m_pid, number);
  const int group = ::getpgid(m_pid);
  if (group != -1 && group != m_pid) ::kill(m_pid, number);
}

// An ordinary user may signal sudo. sudo passes SIGTERM on to root's command, and cannot pass SIGKILL on; the library's
// kill goes through sudo. It needs a living process of the group: the shell may have ended by SIGTERM.
void Job::killThroughSudo() const {
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const int pid = std::atoi(entry.path().filename().c_str());
    if (pid > 0 && ::getpgid(pid) == m_pid) return static_cast<void>(oxu::StartProcess::kill(pid));
  }
}

void Job::end(bool atOnce) {
  const Clock::duration grace = std::chrono::seconds(atOnce ? 0 : m_config.grace);
  const bool isFirst = m_signal == 0;
  if (isFirst) {
    m_has_left_processes = hasQuit();
    m_signal = SIGTERM;
    m_first_signal_sent = Clock::now();
  }
  if (Clock::now() >= m_first_signal_sent + grace) {
    if (m_signal == SIGKILL) return;
    m_signal = SIGKILL;
    runsThroughSudo() ? killThroughSudo() : signal(SIGKILL);
  } else if (isFirst) {
    signal(SIGTERM);
    signal(SIGCONT);  // a stopped process cannot end
  }
}

// waitpid gives 0 for a shell that is merely stopped. Processes of root in the group are out of an ordinary user's
// reach and do not count, unless the configuration runs the command as root.
bool Job::isGone() const {
  if (!hasQuit() || ::waitpid(m_pid, nullptr, WNOHANG) == 0) return false;
  return ::kill(-m_pid, 0) == -1 && (errno == ESRCH || !runsThroughSudo());
}

std::string Job::finish(bool mayRestart) {
  m_process->flushOutput(-1);
  // The end of the capture delivers a last chunk, which is none of the command's.
  m_is_capture_over = true;
  m_process.reset();
  m_lines.finish();
  showLast();
  m_state = State::kIdle;
  std::string line = name() + " ended with " + m_ended + signalNeeded();
  if (!mayRestart || m_config.restart == 0) return line;
  if (m_starts > m_config.restart) return line + ", and is not started again";
  m_state = State::kPausing;
  m_next_start = Clock::now() + m_pause;
  return line + ", starting it again (" + std::to_string(m_starts) + " of " + std::to_string(m_config.restart) + ")";
}

// Which signal it took to end the run, as text.
std::string Job::signalNeeded() const {
  if (m_signal == 0) return "";
  if (m_has_left_processes) return ", what it left behind took " + nameOfSignal(m_signal);
  return m_signal == SIGTERM ? ", SIGTERM was enough" : ", it took SIGKILL";
}

void Job::capture(const std::string& chunk) {
  if (m_is_capture_over) return;
  m_bytes += chunk.size();
  m_lines.add(chunk);
  // Only a blocking command waits for a slow service. Any other one must not be held up by it.
  m_forwarder.forward(name(), chunk, m_config.blocking);
}

void Job::show(const std::string& line) {
  ++m_run_lines;
  if (m_config.show == Show::kAll || (m_config.show == Show::kEnds && m_run_lines == 1)) {
    common::logOutput(name(), line, common::Controls::kKept);
  } else {
    m_last_line = line;
  }
}

// Shows the end of a run of which only the first line has been shown.
void Job::showLast() {
  const unsigned long lines = std::exchange(m_run_lines, 0);
  if (m_config.show != Show::kEnds || lines < 2) return;
  if (lines > 2) common::logOutput(name(), "(" + std::to_string(lines - 2) + " more lines)", common::Controls::kKept);
  common::logOutput(name(), m_last_line, common::Controls::kKept);
}

oxu::json::Json Job::report() const {
  oxu::json::Json report;
  report["name"] = name();
  report["pid"] = m_pid;
  report["starts"] = m_starts;
  report["ended"] = m_ended;
  report["lines"] = common::number(m_lines.lines());
  report["bytes"] = common::number(m_bytes);
  report["seconds"] = std::round(std::chrono::duration<double>(m_ran).count() * 1000) / 1000;
  return report;
}

}  // namespace supervisor
