// The scanner of STIL texts over 64 MiB in memory: token by token, and a pattern that is
// passed over whole. Rates are bytes of text a second; `tokens` are those of a second.

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <string_view>

#include "tools/stil_scanner.h"

namespace {

constexpr std::size_t kTextBytes = std::size_t{64} << 20;

class TextMaker {
 public:
  std::string& text() { return text_; }
  bool full() const { return text_.size() >= kTextBytes; }
  void data(std::string_view characters, std::size_t count) {
    for (; count > 0; --count) text_ += characters[random_() % characters.size()];
  }
  std::string take() { return std::move(text_ += "}\n"); }

 private:
  std::mt19937 random_{1};
  std::string text_ = "Pattern \"_pattern_\" {\n";
};

// Loads and captures as test generators write them: chains of 400 bits, 100 pins.
std::string scanText() {
  TextMaker make;
  for (int number = 0; !make.full(); ++number) {
    make.text() += "   \"pattern " + std::to_string(number) + "\": Call \"load_unload\" { \n";
    for (const char* chain : {"test_so1", "test_so2"}) {
      make.text() += std::string("      \"") + chain + "\"=";
      make.data("LH", 400);
      make.text() += "; ";
    }
    for (const char* chain : {"test_si1", "test_si2"}) {
      make.text() += std::string("\n      \"") + chain + "\"=";
      make.data("01", 400);
      make.text() += "; ";
    }
    make.text() += "}\n   Call \"multiclock_capture\" { \n      \"_pi\"=\\r10 0 ";
    make.data("01", 40);
    make.text() += "P; \"_po\"=";
    make.data("LHX", 50);
    make.text() += "; }\n";
  }
  return make.take();
}

// A vector a line over four groups, with a remark now and then.
std::string functionalText() {
  TextMaker make;
  for (int number = 0; !make.full(); ++number) {
    if (number % 50 == 0) {
      make.text() += "  Ann {* step " + std::to_string(number) + " *} // goes on\n";
    }
    make.text() += "  V { clk=P; bus=";
    make.data("01", 16);
    make.text() += "; \"ctl[3]\"=";
    make.data("01Z", 4);
    make.text() += "; out=";
    make.data("LHX", 8);
    make.text() += "; }\n";
  }
  return make.take();
}

StilScanner scannerOf(const std::string& text) {
  return StilScanner(openByteText(text, "text"), [](const Message&) {});
}

void tell(benchmark::State& state, const std::string& text) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void tokens(benchmark::State& state, std::string (*make)()) {
  const std::string text = make();
  std::int64_t count = 0;
  for (auto _ : state) {
    StilScanner scanner = scannerOf(text);
    while (!scanner.next().text.empty()) ++count;
    if (scanner.failed()) state.SkipWithError("the text is wrong");
  }
  tell(state, text);
  state.counters["tokens"] =
      benchmark::Counter(static_cast<double>(count), benchmark::Counter::kIsRate);
}

void skip(benchmark::State& state, std::string (*make)()) {
  const std::string text = make();
  for (auto _ : state) {
    StilScanner scanner = scannerOf(text);
    while (!scanner.is(StilTokenKind::open)) scanner.next();
    if (!scanner.skipBlock()) state.SkipWithError("the text is wrong");
  }
  tell(state, text);
}

BENCHMARK_CAPTURE(tokens, scan, scanText)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(tokens, functional, functionalText)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(skip, scan, scanText)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(skip, functional, functionalText)->Unit(benchmark::kMillisecond);

}  // namespace
