#include "os/os_clock.h"

#include <time.h>

#include <algorithm>
#include <cerrno>

#include "os/os_thread.h"

namespace {

os_clock_time nowPlus(std::int64_t nanoseconds) {
  os_clock_time time{};
  os_clock_get_time(kOsClockMonotonic, &time, kOsClockAbsolute);
  time.nanoseconds += nanoseconds;
  os_clock_adjust_clock_time(&time);
  return time;
}

std::int64_t nanosecondsBetween(const os_clock_time& begin, const os_clock_time& end) {
  return (end.seconds - begin.seconds) * kNanosecondsPerSecond + end.nanoseconds - begin.nanoseconds;
}

}  // namespace

bool os_clock_get_time(int /*clock*/, os_clock_time* time, int /*mode*/) {
  timespec now{};
  if (::clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
  *time = {now.tv_sec, now.tv_nsec};
  return true;
}

void os_clock_adjust_clock_time(os_clock_time* time) {
  time->seconds += time->nanoseconds / kNanosecondsPerSecond;
  time->nanoseconds %= kNanosecondsPerSecond;
  if (time->nanoseconds >= 0) return;
  time->nanoseconds += kNanosecondsPerSecond;
  --time->seconds;
}

bool os_clock_nano_sleep(const os_clock_time* time, int /*mode*/) {
  const timespec deadline{time->seconds, time->nanoseconds};
  const os_thread_cancel_guard uncancelled;
  int error = EINTR;
  // The deadline is absolute: after a signal, only the rest of the time is slept.
  while (error == EINTR) error = ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr);
  return error == 0;
}

os_deadline::os_deadline(int milliseconds)
    : m_is_endless(milliseconds < 0), m_end(nowPlus(std::max(milliseconds, 0) * kNanosecondsPerMs)) {}

int os_deadline::remainingMs() const {
  if (m_is_endless) return -1;
  const std::int64_t ns = nanosecondsBetween(nowPlus(0), m_end) + kNanosecondsPerMs - 1;
  return static_cast<int>(std::max<std::int64_t>(ns / kNanosecondsPerMs, 0));
}

void os_deadline::sleep(std::int64_t nanoseconds) const {
  os_clock_time until = nowPlus(nanoseconds);
  if (!m_is_endless && nanosecondsBetween(until, m_end) < 0) until = m_end;
  os_clock_nano_sleep(&until, kOsClockAbsolute);
}
