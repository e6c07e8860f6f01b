// The checker: each problem by an edit of a clean database, counters, limits, and the verb
// that prints what was found.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "base/errors.h"
#include "equations/checker_times.h"
#include "pvb/checker.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/scan_run.h"
#include "storage/page.h"
#include "storage/swapendian.h"
#include "support/operation_world.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// A clean database: an input, an output, signals of both directions with one slot (b) and
// with two (s), with columns in a list (m), one that selects (w), a bus, a chain that is
// scanned, and a subroutine that is called.
constexpr const char* kClean = R"dump(pvb-dump 1
database version=1501 row-width=32
signals next-column=12 next-id=10
  groups 100000 100001 100002 100003 100004
signal 1 "a" type=scalar direction=input in=0
signal 2 "y" type=scalar direction=output out=1
signal 3 "b" type=scalar direction=bidir in=2 out=3
signal 4 "s" type=scalar direction=bidir in=4 out=5
signal 5 "m" type=scalar direction=bidir multi-track=1
  tracks 6 7
signal 6 "w" type=scalar direction=input in=8 multi-bit=1
  bit-tracks 10 11
signal 7 "d" type=bus direction=input
  members 1 6
signal 5:1 "c0" type=cell
signal 5:2 "c1" type=cell
signal 9:1 "chain" type=chain
  members 5:1 5:2
  ate-pins 1 2
signal 100000 "ALL" type=group
  members 1 2 3 4 5 6
signal 100001 "ALLINPUT" type=group
  members 1 6
signal 100002 "ALLOUTPUT" type=group
  members 2
signal 100003 "ALLBIDIR" type=group
  members 3 4 5
signal 100004 "ALLMUX" type=group
timeplates mode=1
timeplate 0 "tp" period=10nS
  slot input
    of 1
  slot output
    of 2
  slot bidir
    of 3
  slot input
    of 4
  slot output
    of 4
  slot bidir
    of 5
  slot input
    of 6
  slot input
    of 6
  level 0pS
    track
    event 0pS P
    event 1nS S
    on 1
    track
    event 8nS Q
    on 2
    track
    event 0pS S
    event 8nS Q
    on 3
    track
    event 0pS S
    on 4
    track
    event 8nS Q
    on 4
    track
    event 0pS S
    event 8nS Q
    on 5
    track selector="2"
    event 0pS S
    on 6
    track selector="3"
    event 1nS S
    on 6
pins next-id=3
ate-pin 1 "p1" node="1"
  signals-of 1
ate-pin 2 "p2" node="2"
  signals-of 2
vector "v"
  cells |-01
vector "u"
  cells |-0X
subroutine 0 "sub"
rows main
  row "tp" |11010-011-1Z
  row "tp" |1101-0011-ZZ
  scan "tp" x2 |--010-011-1Z
    run both 9:1 "v"
  call "sub"
rows 0
  row "tp" |11010-011-1Z
done
)dump";

struct Edit {
  const char* from;
  const char* to;
};
struct Sample {
  int problem;
  const char* text;  // of the first finding
  std::vector<Edit> edits;
};

