// Optimizing and renaming timeplates as a user sees it: what the report says, what is left
// of a database, and that its cycles mean what they meant.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "support/any.h"

namespace {

using testing::HasSubstr;

constexpr char kSplit[] = "\n\nTotal run time";
constexpr char kCopied[] = "Copying source PVB (A) to destination PVB (dest)\n";
constexpr char kNothingMerged[] = "INFORMATIVE: No clock shape merging opportunities found.\n";
constexpr char kNoTracks[] = "INFORMATIVE: No unused tracks found\n";
constexpr char kNoPlates[] = "INFORMATIVE: No unused timeplates found\n";
constexpr char kNoDuplicates[] = "INFORMATIVE: No duplicate timeplates found\n\n";

class PlatesWorld : public OperationWorld {
 public:
  PlatesWorld() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  // Only the optimizations named, of "Clock", "Tracks", "Tps", "Dups", "Annotate".
  Outcome optimize(const std::string& only, const std::string& source = "A",
                   const std::string& destination = "dest") {
    std::vector<std::string> parameters = {"Operation=timeplate_optimize", "SourcePVB1=" + source};
    if (!destination.empty()) parameters.push_back("DestinationPVB=" + destination);
    const std::pair<const char*, const char*> flags[] = {{"Clock", "TpOptClockShapes"},
                                                         {"Tracks", "TpOptDeleteUnusedTracks"},
                                                         {"Tps", "TpOptDeleteUnusedTps"},
                                                         {"Dups", "TpOptDeleteDuplicateTps"},
                                                         {"Annotate", "TpOptAnnotateRowsWithTp"}};
    for (const auto& [word, name] : flags) {
      const bool on = only.find(word) != std::string::npos;
      parameters.push_back(std::string(name) + (on ? "=Yes" : "=no"));
    }
    return runParameters(parameters);
  }
  Outcome rename(const std::vector<std::string>& settings, const std::string& source = "A",
                 const std::string& destination = "dest") {
    std::vector<std::string> parameters = {"Operation=timeplate_rename", "SourcePVB1=" + source};
    if (!destination.empty()) parameters.push_back("DestinationPVB=" + destination);
    parameters.insert(parameters.end(), settings.begin(), settings.end());
    return runParameters(parameters);
  }
  std::string names(const std::string& database) const {
    std::string text;
    const std::string lines = linesOf(database, "timeplate ");
    for (std::size_t at = lines.find('"'); at != std::string::npos;) {
      const std::size_t end = lines.find('"', at + 1);
      text += (text.empty() ? "" : " ") + lines.substr(at + 1, end - at - 1);
      at = lines.find('"', end + 1);
    }
    return text;
  }
};

class PlatesTest : public testing::Test, protected PlatesWorld {};

void expectOptimized(const Outcome& outcome, const std::string& err, const std::string& report) {
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.err.substr(0, outcome.err.find(kSplit)), err);
  EXPECT_EQ(outcome.report, report);
}

// --- Unused tracks and timeplates ----------------------------------------------------

// Timeplate "tp" has rows, "spare one" none: its name is a whole one, blank and all.
DatabaseText twoPlates() {
  DatabaseText text =
      smallChip().plate("spare one", "20nS", {{"a", "0pS S", ""}, {"y", "0pS X", ""}});
  return text.rows(steps("tp", {"11", "00"}));
}

TEST_F(PlatesTest, NothingSelectedTouchesNothing) {
  expectOptimized(optimize("Annotate", "nowhere"), "WARNING: No timeplate optimizations selected\n",
                  "");
}

TEST_F(PlatesTest, RefusesWhatCannotBeOpened) {
  build("A", twoPlates());
  const std::string failed = "main: Timeplate optimize operation failed.\n";
  expectRefused(optimize("Tps", "nowhere"),
                "tpOptimize: PVB: (nowhere) does not exist.\n" + failed);
  EXPECT_THAT(optimize("Tps", "A", "A").err, HasSubstr(failed));
  expectRefused(rename({"TpRenameMode=AUTO_INDEX", "TpRenamePrefixStr=x"}, "nowhere"),
                "timeplateRename: PVB: (nowhere) does not exist.\n" + failed);
}

TEST_F(PlatesTest, DeletesUnusedTimeplatesInPlaceAndInACopy) {
  build("A", twoPlates());
  build("dest", twoPlates());
  const std::string report =
      "\nUNUSED TIMEPLATES (deleted)\n===========================\nspare one\n\n";
  expectOptimized(optimize("Tps", "dest", ""), "Deleting 1 unused timeplates...\n", report);
  EXPECT_EQ(names("dest"), "tp");
  expectOptimized(optimize("Tps"), "Deleting 1 unused timeplates...\n", kCopied + report);
  EXPECT_EQ(names("dest"), "tp");
  expectSame("A", "dest");
  expectOptimized(optimize("Tps", "dest", ""), "Deleting unused timeplates...none found.\n",
                  kNoPlates);
}

