// Reading value change dumps, alone and into a database. Rates are bytes of text a
// second.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "base/temp_directory.h"
#include "tools/import.h"
#include "tools/new_database.h"
#include "tools/vcd_reader.h"

namespace {

constexpr std::size_t kTextSize = std::size_t{64} << 20;
constexpr unsigned kBits = 1900;
constexpr unsigned kVectors = 100;

std::string codeOf(unsigned number) {
  std::string code;
  for (;; number = number / 94 - 1) {
    code += static_cast<char>('!' + number % 94);
    if (number < 94) return code;
  }
}

std::string head() {
  std::string text = "$timescale 1 ps $end\n$scope module top $end\n";
  for (unsigned i = 0; i < kBits; ++i) {
    text += fmt::format("$var wire 1 {} s{} $end\n", codeOf(i), i);
  }
  for (unsigned i = 0; i < kVectors; ++i) {
    text += fmt::format("$var wire 32 {} b{} [31:0] $end\n", codeOf(kBits + i), i);
  }
  return text + "$upscope $end\n$enddefinitions $end\n";
}

// Every time some bits change, every fourth time a vector too.
std::string dumpText() {
  std::mt19937 source(1);
  const auto random = [&source] { return static_cast<std::uint32_t>(source()); };
  std::string text = head();
  text.reserve(kTextSize + 4096);
  for (unsigned time = 0; text.size() < kTextSize; time += 5000) {
    text += fmt::format("#{}\n", time);
    for (unsigned changes = 20 + random() % 40; changes > 0; --changes) {
      text += static_cast<char>('0' + random() % 2);
      text += codeOf(random() % kBits) + '\n';
    }
    if (time % 20000 == 0) {
      text += fmt::format("b{:b} {}\n", random(), codeOf(kBits + random() % kVectors));
    }
  }
  return text;
}

const std::string& sharedText() {
  static const std::string text = dumpText();
  return text;
}

void countBytes(benchmark::State& state) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sharedText().size()));
}

void readText(benchmark::State& state) {
  sharedText();
  for (auto step : state) {
    VcdReader reader(openByteText(sharedText(), "text"), [](const Message&) {});
    if (!reader.readHeader()) state.SkipWithError("the head can't be read");
    std::uint64_t ones = 0;
    for (VcdEvent event = reader.next(); event != VcdEvent::end; event = reader.next()) {
      if (event == VcdEvent::bits) ones += reader.value().front() == '1' ? 1 : 0;
    }
    benchmark::DoNotOptimize(ones);
  }
  countBytes(state);
}
BENCHMARK(readText)->Unit(benchmark::kMillisecond);

// All variables as inputs.
void importText(benchmark::State& state) {
  const std::string base =
      (std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp") + std::string("/pvb_vcd_bench");
  std::filesystem::create_directories(base);
  PBsetTempDirectory(base);
  const std::string file = base + "/in.vcd";
  std::ofstream(file, std::ios::binary) << sharedText();
  ImportOptions options;
  options.quiet = true;
  options.period = {0, 5000000};
  options.inputs = {"s*"};
  options.outputs = {"b*"};
  for (auto step : state) {
    removeDatabaseDirectory(base + "/db");
    ImportCounts counts;
    if (!importVcd(file, options, base + "/db", printMessage, counts)) {
      state.SkipWithError("the import failed");
    }
  }
  countBytes(state);
  std::filesystem::remove_all(base);
}
BENCHMARK(importText)->Unit(benchmark::kMillisecond);

}  // namespace
