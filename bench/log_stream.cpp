// Streams of records from several threads into a file: how many go through, how many are refused, and how long a call
// takes. In a process of its own, so that no other work is measured. Every record is found again in the file, whole and
// in its thread's order; the exit status is 1 where that does not hold.
//
// Usage: log_stream LOGGER PRODUCERS RATE SECONDS [LATENCIES]
//   LOGGER     oxu, or spdlog where that was found
//   RATE       records per second of all producers together; a refused one is lost. 0: as fast as they can, and a
//              refused one is tried again
//   LATENCIES  a file for the times of the calls in nanoseconds, a line each
// Prints one line: logger, producers, rate, accepted per second, refused in per cent, then the calls' p50, p99 and
// longest time in microseconds, and the processor time of the process in per cent of one processor.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#ifdef OXU_HAVE_SPDLOG
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

#include "oxu/CApi.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kText = "producer %d record %ld served in %d us";

class Oxu {
 public:
  explicit Oxu(int file) {
    ::dup2(file, STDOUT_FILENO);
    install_log_task();
  }
  bool push(int producer, long record) { return push_log(oxu::INFO, kText, producer, record, 423); }
  bool pushOrWait(int producer, long record) {
    while (!push(producer, record)) std::this_thread::yield();
    return true;
  }
  void finish() {
    flush_log(-1);
    uninstall_log_task();
  }
};

#ifdef OXU_HAVE_SPDLOG
// With the queue of the same size. A full queue blocks the caller, or drops its oldest record.
class Spdlog {
 public:
  explicit Spdlog(int file) : m_path("/proc/self/fd/" + std::to_string(file)) {
    spdlog::init_thread_pool(128, 1);
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(m_path);
    const auto make = [&](spdlog::async_overflow_policy policy) {
      auto logger = std::make_shared<spdlog::async_logger>("log", sink, spdlog::thread_pool(), policy);
      logger->set_pattern("%^%l%$ [%Y-%m-%d %T.%e]  %v");
      return logger;
    };
    m_dropping = make(spdlog::async_overflow_policy::overrun_oldest);
    m_blocking = make(spdlog::async_overflow_policy::block);
  }
  bool push(int producer, long record) {
    m_dropping->info("producer {} record {} served in {} us", producer, record, 423);
    return true;
  }
  bool pushOrWait(int producer, long record) {
    m_blocking->info("producer {} record {} served in {} us", producer, record, 423);
    return true;
  }
  void finish() {
    m_blocking->flush();
    m_dropping.reset();
    m_blocking.reset();
    spdlog::shutdown();
  }

 private:
  std::string m_path;
  std::shared_ptr<spdlog::async_logger> m_dropping, m_blocking;
};
#endif

struct Producer {
  std::vector<float> microseconds;  // of each call
  long accepted = 0;
};

// Records come in the rhythm of a clock that a late producer catches up with, as requests do.
template <class Logger>
void produce(Logger& logger, int number, double rate, Clock::time_point end, Producer& result) {
  const auto begin = Clock::now();
  const std::chrono::duration<double> period(rate > 0 ? 1 / rate : 0);
  for (long record = 0;; ++record) {
    const auto due = begin + std::chrono::duration_cast<Clock::duration>(record * period);
    if (rate > 0 && due > Clock::now()) std::this_thread::sleep_until(due);
    const auto before = Clock::now();
    if (before >= end) return;
    result.accepted += rate > 0 ? logger.push(number, record) : logger.pushOrWait(number, record);
    result.microseconds.push_back(std::chrono::duration<float, std::micro>(Clock::now() - before).count());
  }
}

double processorSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// How many records the file has; -1 where one is torn, doubled or out of its thread's order.
long countRecords(int file, std::size_t producers) {
  std::ifstream lines("/proc/self/fd/" + std::to_string(file));
  std::vector<long> last(producers, -1);
  long count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    std::size_t producer = 0;
    long record = 0;
    int end = 0;
    const std::size_t text = line.find("]  producer ");
    if (text == std::string::npos) return -1;
    std::sscanf(line.c_str() + text, "]  producer %zu record %ld served in 423 us%n", &producer, &record, &end);
    if (end == 0 || producer >= producers || record <= last[producer]) return -1;
    last[producer] = record;
  }
  return count;
}

template <class Logger>
int run(const char* name, int producers, double rate, double seconds, const char* latencies) {
  const int file = ::memfd_create("records", 0);
  Logger logger(file);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // a rest before the first burst
  std::vector<Producer> results(static_cast<std::size_t>(producers));
  for (Producer& result : results) result.microseconds.reserve(1 << 22);
  const double processorBefore = processorSeconds();
  const auto begin = Clock::now();
  const auto end = begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  std::vector<std::thread> threads;
  for (int i = 0; i < producers; ++i) {
    threads.emplace_back([&, i] { produce(logger, i, rate / producers, end, results[static_cast<std::size_t>(i)]); });
  }
  for (std::thread& thread : threads) thread.join();
  const double took = std::chrono::duration<double>(Clock::now() - begin).count();
  const double processor = processorSeconds() - processorBefore;
  logger.finish();

  std::vector<float> calls;
  long accepted = 0;
  for (const Producer& result : results) {
    calls.insert(calls.end(), result.microseconds.begin(), result.microseconds.end());
    accepted += result.accepted;
  }
  const long found = countRecords(file, results.size());
  // spdlog accepts every record and drops others for it.
  const bool isComplete = std::strcmp(name, "spdlog") == 0 ? found >= 0 : found == accepted;
  const double refused = 100.0 * (1 - static_cast<double>(found) / static_cast<double>(calls.size()));
  std::sort(calls.begin(), calls.end());
  const auto quantile = [&](double share) { return calls[static_cast<std::size_t>(share * double(calls.size() - 1))]; };
  std::fprintf(stderr, "%s %d %.0f %.0f %.3f %.2f %.2f %.2f %.1f\n", name, producers, rate, double(found) / took,
               refused, double(quantile(0.5)), double(quantile(0.99)), double(calls.back()), 100 * processor / took);
  if (latencies != nullptr) {
    std::ofstream out(latencies);
    for (std::size_t i = 0; i < 1000; ++i) out << quantile(double(i) / 999) << "\n";
  }
  return isComplete ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fputs("usage: log_stream LOGGER PRODUCERS RATE SECONDS [LATENCIES]\n", stderr);
    return 2;
  }
  const auto runAs = [&](auto measure) {
    return measure(argv[1], std::atoi(argv[2]), std::atof(argv[3]), std::atof(argv[4]), argc > 5 ? argv[5] : nullptr);
  };
#ifdef OXU_HAVE_SPDLOG
  if (std::strcmp(argv[1], "spdlog") == 0) return runAs(run<Spdlog>);
#endif
  if (std::strcmp(argv[1], "oxu") == 0) return runAs(run<Oxu>);
  std::fprintf(stderr, "there is no %s here\n", argv[1]);
  return 2;
}