// The clean database raises none of the problems; each of them is raised by its edit.
const std::vector<Sample> kSamples = {
    {0,
     "signal b has unnecessary output pattern data in pattern row 0 in main pattern",
     {{"    event 0pS S\n    event 8nS Q\n    on 3", "    event 0pS S\n    on 3"}}},
    {1,
     "signal b has unnecessary input pattern data in pattern row 0 in main pattern",
     {{"    event 0pS S\n    event 8nS Q\n    on 3", "    event 8nS Q\n    on 3"}}},
    {2,
     "signal b has unnecessary input and output pattern data in pattern row 0 in main pattern",
     {{"    event 0pS S\n    event 8nS Q\n    on 3",
       "    event 0pS D\n    event 8nS L\n    on 3"}}},
    {3,
     "signal m has unnecessary pattern data in column 2, pattern row 0 in main pattern",
     {{"    event 0pS S\n    event 8nS Q\n    on 5", "    event 0pS S\n    on 5"}}},
    {4,
     "signal a is missing input pattern data in pattern row 0 in main pattern",
     {{"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |-1010-011-1Z\n"}}},
    {5,
     "signal y is missing output pattern data in pattern row 0 in main pattern",
     {{"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |1-010-011-1Z\n"}}},
    {6,
     "signal b is missing input and output pattern data in pattern row 0 in main pattern",
     {{"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |11--0-011-1Z\n"}}},
    {7,
     "signal m is missing pattern data in column 2, in pattern row 0 in main pattern",
     {{"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |11010-0-1-1Z\n"}}},
    {8,
     "signal w is missing a track selector in pattern row 0 in main pattern, timing is ambiguous",
     {{"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |11010-011---\n"}}},
    {8,
     "signal w is missing a track selector in pattern row 0 in main pattern, timing is ambiguous",
     {{"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |11010-011-11\n"}}},
    {8,
     "signal w is missing a track selector in pattern row 1 in main pattern, timing is ambiguous",
     {{"  row \"tp\" |1101-0011-ZZ\n", "  row \"tp\" |11010-011-11\n"}}},
    {9,
     "signal b may have data in the wrong column in pattern row 0 in main pattern: expecting "
     "output pattern data but found input pattern data (X or Z)",
     {{"    event 0pS S\n    event 8nS Q\n    on 3", "    event 8nS Q\n    on 3"},
      {"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |11X-0-011-1Z\n"}}},
    {10,
     "signal b may have data in the wrong column in pattern row 0 in main pattern: expecting input "
     "pattern data but found output pattern data (X or Z)",
     {{"    event 0pS S\n    event 8nS Q\n    on 3", "    event 0pS S\n    on 3"},
      {"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |11-Z0-011-1Z\n"}}},
    {11,
     "signal a in slot 1 of timeplate tp does not have pattern column 2",
     {{"event 1nS S\n    on 1\n", "event 1nS S\n    event 2nS Q\n    on 1\n"}}},
    {12,
     "signal s has possible bus contention in pattern row 0 in main pattern: both input and output "
     "pattern data appear, but separate tracks are used",
     {{"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |110100011-1Z\n"}}},
    {13,
     "signal y is in too many slots in timeplate tp",
     {{"  slot bidir\n    of 5\n", "  slot bidir\n    of 5 2\n"}}},
    {14,
     "signal w is associated with track selector '2' more than once in timeplate tp",
     {{"selector=\"3\"", "selector=\"2\""}}},
    {15,
     "there are no pattern rows in main pattern",
     {{"rows main\n  row \"tp\" |11010-011-1Z\n  row \"tp\" |1101-0011-ZZ\n  scan \"tp\" x2 "
       "|--010-011-1Z\n    run both 9:1 \"v\"\n  call \"sub\"\n",
       "rows main\n"}}},
    {16, "signal a needs an input slot in timeplate tp", {{"    of 1\n", "    of 3\n"}}},
    {17,
     "signal y needs an output slot in timeplate tp",
     {{"  slot output\n    of 2\n", "  slot output\n    of 3\n"}}},
    {18, "bidirectional signal b needs a slot in timeplate tp", {{"    of 3\n", "    of 7\n"}}},
    {19,
     "signal w needs a slot in timeplate tp",
     {{"direction=input in=8 multi-bit=1", "multi-bit=1"},
      {"    of 6\n", "    of 1\n"},
      {"    of 6\n", "    of 1\n"}}},
    {20,
     "pattern row 0 in main pattern has no timeplate assigned",
     {{"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row |11010-011-1Z\n"}}},
    {21,
     "there are no timeplates in the database",
     {{"timeplate 0 \"tp\" period=10nS\n  slot input\n    of 1\n  slot output\n    of 2\n  slot "
       "bidir\n    of 3\n  slot input\n    of 4\n  slot output\n    of 4\n  slot bidir\n    of 5\n "
       " slot input\n    of 6\n  slot input\n    of 6\n  level 0pS\n    track\n    event 0pS P\n   "
       " event 1nS S\n    on 1\n    track\n    event 8nS Q\n    on 2\n    track\n    event 0pS S\n "
       "   event 8nS Q\n    on 3\n    track\n    event 0pS S\n    on 4\n    track\n    event 8nS "
       "Q\n    on 4\n    track\n    event 0pS S\n    event 8nS Q\n    on 5\n    track "
       "selector=\"2\"\n    event 0pS S\n    on 6\n    track selector=\"3\"\n    event 1nS S\n    "
       "on 6\n",
       ""},
      {"rows main\n  row \"tp\" |11010-011-1Z\n  row \"tp\" |1101-0011-ZZ\n  scan \"tp\" x2 "
       "|--010-011-1Z\n    run both 9:1 \"v\"\n  call \"sub\"\nrows 0\n  row \"tp\" "
       "|11010-011-1Z\n",
       "rows main\nrows 0\n"}}},
    {22,
     "there is a P state in slot 1 (signal a, input) in timeplate tp that is not the first state",
     {{"event 1nS S\n    on 1\n", "event 1nS S\n    event 2nS P\n    on 1\n"}}},
    {23,
     "signal a does not belong in group ALLOUTPUT",
     {{"\"ALLOUTPUT\" type=group\n  members 2", "\"ALLOUTPUT\" type=group\n  members 2 1"}}},
    {24,
     "signal w is not in group ALL",
     {{"members 1 2 3 4 5 6\n", "members 1 2 3 4 5\n"},
      {"  members 1 6\nsignal 5", "  members 1\nsignal 5"}}},
    {25, "signal m is not in group ALLBIDIR", {{"  members 3 4 5\n", "  members 3 4\n"}}},
    {26,
     "signal w is not in group ALLINPUT",
     {{"\"ALLINPUT\" type=group\n  members 1 6", "\"ALLINPUT\" type=group\n  members 1"}}},
    {27,
     "signal y is not in group ALLOUTPUT",
     {{"\"ALLOUTPUT\" type=group\n  members 2", "\"ALLOUTPUT\" type=group"}}},
    {28,
     "slot 2 in timeplate tp has no signals and no states",
     {{"  slot output\n    of 2\n", "  slot output\n"}, {"    event 8nS Q\n    on 2\n", ""}}},
    {29,
     "slot 2 in timeplate tp has no signals",
     {{"  slot output\n    of 2\n", "  slot output\n"}, {"    on 2\n", ""}}},
    {30,
     "slot 2 (signal y, output) in timeplate tp has no states",
     {{"    event 8nS Q\n    on 2\n", "    on 2\n"}}},
    {31,
     "slot 2 (signal y, output) in timeplate tp has an incorrect direction state",
     {{"    event 8nS Q\n    on 2\n", "    event 0pS Z\n    event 8nS Q\n    on 2\n"}}},
    {32,
     "slot 2 (signal y, output) in timeplate tp is the wrong direction for signal a",
     {{"  slot output\n    of 2\n", "  slot output\n    of 2 1\n"}}},
    {33,
     "direction of bus d is different from member y",
     {{"  members 1 6\nsignal 5", "  members 1 2\nsignal 5"}}},
    {34,
     "redundant times in slot 1 (signal a, input) in timplate tp",
     {{"event 1nS S\n    on 1\n", "event 0pS S\n    on 1\n"}}},
    {35,
     "times out of order in slot 3 (signal b, bidirectional) in timeplate tp",
     {{"event 8nS Q\n    on 3", "event -0pS Q\n    on 3"},
      {"    event 0pS S\n    event -0pS", "    event 1nS S\n    event 0pS"}}},
    {36, "subroutine sub is unused", {{"  call \"sub\"\n", ""}}},
    {37,
     "member of group d (ALLINPUT) is in wrong type of group",
     {{"  members 1 6\nsignal 5", "  members 1 6 100001\nsignal 5"}}},
    {41,
     "scan run in pattern row 2 in main pattern has type conflict with chain edge signal(s)",
     {{"  ate-pins 1 2\n", "  ate-pins 2 1\n"}}},
    {42,
     "signal a is missing sample state in pattern row 2 in main pattern",
     {{"event 1nS S\n    on 1\n", "event 1nS D\n    on 1\n"}}},
    {43, "pattern row 2 in main pattern has no scan runs", {{"    run both 9:1 \"v\"\n", ""}}},
    {44,
     "pattern row 2 in main pattern has conflicting scan runs",
     {{"    run both 9:1 \"v\"\n", "    run both 9:1 \"v\"\n    run in 9:1 \"v\"\n"}}},
    {45,
     "signal s has sample state but is not used in scan pattern row 2 in main pattern",
     {{"|--010-011-1Z\n", "|--01--011-1Z\n"}}},
    {46, "signal a and signal y have same atename", {{"  signals-of 1\n", "  signals-of 1 2\n"}}},
    {47,
     "timeplate idle is unused",
     {{"pins next",
       "timeplate 1 \"idle\" period=10nS\n  slot input\n    of 1\n  level 0pS\n    track\n    "
       "event 0pS S\n    on 1\npins next"}}},
    {48,
     "slot 5 (signal s, output) in timeplate tp is unused",
     {{"  row \"tp\" |1101-0011-ZZ\n", ""}}},
    {49,
     "signal b has data in the wrong column in pattern row 0 in main pattern: expecting output "
     "pattern data but found input pattern data (0 or 1)",
     {{"    event 0pS S\n    event 8nS Q\n    on 3", "    event 8nS Q\n    on 3"},
      {"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |110-0-011-1Z\n"}}},
    {50,
     "signal b has data in the wrong column in pattern row 0 in main pattern: expecting input "
     "pattern data but found output pattern data (0 or 1)",
     {{"    event 0pS S\n    event 8nS Q\n    on 3", "    event 0pS S\n    on 3"},
      {"rows main\n  row \"tp\" |11010-011-1Z\n", "rows main\n  row \"tp\" |11-10-011-1Z\n"}}},
    {51,
     "scan cell c1 in scan chain chain referenced in scan pattern row 2 in main pattern contains "
     "an X pattern character",
     {{"run both 9:1 \"v\"", "run both 9:1 \"u\""}}},
    {52,
     "timeplate tp has period variable that evalutes to negative TIME",
     {{"done\n", "equations\nsheet \"main\"\n  variable \"tp.period\" time \"-1nS\"\ndone\n"}}},
    {53,
     "timeplate tp has period variable that is undefined",
     {{"done\n", "equations\nsheet \"main\"\n  variable \"tp.period\" time \"none\"\ndone\n"}}},
    {54,
     "event number 1 in track number 2 of timeplate tp has variable that evaluates to negative "
     "TIME",
     {{"done\n", "equations\nsheet \"main\"\n  variable \"t\" time \"-1nS\"\ndone\n"},
      {"event 8nS Q\n    on 2", "event 8nS Q expr=\"t\"\n    on 2"}}},
    {55,
     "event number 2 in track number 1 of timeplate tp is not greater than previous event time",
     {{"done\n", "equations\nsheet \"main\"\n  variable \"t\" time \"0S\"\ndone\n"},
      {"event 1nS S\n    on 1", "event 1nS S expr=\"t\"\n    on 1"}}},
    {56,
     "event number 1 in track number 2 of timeplate tp has undefined variable",
     {{"done\n", "equations\nsheet \"main\"\n  variable \"t\" time \"1nS\"\ndone\n"},
      {"event 8nS Q\n    on 2", "event 8nS Q expr=\"u\"\n    on 2"}}},
    {61,
     "unknown PVBid of member of ALLBIDIR: 55",
     {{"  members 3 4 5\n", "  members 3 4 5 55\n"}}},
};