// An extended database where the rows choose the track of "a" by its selector.
std::string selectedTracks(const std::vector<std::pair<std::string, std::string>>& tracks,
                           const std::string& rows) {
  std::vector<TrackText> texts;
  for (const auto& [selector, events] : tracks) texts.push_back({"a", events, ""});
  texts.push_back({"y", "0pS X 9nS Q", ""});
  DatabaseText database(1501);
  database.signal("a", "input").signal("y", "output").plate("tp", "10nS", texts);
  std::string text = database.rows(rows).text();
  const auto replace = [&](const std::string& from, const std::string& to) {
    text.replace(text.find(from), from.size(), to);
  };
  replace("in=0\n", "in=0 multi-bit=1 bit-in=2 bit-out=3\n  bit-tracks 2 3\n");
  replace("next-column=2", "next-column=4");
  for (const auto& [selector, events] : tracks) {
    replace("    track\n", "    track selector=\"" + selector + "\"\n");
  }
  return text;
}

// What a row holds in the two columns of a selector: the low half, then the high one.
std::string selectorCodes(char selector) {
  constexpr std::string_view kCodes = "-01ZX?!*.ABCDEFG";
  const auto code = static_cast<unsigned char>(selector);
  return {kCodes[code & 15U], kCodes[code >> 4U]};
}

TEST_F(PlatesTest, DeletesUnusedTracksFromTheHighestDown) {
  build("A", selectedTracks({{"1", "0pS S"}, {"2", "0pS D 2nS S"}, {"3", "0pS U 3nS S"}},
                            steps("tp", {"11" + selectorCodes('3'), "00" + selectorCodes('3')})));
  expectOptimized(optimize("Tracks"), "Deleting 2 unused tracks...\n",
                  std::string(kCopied) +
                      "\nUNUSED TRACKS REPORT\n\n"
                      "TP NAME                 TRACK DELETED\n"
                      "======================  ======================\n"
                      "tp                      a := input[0pS:S]\n"
                      "tp                      a := input[0pS:D, 2nS:S]\n\n");
  EXPECT_EQ(sectionOf("dest", "timeplate 0"),
            "timeplate 0 \"tp\" period=10nS\n  slot input\n    of 1\n  slot output\n    of 2\n"
            "  level 0pS\n    track selector=\"3\"\n    event 0pS U\n    event 3nS S\n    on 1\n"
            "    track\n    event 0pS X\n    event 9nS Q\n    on 2\n");
  expectSame("A", "dest");
  expectOptimized(optimize("Tracks", "dest", ""), "Deleting unused tracks...none found.\n",
                  kNoTracks);
}

// --- Duplicates ----------------------------------------------------------------------

TEST_F(PlatesTest, FoldsDuplicatesIntoTheLowestId) {
  DatabaseText text = smallChip();
  text.plate("slow", "20nS", {{"a", "0pS D 4nS S", ""}, {"y", "0pS X 9nS Q", ""}});
  text.plate("swapped", "10nS", {{"y", "0pS X 9nS Q", ""}, {"a", "0pS D 4nS S", ""}});
  text.plate("again", "10nS", {{"a", "0pS D 4nS S", ""}, {"y", "0pS X 9nS Q", ""}});
  text.rows(steps("tp", {"11"}) + "  loop x2\n" + steps("swapped", {"00"}) + "  end\n" +
            steps("again", {"10"}) + "  call \"s\" x1\n" + steps("slow", {"01"}));
  text.subroutine("s", "  row \"again\" x3 |11\n");
  build("A", text);
  expectOptimized(optimize("Dups"), "Deleting 2 duplicate timeplates...\n",
                  std::string(kCopied) +
                      "\nDUPLICATE TIMEPLATE REPORT\n\n"
                      "MASTER TP (kept)        DUPLICATE TP (deleted)\n"
                      "======================  ======================\n"
                      "tp                      swapped\n"
                      "tp                      again\n\n");
  EXPECT_EQ(names("dest"), "tp slow");
  EXPECT_THAT(dump("dest"), HasSubstr("  row \"tp\" x3 |11\n"));
  expectSame("A", "dest");
  expectOptimized(optimize("Dups", "dest", ""), "Deleting duplicate timeplates...none found.\n",
                  kNoDuplicates);
}

