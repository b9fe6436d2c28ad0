// Launching beside the bare ways to run the same shell, from hosts of several sizes, and capture beside a bare read of
// the same pipe.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#if __has_include(<boost/process/child.hpp>)
#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <boost/process/exe.hpp>
#include <boost/process/io.hpp>
#include <boost/process/pipe.hpp>
#endif

#include "oxu/StartProcess.h"

namespace {

// Memory that the host has in use, in pages of the usual size, as of many small allocations.
class HostMemory {
 public:
  explicit HostMemory(std::int64_t mebibytes)
      : m_size(static_cast<std::size_t>(mebibytes) << 20),
        m_data(::mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
    if (m_data == MAP_FAILED) std::abort();
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

// A fixed number of launches: to find one out, the memory would be filled again and again.
template <int launches>
void hostSizes(benchmark::internal::Benchmark* launch) {
  launch->ArgName("MiB")->Arg(4)->Arg(256)->Arg(1024)->Arg(4096)->Iterations(launches);
  launch->Unit(benchmark::kMicrosecond)->UseRealTime();
}
BENCHMARK_CAPTURE(BM_Launch, fork, launchByFork)->Apply(hostSizes<20>);
BENCHMARK_CAPTURE(BM_Launch, posix_spawn, launchByPosixSpawn)->Apply(hostSizes<200>);
BENCHMARK(BM_LaunchStartProcess)->Apply(hostSizes<200>);

// The command writes as fast as a pipe takes it, and waits for its reader. The reader takes 64 KiB at a time.
char fastCommand[] = "dd if=/dev/zero bs=64k count=2048 status=none";
constexpr long kBytes = 2048L << 16;
constexpr std::size_t kChunk = 1 << 16;
char buffer[kChunk];

void finishCapture(benchmark::State& state, long received) {
  if (received != state.iterations() * kBytes) state.SkipWithError("lost output");
  state.SetBytesProcessed(state.iterations() * kBytes);
}

// The bare reader's pipe is as large as that of StartProcess.
void BM_CaptureReadLoop(benchmark::State& state) {
  char* const fastArguments[] = {shell, option, fastCommand, nullptr};
  long received = 0;
  for (auto _ : state) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
    ::fcntl(ends[1], F_SETPIPE_SZ, 256 * 1024);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::dup2(ends[1], STDOUT_FILENO);
      ::execve(shell, fastArguments, environ);
      ::_exit(1);
    }
    ::close(ends[1]);
    while (const ssize_t size = ::read(ends[0], buffer, kChunk)) {
      if (size < 0) std::abort();
      received += size;
    }
    ::close(ends[0]);
    ::waitpid(pid, nullptr, 0);
  }
  finishCapture(state, received);
}
BENCHMARK(BM_CaptureReadLoop)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CapturePopen(benchmark::State& state) {
  long received = 0;
  for (auto _ : state) {
    std::FILE* const pipe = ::popen(fastCommand, "r");
    while (const std::size_t size = std::fread(buffer, 1, kChunk, pipe)) received += static_cast<long>(size);
    ::pclose(pipe);
  }
  finishCapture(state, received);
}
BENCHMARK(BM_CapturePopen)->Unit(benchmark::kMillisecond)->UseRealTime();

#if __has_include(<boost/process/child.hpp>)
void BM_CaptureBoost(benchmark::State& state) {
  long received = 0;
  for (auto _ : state) {
    namespace bp = boost::process;
    bp::pipe pipe;
    bp::child child(bp::exe = shell, bp::args = {option, fastCommand}, bp::std_out > pipe);
    while (const int size = pipe.read(buffer, kChunk)) {
      if (size < 0) std::abort();
      received += size;
    }
    child.wait();
  }
  finishCapture(state, received);
}
BENCHMARK(BM_CaptureBoost)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

void BM_CaptureStartProcess(benchmark::State& state) {
  std::atomic<long> received{0};
  const auto count = [&](const std::string& text) { received += static_cast<long>(text.size()); };
  long wakeUps = 0;
  for (auto _ : state) {
    const long before = received;
    {
      const oxu::StartProcess process("", "", fastCommand, "", count, kChunk, false, true);
      ::waitpid(process.pid(), nullptr, 0);
      if (!process.flushOutput(-1) || received - before != kBytes) state.SkipWithError("lost output");
    }
    wakeUps += received - before - kBytes;  // the library's own word about the end
  }
  finishCapture(state, received - wakeUps);
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
