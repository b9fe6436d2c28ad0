// Loading a large configuration file, beside inih, and beside reading it and looking for the ends of its lines.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#ifdef OXU_HAVE_INIH
#include <ini.h>
#endif

#include "oxu/IniFile.h"

namespace {

constexpr int kKeysASection = 1000;

using Table = std::map<std::string, std::map<std::string, std::string>>;

// A file in memory, some 30 bytes a key.
class Config {
 public:
  explicit Config(const benchmark::State& state) : m_fd(::memfd_create("config", MFD_CLOEXEC)) {
    std::vector<int> order(kKeysASection);
    std::iota(order.begin(), order.end(), 0);
    std::mt19937 random(1);
    for (int section = 0; section < state.range(1) / kKeysASection; ++section) {
      if (state.range(0) != 0) std::shuffle(order.begin(), order.end(), random);
      append("[section %04d]\n", section);
      for (const int key : order) append("key of it %04d = value %07d\n", key, key * section);
    }
    if (::write(m_fd, m_text.data(), m_text.size()) != static_cast<ssize_t>(m_text.size())) std::abort();
  }
  ~Config() { ::close(m_fd); }
  Config(const Config&) = delete;
  Config& operator=(const Config&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd); }

 private:
  template <typename... Numbers>
  void append(const char* format, Numbers... numbers) {
    char line[64];
    m_text.append(line, static_cast<std::size_t>(std::snprintf(line, sizeof line, format, numbers...)));
  }

  int m_fd;
  std::string m_text;
};

void BM_IniLoad(benchmark::State& state) {
  const Config config(state);
  IniFile ini;
  for (auto _ : state) {
    if (!ini.load(config.path())) state.SkipWithError("load");
  }
}

// Nothing is kept of the file.
void BM_IniReadAndMemchr(benchmark::State& state) {
  const Config config(state);
  static char buffer[1 << 16];
  for (auto _ : state) {
    const int file = ::open(config.path().c_str(), O_RDONLY | O_CLOEXEC);
    long lines = 0;
    while (const ssize_t size = ::read(file, buffer, sizeof buffer)) {
      if (size < 0) std::abort();
      const char* const end = buffer + size;
      const char* at = buffer;
      while (at < end && (at = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at))))) {
        ++lines;
        ++at;
      }
    }
    ::close(file);
    if (lines < state.range(1)) state.SkipWithError("lines");
  }
}

#ifdef OXU_HAVE_INIH
int keep(void* table, const char* section, const char* key, const char* value) {
  (*static_cast<Table*>(table))[section][key] = value;
  return 1;
}

// Into the same table.
void BM_IniInih(benchmark::State& state) {
  const Config config(state);
  Table table;
  for (auto _ : state) {
    if (::ini_parse(config.path().c_str(), keep, &table) != 0) state.SkipWithError("parse");
  }
}
#endif

// One load each, into an empty heap, as a host does it.
void sizes(benchmark::internal::Benchmark* load) {
  load->ArgNames({"shuffled", "keys"})->ArgsProduct({{0, 1}, {10000, 1000000}})->Iterations(1);
  load->Unit(benchmark::kMillisecond)->UseRealTime();
}
BENCHMARK(BM_IniLoad)->Apply(sizes);
BENCHMARK(BM_IniReadAndMemchr)->Apply(sizes);
#ifdef OXU_HAVE_INIH
BENCHMARK(BM_IniInih)->Apply(sizes);
#endif

}  // namespace
