#include "Job.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <thread>
#include <utility>

#include "Log.h"
#include "oxu/LogLevel.h"

namespace supervisor {

namespace {

constexpr unsigned long kChunkBytes = 16384;
constexpr unsigned long kPipeBytes = 262144;
constexpr std::size_t kLongestLine = 900;  // a log record takes 1022 bytes, the name included
const std::string kWakeUp = "Stop Process!\n";

// A command has no terminal to read from; and with its output opened anew, blocking, it waits for its reader
// where it would lose what the reader is too slow for.
const char* const kPreamble = "exec </dev/null >/dev/stdout 2>&1;";

// Removes what has arrived of the text that ends a capture: it is delivered like output, but is not the command's.
void removeWakeUp(std::string& text) {
  for (std::size_t size = std::min(text.size(), kWakeUp.size()); size > 0; --size) {
    if (text.compare(text.size() - size, size, kWakeUp, 0, size) != 0) continue;
    text.resize(text.size() - size);
    return;
  }
}

}  // namespace

Job::Job(std::string name, std::string command) : m_name(std::move(name)), m_command(std::move(command)) {}

bool Job::start() {
  m_ending = false;
  m_started = Clock::now();
  m_process = std::make_unique<oxu::StartProcess>(
      "", "", kPreamble + m_command, "", [this](const std::string& chunk) { capture(chunk); }, kChunkBytes, false);
  if (!m_process->isRunning()) {
    m_process.reset();
    return false;
  }
  ++m_starts;
  m_pid = m_process->pid();
  return true;
}

void Job::finish() {
  m_ran += Clock::now() - m_started;
  endStoppedProcess();
  waitForRestOfOutput();
  m_ending = true;
  m_process.reset();
  removeWakeUp(m_last_words);
  m_bytes += m_last_words.size();
  m_unfinished_line += std::exchange(m_last_words, {});
  printWholeLines();
  if (!m_unfinished_line.empty()) print(std::exchange(m_unfinished_line, {}));
}

// A command that was stopped, by reaching for the terminal for example, is reported as gone too, but is still
// there and still a child.
void Job::endStoppedProcess() const {
  if (::waitpid(m_pid, nullptr, WNOHANG) != 0) return;
  ::kill(-m_pid, SIGKILL);
  ::waitpid(m_pid, nullptr, 0);
}

// The process has gone, but what it wrote last may still be in the pipe. All of that has been delivered when
// nothing comes for a while, or when more has come than a pipe holds, from a grandchild that goes on writing.
void Job::waitForRestOfOutput() const {
  constexpr std::chrono::milliseconds kQuiet(40);
  const unsigned long enough = m_bytes + kPipeBytes + kChunkBytes;
  unsigned long before = 0;
  do {
    before = m_bytes;
    std::this_thread::sleep_for(kQuiet);
  } while (m_capturing || (before != m_bytes && m_bytes < enough));
}

void Job::capture(const std::string& chunk) {
  if (m_ending) {
    m_last_words += chunk;
    return;
  }
  m_capturing = true;
  m_bytes += chunk.size();
  m_unfinished_line += chunk;
  printWholeLines();
  m_capturing = false;
}

void Job::printWholeLines() {
  std::size_t begin = 0;
  for (;;) {
    const std::size_t feed = m_unfinished_line.find('\n', begin);
    const std::size_t size = (feed == std::string::npos ? m_unfinished_line.size() : feed) - begin;
    if (feed == std::string::npos && size <= kLongestLine) break;
    print(m_unfinished_line.substr(begin, std::min(size, kLongestLine)));
    begin += size > kLongestLine ? kLongestLine : size + 1;
  }
  m_unfinished_line.erase(0, begin);
}

void Job::print(std::string line) {
  ++m_lines;
  std::replace(line.begin(), line.end(), '\0', '?');
  const std::string column(m_name.size() < 8 ? 8 - m_name.size() : 0, ' ');
  logLine(oxu::INFO, m_name + column + " | " + line);
}

}  // namespace supervisor