// Problems of timing generators: sources of edges of their own, with events and a repeat
// period, that a tester description may name. No file of a database has a record for one, so
// that nothing that can be loaded raises them; their rows stand for the numbers.
const std::set<int> kWithoutSample = {57, 58, 59, 60};

// What a run is changed to; neither a dump nor the functions for runs let it through.
struct BrokenRun {
  int problem;
  PVBscanRun run;  // UNDEF: as it was
};
const std::vector<BrokenRun> kBrokenRuns = {
    {38, {7, UNDEF, UNDEF, UNDEF}},
    {39, {RUN_INPUT, PVBidMake(kClassScanChain, 9), UNDEF, UNDEF}},
    {40, {RUN_INPUT, UNDEF, PVBidMake(kClassStateVector, 99), UNDEF}},
};

std::string edited(std::string text, const std::vector<Edit>& edits) {
  for (const Edit& edit : edits) {
    const std::size_t at = text.find(edit.from);
    EXPECT_NE(at, std::string::npos) << edit.from;
    if (at != std::string::npos) text.replace(at, std::string(edit.from).size(), edit.to);
  }
  return text;
}

class CheckTest : public testing::Test, protected OperationWorld {
 protected:
  CheckTest() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) { installCheckerTimeUpdate(); }
  ~CheckTest() override {
    close();
    PBdiscardErrors();
  }

  // Builds a database and opens it in this process.
  void make(const std::string& text) {
    close();
    build("dest", text);
    open();
  }
  void open() {
    db_ = PVBopenAny(directory().path("dest"), true, 0, 16, kAllSections, false);
    ASSERT_GE(db_, 0);
  }
  void close() {
    if (db_ >= 0) PVBcloseUnsaved(db_);
    db_ = -1;
  }
  // The texts of a problem's findings after a full check.
  std::vector<std::string> findings(int problem, std::int32_t limit = 100) {
    EXPECT_EQ(PVBcheck(db_, true, true, nullptr, limit), 0);
    std::vector<std::string> texts;
    for (const PVBmessageHeading& heading : PVBmessages(db_)) {
      if (heading.number != problem) continue;
      for (const auto& items : heading.findings) {
        texts.push_back(PVBfindingText(db_, heading, items));
      }
    }
    return texts;
  }
  std::vector<int> headings() const {
    std::vector<int> numbers;
    for (const PVBmessageHeading& heading : PVBmessages(db_)) numbers.push_back(heading.number);
    return numbers;
  }
  // Overwrites the only run where its block stands.
  void changeRun(const PVBscanRun& fields) {
    const int runs = PVBget(db_)->patterns->runs;
    auto* run = static_cast<PVBscanRun*>(PageGetTyped(runs, 0, typePVBscanRun));
    ASSERT_NE(run, nullptr);
    run->type = fields.type;
    if (fields.chain != UNDEF) run->chain = fields.chain;
    if (fields.state != UNDEF) run->state = fields.state;
    PageDirty(runs, 0);
    PageRelease(runs, 0);
  }

  int db_ = -1;
};

