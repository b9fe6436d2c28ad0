#include "Job.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>
#include <utility>

namespace supervisor {

namespace {

constexpr unsigned long kPipeBytes = 262144;
const std::string kWakeUp = "Stop Process!\n";

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
  m_ending = true;
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

// The process has gone, but what it wrote last may still be in the pipe. All of that has been delivered when
// nothing comes for a while. Something that has left the group may go on writing: then more has come than a pipe
// holds, or the time is up.
void Job::waitForRestOfOutput() const {
  constexpr std::chrono::milliseconds kQuiet(40);
  constexpr std::chrono::seconds kLongest(2);
  const unsigned long enough = m_bytes + kPipeBytes + m_config.buffer;
  const Clock::time_point deadline = Clock::now() + kLongest;
  unsigned long before = 0;
  do {
    before = m_bytes;
    std::this_thread::sleep_for(kQuiet);
  } while (m_capturing || (before != m_bytes && m_bytes < enough && Clock::now() < deadline));
}

void Job::capture(const std::string& chunk) {
  if (m_ending) {
    m_last_words += chunk;
    return;
  }
  m_capturing = true;
  pass(chunk);
  m_capturing = false;
}

void Job::pass(const std::string& text) {
  m_bytes += text.size();
  m_printer.add(text);
  // A command that does not wait for its reader would lose output here, too, while the service is slow.
  m_forwarder.forward(name(), text, m_config.blocking);
}

}  // namespace supervisor
