#include "common/Log.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>

#include "oxu/CApi.h"

namespace common {

namespace {

constexpr int kStepMs = 20;
constexpr std::size_t kShortestLabel = 8;
constexpr std::size_t kLongestLabel = 40;

std::atomic<bool> isImpatient{false};
std::atomic<int> patienceMs{1000};  // what is left for all waits; decreases once impatient
std::atomic<unsigned long> droppedLines{0};

// Calls `wait` with a few milliseconds until it succeeds; false when the patience is used up.
template <typename Wait>
bool waitInSteps(Wait wait) {
  for (;;) {
    const int step = std::clamp(patienceMs.load(), 0, kStepMs);
    if (wait(step)) return true;
    if (step == 0) return false;
    if (isImpatient) patienceMs -= step;
  }
}

// Puts a ? in place of each control character but the tab, those of two bytes in UTF-8 included.
void replaceControls(std::string& text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if ((byte < 0x20 && byte != '\t') || byte == 0x7f) text[at] = '?';
    const int next = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0;
    if (byte == 0xc2 && next >= 0x80 && next < 0xa0) text.replace(at, 2, "?");
  }
}

}  // namespace

void installLog() {
  install_log_task();
  const char* noColor = std::getenv("NO_COLOR");
  set_log_colors(::isatty(STDOUT_FILENO) == 1 && (noColor == nullptr || *noColor == '\0'));
}

void logLine(int level, const std::string& text) {
  if (level < get_log_level()) return;
  // A longer record would be refused at every attempt.
  if (!waitInSteps([&](int step) { return push_log_wait(step, level, "%.1022s", text.c_str()); })) ++droppedLines;
}

void logOutput(const std::string& name, std::string line, Controls controls) {
  std::string label = name.substr(0, kLongestLabel);
  // A name that comes over the network could hold line feeds, and so pretend to be further lines.
  replaceControls(label);
  label.resize(std::max(label.size(), kShortestLabel), ' ');
  if (controls == Controls::kReplaced) replaceControls(line);
  std::replace(line.begin(), line.end(), '\0', '?');
  logLine(oxu::INFO, label + " | " + line);
}

void becomeImpatient() { isImpatient = true; }

void uninstallLog() {
  waitInSteps([](int step) { return flush_log(step); });
  uninstall_log_task();
  if (droppedLines != 0) std::cerr << droppedLines << " lines were not printed, the console being too slow\n";
}

}  // namespace common
