// Launching beside the bare way to run the same shell, and capture beside a bare read of the same
// pipe.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

#include "oxu/StartProcess.h"

namespace {

void BM_LaunchPosixSpawn(benchmark::State& state) {
  char shell[] = "/bin/bash";
  char option[] = "-c";
  char command[] = "exit 0";
  char* const arguments[] = {shell, option, command, nullptr};
  for (auto _ : state) {
    pid_t pid = 0;
    if (::posix_spawn(&pid, shell, nullptr, nullptr, arguments, environ) != 0) state.SkipWithError("spawn");
    ::waitpid(pid, nullptr, 0);
  }
}
BENCHMARK(BM_LaunchPosixSpawn)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_LaunchStartProcess(benchmark::State& state) {
  for (auto _ : state) {
    const oxu::StartProcess process("", "", "exit 0", "", nullptr, 4096, false);
    ::waitpid(process.pid(), nullptr, 0);
  }
}
BENCHMARK(BM_LaunchStartProcess)->Unit(benchmark::kMicrosecond)->UseRealTime();

// 34 MB of text; the command opens its output anew, so that it waits for its reader and loses
// nothing.
constexpr char kCommand[] = "exec >/dev/stdout 2>&1; seq 1000000 5250000";
constexpr long kBytes = 4250001L * 8;

void BM_CapturePopen(benchmark::State& state) {
  static char buffer[1 << 16];
  for (auto _ : state) {
    std::FILE* const pipe = ::popen(kCommand, "r");
    long received = 0;
    while (const std::size_t size = std::fread(buffer, 1, sizeof buffer, pipe)) received += static_cast<long>(size);
    ::pclose(pipe);
    if (received != kBytes) state.SkipWithError("lost output");
  }
  state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK(BM_CapturePopen)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CaptureStartProcess(benchmark::State& state) {
  for (auto _ : state) {
    std::atomic<long> received{0};
    const oxu::StartProcess process(
        "", "", kCommand, "", [&](const std::string& chunk) { received += static_cast<long>(chunk.size()); }, 1 << 16,
        false);
    ::waitpid(process.pid(), nullptr, 0);
    while (received < kBytes) std::this_thread::yield();
  }
  state.SetBytesProcessed(state.iterations() * kBytes);
}
BENCHMARK(BM_CaptureStartProcess)->Unit(benchmark::kMillisecond)->UseRealTime();

// The share of the lines of a command that arrive: it writes faster than any reader, and its output does not block,
// unless it opens that anew. The mark behind the lines always does so, and says that no line is on its way any more.
void BM_ShareOfFastOutput(benchmark::State& state) {
  const std::string commands[] = {"seq 1 5000000", "exec >/dev/stdout 2>&1; seq 1 5000000"};
  constexpr char kMark[] = " 2>/dev/null; exec >/dev/stdout; printf '#'";
  constexpr double kLines = 5000000;
  long lines = 0;
  for (auto _ : state) {
    std::atomic<bool> ended{false};
    const auto count = [&](const std::string& chunk) {
      if (ended) return;  // the library's own word about the end is none of the command's lines
      lines += std::count(chunk.begin(), chunk.end(), '\n');
      if (chunk.back() == '#') ended = true;
    };
    const oxu::StartProcess process("", "", commands[state.range(0)] + kMark, "", count, 1 << 16, false);
    ::waitpid(process.pid(), nullptr, 0);
    while (!ended) ::usleep(1000);
  }
  state.counters["share"] = static_cast<double>(lines) / kLines / static_cast<double>(state.iterations());
}
BENCHMARK(BM_ShareOfFastOutput)->ArgName("blocking")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