TEST_F(PlatesTest, AnnotatesEveryRowWithTheNameItHad) {
  DatabaseText text = smallChip();
  text.plate("again", "10nS", {{"a", "0pS D 4nS S", ""}, {"y", "0pS X 9nS Q", ""}});
  text.rows("  row \"again\" |11\n    prop 0 \"first\"\n  row \"tp\" |00\n    prop 0 \"second\"\n");
  build("A", text);
  EXPECT_EQ(optimize("Dups Annotate").exitCode, 0);
  EXPECT_EQ(rowsOf("dest"),
            "rows main\n  row \"tp\" |11\n    prop 0 \"again\"\n    prop 0 \"first\"\n"
            "  row \"tp\" |00\n    prop 0 \"tp\"\n    prop 0 \"second\"\n");
  // A row without comments stops the pass, and everything stays; kept on purpose.
  build("A", twoPlates().plate("again", "20nS", {{"a", "0pS S", ""}, {"y", "0pS X", ""}}));
  EXPECT_EQ(optimize("Dups Annotate").exitCode, 0);
  EXPECT_EQ(names("dest"), "tp spare one again");
  EXPECT_EQ(rowsOf("dest"), rowsOf("A"));
  EXPECT_EQ(optimize("Dups").exitCode, 0);
  EXPECT_EQ(names("dest"), "tp spare one");
}

// --- Clock shapes --------------------------------------------------------------------

TEST_F(PlatesTest, MergesFlatTracksIntoTheClock) {
  build("A", selectedTracks({{"1", "0pS P 2nS U 5nS D"}, {"2", "0pS D"}},
                            steps("tp", {"-1" + selectorCodes('1'), "-0" + selectorCodes('2')})));
  const std::string merged =
      "INFORMATIVE: Timeplate 'tp': Merging track 2 (D) into track 1 (PUD).\n"
      "INFORMATIVE: Timeplate 'tp': Deleting track 2 (D).\n"
      "INFORMATIVE: Timeplate 'tp', track 1: Converting to sample shape (PSD).\n";
  expectOptimized(optimize("Clock"), merged, kCopied + merged);
  EXPECT_EQ(rowsOf("dest"), "rows main\n  row \"tp\" |11" + selectorCodes('1') +
                                "\n  row \"tp\" |00" + selectorCodes('1') + "\n");
  EXPECT_THAT(sectionOf("dest", "timeplate 0"),
              HasSubstr("    event 0pS P\n    event 2nS S\n    event 5nS D\n"));
  expectSame("A", "dest", {"--ignore-cycles"});
}

// The tracks name a bus or a group that the clock stands in.
TEST_F(PlatesTest, MergesTracksThatNameTheClockByAGroup) {
  std::string text =
      selectedTracks({{"1", "0pS P 2nS U 5nS D"}, {"2", "0pS D"}},
                     steps("tp", {"-1" + selectorCodes('1'), "-0" + selectorCodes('2')}));
  build("A", text);
  optimize("Clock");
  const std::string rows = rowsOf("dest");
  const std::string group = "signal 90 \"g\" type=group\n  members 1\nsignal 100000 ";
  text.replace(text.find("signal 100000 "), 14, group);
  for (const char* slot : {"    of 1\n", "    on 1\n"}) {
    for (std::size_t at = text.find(slot); at != std::string::npos; at = text.find(slot)) {
      text.replace(at, 9, std::string(slot).replace(7, 1, "90"));
    }
  }
  build("A", text);
  EXPECT_THAT(optimize("Clock").report, HasSubstr("Merging track 2 (D) into track 1 (PUD)"));
  EXPECT_EQ(rowsOf("dest"), rows);
}

struct Shapes {
  const char* events;
  std::string report;
};

TEST_F(PlatesTest, ConvertsOrLeavesSingleClocks) {
  const std::string converted =
      "INFORMATIVE: Timeplate 'tp', track 1: Converting to sample shape (DSD).\n"
      "INFORMATIVE: Timeplate 'tp', track 1: Converting initial state to 'P' (PSD).\n";
  const Shapes table[] = {
      {"0pS D 2nS U 5nS D", converted}, {"0pS P 2nS S 5nS D", ""}, {"0pS Z 2nS U 5nS D", ""},
      {"0pS U 2nS U 5nS D", ""},        {"0pS D 2nS U 5nS P", ""}, {"0pS S", ""},
  };
  for (const Shapes& row : table) {
    SCOPED_TRACE(row.events);
    DatabaseText text;
    text.signal("a", "input").signal("y", "output");
    text.plate("tp", "10nS", {{"a", row.events, ""}, {"y", "0pS X 9nS Q", ""}});
    build("A", text.rows(steps("tp", {"-1", "-0"})));
    EXPECT_EQ(optimize("Clock").report, kCopied + row.report + kNothingMerged);
    const bool pulses = !row.report.empty();
    EXPECT_EQ(rowsOf("dest"),
              "rows main\n" + steps("tp", pulses ? std::vector<std::string>{"11", "10"}
                                                 : std::vector<std::string>{"-1", "-0"}));
  }
}

