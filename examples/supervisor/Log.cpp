#include "Log.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "oxu/CApi.h"

namespace supervisor {

namespace {

constexpr int kPatienceMs = 1000;

std::atomic<bool> consoleStandsStill{false};
std::atomic<unsigned long> lost{0};

bool push(int level, const std::string& text) {
  for (int i = consoleStandsStill ? kPatienceMs : 0; i <= kPatienceMs; ++i) {
    if (push_log(level, "%s", text.c_str())) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

}  // namespace

void logLine(int level, const std::string& text) {
  const unsigned long lostBefore = lost.exchange(0);
  const bool said =
      lostBefore == 0 || push(oxu::ERROR, std::to_string(lostBefore) + " lines were lost, the console being too slow");
  const bool logged = said && push(level, text);
  consoleStandsStill = !logged;
  if (!said) lost += lostBefore;
  if (!logged) ++lost;
}

}  // namespace supervisor
