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

// Fills `time` with the present time of clock 1, the monotonic clock, the only one that there is.
bool os_clock_get_time(int clock, os_clock_time* time, int mode);

// Carries whole seconds out of the nanosecond field, which is 0 to 999999999 afterwards.
void os_clock_adjust_clock_time(os_clock_time* time);

// Sleeps until the monotonic clock reaches `time` (mode 1, an absolute deadline). Neither signals nor a request
// to cancel the thread shorten the sleep. False when `time` is not normalised.
bool os_clock_nano_sleep(const os_clock_time* time, int mode);

// The end of a wait of `milliseconds`, which may be 0; a negative number stands for a wait without an end.
class os_deadline {
 public:
  explicit os_deadline(int milliseconds);

  // What poll is to be given: rounded up, so that poll never returns early; -1 without an end.
  int remainingMs() const;

  bool isOver() const { return remainingMs() == 0; }

  // On the monotonic clock; means nothing without an end.
  const os_clock_time& end() const { return m_end; }

  // Sleeps for so long, but not beyond the end.
  void sleep(std::int64_t nanoseconds) const;

 private:
  bool m_is_endless;
  os_clock_time m_end;
};

#endif
