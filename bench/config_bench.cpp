// Loading a large configuration file beside filling the same maps from its text when that is split already.
#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "oxu/IniFile.h"

namespace {

constexpr int kSections = 1000;
constexpr int kKeys = 1000;

using Table = std::map<std::string, std::map<std::string, std::string>>;

// About 30 MB in a file in memory, its keys sorted or in random order, and the same text in pieces.
class Config {
 public:
  explicit Config(bool sorted) : m_fd(::memfd_create("config", MFD_CLOEXEC)) {
    std::vector<int> order(kKeys);
    for (int i = 0; i < kKeys; ++i) order[static_cast<std::size_t>(i)] = i;
    std::mt19937 random(1);
    for (int section = 0; section < kSections; ++section) {
      if (!sorted) std::shuffle(order.begin(), order.end(), random);
      append("[section %04d]\n", section);
      for (const int key : order) append("key of it %04d = value %07d\n", key, key * section);
    }
    if (::write(m_fd, m_text.data(), m_text.size()) != static_cast<ssize_t>(m_text.size())) std::abort();
    split();
  }
  ~Config() { ::close(m_fd); }
  Config(const Config&) = delete;
  Config& operator=(const Config&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd); }
  const std::string& text() const { return m_text; }

  struct Section {
    std::string_view name;
    std::vector<std::pair<std::string_view, std::string_view>> entries;
  };
  const std::vector<Section>& sections() const { return m_sections; }

 private:
  template <typename... Numbers>
  void append(const char* format, Numbers... numbers) {
    char line[64];
    m_text.append(line, static_cast<std::size_t>(std::snprintf(line, sizeof line, format, numbers...)));
  }

  void split() {
    for (std::size_t begin = 0, end; begin < m_text.size(); begin = end + 1) {
      end = m_text.find('\n', begin);
      const std::string_view line = std::string_view(m_text).substr(begin, end - begin);
      const std::size_t equals = line.find(" = ");
      if (equals == std::string_view::npos) {
        m_sections.push_back({line.substr(1, line.size() - 2), {}});
      } else {
        m_sections.back().entries.emplace_back(line.substr(0, equals), line.substr(equals + 3));
      }
    }
  }

  int m_fd;
  std::string m_text;
  std::vector<Section> m_sections;
};

const Config& config(bool sorted) {
  static const Config configs[] = {Config(false), Config(true)};
  return configs[sorted ? 1 : 0];
}

void finish(benchmark::State& state, const Config& source) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(source.text().size()));
  state.SetLabel(state.range(0) != 0 ? "sorted keys" : "shuffled keys");
}

// Each iteration discards the table of the one before, as load does.
void BM_IniFillBareMaps(benchmark::State& state) {
  const Config& source = config(state.range(0) != 0);
  Table table;
  for (auto _ : state) {
    table.clear();
    for (const auto& section : source.sections()) {
      auto& keys = table.try_emplace(table.end(), std::string(section.name))->second;
      for (const auto& [key, value] : section.entries) keys.insert_or_assign(keys.end(), std::string(key), value);
    }
  }
  finish(state, source);
}
BENCHMARK(BM_IniFillBareMaps)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_IniLoad(benchmark::State& state) {
  const Config& source = config(state.range(0) != 0);
  IniFile ini;
  for (auto _ : state) {
    if (!ini.load(source.path())) state.SkipWithError("load");
  }
  finish(state, source);
}
BENCHMARK(BM_IniLoad)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
