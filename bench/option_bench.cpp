// A command line of 40 arguments for 20 options: each option is given once, half of them with a value, and ten
// arguments belong to none.
#include <benchmark/benchmark.h>
#include <getopt.h>

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#if __has_include(<CLI/CLI.hpp>)
#include <CLI/CLI.hpp>
#endif
#if __has_include(<cxxopts.hpp>)
#include <cxxopts.hpp>
#endif

#include "oxu/Option.h"

namespace {

constexpr std::size_t kOptions = 20;
constexpr std::size_t kArguments = 40;
constexpr std::size_t kRest = 10;

bool takesValue(std::size_t option) { return option % 2 == 0; }

const std::array<std::string, kOptions>& names() {
  static const std::array<std::string, kOptions> names = {
      "address", "background", "config", "dry-run", "environment", "force",   "group", "hold",    "input", "json",
      "keep",    "list",       "mode",   "no-wait", "output",      "protect", "queue", "restart", "size",  "trace"};
  return names;
}

class CommandLine {
 public:
  CommandLine() {
    m_texts.emplace_back("program");
    for (std::size_t i = 0; i < kOptions; ++i) {
      m_texts.push_back("--" + names()[i]);
      if (takesValue(i)) m_texts.push_back("value of " + names()[i]);
      if (i % 2 == 1) m_texts.push_back("file" + std::to_string(i));
    }
    for (std::string& text : m_texts) m_pointers.push_back(text.data());
    m_pointers.push_back(nullptr);
    if (m_texts.size() != kArguments + 1) std::abort();
  }

  static constexpr int kCount = kArguments + 1;
  // A copy, for those who reorder the pointers.
  std::vector<char*> pointers() const { return m_pointers; }

 private:
  std::vector<std::string> m_texts;
  std::vector<char*> m_pointers;
};

// What a parse must have found.
void check(benchmark::State& state, const std::string& lastValue, std::size_t rest) {
  if (lastValue != "value of size" || rest != kRest) state.SkipWithError("not what was given");
}

// Keeps what it finds in as many strings as the others do.
class Getopt {
 public:
  Getopt() {
    for (std::size_t i = 0; i < kOptions; ++i) {
      m_options[i] = {names()[i].c_str(), takesValue(i) ? required_argument : no_argument, nullptr, 0};
    }
  }

  void parse(int count, char** arguments) {
    optind = 0;
    int index = 0;
    while (::getopt_long(count, arguments, "", m_options.data(), &index) != -1) {
      m_values[static_cast<std::size_t>(index)] = optarg != nullptr ? optarg : "true";
    }
    m_rest.assign(arguments + optind, arguments + count);
  }

  std::string lastValue() const { return m_values[18]; }
  std::size_t rest() const { return m_rest.size(); }

 private:
  std::array<option, kOptions + 1> m_options = {};
  std::array<std::string, kOptions> m_values;
  std::vector<std::string> m_rest;
};

class Oxu {
 public:
  Oxu() {
    for (std::size_t i = 0; i < kOptions; ++i) {
      m_option.addOption(names()[i], takesValue(i) ? Option::RequiredValue : Option::NoValue, "An option.");
    }
  }
  void parse(int count, char** arguments) { m_option.parse(count, arguments); }
  std::string lastValue() const { return m_option.getString("size"); }
  std::size_t rest() const { return m_option.arguments().size(); }

 private:
  Option m_option;
};

#if __has_include(<CLI/CLI.hpp>)
class Cli11 {
 public:
  Cli11() {
    for (std::size_t i = 0; i < kOptions; ++i) {
      if (takesValue(i)) {
        m_app.add_option("--" + names()[i], m_values[i], "An option.");
      } else {
        m_app.add_flag("--" + names()[i], m_flags[i], "An option.");
      }
    }
    m_app.add_option("files", m_rest, "Arguments.");
  }
  void parse(int count, char** arguments) { m_app.parse(count, arguments); }
  std::string lastValue() const { return m_values[18]; }
  std::size_t rest() const { return m_rest.size(); }

 private:
  CLI::App m_app{"program"};
  std::array<std::string, kOptions> m_values;
  std::array<bool, kOptions> m_flags = {};
  std::vector<std::string> m_rest;
};
#endif

#if __has_include(<cxxopts.hpp>)
class Cxxopts {
 public:
  Cxxopts() {
    for (std::size_t i = 0; i < kOptions; ++i) {
      if (takesValue(i)) {
        m_options.add_options()(names()[i], "An option.", cxxopts::value<std::string>());
      } else {
        m_options.add_options()(names()[i], "An option.");
      }
    }
  }
  void parse(int count, char** arguments) { m_result = m_options.parse(count, arguments); }
  std::string lastValue() const { return m_result["size"].as<std::string>(); }
  std::size_t rest() const { return m_result.unmatched().size(); }

 private:
  cxxopts::Options m_options{"program"};
  cxxopts::ParseResult m_result;
};
#endif

// One object parses again and again.
template <class Parser>
void BM_OptionParse(benchmark::State& state) {
  const CommandLine line;
  Parser parser;
  for (auto _ : state) {
    std::vector<char*> arguments = line.pointers();
    parser.parse(CommandLine::kCount, arguments.data());
  }
  check(state, parser.lastValue(), parser.rest());
}

// What a host does once: it makes the object, registers the options, and parses.
template <class Parser>
void BM_OptionRegisterAndParse(benchmark::State& state) {
  const CommandLine line;
  for (auto _ : state) {
    std::vector<char*> arguments = line.pointers();
    Parser parser;
    parser.parse(CommandLine::kCount, arguments.data());
    benchmark::DoNotOptimize(parser.rest());
  }
}

BENCHMARK_TEMPLATE(BM_OptionParse, Oxu);
BENCHMARK_TEMPLATE(BM_OptionParse, Getopt);
BENCHMARK_TEMPLATE(BM_OptionRegisterAndParse, Oxu);
BENCHMARK_TEMPLATE(BM_OptionRegisterAndParse, Getopt);
#if __has_include(<CLI/CLI.hpp>)
BENCHMARK_TEMPLATE(BM_OptionParse, Cli11);
BENCHMARK_TEMPLATE(BM_OptionRegisterAndParse, Cli11);
#endif
#if __has_include(<cxxopts.hpp>)
BENCHMARK_TEMPLATE(BM_OptionParse, Cxxopts);
BENCHMARK_TEMPLATE(BM_OptionRegisterAndParse, Cxxopts);
#endif

}  // namespace
