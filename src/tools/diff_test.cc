// Databases built from texts and compared: what must be the same, and differences
// found at their places.

#include "tools/diff.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/dump_support.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::int64_t kNanosecond = 1000000;

// Signals "a" (driven), "q" (expected) and "io" (both), in columns as told.
std::string signalLines(std::string_view a = "in=0", std::string_view q = "out=1",
                        std::string_view io = "in=2 out=3") {
  return fmt::format(
      "pvb-dump 1\n"
      "database version=501 row-width=32\n"
      "signals next-column=4 next-id=4\n"
      "signal 1 \"a\" type=scalar direction=input {}\n"
      "signal 2 \"q\" type=scalar direction=output {}\n"
      "signal 3 \"io\" type=scalar direction=bidir {}\n"
      "signal 100000 \"ALL\" type=group\n"
      "  members 1 2 3\n",
      a, q, io);
}

// A plate on which "a" has `waveA`, "q" and "io" sample; waves as "0pS D, 10nS S".
std::string plateLines(int id, std::string_view period, std::string_view waveA,
                       std::string_view waveQ = "0pS X, 5nS Q") {
  const auto track = [](std::string_view wave, int signal) {
    std::string lines = "    track\n";
    while (!wave.empty()) {
      const std::size_t end = std::min(wave.find(", "), wave.size());
      lines += fmt::format("    event {}\n", wave.substr(0, end));
      wave.remove_prefix(std::min(end + 2, wave.size()));
    }
    return lines + fmt::format("    on {}\n", signal);
  };
  return fmt::format(
             "timeplate {} \"tp{}\" period={}\n"
             "  slot input\n    of 1\n  slot output\n    of 2\n"
             "  slot input\n    of 3\n  slot output\n    of 3\n"
             "  level 0pS\n",
             id, id, period) +
         track(waveA, 1) + track(waveQ, 2) + track("0pS S", 3) + track("0pS X, 5nS Q", 3);
}

class Diff : public testing::Test {
 protected:
  // The differences, as "what signal rowA/rowB cycle xCYCLES: a / b".
  std::vector<std::string> diff(const std::string& a, const std::string& b) {
    for (const char* name : {"a", "b"}) std::filesystem::remove_all(files_.path(name));
    EXPECT_TRUE(files_.build(a, "a")) << files_.firstMessage();
    EXPECT_TRUE(files_.build(b, "b")) << files_.firstMessage();
    return again();
  }
  std::vector<std::string> again() {
    ReadDatabase a;
    ReadDatabase b;
    messages_.clear();
    const MessageSink keep = [this](const Message& message) { messages_.push_back(message.text); };
    EXPECT_TRUE(a.open(files_.path("a"), keep) && b.open(files_.path("b"), keep));
    std::vector<std::string> found;
    const DifferenceSink told = [&](const Difference& d) {
      found.push_back(fmt::format("{} {} {}/{} {} x{}: {} / {}", d.what, d.signal, d.a.row, d.b.row,
                                  d.cycle ? std::to_string(*d.cycle) : "", d.cycles, d.a.text,
                                  d.b.text));
    };
    result_ = structure_ ? diffStructures(a.handle(), b.handle(), told, keep)
                         : diffDatabases(a.handle(), b.handle(), options_, told, keep);
    EXPECT_EQ(result_.done, messages_.empty());
    return found;
  }

  // The same signals and plates before the rows of both sides.
  std::vector<std::string> diffRows(std::string_view a, std::string_view b) {
    return diff(head_ + std::string(a) + "done\n", head_ + std::string(b) + "done\n");
  }

  DumpDirectory files_;
  DiffOptions options_;
  bool structure_ = false;
  DiffResult result_;
  std::vector<std::string> messages_;
  std::string head_ = signalLines() + "timeplates mode=1\n" +
                      plateLines(0, "10nS", "0pS P, 2nS S, 8nS D") + plateLines(1, "20nS", "0pS S");
};

// --- The same ------------------------------------------------------------------------

