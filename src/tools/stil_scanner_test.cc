#include "tools/stil_scanner.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

namespace {

using testing::ElementsAre;

// A scanner over a text with all that it told.
struct Scan {
  explicit Scan(std::string what, std::size_t piece = StilScanner::kPieceSize)
      : text(std::move(what)),
        scanner(
            openByteText(text, "text"), [this](const Message& m) { told.push_back(m); }, piece) {}
  Scan(const Scan&) = delete;

  // "line:column code text" of the only message.
  std::string message() const {
    if (told.size() != 1) return fmt::format("{} messages", told.size());
    const Message& m = told.front();
    return fmt::format("{}:{} {} {}", m.line, m.column, static_cast<int>(m.code), m.text);
  }
  bool goTo(StilTokenKind kind) {
    while (!scanner.next().text.empty() && !scanner.is(kind)) {
    }
    return scanner.is(kind);
  }

  std::string text;
  std::vector<Message> told;
  StilScanner scanner;
};

// Kinds by a letter: w s e a, and the marks as they are; "~" in front of a joined one.
std::string shown(const StilToken& token) {
  constexpr std::string_view kLetters = ".wsea{};=:";
  const char kind = kLetters[static_cast<std::size_t>(token.kind)];
  const std::string joined = token.joined ? "~" : "";
  if (token.kind >= StilTokenKind::open) return joined + kind;
  return joined + fmt::format("{}<{}>", kind, token.text);
}
std::string placed(const StilToken& token) {
  return fmt::format("{} {}:{} {}", token.place.offset, token.place.line, token.place.column,
                     shown(token));
}

template <typename Show>
std::vector<std::string> read(Scan& scan, Show show) {
  std::vector<std::string> tokens;
  while (scan.scanner.next().kind != StilTokenKind::end)
    tokens.push_back(show(scan.scanner.token()));
  return tokens;
}
std::string tokens(std::string_view text) {
  Scan scan{std::string(text)};
  std::string all;
  for (const std::string& token : read(scan, shown)) all += (all.empty() ? "" : " ") + token;
  return scan.told.empty() ? all : "failed " + scan.message();
}

TEST(StilScanner, TakesTheTextApart) {
  const std::vector<std::pair<std::string_view, std::string_view>> table = {
      {"", ""},
      {" \t\r\n\f\v", ""},
      {"V{\"_pi\"=\\r10 01P;}", "w<V> ~{ ~s<_pi> ~= ~w<\\r10> w<01P> ~; ~}"},
      {"pdata[11] Bus[0..7] a.b", "w<pdata[11]> w<Bus[0..7]> w<a.b>"},
      {"\"sig\"[0..3] \"sig\" [0..3]", "s<sig> ~w<[0..3]> s<sig> w<[0..3]>"},
      {"\"a\".\"b\"", "s<a> ~w<.> ~s<b>"},
      {R"("a\" "b c\d .e")", R"(s<a\> s<b c\d .e>)"},
      {"\"a\nb\" '1\n2'", "s<a\nb> e<1\n2>"},
      {"'a + \"b\"'\"it's\"", "e<a + \"b\"> ~s<it's>"},
      {"L/H/X 1/0;", "w<L/H/X> w<1/0> ~;"},
      {"/ a/", "w</> w<a/>"},
      {"a//b\nc/*d*/e/***/f//", "w<a> w<c> w<e> w<f>"},
      {"/* /* \" */ * /", "w<*> w</>"},
      {"// \" {* \n'//'", "e<//>"},
      {"Ann{* \"it's\" *} {**}{***}", "w<Ann> ~a< \"it's\" > a<> ~a<*>"},
      {"{ *} {*}*}", "{ w<*> ~} a<}>"},
      {"\"l\": x", "s<l> ~: w<x>"},
      {"\xEF\xBB\xBFSTIL 1.0", "w<STIL> w<1.0>"},
      {"\xEF\xBB \xC3\xBC", "w<\xEF\xBB> w<\xC3\xBC>"},
      {"/*\x01*/{*\x02*}", "a<\x02>"},
  };
  for (const auto& [text, expected] : table) EXPECT_EQ(tokens(text), expected) << text;
}

TEST(StilScanner, TellsWhatIsWrongAndWhere) {
  const std::vector<std::pair<std::string, std::string>> table = {
      {"a \"b\nc", "1:3 702 the name in quotes that begins here has no end"},
      {"\n 'b", "2:2 702 the expression that begins here has no end"},
      {"{* *", "1:1 702 the annotation that begins here has no end"},
      {"a /* \n *", "1:3 702 the comment that begins here has no end"},
      {"ab\x01", "1:3 701 a control character, 0x01"},
      {"\"a\x7F\"", "1:3 701 a control character, 0x7F"},
      {std::string("a\r\nb\0c", 6), "2:2 701 a zero byte: this isn't a text"},
      {std::string("// \0\n", 5), "1:4 701 a zero byte: this isn't a text"},
      {std::string("{*\n\0*}", 6), "2:1 701 a zero byte: this isn't a text"},
      {std::string("\0", 1), "1:1 701 a zero byte: this isn't a text"},
  };
  for (const auto& [text, expected] : table) {
    for (const std::size_t piece : {std::size_t{1}, StilScanner::kPieceSize}) {
      Scan scan(text, piece);
      read(scan, shown);
      EXPECT_EQ(scan.message(), expected) << text;
      EXPECT_TRUE(scan.scanner.failed());
      EXPECT_EQ(scan.scanner.next().kind, StilTokenKind::end);
    }
  }
}

TEST(StilScanner, KnowsThePlaceOfEachToken) {
  Scan scan("\xEF\xBB\xBF\"a\r\nb\" c\r\n{*\n\n*}d /*\n*/ e\n");
  EXPECT_THAT(read(scan, placed), ElementsAre("3 1:1 s<a\r\nb>", "10 2:4 w<c>", "13 3:1 a<\n\n>",
                                              "19 5:3 ~w<d>", "27 6:4 w<e>"));
  EXPECT_EQ(placed(scan.scanner.token()), "29 7:1 .<>");
}

TEST(StilScanner, ShowsTheLineAroundTheMark) {
  Scan scan("x\r\n  Signals { a }\r\n");
  scan.goTo(StilTokenKind::open);
  scan.scanner.warnAt(scan.scanner.token().place, kStilSyntax, "first");
  EXPECT_FALSE(scan.scanner.failed());
  EXPECT_FALSE(scan.scanner.fail(kStilSyntax, "second"));
  EXPECT_FALSE(scan.scanner.fail(kStilSyntax, "not told"));
  ASSERT_EQ(scan.told.size(), 2U);
  EXPECT_EQ(scan.told[0].severity, Severity::warning);
  EXPECT_EQ(formatMessage(scan.told[0], false).substr(0, 71),
            "text:2:11: warning: first [PVB0701]\n    Signals { a }\n            ^\n  C");
  EXPECT_EQ(scan.told[1].text, "second");

  const std::string longLine = std::string(5000, 'a') + " ; " + std::string(5000, 'b');
  Scan other(longLine, 64);
  other.goTo(StilTokenKind::stop);
  other.scanner.fail(kStilSyntax, "here");
  const Message& message = other.told.front();
  EXPECT_LE(message.sourceLine.size(), 200U);
  EXPECT_EQ(message.sourceLine[message.column - 1 - message.sourceBegin], ';');
  EXPECT_THAT(formatMessage(message, false), testing::HasSubstr("a ; b"));
}

TEST(StilScanner, RefusesTokensWithoutBound) {
  const std::string longest(StilScanner::kLongestToken, '0');
  Scan good(longest + ";");
  EXPECT_EQ(good.scanner.next().text.size(), longest.size());
  Scan bad("a=" + longest + "1;");
  EXPECT_THAT(read(bad, shown), ElementsAre("w<a>", "~="));
  EXPECT_EQ(bad.message().substr(0, 8), "1:3 703 ");
}

class FailingSource : public ByteSource {
 public:
  std::ptrdiff_t read(char* to, std::size_t /*size*/) override {
    if (given_) return -1;
    given_ = true;
    std::string_view("a {\nb").copy(to, 5);
    return 5;
  }
  bool seek(std::uint64_t /*offset*/) override { return false; }
  std::int64_t size() const override { return -1; }
  std::int64_t consumed() const override { return -1; }
  FailingSource() { reason_ = "the disk is gone"; }