// --- Rename --------------------------------------------------------------------------

DatabaseText threePlates(const std::vector<std::string>& plates) {
  DatabaseText text;
  text.signal("a", "input");
  for (const std::string& name : plates) text.plate(name, "10nS", {{"a", "0pS S", ""}});
  return text.rows(steps(plates.front(), {"1", "0"}));
}

std::string renameReport(const std::vector<std::pair<std::string, std::string>>& lines) {
  std::string text = std::string(kCopied) + "\nTIMEPLATE RENAME REPORT\n\n";
  const auto line = [&text](std::string before, const std::string& after) {
    before.resize(std::max<std::size_t>(before.size(), 30), ' ');
    text += before + "  " + after + "\n";
  };
  line("OLD TIMEPLATE NAME", "NEW TIMEPLATE NAME");
  line(std::string(30, '-'), std::string(30, '-'));
  for (const auto& [before, after] : lines) line(before, after);
  return text;
}

TEST_F(PlatesTest, NumbersTimeplates) {
  build("A", threePlates({"x", "y", "z"}));
  const Outcome outcome =
      rename({"TpRenameMode=auto_index", "TpRenamePrefixStr=TP", "TpRenameStartIndex=8"});
  expectDone(outcome);
  EXPECT_EQ(outcome.report, renameReport({{"x", "TP08"}, {"y", "TP09"}, {"z", "TP10"}}) + "\n");
  EXPECT_EQ(names("dest"), "TP08 TP09 TP10");
  EXPECT_THAT(sectionOf("dest", "timeplate 1"), HasSubstr("prop 0 \"PREVIOUS NAME 'y'\"\n"));
  build("A", threePlates({"only"}));
  expectDone(rename({"TpRenameMode=AUTO_INDEX", "TpRenamePrefixStr=n"}));
  EXPECT_EQ(names("dest"), "n0");
}

TEST_F(PlatesTest, ReplacesTheFirstOccurrenceOnly) {
  build("A", threePlates({"tp_tp", "other", "a_tp"}));
  const std::vector<std::string> settings = {"TpRenameMode=STRING_REPLACE", "TpRenameSearchStr=tp"};
  const Outcome outcome = rename(settings);
  expectDone(outcome);
  EXPECT_EQ(outcome.report, renameReport({{"tp_tp", "_tp"}, {"a_tp", "a_"}}) + "\n");
  EXPECT_EQ(names("dest"), "_tp other a_");
}

struct RefusedRename {
  std::vector<std::string> plates;
  std::vector<std::string> settings;
  std::string text;
};

TEST_F(PlatesTest, AClashLeavesEverythingAsItWas) {
  const std::vector<std::string> replace = {"TpRenameMode=STRING_REPLACE", "TpRenameSearchStr=tp"};
  const auto with = [&](const char* setting) {
    std::vector<std::string> settings = replace;
    settings.push_back(setting);
    return settings;
  };
  const auto exists = [](const std::string& before, const std::string& after) {
    return "String replacement of timeplate name '" + before + "'\n       would result in name '" +
           after + "' which already exists.";
  };
  const RefusedRename table[] = {
      {{"x", "n1"},
       {"TpRenameMode=AUTO_INDEX", "TpRenamePrefixStr=n", "TpRenameStartIndex=1"},
       exists("x", "n1")},
      {{"x", "tp"}, with("TpRenameReplaceStr=tp"), exists("tp", "tp")},
      {{"a_tp", "tp"},
       replace,
       "String replacement for timeplate 'tp' would result in empty name."},
  };
  for (const RefusedRename& row : table) {
    SCOPED_TRACE(row.text);
    build("dest", threePlates(row.plates));
    const std::string before = dump("dest");
    std::vector<std::string> settings = row.settings;
    settings.push_back("SaveReport=yes");
    expectRefused(rename(settings, "dest", ""),
                  "Error: " + row.text + "\nmain: Timeplate optimize operation failed.\n");
    EXPECT_THAT(directory().read("pvbcond.rpt"), testing::EndsWith("Error: " + row.text + "\n"));
    EXPECT_EQ(dump("dest"), before);
  }
}