// What is driven and what is expected at one time has no order.
TEST_F(Diff, SlotsOfOneSignalEqualTheirOneSlot) {
  const std::string slots = "  slot input\n    of 3\n  slot output\n    of 3\n";
  const std::string tracks =
      "    track\n    event 0pS S\n    on 3\n    track\n    event 0pS X\n    event 5nS Q\n    on "
      "3\n";
  const auto withOne = [&](const std::string& events) {
    std::string text = signalLines() + plateLines(0, "10nS", "0pS S");
    text.replace(text.find(slots), slots.size(), "  slot bidir\n    of 3\n");
    text.replace(text.find(tracks), tracks.size(), "    track\n" + events + "    on 3\n");
    return text + "rows main\nrow \"tp0\" |1011\ndone\n";
  };
  const std::string several =
      signalLines() + plateLines(0, "10nS", "0pS S") + "rows main\nrow \"tp0\" |1011\ndone\n";
  EXPECT_THAT(diff(several, withOne("event 0pS S\nevent 0pS X\nevent 5nS Q\n")), IsEmpty());
  EXPECT_THAT(diff(several, withOne("event 0pS X\nevent 0pS S\nevent 5nS Q\n")), IsEmpty());
  EXPECT_EQ(diff(several, withOne("event 0pS X\nevent 1pS S\nevent 5nS Q\n")).size(), 1u);
}

TEST_F(Diff, ColumnsAndOrderOfSignalsDontCount) {
  const std::string plates = "timeplates mode=1\n" + plateLines(0, "10nS", "0pS S");
  EXPECT_THAT(
      diff(signalLines() + plates + "rows main\nrow \"tp0\" |01-1\nrow \"tp0\" |101\ndone\n",
           signalLines("in=3", "out=0", "in=2 out=1") + plates +
               "rows main\nrow \"tp0\" |11-0\nrow \"tp0\" |0-11\ndone\n"),
      IsEmpty());
}

TEST_F(Diff, ScanRowsEqualTheirCycles) {
  const std::string scan =
      "signal 9:1 \"chain\" type=chain\n  members 5:1 5:2\n  ate-pins 1 2\n"
      "signal 5:1 \"c1\" type=cell\nsignal 5:2 \"c2\" type=cell\n"
      "timeplates mode=1\n" +
      plateLines(0, "10nS", "0pS S") + "vector \"v\"\n  cells |X01\n";
  EXPECT_THAT(
      diff(signalLines() + scan + "rows main\nscan \"tp0\" x4 |--1\nrun both 9:1 \"v\"\ndone\n",
           signalLines() + scan +
               "rows main\nrow \"tp0\" |111\nrow \"tp0\" |001\nrow \"tp0\" x2 |--1\ndone\n"),
      IsEmpty());
}

// --- Differences ---------------------------------------------------------------------

TEST_F(Diff, DifferencesAreFoundAtTheirPlaces) {
  EXPECT_THAT(diffRows("subroutine 0 \"s\"\nrows main\nrow \"tp1\" x5 |0\ncall \"s\"\nrows 0\n"
                       "row \"tp1\" |0\nrow \"tp1\" |01\n",
                       "rows main\nrow \"tp1\" x2 |0\nrow \"tp1\" x2 |1\nrow \"tp1\" x2 |0\n"
                       "row \"tp1\" |00\n"),
              ElementsAre("events a 0/1 2 x1: 0pS D / 0pS U", "events a 0/1 3 x1: 0pS D / 0pS U",
                          "events q s:1/3 6 x1: 0pS X, 5nS H / 0pS X, 5nS L"));
  EXPECT_EQ(result_.differences, 3u);
  EXPECT_THAT(
      diffRows("rows main\nrow \"tp1\" |1\nspacer spacer-time=5nS\nmatch \"tp1\" |1\n",
               "rows main\nrow \"tp0\" |1\nspacer spacer-time=6nS\nrow \"tp1\" |1\n"
               "row \"tp1\" |1\n"),
      ElementsAre("period  0/0 0 x1: 20nS / 10nS", "events a 0/0 0 x1: 0pS U / 0pS N, 2nS U, 8nS D",
                  "period  1/1 1 x1: 5nS / 6nS", "kind  2/2 2 x1: match / cycle",
                  "length  /3 3 x1: ends / goes on"));
}

