#include "common/Log.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "oxu/CApi.h"

namespace common {

namespace {

constexpr int kPatienceMs = 1000;

std::atomic<bool> isImpatient{false};
std::atomic<int> waitedMs{0};  // since the patience has ended
std::atomic<unsigned long> given_up{0};

bool mayWaitOn() { return !isImpatient || ++waitedMs <= kPatienceMs; }

void waitAMillisecond() { std::this_thread::sleep_for(std::chrono::milliseconds(1)); }

}  // namespace

void logLine(int level, const std::string& text) {
  if (level < get_log_level()) return;
  while (!push_log(level, "%s", text.c_str())) {
    if (!mayWaitOn()) {
      ++given_up;
      return;
    }
    waitAMillisecond();
  }
}

void becomeImpatient() { isImpatient = true; }

// A record that the logger waits to write keeps the console full. Once the console has had room for a while,
// nothing waits any more.
unsigned long finishLog() {
  pollfd console{STDOUT_FILENO, POLLOUT, 0};
  for (int roomyMs = 0; roomyMs < 100 && mayWaitOn(); ++roomyMs) {
    if (::poll(&console, 1, 0) != 1) roomyMs = 0;
    waitAMillisecond();
  }
  return given_up;
}

}  // namespace common
