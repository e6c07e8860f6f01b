// How long an operation file takes to read: regions, signal lists and operations
// in equal parts, by number of rows. Time must grow in step with the rows.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include <fmt/format.h>

#include "base/platform.h"
#include "conditioner/op_file.h"
#include "conditioner/run.h"

namespace {

std::string operationFile(long rows) {
  std::string text = "#% regionname pvbname start stop\n";
  for (long i = 0; i < rows / 3; ++i) {
    text += fmt::format("region{} patterns/db{} 10ns 1.5us\n", i, i);
  }
  text += "#% siglist oldsigname newsigname\n";
  for (long i = 0; i < rows / 3; ++i)
    text += fmt::format("list{} \"bus[{}]\" port{}\n", i % 50, i, i);
  text += "#% operation operand1 operand2 operand3\n";
  for (long i = 0; i < rows / 3; ++i) {
    text += fmt::format("merge region{} region{} out/merged{}\n", i, (i * 7) % (rows / 3), i);
  }
  return text;
}

void readsOperationFile(benchmark::State& state) {
  const std::string path = "operation_file_bench.ops";
  {
    StreamPtr file = openStream(path, "w");
    const std::string text = operationFile(state.range(0));
    std::fwrite(text.data(), 1, text.size(), file.get());
    closeStream(std::move(file));
  }
  for (auto _ : state) {
    state.PauseTiming();
    run = Run();
    state.ResumeTiming();
    if (!readOperationFile(path, {})) state.SkipWithError("the file was refused");
  }
  platform().remove(path.c_str());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(readsOperationFile)
    ->Arg(25'000)
    ->Arg(50'000)
    ->Arg(100'000)
    ->Arg(200'000)
    ->Arg(400000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
