// The logger beside the bare calls that its work cannot do without.
#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "log/OxuLog.h"
#include "oxu/CApi.h"

namespace {

constexpr int kRecords = 50000;

// What a caller pays at least: one clock read, one vsnprintf and one copy of the record.
void BM_CallerBareCalls(benchmark::State& state) {
  static oxu::LogItem slots[128];
  std::size_t next = 0;
  for (auto _ : state) {
    oxu::LogItem item;
    item.seconds = std::chrono::system_clock::now().time_since_epoch().count();
    std::snprintf(item.text, sizeof item.text, "request %d served in %d us", 17, 423);
    std::memcpy(&slots[next++ % 128], &item, sizeof item);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_CallerBareCalls);

// The ring is emptied outside of the measured time, so that every push is accepted.
void BM_CallerPushLog(benchmark::State& state) {
  std::FILE* const saved = stdout;
  stdout = std::fopen("/dev/null", "w");
  install_log_task();
  int pushed = 0;
  for (auto _ : state) {
    if (!push_log(oxu::INFO, "request %d served in %d us", 17, 423)) state.SkipWithError("full");
    if (++pushed % 100 != 0) continue;
    state.PauseTiming();
    std::this_thread::sleep_for(std::chrono::milliseconds(12));
    state.ResumeTiming();
  }
  uninstall_log_task();
  std::fclose(stdout);
  stdout = saved;
}
BENCHMARK(BM_CallerPushLog)->Iterations(10000);

// A file in memory stands for the console: nobody else has to run for a write to end.
class Console {
 public:
  Console() : m_fd(::memfd_create("console", MFD_CLOEXEC)) {}
  ~Console() { ::close(m_fd); }
  int fd() const { return m_fd; }
  void waitFor(long bytes) const {
    // Not by a seek, which would move the logger's position too.
    for (struct stat status{}; status.st_size < bytes; ::fstat(m_fd, &status)) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }

 private:
  int m_fd;
};

constexpr char kLine[] = "\x1b[0mINFO [2026-01-31 08:05:09.042]  request 17 served in 423 us\x1b[0m\n";
constexpr long kLineBytes = sizeof kLine - 1;

void BM_ConsoleBareWrite(benchmark::State& state) {
  for (auto _ : state) {
    Console console;
    for (int i = 0; i < kRecords; ++i) {
      if (::write(console.fd(), kLine, kLineBytes) != kLineBytes) state.SkipWithError("write");
    }
    console.waitFor(kRecords * kLineBytes);
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_ConsoleBareWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ConsoleLogger(benchmark::State& state) {
  std::FILE* const saved = stdout;
  for (auto _ : state) {
    Console console;
    stdout = ::fdopen(::dup(console.fd()), "w");
    install_log_task();
    for (int i = 0; i < kRecords; ++i) {
      while (!push_log(oxu::INFO, "request %d served in %d us", 17, 423)) std::this_thread::yield();
    }
    console.waitFor(kRecords * kLineBytes);
    uninstall_log_task();
    std::fclose(stdout);
  }
  stdout = saved;
  state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_ConsoleLogger)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