TEST_F(CheckTest, RaisesEachProblemForItsEdit) {
  make(kClean);
  ASSERT_EQ(PVBcheck(db_, true, true, nullptr, 100), 0);
  EXPECT_THAT(headings(), ElementsAre());
  EXPECT_TRUE(PVBisClean(db_));
  for (const Sample& sample : kSamples) {
    SCOPED_TRACE(sample.problem);
    make(edited(kClean, sample.edits));
    const std::vector<std::string> texts = findings(sample.problem);
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.front(), sample.text);
  }
}

TEST_F(CheckTest, RaisesProblemsOfBrokenRuns) {
  for (const BrokenRun& broken : kBrokenRuns) {
    SCOPED_TRACE(broken.problem);
    make(kClean);
    changeRun(broken.run);
    EXPECT_EQ(findings(broken.problem).size(), 1U);
  }
}

TEST_F(CheckTest, KnowsAllProblems) {
  std::set<int> known = kWithoutSample;
  for (const Sample& sample : kSamples) known.insert(sample.problem);
  for (const BrokenRun& broken : kBrokenRuns) known.insert(broken.problem);
  EXPECT_EQ(known.size(), static_cast<std::size_t>(kProblemCount));
  EXPECT_NE(PVBproblemByNumber(61), nullptr);
  EXPECT_EQ(PVBproblemByNumber(62), nullptr);
}

