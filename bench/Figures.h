// What the drivers of the benchmarks have in common. A driver prints its figures, one a line: a name and a number.
#ifndef BENCH_FIGURES_H
#define BENCH_FIGURES_H

#include <sys/resource.h>

#include <chrono>
#include <cstdio>

namespace bench {

using Clock = std::chrono::steady_clock;

// The exit status of a driver whose peer is not installed.
constexpr int kNoPeer = 3;

inline int noPeer(const char* name) {
  std::fprintf(stderr, "there is no %s here\n", name);
  return kNoPeer;
}

inline double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

// `who` is RUSAGE_SELF, the process, or RUSAGE_THREAD.
inline double processorSeconds(int who) {
  rusage usage{};
  ::getrusage(who, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

}  // namespace bench

#endif
