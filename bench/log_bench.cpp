// The logger beside the bare calls that its work cannot do without.
#include <benchmark/benchmark.h>
#include <fcntl.h>
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

// A pipe that another thread empties stands for the console.
class Console {
 public:
  Console() {
    if (::pipe2(m_fds, O_CLOEXEC) != 0) std::abort();
    m_reader = std::thread([this] {
      static char buffer[1 << 16];
      for (ssize_t size = 0; (size = ::read(m_fds[0], buffer, sizeof buffer)) > 0;) m_received += size;
    });
  }
  ~Console() {
    ::close(m_fds[1]);
    m_reader.join();
    ::close(m_fds[0]);
  }
  int fd() const { return m_fds[1]; }
  void waitFor(long bytes) const {
    while (m_received < bytes) std::this_thread::yield();
  }

 private:
  int m_fds[2] = {};
  std::atomic<long> m_received{0};
  std::thread m_reader;
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