TEST_F(CheckTest, LeavesDirectionsAndStatesToTheFullCheck) {
  make(edited(kClean,
              {{"    event 8nS Q\n    on 2\n", "    event 0pS Z\n    event 8nS Q\n    on 2\n"}}));
  ASSERT_EQ(PVBcheck(db_, true, false, nullptr, 100), 0);
  EXPECT_THAT(headings(), ElementsAre());
  ASSERT_EQ(PVBcheck(db_, true, true, nullptr, 100), 0);
  EXPECT_THAT(headings(), ElementsAre(31));
}

TEST_F(CheckTest, RelaxesColumnsForOneFamily) {
  const Edit idle{"    event 0pS S\n    event 8nS Q\n    on 3", "    event 0pS S\n    on 3"};
  make(edited(kClean, {idle, {"period=10nS", "period=10nS family=\"VTMX\""}}));
  EXPECT_THAT(findings(0), ElementsAre());
  make(edited(kClean, {idle, {"period=10nS", "period=10nS family=\"j750\""}}));
  EXPECT_EQ(findings(0).size(), 4U);
}

// --- Counters, limit, storing --------------------------------------------------------

TEST_F(CheckTest, CountsByPhaseAndClass) {
  make("pvb-dump 1\ndatabase version=501 row-width=32\nrows main\ndone\n");
  EXPECT_STREQ(checkerSummary(db_), "PVBCHECKER utility has not been run\n");
  ASSERT_EQ(PVBcheck(db_, true, false, nullptr, 10), 0);
  EXPECT_STREQ(checkerSummary(db_),
               "no errors in timing\n1 warning in timing\nno errors in patterns\n"
               "1 warning in patterns\n");
  make(kClean);
  ASSERT_EQ(PVBcheck(db_, true, true, nullptr, 10), 0);
  EXPECT_STREQ(checkerSummary(db_), "no errors or warnings\n");
}