TEST_F(Diff, WavesDifferFromChangeToChange) {
  options_.ignoreCycles = true;
  const std::string same = "row \"tp1\" |0\nrow \"tp1\" |11\nrow \"tp1\" |1\n";
  const auto rows = [&](std::string_view a, std::string_view b) {
    return fmt::format("rows main\n{}row \"tp1\" |{}\n{}row \"tp1\" x9 |{}\n{}", same, a, same, b,
                       same);
  };
  EXPECT_THAT(diffRows(rows("10", "0"), rows("10", "0")), IsEmpty());
  EXPECT_THAT(diffRows(rows("0", "0"), rows("1", "0")),
              ElementsAre("wave a 3/ 3 x1: force high to force low / force high",
                          "wave a /4 4 x1: force low / force high to force low"));
  EXPECT_THAT(
      diffRows(rows("1", "0"), rows("1", "01")),
      Contains("wave q /7 7 x1: expect unknown level / expect unknown level to expect high"));
  EXPECT_EQ(result_.differences, 18u);  // to high and back in each of nine cycles
}

TEST_F(Diff, RepeatsOutOfStepAreCountedWithoutWalkingThem) {
  options_.ignoreCycles = true;
  options_.stretchA.from = 7 * kNanosecond;
  std::string written = "rows main\n";
  for (int i = 0; i < 50; ++i) written += "row \"tp1\" |01\n";
  diffRows(written + "row \"tp0\" |1\n", written);
  const std::uint64_t differences = result_.differences;
  EXPECT_GT(differences, 150u);
  diffRows("rows main\nrow \"tp1\" x50 |01\nrow \"tp0\" |1\n", "rows main\nrow \"tp1\" x50 |01\n");
  EXPECT_EQ(result_.differences, differences);
  // A stretch that ends inside a cycle; what comes behind its end isn't compared.
  options_.stretchB.to = 502 * kNanosecond;
  diffRows(written, written);
  const std::uint64_t cut = result_.differences;
  diffRows("rows main\nrow \"tp1\" x50 |01\n", "rows main\nrow \"tp1\" x50 |01\n");
  EXPECT_EQ(result_.differences, cut);
}

TEST_F(Diff, SignalsAreMatchedByName) {
  std::string other = signalLines();
  other.replace(other.find("\"q\""), 3, "\"x\"");
  const std::string rest =
      "timeplates mode=1\n" + plateLines(0, "10nS", "0pS S") + "rows main\nrow \"tp0\" |11\ndone\n";
  EXPECT_THAT(diff(signalLines() + rest, other + rest),
              ElementsAre("signal q /  x1: output / no such signal",
                          "signal x /  x1: no such signal / output"));
  options_.common = true;
  EXPECT_THAT(again(), IsEmpty());
  EXPECT_EQ(result_.signals, 2u);
  options_ = {};
  options_.signals = {"a", "io"};
  EXPECT_THAT(again(), IsEmpty());
  options_.signals = {"aa"};
  again();
  EXPECT_THAT(messages_, ElementsAre(HasSubstr("'aa' is no signal")));
}

// Bodies of different lengths, runs against loops, loops within loops.
TEST_F(Diff, LongLoopsMeetInTheirOwnRhythms) {
  head_.replace(head_.find("20nS"), 4, "20fS");
  const auto loop = [](std::uint64_t passes, int pairs, char last) {
    std::string rows = fmt::format("loop x{}\n", passes);
    for (int i = 0; i < pairs; ++i) rows += "row \"tp1\" |0\nrow \"tp1\" |1\n";
    rows[rows.size() - 2] = last;
    return rows + "end\n";
  };
  const std::string nested = "loop x1000000\n" + loop(600, 1, '1') + "end\n";
  const std::string run = "row \"tp1\" x1200000000 |1\n";
  for (const bool ignore : {false, true}) {
    options_.ignoreCycles = ignore;
    for (const std::string& other : {loop(300000000, 2, '1'), loop(200000000, 3, '1'), nested}) {
      EXPECT_THAT(diffRows("rows main\n" + loop(600000000, 1, '1'), "rows main\n" + other),
                  IsEmpty());
      EXPECT_THAT(diffRows("rows main\n" + nested, "rows main\n" + other), IsEmpty());
    }
    diffRows("rows main\n" + loop(300000000, 2, '0'), "rows main\n" + loop(200000000, 3, '1'));
    // The last pulse doesn't come back.
    EXPECT_EQ(result_.differences, ignore ? 599999999ull : 300000000ull);
    diffRows("rows main\n" + run, "rows main\n" + nested);
    EXPECT_EQ(result_.differences, ignore ? 1200000000ull : 600000000ull);
  }
}