// --- Meaning -------------------------------------------------------------------------

// Every case starts half a dozen programs.
const bool kFewerCases = setenv("RC_PARAMS", "max_success=30", 0) == 0;

// A row, alone or in a loop.
std::string placed(const std::string& row) {
  return number(0, 2) != 0 ? row
                           : "  loop x" + std::to_string(number(1, 3)) + "\n" + row + "  end\n";
}

std::string anyRows(int plates) {
  std::string lines;
  const int rows = number(1, 6);
  for (int i = 0; i < rows; ++i) {
    lines += placed("  row \"t" + std::to_string(number(0, plates - 1)) + "\" x" +
                    std::to_string(number(1, 3)) + " |" + oneOf({"101", "010", "11X", "001"}) +
                    oneOf({"1-", "0-", "-1", "-0"}) + "\n    prop 0 \"c\"\n");
  }
  return lines;
}

// Few different waves and periods, so that many timeplates are the same; "c" goes both ways,
// on one slot or on two.
DatabaseText anyDatabase() {
  DatabaseText text(*rc::gen::element(501, 1501));
  text.signal("a", "input").signal("b", "input").signal("y", "output").signal("c", "bidir");
  const int plates = number(1, 5);
  for (int i = 0; i < plates; ++i) {
    const auto wave = [] { return oneOf({"0pS S", "0pS D 3nS S", "0pS P 4nS U 6nS D"}); };
    std::vector<TrackText> tracks = {
        {"a", wave(), ""}, {"b", wave(), ""}, {"y", "0pS X 8nS Q", ""}};
    if (number(0, 1) == 0) {
      tracks.push_back({"c", "0pS S 8nS Q", "bidir"});
    } else {
      tracks.push_back({"c", wave(), "input"});
      tracks.push_back({"c", oneOf({"0pS X 8nS Q", "8nS R"}), "output"});
    }
    text.plate("t" + std::to_string(i), oneOf({"10nS", "20nS"}), tracks);
  }
  text.rows(anyRows(plates) + "  call \"s\" x2\n" + anyRows(plates));
  return text.subroutine("s", anyRows(plates));
}

RC_GTEST_PROP(PlatesLaws, OptimizingAndRenamingKeepTheMeaning, ()) {
  PlatesWorld world;
  world.build("A", anyDatabase());
  RC_ASSERT(world.optimize("Tracks Tps Dups Annotate").exitCode == 0);
  world.expectSame("A", "dest");
  RC_ASSERT(world.optimize("Clock Tracks Tps Dups").exitCode == 0);
  world.expectSame("A", "dest");
  RC_ASSERT(world.rename({"TpRenameMode=AUTO_INDEX", "TpRenamePrefixStr=n"}).exitCode == 0);
  world.expectSame("A", "dest");
}

// A clock and flat tracks that hold the level it returns to. What is driven before the first
// return isn't compared: an initial state becomes that of before.
RC_GTEST_PROP(PlatesLaws, MergedClocksPulseWhereTheyDid, ()) {
  const bool low = *rc::gen::arbitrary<bool>();
  const std::string level = low ? "D" : "U";
  const std::string clock =
      "0pS " + oneOf({"P", level}) + " 2nS " + (low ? "U" : "D") + " 5nS " + level;
  std::vector<std::pair<std::string, std::string>> tracks = {{"3", clock}};
  const int more = number(0, 3);
  for (int i = 0; i < more; ++i) {
    tracks.emplace_back(std::string(1, static_cast<char>('4' + i)),
                        oneOf({"0pS " + level, "0pS S", "0pS P 3nS " + level}));
  }
  std::shuffle(tracks.begin(), tracks.end(), std::mt19937(static_cast<unsigned>(number(0, 99))));
  std::string rows;
  const int count = number(2, 8);
  for (int i = 0; i < count; ++i) {
    const auto& [selector, events] = oneOf(tracks);
    const std::string datum = events == "0pS S" ? (low ? "0" : "1") : "-";
    rows += placed(steps("tp", {datum + oneOf({"0", "1"}) + selectorCodes(selector.front())}));
  }
  PlatesWorld world;
  world.build("A", selectedTracks(tracks, rows));
  RC_ASSERT(world.optimize("Clock").exitCode == 0);
  world.expectSame("A", "dest", {"--ignore-cycles", "--a-from", "10nS", "--b-from", "10nS"});
  EXPECT_FALSE(testing::Test::HasFailure()) << world.dump("A") << world.dump("dest");
}

}  // namespace
