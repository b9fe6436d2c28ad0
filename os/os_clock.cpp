#include "os/os_clock.h"

#include <pthread.h>
#include <time.h>

#include <cerrno>

namespace {
constexpr std::int64_t kNanosecondsPerSecond = 1000000000;
}

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
  // A thread that is cancelled in its sleep would leave what it waits for half done: the sleep is no
  // cancellation point.
  int previous = 0;
  ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
  int error = EINTR;
  // The deadline is absolute, so a sleep that a signal ended is resumed with what is left of it.
  while (error == EINTR) error = ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr);
  ::pthread_setcancelstate(previous, nullptr);
  return error == 0;
}