 private:
  bool given_ = false;
};

TEST(StilScanner, TellsWhatTheSourceSays) {
  for (const bool skip : {false, true}) {
    std::vector<std::string> told;
    StilScanner scanner(std::make_unique<FailingSource>(), [&](const Message& message) {
      told.push_back(fmt::format("{} {}", message.line, message.text));
    });
    scanner.next();
    scanner.next();
    EXPECT_TRUE(skip ? !scanner.skipBlock() : scanner.next().kind == StilTokenKind::end);
    EXPECT_THAT(told, ElementsAre("2 the text can't be read: the disk is gone"));
  }
}

// --- Laws ----------------------------------------------------------------------------

// What has a meaning of its own next to some of its neighbours.
std::string anyText() {
  const auto part = rc::gen::elementOf(std::vector<std::string>{
      "{",  "}",    "{", "}", "{*", "*}",   "/*",   "*/",   "//",           "/",   "*", "\"", "'",
      "\n", "\r\n", " ", ";", "=",  "01HL", "name", "\\r3", "\xEF\xBB\xBF", "\x01"});
  const auto parts = *rc::gen::container<std::vector<std::string>>(part);
  std::string text;
  for (const std::string& one : parts) text += one;
  return text;
}

RC_GTEST_PROP(StilScannerLaw, TokensDontDependOnThePieces, ()) {
  const std::string text = anyText();
  Scan whole(text);
  const auto expected = read(whole, placed);
  const auto piece = *rc::gen::inRange<std::size_t>(1, 20);
  Scan cut(text, piece);
  RC_ASSERT(read(cut, placed) == expected);
  RC_ASSERT(cut.told.size() == whole.told.size());
  if (!whole.told.empty()) RC_ASSERT(cut.message() == whole.message());
}

// Where the tokens of a block end and where skipping it ends.
RC_GTEST_PROP(StilScannerLaw, SkippingEndsWhereTheTokensDo, ()) {
  const std::string text = "a { " + anyText() + "} b";  // "{*" would begin an annotation
  const auto piece = *rc::gen::inRange<std::size_t>(1, 20);
  Scan read(text);
  Scan skipped(text, piece);
  if (!read.goTo(StilTokenKind::open)) return;
  RC_ASSERT(skipped.goTo(StilTokenKind::open));
  int depth = 1;
  while (depth > 0 && read.scanner.next().kind != StilTokenKind::end) {
    depth += read.scanner.is(StilTokenKind::open);
    depth -= read.scanner.is(StilTokenKind::close);
  }
  RC_ASSERT(skipped.scanner.skipBlock() == (depth == 0));
  if (depth == 0) {
    RC_ASSERT(skipped.scanner.is(StilTokenKind::close));
    RC_ASSERT(skipped.scanner.token().place.offset == read.scanner.token().place.offset);
    RC_ASSERT(placed(skipped.scanner.next()) == placed(read.scanner.next()));
  } else if (read.told.empty()) {
    RC_ASSERT(skipped.message() == "1:3 702 the block that begins here has no end");
  } else {
    RC_ASSERT(skipped.message() == read.message());
  }
}

RC_GTEST_PROP(StilScannerLaw, SeekingReadsTheSameAgain, ()) {
  const std::string text = anyText() + " a";
  Scan scan(text, *rc::gen::inRange<std::size_t>(1, 20));
  std::vector<StilPlace> places;
  std::vector<std::string> expected;
  while (scan.scanner.next().kind != StilTokenKind::end) {
    places.push_back(scan.scanner.token().place);
    expected.push_back(placed(scan.scanner.token()));
  }
  if (scan.scanner.failed() || places.size() < 2) return;
  const auto at = *rc::gen::inRange<std::size_t>(1, places.size());
  RC_ASSERT(scan.scanner.seek(places[at]));
  RC_ASSERT(scan.scanner.token().place.offset == places[at].offset);
  std::vector<std::string> again = read(scan, placed);
  again.insert(again.begin(), expected[at]);
  RC_ASSERT(again == std::vector<std::string>(expected.begin() + static_cast<std::ptrdiff_t>(at),
                                              expected.end()));
  RC_ASSERT(scan.told.empty());
}

}  // namespace