TEST_F(Diff, LongRunsOfDifferentCyclesAreNotWalked) {
  options_.ignoreCycles = true;
  head_ = signalLines() + plateLines(0, "30fS", "0pS D", "0pS X") +
          plateLines(1, "20fS", "0pS D", "0pS X") + plateLines(2, "5fS", "0pS D", "0pS X") +
          plateLines(3, "15fS", "0pS U", "0pS X") + plateLines(4, "0pS", "0pS D", "0pS X");
  const std::string whole = "rows main\nrow \"tp0\" x2000000000\n";
  EXPECT_THAT(diffRows(whole, "rows main\nrow \"tp1\" x3000000000\n"), IsEmpty());
  // Out of step, and with one difference at the end.
  EXPECT_THAT(diffRows(whole, "rows main\nrow \"tp2\"\nrow \"tp1\" x2999999999\nrow \"tp3\"\n"),
              ElementsAre(HasSubstr("force low / force low to force high")));
  EXPECT_THAT(diffRows(whole, "rows main\nrow \"tp4\" x4000000000\nrow \"tp0\" x2000000000\n"),
              IsEmpty());
}

// --- Previous states -----------------------------------------------------------------

TEST_F(Diff, PreviousStatesGoByTheMode) {
  // What "a" is left at by a row of the first plate, and the drive that `P` then is.
  struct Case {
    int mode;
    std::string_view left;
    char state;
    std::string_view same;
  };
  const std::array<Case, 8> cases = {{{0, "0pS U", '1', "N"},
                                      {1, "0pS S", 'Z', "Z"},
                                      {1, "0pS U, 5nS Z", '1', "Z"},
                                      {2, "0pS U, 5nS Z", '1', "U"},
                                      {3, "0pS U, 5nS N", '1', "N"},
                                      {3, "0pS U, 5nS L", '1', "Z"},
                                      {4, "0pS U, 5nS L", '1', "U"},
                                      {5, "0pS D", '1', "D"}}};
  for (const auto& [mode, left, state, same] : cases) {
    const std::string head =
        fmt::format("{}timeplates mode={}\n{}", signalLines(), mode, plateLines(0, "10nS", left));
    const std::string rows =
        fmt::format("rows main\nrow \"tp0\" |{}\nrow \"tp1\" |1\ndone\n", state);
    const std::string literal = fmt::format("0pS {}, 1nS U", same);
    options_ = {};
    EXPECT_THAT(diff(head + plateLines(1, "10nS", "0pS P, 1nS U") + rows,
                     head + plateLines(1, "10nS", literal) + rows),
                IsEmpty())
        << "mode " << mode << ", " << left;
    options_.previous = PreviousMode::literal;
    EXPECT_EQ(again().size(), 1u);
  }
}

TEST_F(Diff, RowsDecideTheirOwnPrevious) {
  const std::string head = signalLines() + "timeplates mode=1\n";
  const std::string rows = "rows main\nrow \"tp0\" |1\nrow \"tp0\" |Z\nrow \"tp0\" |0\ndone\n";
  EXPECT_THAT(diff(head + plateLines(0, "10nS", "0pS P, 2nS S, 4nS P") + rows,
                   head + plateLines(0, "10nS", "0pS S, 2nS S, 4nS S") + rows),
              ElementsAre("events a 0/0 0 x1: 0pS N, 2nS U, 4nS U / 0pS U, 2nS U, 4nS U",
                          "events a 2/2 2 x1: 0pS Z, 2nS D, 4nS D / 0pS D, 2nS D, 4nS D"));
}

// --- Waves and stretches -------------------------------------------------------------

