#include "Job.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>
#include <utility>

namespace supervisor {

namespace {

const std::string kWakeUp = "Stop Process!\n";
const std::string kMark = "[supervisor: all that the command wrote stands before this]";

// A command has no terminal to read from. With its output opened anew, blocking, it waits for its reader where it
// would lose what the reader is too slow for. Neither can stand in front of commands that sudo runs one by one.
std::string commandLine(const JobConfig& config, bool throughSudo) {
  if (throughSudo) return config.command;
  return std::string("exec </dev/null;") + (config.blocking ? "exec >/dev/stdout 2>&1;" : "") + config.command;
}

// Removes what has arrived of the text that ends a capture: it is delivered like output, but is not the command's.
void removeWakeUp(std::string& text) {
  for (std::size_t size = std::min(text.size(), kWakeUp.size()); size > 0; --size) {
    if (text.compare(text.size() - size, size, kWakeUp, 0, size) != 0) continue;
    text.resize(text.size() - size);
    return;
  }
}

}  // namespace

bool Job::start(const std::string& password) {
  m_ending = false;
  m_started = Clock::now();
  m_process = std::make_unique<oxu::StartProcess>(
      m_config.workdir, m_config.env, commandLine(m_config, runsThroughSudo()), password,
      [this](const std::string& chunk) { capture(chunk); }, m_config.buffer, m_config.root);
  if (!m_process->isRunning()) {
    m_process.reset();
    return false;
  }
  ++m_starts;
  m_pid = m_process->pid();
  return true;
}

bool Job::runsThroughSudo() const { return m_config.root && ::geteuid() != 0; }

void Job::finish(Clock::time_point quitTime) {
  m_ran += quitTime - m_started;
  endGroup();
  waitForRestOfOutput();
  m_process.reset();
  removeWakeUp(m_last_words);
  if (!m_last_words.empty()) pass(std::exchange(m_last_words, {}));
  m_printer.finish();
}

// What the command has left behind in its group goes with it. A command that was stopped, by reaching for the
// terminal for example, was reported as gone too, but is still there and still a child.
void Job::endGroup() const {
  ::kill(-m_pid, SIGKILL);
  if (::waitpid(m_pid, nullptr, WNOHANG) != 0) return;
  ::kill(m_pid, SIGKILL);
  ::waitpid(m_pid, nullptr, 0);
}

// What the process wrote last may still be in the pipe. Another shell writes a mark behind it, and waits for room
// where the pipe is full: all that was in front of the mark has been delivered when the mark has. Where more comes than a
// pipe holds, that is by something that was left running, and the rest of the process's output has come with it.
void Job::waitForRestOfOutput() {
  constexpr std::chrono::seconds kLongest(2);
  constexpr unsigned long kMostInPipe = 1 << 20;
  m_has_mark = false;
  m_ending = true;
  const unsigned long enough = m_bytes + kMostInPipe + m_config.buffer;
  const int shell = m_process->addProcess("", "", "exec >/dev/stdout; printf %s '" + kMark + "'", "", false);
  if (shell == -1) return;
  Clock::time_point deadline = Clock::now() + kLongest;
  while (!m_has_mark && m_bytes < enough && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    // What waits for the console has all the time that it needs.
    if (m_capturing) deadline = Clock::now() + kLongest;
  }
  ::kill(-shell, SIGKILL);
  ::waitpid(shell, nullptr, 0);
}

void Job::capture(const std::string& chunk) {
  m_capturing = true;
  if (m_ending) {
    captureLastWords(chunk);
  } else {
    pass(chunk);
  }
  m_capturing = false;
}

void Job::captureLastWords(const std::string& chunk) {
  const std::size_t unsearched = m_last_words.size() - std::min(m_last_words.size(), kMark.size());
  m_last_words += chunk;
  const std::size_t at = m_has_mark ? std::string::npos : m_last_words.find(kMark, unsearched);
  if (at != std::string::npos) {
    m_last_words.erase(at, kMark.size());
    m_has_mark = true;
  }
  // What was left running can write for as long as the mark takes. Only what may be the beginning of the mark, or of the
  // text that ends the capture, waits.
  constexpr std::size_t kKept = 128;
  if (m_last_words.size() <= kKept) return;
  pass(m_last_words.substr(0, m_last_words.size() - kKept));
  m_last_words.erase(0, m_last_words.size() - kKept);
}

void Job::pass(const std::string& text) {
  m_bytes += text.size();
  m_printer.add(text);
  // A command that does not wait for its reader would lose output here, too, while the service is slow.
  m_forwarder.forward(name(), text, m_config.blocking);
}

}  // namespace supervisor
