// Waiting, with a limit, for a condition that no system call waits for. From any thread.
#ifndef OS_WAIT_H
#define OS_WAIT_H

#include <algorithm>

#include "os/os_clock.h"

// Calls `holds` until it returns true: at once, then after pauses that grow from 50 microseconds to 2 milliseconds.
// False when `milliseconds` are over: 0 only looks, a negative number waits without a limit. Takes no lock.
template <class Condition>
bool os_wait_until(int milliseconds, const Condition& holds) {
  constexpr std::int64_t kShortestPauseNs = 50000, kLongestPauseNs = 2000000;
  if (holds()) return true;
  const os_deadline deadline(milliseconds);
  for (std::int64_t pauseNs = kShortestPauseNs; !deadline.isOver(); pauseNs = std::min(2 * pauseNs, kLongestPauseNs)) {
    deadline.sleep(pauseNs);
    if (holds()) return true;
  }
  return false;
}

#endif
