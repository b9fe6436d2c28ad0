// Launching beside the bare ways to run the same shell, from hosts of several sizes, and capture beside a bare read of
// the same pipe.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "oxu/StartProcess.h"

namespace {

// Memory that the host has in use, in pages of the usual size, as of many small allocations.
class HostMemory {
 public:
  explicit HostMemory(std::int64_t mebibytes)
      : m_size(static_cast<std::size_t>(mebibytes) << 20),
        m_data(::mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
    ::madvise(m_data, m_size, MADV_NOHUGEPAGE);
    std::memset(m_data, 1, m_size);
  }
  ~HostMemory() { ::munmap(m_data, m_size); }
  HostMemory(const HostMemory&) = delete;
  HostMemory& operator=(const HostMemory&) = delete;

 private:
  const std::size_t m_size;
  void* const m_data;
};

// Each way runs the same shell and waits for its end.
char shell[] = "/bin/bash";
char option[] = "-c";
char command[] = "exit 0";
char* const arguments[] = {shell, option, command, nullptr};

pid_t launchByFork() {
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::execve(shell, arguments, environ);
    ::_exit(1);
  }
  return pid;
}

pid_t launchByPosixSpawn() {
  pid_t pid = -1;
  return ::posix_spawn(&pid, shell, nullptr, nullptr, arguments, environ) == 0 ? pid : -1;
}

void BM_Launch(benchmark::State& state, pid_t (*launch)()) {
  const HostMemory memory(state.range(0));
  for (auto _ : state) {
    const pid_t pid = launch();
    if (pid == -1) state.SkipWithError("no child");
    ::waitpid(pid, nullptr, 0);
  }
}

// With the pipe, the reader thread and the end of both.
void BM_LaunchStartProcess(benchmark::State& state) {
  const HostMemory memory(state.range(0));
  for (auto _ : state) {
    const oxu::StartProcess process("", "", command, "", nullptr, 4096, false);
    ::waitpid(process.pid(), nullptr, 0);
  }
}

void hostSizes(benchmark::internal::Benchmark* launch) {
  launch->ArgName("MiB")->Arg(4)->Arg(1024)->Arg(4096)->Unit(benchmark::kMicrosecond)->UseRealTime();
}
BENCHMARK_CAPTURE(BM_Launch, fork, launchByFork)->Apply(hostSizes);
BENCHMARK_CAPTURE(BM_Launch, posix_spawn, launchByPosixSpawn)->Apply(hostSizes);
BENCHMARK(BM_LaunchStartProcess)->Apply(hostSizes);

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
