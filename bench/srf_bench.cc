// Reading and writing tables of 200,000 rows with five columns.

#include <benchmark/benchmark.h>

#include <string>

#include "base/srf.h"

namespace {

constexpr int kRows = 200'000;
constexpr std::string_view kColumns[] = {"regionname", "pvbname", "start", "stop", "operation"};

std::string makeTable(std::string_view row) {
  std::string text = "#% regionname pvbname start stop operation\n";
  for (int i = 0; i < kRows; ++i) text.append(row).append("\n");
  return text;
}

void parseRows(benchmark::State& state, std::string_view row) {
  const std::string text = makeTable(row);
  SRF_resetModes();
  SRF_setKeywords(kColumns);
  std::size_t bytes = 0;
  const SRFrowHandler handlers[] = {{3, [&](const SRFtuple& tuple, std::uint32_t) {
                                       bytes += tuple.items.back().value.size();
                                       return true;
                                     }}};
  for (auto _ : state) benchmark::DoNotOptimize(SRF_parseBuffer(text, "bench", handlers));
  state.SetItemsProcessed(state.iterations() * kRows);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void ParsePlainRows(benchmark::State& state) {
  parseRows(state, "core_region  databases/core  10nS  2500nS  flatten");
}
BENCHMARK(ParsePlainRows)->Unit(benchmark::kMillisecond);

void ParseQuotedRows(benchmark::State& state) {
  parseRows(state, R"("core \"region\""  databases/core\#1  "10 nS"  - "a\\b" # comment)");
}
BENCHMARK(ParseQuotedRows)->Unit(benchmark::kMillisecond);

void WriteRows(benchmark::State& state) {
  SRF_resetModes();
  SRF_setKeywords(kColumns);
  SRFtuple row;
  for (const std::string_view column : kColumns) SRF_set(row, column, "value # one");
  for (auto _ : state) {
    if (!SRF_openSrf("/dev/null")) state.SkipWithError("can't open the output");
    for (int i = 0; i < kRows; ++i) SRF_putTpl(row);
    SRF_closeSrf();
  }
  state.SetItemsProcessed(state.iterations() * kRows);
}
BENCHMARK(WriteRows)->Unit(benchmark::kMillisecond);

}  // namespace
