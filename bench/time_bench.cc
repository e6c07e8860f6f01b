// Reading and writing times in text, as every file of a database does for each
// timeplate: both are to stay under 100 ns.

#include <benchmark/benchmark.h>

#include <array>

#include "base/time.h"

namespace {

constexpr std::array<std::string_view, 8> kTexts = {
    "10nS", "0pS", "1.5us", "37.125NS", "2e3ps", "999.999999999999999S", "100S", "12345.678pS"};
constexpr std::array<TIME, 8> kTimes = {{{0, 10000000},
                                         {0, 0},
                                         {1, 500000000},
                                         {0, 37125000},
                                         {0, 2000000},
                                         {999999999, 999999999},
                                         {100000000, 0},
                                         {0, 12345678}}};

void parseText(benchmark::State& state) {
  const std::string_view text = kTexts[static_cast<std::size_t>(state.range(0))];
  state.SetLabel(std::string(text));
  TIME time;
  for (auto _ : state) {
    benchmark::DoNotOptimize(parseTIME(text, time));
    benchmark::DoNotOptimize(time);
  }
}
BENCHMARK(parseText)->DenseRange(0, kTexts.size() - 1);

void formatTime(benchmark::State& state) {
  const TIME time = kTimes[static_cast<std::size_t>(state.range(0))];
  std::string buffer;
  for (auto _ : state) {
    benchmark::DoNotOptimize(PBformatTIME(buffer, '?', -1, -1, time));
    benchmark::DoNotOptimize(buffer);
  }
  state.SetLabel(buffer);
}
BENCHMARK(formatTime)->DenseRange(0, kTimes.size() - 1);

}  // namespace
