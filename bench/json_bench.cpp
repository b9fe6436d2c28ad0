// Json beside the bare containers that do the same work.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "oxu/Json.h"

namespace {

using oxu::json::Json;

constexpr int kAppends = 1000000;

Json fiveMembers() {
  Json object;
  object["name"] = "worker";
  object["pid"] = 4711;
  object["starts"] = 3;
  object["load"] = 0.25;
  object["alive"] = true;
  return object;
}

void BM_AppendBareVector(benchmark::State& state) {
  const std::map<std::string, Json> object = {
      {"name", "worker"}, {"pid", 4711}, {"starts", 3}, {"load", 0.25}, {"alive", true}};
  for (auto _ : state) {
    std::vector<std::map<std::string, Json>> array;
    for (int i = 0; i < kAppends; ++i) array.push_back(object);
    benchmark::DoNotOptimize(array.data());
  }
}
BENCHMARK(BM_AppendBareVector)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_AppendJson(benchmark::State& state) {
  const Json object = fiveMembers();
  for (auto _ : state) {
    Json array;
    for (int i = 0; i < kAppends; ++i) array.append(object);
    benchmark::DoNotOptimize(array.size());
  }
}
BENCHMARK(BM_AppendJson)->Unit(benchmark::kMillisecond)->Iterations(1);

constexpr int kDepth = 1000000;

struct Chain {
  Json payload;
  Chain* next = nullptr;
};

// As many nodes, with as many allocations, linked by plain pointers.
void BM_DeepBareChain(benchmark::State& state) {
  for (auto _ : state) {
    Chain* first = nullptr;
    for (int i = 0; i < kDepth; ++i) first = new Chain{Json(), first};
    while (first != nullptr) delete std::exchange(first, first->next);
  }
}
BENCHMARK(BM_DeepBareChain)->Unit(benchmark::kMillisecond)->Iterations(3);

Json deepTree() {
  Json root;
  Json* innermost = &root;
  for (int i = 0; i < kDepth; ++i) innermost = &(*innermost)[0];
  return root;
}

void BM_DeepBuildAndDestroy(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(deepTree().isArray());
}
BENCHMARK(BM_DeepBuildAndDestroy)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_DeepCopyAndDestroy(benchmark::State& state) {
  const Json tree = deepTree();
  for (auto _ : state) benchmark::DoNotOptimize(Json(tree).isArray());
}
BENCHMARK(BM_DeepCopyAndDestroy)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_DeepWrite(benchmark::State& state) {
  const Json tree = deepTree();
  for (auto _ : state) benchmark::DoNotOptimize(tree.toString().size());
}
BENCHMARK(BM_DeepWrite)->Unit(benchmark::kMillisecond)->Iterations(3);

template <std::string (Json::*write)() const>
void BM_WriteRecords(benchmark::State& state) {
  Json array;
  for (int i = 0; i < 100000; ++i) array.append(fiveMembers());
  std::size_t bytes = 0;
  for (auto _ : state) bytes += (array.*write)().size();
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK_TEMPLATE(BM_WriteRecords, &Json::toString)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_WriteRecords, &Json::toJson)->Unit(benchmark::kMillisecond);

// A string of plain text, of text in another script, and of bytes that each need an escape.
template <std::string (Json::*write)() const>
void BM_WriteString(benchmark::State& state) {
  const char* const characters[] = {"plain ", "\xd0\xb6", "\n"};
  std::string text;
  while (text.size() < 1000000) text += characters[state.range(0)];
  const Json value(text);
  for (auto _ : state) benchmark::DoNotOptimize((value.*write)().size());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK_TEMPLATE(BM_WriteString, &Json::toString)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_WriteString, &Json::toJson)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

}  // namespace
