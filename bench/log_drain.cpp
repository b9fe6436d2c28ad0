// How many lines a second the logger puts out where they cost nothing, at /dev/null. In a process of its own.
//
// Usage: log_drain LOGGER PRODUCERS SECONDS
//   LOGGER     oxu; spdlog, synchronous, flushed after each line, as the logger does; or bare, a write of a ready line
//   PRODUCERS  threads that fill the logger's ring as fast as they can. With fewer than there are processors the
//              logger's thread has one for itself. The others have one thread, which writes
// Prints the lines per second, the same per second of processor time that the printing thread used, and how much of the
// time it was at work, in per cent. Where that is far below 100, it had to wait for records or for a processor.
#include <fcntl.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "Figures.h"
#include "LogPeers.h"

namespace {

using bench::Clock;

constexpr int kLinesALook = 64;
// A message without conversions, so that producers are fast enough to keep the ring filled.
#define MESSAGE "producer 0 record 123456 served in 423 us"
constexpr char kLine[] = "\x1b[0mINFO [2026-01-31 08:05:09.042]  " MESSAGE "\x1b[0m\n";

// Calls `line` until the time is over. Returns how many times.
template <class Line>
long repeat(double seconds, const Line& line) {
  long count = 0;
  for (const auto begin = Clock::now(); bench::secondsSince(begin) < seconds;) {
    for (int i = 0; i < kLinesALook; ++i) line();
    count += kLinesALook;
  }
  return count;
}

int print(long lines, double seconds, double processorSeconds) {
  std::fprintf(stderr, "lines_per_second %.0f\nlines_per_processor_second %.0f\nthread_percent %.1f\n",
               static_cast<double>(lines) / seconds, static_cast<double>(lines) / processorSeconds,
               100 * processorSeconds / seconds);
  return 0;
}

// Some microseconds, in which the ring does not run empty. A sleep would last longer.
void pause() {
  for (int i = 0; i < 100; ++i) __builtin_ia32_pause();
}

int runOxu(int file, int producers, double seconds) {
  bench::Oxu logger(file);
  std::atomic<long> lines{0};
  double producerSeconds = 0;
  std::mutex mutex;
  const double processorBefore = bench::processorSeconds(RUSAGE_SELF);
  const auto begin = Clock::now();
  std::vector<std::thread> threads;
  for (int i = 0; i < producers; ++i) {
    threads.emplace_back([&] {
      lines += repeat(seconds, [] {
        while (!push_log(oxu::INFO, MESSAGE)) pause();
      });
      const std::lock_guard<std::mutex> lock(mutex);
      producerSeconds += bench::processorSeconds(RUSAGE_THREAD);
    });
  }
  for (std::thread& thread : threads) thread.join();
  flush_log(-1);
  const double took = bench::secondsSince(begin);
  const double processor = bench::processorSeconds(RUSAGE_SELF) - processorBefore - producerSeconds;
  logger.finish();
  return print(lines, took, processor);
}

// In a process with a second thread, as hosts are: a thread that is alone is spared some locks of libc and the system.
template <class Line>
int runPeer(double seconds, const Line& line) {
  std::promise<void> isOver;
  std::thread other([&] { isOver.get_future().wait(); });
  const double processorBefore = bench::processorSeconds(RUSAGE_SELF);
  const auto begin = Clock::now();
  const long count = repeat(seconds, line);
  const double took = bench::secondsSince(begin);
  const double processor = bench::processorSeconds(RUSAGE_SELF) - processorBefore;
  isOver.set_value();
  other.join();
  return print(count, took, processor);
}

#ifdef OXU_HAVE_SPDLOG
int runSpdlog(double seconds) {
  spdlog::logger logger("console", std::make_shared<spdlog::sinks::basic_file_sink_st>("/dev/null"));
  logger.set_pattern(bench::kSpdlogPattern);
  logger.flush_on(spdlog::level::info);
  return runPeer(seconds, [&] { logger.info(MESSAGE); });
}
#endif

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: log_drain LOGGER PRODUCERS SECONDS\n", stderr);
    return 2;
  }
  const std::string logger = argv[1];
  const double seconds = std::atof(argv[3]);
  const int file = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (logger == "oxu") return runOxu(file, std::atoi(argv[2]), seconds);
  if (logger == "bare") {
    return runPeer(seconds, [&] {
      if (::write(file, kLine, sizeof kLine - 1) < 0) std::abort();
    });
  }
#ifdef OXU_HAVE_SPDLOG
  if (logger == "spdlog") return runSpdlog(seconds);
#endif
  return bench::noPeer(argv[1]);
}
