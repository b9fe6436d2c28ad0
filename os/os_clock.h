// Clocks of the portability library. Every function may be called from any thread.
#ifndef OS_CLOCK_H
#define OS_CLOCK_H

#include <cstdint>

struct os_clock_time {
  std::int64_t seconds;
  std::int64_t nanoseconds;
};

constexpr std::int64_t kNanosecondsPerSecond = 1000000000;
constexpr std::int64_t kNanosecondsPerMs = 1000000;

constexpr int kOsClockMonotonic = 1;
constexpr int kOsClockAbsolute = 1;

// Stores the present time of clock 1, the monotonic clock, in `time`. There is no other clock.
bool os_clock_get_time(int clock, os_clock_time* time, int mode);

// Carries whole seconds over, so that the nanosecond field is 0 to 999999999 afterwards.
void os_clock_adjust_clock_time(os_clock_time* time);

// Sleeps until the monotonic clock reaches `time`, an absolute deadline (mode 1). Neither a signal nor a request to
// cancel the thread shortens the sleep. False when the nanosecond field is out of its range.
bool os_clock_nano_sleep(const os_clock_time* time, int mode);

// The end of a wait of `milliseconds` from now; a negative number stands for a wait without an end.
class os_deadline {
 public:
  explicit os_deadline(int milliseconds);

  // The time-out for poll: rounded up, so that poll does not return early; -1 without an end.
  int remainingMs() const;

  bool isOver() const { return remainingMs() == 0; }

  // A time of the monotonic clock; meaningless for a wait without an end.
  const os_clock_time& end() const { return m_end; }

  // Sleeps for `nanoseconds`, but not beyond the end.
  void sleep(std::int64_t nanoseconds) const;

 private:
  bool m_is_endless;
  os_clock_time m_end;
};

#endif
