// What a call of push_log costs its caller while there is room: bursts of records with rests between them, in which the
// logger prints what waits. In a process of its own.
//
// Usage: log_push LOGGER BURST BURSTS
//   LOGGER  oxu, bare or spdlog (asynchronous)
//   BURST   records at a time, at most 127. From 64 on, the logger's thread is woken during the burst
// Prints the nanoseconds per call, of the median burst.
#include <fcntl.h>
#include <semaphore.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "Figures.h"
#include "LogPeers.h"
#include "log/LogItem.h"

namespace {

using bench::Clock;

constexpr std::chrono::milliseconds kPause(10);

// What a caller pays at least: a clock read, a vsnprintf, and a copy into slots that another thread reads. That thread
// pauses as the logger's does, and the record that fills half of the slots wakes it.
class Bare {
 public:
  explicit Bare(int /*file*/) {
    ::sem_init(&m_wake, 0, 0);
    m_reader = std::thread([this] { read(); });
  }

  bool push(int producer, long record) {
    return format("producer %d record %ld served in %d us", producer, record, 423);
  }

  void finish() {
    m_is_ended = true;
    m_reader.join();
  }

 private:
  static constexpr std::uint64_t kSlots = 128;

  // A function of its own, as push_log is.
  __attribute__((noinline, format(printf, 2, 3))) bool format(const char* format, ...) {
    oxu::LogItem item;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    item.seconds = nanoseconds / 1000000000;
    item.milliseconds = nanoseconds / 1000000 % 1000;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(item.text, sizeof item.text, format, arguments);
    va_end(arguments);
    const std::uint64_t slot = m_written.load(std::memory_order_relaxed);
    std::memcpy(&m_slots[slot % kSlots], &item, sizeof item);
    m_written.store(slot + 1, std::memory_order_release);
    if (slot + 1 - m_taken.load(std::memory_order_acquire) == kSlots / 2) ::sem_post(&m_wake);
    return true;
  }

  void read() {
    oxu::LogItem item;
    std::uint64_t taken = 0;
    while (!m_is_ended) {
      for (; taken < m_written.load(std::memory_order_acquire); m_taken.store(++taken, std::memory_order_release)) {
        std::memcpy(&item, &m_slots[taken % kSlots], sizeof item);
        __asm__ volatile("" : : "r"(&item) : "memory");  // the copy is wanted
      }
      std::timespec deadline{};
      ::clock_gettime(CLOCK_MONOTONIC, &deadline);
      deadline.tv_nsec += std::chrono::nanoseconds(kPause).count();
      deadline.tv_sec += deadline.tv_nsec / 1000000000;
      deadline.tv_nsec %= 1000000000;
      ::sem_clockwait(&m_wake, CLOCK_MONOTONIC, &deadline);
    }
  }

  oxu::LogItem m_slots[kSlots];
  std::atomic<std::uint64_t> m_written{0};
  std::atomic<std::uint64_t> m_taken{0};
  sem_t m_wake;
  std::atomic<bool> m_is_ended{false};
  std::thread m_reader;
};

template <class Logger>
int run(int burst, int bursts) {
  Logger logger(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  std::vector<double> nanoseconds;
  // A burst that finds no room, because the logger's thread has got no processor, does not count.
  for (int tries = 0; static_cast<int>(nanoseconds.size()) < bursts; ++tries) {
    if (tries > 10 * bursts) std::abort();
    // Longer than the pause of the thread that empties the slots.
    std::this_thread::sleep_for(kPause + std::chrono::milliseconds(2));
    int accepted = 0;
    const auto begin = Clock::now();
    for (int record = 0; record < burst; ++record) accepted += logger.push(0, record) ? 1 : 0;
    const double took = bench::secondsSince(begin);
    if (accepted == burst) nanoseconds.push_back(1e9 * took / burst);
  }
  logger.finish();
  const auto middle = nanoseconds.begin() + bursts / 2;
  std::nth_element(nanoseconds.begin(), middle, nanoseconds.end());
  std::fprintf(stderr, "ns_per_call %.1f\n", *middle);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: log_push LOGGER BURST BURSTS\n", stderr);
    return 2;
  }
  const std::string logger = argv[1];
  const int burst = std::atoi(argv[2]), bursts = std::atoi(argv[3]);
  if (logger == "oxu") return run<bench::Oxu>(burst, bursts);
  if (logger == "bare") return run<Bare>(burst, bursts);
#ifdef OXU_HAVE_SPDLOG
  if (logger == "spdlog") return run<bench::Spdlog>(burst, bursts);
#endif
  return bench::noPeer(argv[1]);
}
