// Streams of records from several threads into a file: how many go through, how many are refused, and how long a call
// takes. In a process of its own, so that no other work is measured. Every record is found again in the file, whole and
// in its thread's order; the exit status is 1 where that does not hold.
//
// Usage: log_stream LOGGER PRODUCERS RATE SECONDS
//   LOGGER     oxu or spdlog (asynchronous)
//   PRODUCERS  threads; with 0 the logger is at rest
//   RATE       records per second of all producers together; a refused one is lost. 0: as fast as they can, and a
//              refused one is tried again
// Prints the records accepted per second, the refused ones in per cent, the processor time of the process in per cent
// of one processor, and the times of the calls in microseconds: p50, p99, the longest, and "nines_N", which the share
// 1 - 10^-N of the calls stays below.
#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <future>
#include <vector>

#include "Figures.h"
#include "LogPeers.h"

namespace {

using bench::Clock;

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
    bool isAccepted = true;
    if (rate > 0) {
      isAccepted = logger.push(number, record);
    } else {
      logger.pushOrRetry(number, record);
    }
    result.accepted += isAccepted ? 1 : 0;
    result.microseconds.push_back(std::chrono::duration<float, std::micro>(Clock::now() - before).count());
  }
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

void printTimes(std::vector<float> calls) {
  if (calls.empty()) return;
  std::sort(calls.begin(), calls.end());
  const auto quantile = [&](double share) {
    return static_cast<double>(calls[static_cast<std::size_t>(share * static_cast<double>(calls.size() - 1))]);
  };
  std::fprintf(stderr, "p50_us %.3f\np99_us %.3f\nlongest_us %.3f\n", quantile(0.5), quantile(0.99), quantile(1));
  for (int tenths = 0; tenths <= 50; tenths += 2) {
    std::fprintf(stderr, "nines_%.1f %.3f\n", tenths / 10.0, quantile(1 - std::pow(10, -tenths / 10.0)));
  }
}

template <class Logger>
int run(int producers, double rate, double seconds, bool dropsOthers) {
  const int file = ::memfd_create("records", 0);
  Logger logger(file);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));  // a rest before the first burst
  std::vector<Producer> results(static_cast<std::size_t>(producers));
  for (Producer& result : results) result.microseconds.reserve(1 << 22);
  std::promise<Clock::time_point> start;
  const std::shared_future<Clock::time_point> end = start.get_future().share();
  std::vector<std::thread> threads;
  for (int i = 0; i < producers; ++i) {
    threads.emplace_back(
        [&, i] { produce(logger, i, rate / producers, end.get(), results[static_cast<std::size_t>(i)]); });
  }
  const double processorBefore = bench::processorSeconds(RUSAGE_SELF);
  const auto begin = Clock::now();
  start.set_value(begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
  if (producers == 0) std::this_thread::sleep_until(end.get());
  for (std::thread& thread : threads) thread.join();
  const double took = bench::secondsSince(begin);
  const double processor = bench::processorSeconds(RUSAGE_SELF) - processorBefore;
  logger.finish();

  std::vector<float> calls;
  long accepted = 0;
  for (const Producer& result : results) {
    calls.insert(calls.end(), result.microseconds.begin(), result.microseconds.end());
    accepted += result.accepted;
  }
  const long found = countRecords(file, results.size());
  const double share = calls.empty() ? 1 : static_cast<double>(found) / static_cast<double>(calls.size());
  std::fprintf(stderr, "records_per_second %.0f\nrefused_percent %.4f\nprocessor_percent %.3f\n",
               static_cast<double>(found) / took, 100 * (1 - share), 100 * processor / took);
  printTimes(std::move(calls));
  return (dropsOthers ? found >= 0 : found == accepted) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fputs("usage: log_stream LOGGER PRODUCERS RATE SECONDS\n", stderr);
    return 2;
  }
  const std::string logger = argv[1];
  const int producers = std::atoi(argv[2]);
  const double rate = std::atof(argv[3]), seconds = std::atof(argv[4]);
  if (logger == "oxu") return run<bench::Oxu>(producers, rate, seconds, false);
#ifdef OXU_HAVE_SPDLOG
  // It accepts every record, and drops others for it.
  if (logger == "spdlog") return run<bench::Spdlog>(producers, rate, seconds, true);
#endif
  return bench::noPeer(argv[1]);
}
