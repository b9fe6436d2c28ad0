#include "Job.h"

#include <thread>
#include <utility>

#include "oxu/CApi.h"

namespace supervisor {

namespace {

constexpr unsigned long kChunkBytes = 16384;
constexpr std::size_t kLongestLine = 900;  // a log record takes 1022 bytes, the name included
const std::string kWakeUp = "Stop Process!\n";

}  // namespace

Job::Job(std::string name, std::string command) : m_name(std::move(name)), m_command(std::move(command)) {}

bool Job::start() {
  m_ending = false;
  m_started = std::chrono::steady_clock::now();
  m_process = std::make_unique<oxu::StartProcess>(
      "", "", m_command, "", [this](const std::string& chunk) { capture(chunk); }, kChunkBytes, false);
  if (!m_process->isRunning()) {
    m_process.reset();
    return false;
  }
  ++m_starts;
  m_pid = m_process->pid();
  return true;
}

void Job::finish() {
  waitForRestOfOutput();
  m_ending = true;
  m_process.reset();
  m_ran += std::chrono::steady_clock::now() - m_started;
  if (!m_unfinished_line.empty()) print(std::exchange(m_unfinished_line, {}));
}

// The process has gone, but what it wrote last may still be in the pipe. It has all been delivered
// when nothing has come for a while; a grandchild that goes on writing is cut off after a second.
void Job::waitForRestOfOutput() const {
  constexpr std::chrono::milliseconds kQuiet(40);
  unsigned long before = ~0UL;
  for (int i = 0; i < 25 && before != m_bytes; ++i) {
    before = m_bytes;
    std::this_thread::sleep_for(kQuiet);
  }
}

void Job::capture(const std::string& chunk) {
  std::string text = chunk;
  // The end of the capture arrives as text too, and is not the command's.
  const bool isWakeUp = m_ending && text.size() >= kWakeUp.size() &&
                        text.compare(text.size() - kWakeUp.size(), kWakeUp.size(), kWakeUp) == 0;
  if (isWakeUp) text.resize(text.size() - kWakeUp.size());
  m_bytes += text.size();
  m_unfinished_line += text;
  printWholeLines();
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

void Job::print(const std::string& line) {
  ++m_lines;
  // A full ring means a slow console: wait for it a while, then go on without this line.
  for (int i = 0; i < 1000; ++i) {
    if (push_log(oxu::INFO, "%-8s | %s", m_name.c_str(), line.c_str())) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace supervisor
