// The logger beside the bare calls that its work cannot do without.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#ifdef OXU_HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

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

constexpr char kLine[] = "\x1b[0mINFO [2026-01-31 08:05:09.042]  request 17 served in 423 us\x1b[0m\n";

// Lines that are ready, to where nothing is done with them: what the system takes for a write of each.
void BM_DrainBareWrite(benchmark::State& state) {
  const int console = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  for (auto _ : state) {
    for (int i = 0; i < kRecords; ++i) {
      if (::write(console, kLine, sizeof kLine - 1) < 0) state.SkipWithError("write");
    }
  }
  ::close(console);
  state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_DrainBareWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef OXU_HAVE_SPDLOG
// Formatted and written by the caller, and flushed after each line, as the console logger does.
void BM_DrainSpdlogSynchronous(benchmark::State& state) {
  spdlog::logger logger("console", std::make_shared<spdlog::sinks::basic_file_sink_st>("/dev/null"));
  logger.set_pattern("\x1b[0m%l [%Y-%m-%d %T.%e]  %v\x1b[0m");
  logger.flush_on(spdlog::level::info);
  for (auto _ : state) {
    for (int i = 0; i < kRecords; ++i) logger.info("request {} served in {} us", 17, 423);
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_DrainSpdlogSynchronous)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

// From the first push to the last line that is out.
void BM_DrainLogger(benchmark::State& state) {
  std::FILE* const saved = stdout;
  stdout = std::fopen("/dev/null", "w");
  install_log_task();
  for (auto _ : state) {
    for (int i = 0; i < kRecords; ++i) {
      while (!push_log(oxu::INFO, "request %d served in %d us", 17, 423)) std::this_thread::yield();
    }
    flush_log(-1);
  }
  uninstall_log_task();
  std::fclose(stdout);
  stdout = saved;
  state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(BM_DrainLogger)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
