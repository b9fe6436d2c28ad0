// Json beside the same storage with plain recursion, and beside nlohmann::json. The three take turns in one process, so
// that other load meets them all. The first run of a turn does not count: it meets the heap that another one has left.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "PlainJson.h"
#include "oxu/Json.h"

#ifdef OXU_HAVE_NLOHMANN
#include <nlohmann/json.hpp>
#endif

namespace {

using bench::Plain;
using oxu::json::Json;

Json& member(Json& object, const char* key) { return object[key]; }
Json& firstElement(Json& array) { return array[0]; }
void append(Json& array, const Json& value) { array.append(value); }
std::string textOf(const Json& value) { return value.toString(); }

#ifdef OXU_HAVE_NLOHMANN
nlohmann::json& member(nlohmann::json& object, const char* key) { return object[key]; }
nlohmann::json& firstElement(nlohmann::json& array) { return array[std::size_t{0}]; }
void append(nlohmann::json& array, const nlohmann::json& value) { array.push_back(value); }
std::string textOf(const nlohmann::json& value) { return value.dump(); }
#endif

template <class Value>
Value record() {
  Value object;
  member(object, "name") = Value("worker");
  member(object, "pid") = Value(4711);
  member(object, "starts") = Value(3);
  member(object, "load") = Value(0.25);
  member(object, "alive") = Value(true);
  return object;
}

template <class Value, int count>
std::unique_ptr<Value> records() {
  const Value object = record<Value>();
  auto array = std::make_unique<Value>();
  for (int i = 0; i < count; ++i) append(*array, object);
  return array;
}

struct Wide {
  static constexpr int kRunsPerTurn = 3;
  template <class Value>
  static std::unique_ptr<Value> make() {
    return records<Value, 100000>();
  }
};

struct Cached {
  static constexpr int kRunsPerTurn = 300;
  template <class Value>
  static std::unique_ptr<Value> make() {
    return records<Value, 75>();
  }
};

struct Deep {
  static constexpr int kRunsPerTurn = 3;
  template <class Value>
  static std::unique_ptr<Value> make() {
    auto root = std::make_unique<Value>();
    Value* innermost = root.get();
    for (int i = 0; i < 250000; ++i) innermost = &firstElement(*innermost);
    return root;
  }
};

template <class Function>
double secondsOf(Function function) {
  const auto begin = std::chrono::steady_clock::now();
  function();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

struct Build {
  template <class Shape, class Value>
  static double run(const Value&) {
    std::unique_ptr<Value> built;
    return secondsOf([&] { built = Shape::template make<Value>(); });
  }
};

struct Copy {
  template <class Shape, class Value>
  static double run(const Value& tree) {
    std::unique_ptr<Value> copy;
    return secondsOf([&] { copy = std::make_unique<Value>(tree); });
  }
};

struct Destroy {
  template <class Shape, class Value>
  static double run(const Value& tree) {
    auto copy = std::make_unique<Value>(tree);
    return secondsOf([&] { copy.reset(); });
  }
};

struct Text {
  template <class Shape, class Value>
  static double run(const Value& tree) {
    return secondsOf([&] { benchmark::DoNotOptimize(textOf(tree).size()); });
  }
};

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

template <class Work, class Shape, class Value>
double turn(const Value& tree) {
  std::vector<double> seconds;
  Work::template run<Shape>(tree);
  for (int i = 0; i < Shape::kRunsPerTurn; ++i) seconds.push_back(Work::template run<Shape>(tree));
  return median(std::move(seconds));
}

template <class Work, class Shape>
void compare(benchmark::State& state) {
  constexpr int kTurns = 5;
  const auto ours = Shape::template make<Json>();
  const auto plain = Shape::template make<Plain>();
  std::vector<double> seconds;
  std::vector<double> ofPlain;
#ifdef OXU_HAVE_NLOHMANN
  const auto peer = Shape::template make<nlohmann::json>();
  std::vector<double> ofNlohmann;
#endif
  for (int i = 0; i < kTurns; ++i) {
    seconds.push_back(turn<Work, Shape>(*ours));
    ofPlain.push_back(seconds.back() / turn<Work, Shape>(*plain));
#ifdef OXU_HAVE_NLOHMANN
    ofNlohmann.push_back(seconds.back() / turn<Work, Shape>(*peer));
#endif
  }
  state.SetIterationTime(median(seconds));
  state.counters["of_plain"] = median(ofPlain);
#ifdef OXU_HAVE_NLOHMANN
  state.counters["of_nlohmann"] = median(ofNlohmann);
#endif
}

void* callFunction(void* function) {
  (*static_cast<std::function<void()>*>(function))();
  return nullptr;
}

// On a stack on which plain recursion goes down all levels.
void onLargeStack(std::function<void()> function) {
  constexpr std::size_t kStackBytes = std::size_t{1} << 30;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStackBytes);
  pthread_t thread;
  if (pthread_create(&thread, &attributes, callFunction, &function) == 0) pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

template <class Work, class Shape>
void BM_Json(benchmark::State& state) {
  for (auto _ : state) onLargeStack([&state] { compare<Work, Shape>(state); });
}
BENCHMARK_TEMPLATE(BM_Json, Build, Wide)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Build, Cached)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Copy, Wide)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Copy, Cached)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Copy, Deep)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Destroy, Wide)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Destroy, Cached)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Destroy, Deep)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Text, Wide)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Text, Cached)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Json, Text, Deep)->Iterations(1)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