TEST_F(CheckTest, StoresUpToTheLimitAndCountsAll) {
  make(edited(kClean, {{"    event 8nS Q\n    on 2\n", "    event 8nS L\n    on 2\n"}}));
  EXPECT_EQ(findings(0, 2).size(), 2U);
  EXPECT_EQ(PVBcheckCounts(db_)->patternWarnings, 3);
  EXPECT_EQ(findings(0, 0).size(), 0U);
  EXPECT_THAT(headings(), testing::Contains(0));
}

TEST_F(CheckTest, KeepsFindingsOverASave) {
  make(edited(kClean, {{"  call \"sub\"\n", ""}}));
  ASSERT_EQ(PVBcheck(db_, true, true, nullptr, 10), 0);
  ASSERT_EQ(PVBsave(db_), 0);
  close();
  open();
  FILE* out = std::tmpfile();
  ASSERT_EQ(PVBcheck(db_, false, false, out, 10), 0);
  std::rewind(out);
  char line[100] = "";
  EXPECT_NE(std::fgets(line, sizeof line, out), nullptr);
  std::fclose(out);
  EXPECT_STREQ(line, "warning: subroutine sub is unused\n");
  EXPECT_EQ(PVBcheckCounts(db_)->patternWarnings, 1);
}

TEST_F(CheckTest, RefusesWhatItCantWalk) {
  make(edited(kClean, {{"  members 1 2 3 4 5 6\n", "  members 1 2 3 4 5 6 77\n"}}));
  EXPECT_EQ(PVBcheck(db_, true, true, nullptr, 10), -2);
  EXPECT_THAT(PBerrorFind("PVBcheck", 0, true).value_or(""), HasSubstr("corrupt data detected"));
}

// --- Observer ------------------------------------------------------------------------

TEST_F(CheckTest, TellsTheObserverStatesOfTracks) {
  // The fifth row is like the first but for the level of "s".
  make(edited(kClean, {{"  call \"sub\"\n", "  call \"sub\"\n  row \"tp\" |11011-011-1Z\n"}}));
  std::set<std::pair<int, int>> seen;  // track and state
  PVBcheckSetStateObserver([&](int, const PVBtimePlate&, int track, int kind, std::int32_t state) {
    if (kind == 0) seen.emplace(track, state);
  });
  EXPECT_EQ(PVBcheck(db_, true, true, nullptr, 10), 0);
  PVBcheckSetStateObserver({});
  // "a" has '1' in rows and both levels in the scan row; "s" drives both on its input slot.
  for (const auto& entry : {std::pair(0, 1), {0, 2}, {1, 1}, {1, 2}, {3, 1}, {3, 2}, {4, 0}}) {
    EXPECT_TRUE(seen.contains(entry)) << entry.first << " " << entry.second;
  }
  EXPECT_FALSE(seen.contains({3, 3}));
}

// --- The verb ------------------------------------------------------------------------

TEST_F(CheckTest, VerbPrintsFindings) {
  build("A", kClean);
  ProgramResult result = runCompanion({"check", "A", "--full"});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.out, "no errors or warnings\n");
  build("A", edited(kClean, {{"  call \"sub\"\n", ""}}));
  result = runCompanion({"check", "A"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.out, StartsWith("warning: subroutine sub is unused\nno errors in timing\n"));
  EXPECT_THAT(runCompanion({"check", "A", "--json"}).out, HasSubstr("\"schema\":\"pvb-check/1\""));
  EXPECT_EQ(runCompanion({"check", "A", "--errors-only"}).exitCode, 0);
  EXPECT_EQ(runCompanion({"check", "B"}).exitCode, 2);
  EXPECT_THAT(runCompanion({"dump", "A"}).out, testing::Not(HasSubstr("subroutine @1")));
  EXPECT_EQ(runCompanion({"check", "A", "--store"}).exitCode, 1);
  EXPECT_THAT(runCompanion({"dump", "A"}).out, HasSubstr("subroutine @1"));
  EXPECT_EQ(runCompanion({"verify", "A"}).exitCode, 0);
}

}  // namespace