TEST_F(Diff, StretchesAreComparedFromTheirBeginnings) {
  const std::string first = "row \"tp0\" x3 |1\nrow \"tp0\" |0\n";
  const std::string second = "loop x50\nrow \"tp0\" |01\nrow \"tp1\" |1\nend\n";
  const std::string joined = "rows main\n" + first + second;
  for (const bool ignore : {false, true}) {
    options_ = {};
    options_.ignoreCycles = ignore;
    options_.stretchA = {0, 40 * kNanosecond};
    EXPECT_THAT(diffRows(joined, "rows main\n" + first), IsEmpty());
    options_.stretchA = {40 * kNanosecond};
    // What went before shows.
    EXPECT_EQ(diffRows(joined, "rows main\n" + second).size(), ignore ? 2u : 1u);
    options_.previous = PreviousMode::literal;
    EXPECT_THAT(again(), IsEmpty());
    // The same place of a loop, a pass later.
    options_.previous = PreviousMode::resolve;
    options_.stretchA = {(40 + 30 * 20) * kNanosecond, (40 + 30 * 45) * kNanosecond};
    options_.stretchB = {30 * 5 * kNanosecond, 30 * 30 * kNanosecond};
    EXPECT_THAT(again(), IsEmpty());
    options_.stretchA.from += kNanosecond;
    EXPECT_EQ(again().empty(), !ignore);
    EXPECT_EQ(messages_.empty(), ignore);
  }
}

// --- What is stored ------------------------------------------------------------------

TEST_F(Diff, StructureComparesNamesNotIds) {
  structure_ = true;
  EXPECT_THAT(diffRows("rows main\nrow \"tp0\" |1\n", "rows main\nrow \"tp0\" |1\n"), IsEmpty());
  std::string renumbered = head_;
  for (const auto& [from, to] : {std::pair("timeplate 0", "timeplate 7"),
                                 {"signal 2", "signal 8"},
                                 {"members 1 2 3", "members 1 8 3"}}) {
    renumbered.replace(renumbered.find(from), std::string_view(from).size(), to);
  }
  for (const std::string_view list : {"of 2", "on 2"}) {
    for (std::size_t at = renumbered.find(list); at != renumbered.npos;
         at = renumbered.find(list, at + 1)) {
      renumbered[at + 3] = '8';
    }
  }
  const std::string rows =
      "rows main\nrow \"tp0\" |1\nloop x2\nrow \"tp0\" |0\nend\nrow \"tp1\" |1\n";
  EXPECT_THAT(diff(head_ + rows + "done\n", renumbered + rows + "done\n"), IsEmpty());
  EXPECT_THAT(
      diffRows(rows,
               "rows main\nrow \"tp0\" |1\nrow \"tp0\" x2 |0\n  prop 1 \"new\"\n"
               "row \"tp1\" |1\n"),
      ElementsAre("rows  1/1  x1: loop x2 / row \"tp0\" x2 |0",
                  "rows  2/1  x1: row \"tp0\" |0 / prop 1 \"new\"", "rows  3/  x1: end / none"));
}

// --- Damage --------------------------------------------------------------------------

TEST_F(Diff, EndlessPatternsAreRefused) {
  diffRows(
      "subroutine 0 \"s\"\nsubroutine 1 \"t\"\nrows main\ncall \"s\"\nrows 0\nrow \"tp0\" |1\n"
      "call \"t\"\nrows 1\ncall \"s\"\n",
      "rows main\nrow \"tp0\" |1\n");
  EXPECT_THAT(messages_, ElementsAre(HasSubstr("calls itself")));
  const std::string loops = "rows main\nloop x4000000000\nloop x4000000000\n";
  diffRows(loops + "row \"tp0\" |1\nrow \"tp0\" |1\nend\nend\n",
           loops + "row \"tp0\" |1\nrow \"tp0\" |1\nend\nend\n");
  EXPECT_THAT(messages_, testing::Each(HasSubstr("longer than a time can be")));
  EXPECT_FALSE(messages_.empty());
  EXPECT_THAT(diffRows(loops + "poc\nend\nend\n", loops + "end\nend\n"), IsEmpty());
}

}  // namespace
