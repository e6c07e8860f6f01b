#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "base/errors.h"
#include "pvb/signal.h"
#include "support/signal_database.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;
using testing::Pair;

// The implicit groups behind the signals of a file, where nothing else stands in
// their chains.
class SignalFile : public SignalDatabase {
 protected:
  // A file of one signal.
  static std::string fileOf(int version, std::string_view record) {
    return "SIGNALS " + std::to_string(version) + "\n8 41\n0\n" + std::string(record);
  }
  static std::int32_t modelOf(int version) {
    return version > 10 ? kExtendedVersion : kClassicVersion;
  }
  bool loadVersion(int version, std::string_view record) {
    restart(modelOf(version));
    return load(fileOf(version, record));
  }
  bool failsToLoad(std::string_view file) {
    PBdiscardErrors();
    return !load(file) && PBerrorHas("SignalDataRead", 87);
  }
};

// --- Versions ------------------------------------------------------------------------

struct Version {
  int number;
  const char* record;
};
const Version kVersions[] = {
    {0, "40\nclk\n2\n7\n1\n2\n5\n6\n3\n1\n1\n41\n0\n2\n8\n9\n0\n"},
    {1, "40\n2\n7\n1\n2\n5\n6\n3\n1\n3\nclk\n2\nal\n0\n1\n41\n0\n2\n8\n9\n0\n"},
    {2, "40\n2\n7\n1\n2\n5\n6\n3\n1\n4\n3\nclk\n2\nal\n0\n1\n41\n0\n2\n8\n9\n0\n"},
    {3, "40 2 7 1 2 5 6 3 1 4 H\n3\nclk\n2\nal\n0\n1\n41\n0\n2\n8\n9\n0\n"},
    {9,
     "40 2 7 1 2 5 6 3 1 4 H 1 50 1 0 -1 0\n3\nclk\n2\nal\n0\n1\n41\n0\n2\n8\n9\n0\n"
     "2\nhi\n77\n"},
    {10,
     "40 2 7 1 2 5 6 3 1 4 H 1 50 1 0 -1 0 \n3\nclk\n2\nal\n0\n1\n41\n1\n43\n0\n2\n8\n9\n0\n"
     "2\nhi\n77\n"},
    {11,
     "40 2 7 1 2 5 6 3 1 4 H 1 50 1 0 -1 0 12 13 1\n3\nclk\n2\nal\n0\n1\n41\n1\n43\n0\n2\n8\n9\n"
     "0\n2\nhi\n77\n2\n14\n15\n"},
    {12,
     "40 2 7 1 2 5 6 3 1 4 H 1 50 1 0 -1 0 12 13 1 1\n3\nclk\n2\nal\n0\n1\n41\n1\n43\n0\n2\n8\n"
     "9\n0\n2\nhi\n77\n2\n14\n15\n1\n16\n"},
};

TEST_F(SignalFile, EveryVersionIsRead) {
  for (const auto& [version, record] : kVersions) {
    SCOPED_TRACE(version);
    ASSERT_TRUE(loadVersion(version, record));
    const PVBsignal& signal = named("clk");
    EXPECT_EQ(signal.id, 40);
    EXPECT_EQ(signal.memberCount, 2);
    EXPECT_EQ(signal.propList, 7);
    EXPECT_EQ(signal.type, MEM_BUS);
    EXPECT_EQ(signal.direction, BIDIR);
    EXPECT_EQ(signal.inColumn, 5);
    EXPECT_EQ(signal.outColumn, 6);
    EXPECT_EQ(signal.leftIndex, 3);
    EXPECT_EQ(signal.rightIndex, 1);
    EXPECT_EQ(signal.variety, version >= 2 ? 4 : 0);
    EXPECT_EQ(signal.radix, version >= 3 ? 'H' : 'D');
    EXPECT_EQ(signal.alias.has_value(), version >= 1);
    EXPECT_THAT(signal.members, ElementsAre(41));
    EXPECT_THAT(signal.lists4, ElementsAre(8, 9));
    EXPECT_EQ(signal.muxChildren.size(), version >= 10 ? 1U : 0U);
    EXPECT_EQ(signal.inStates.id, version >= 9 ? 50 : -1);
    if (version >= 9) {
      EXPECT_THAT(signal.inStates.entries, ElementsAre(Pair(Optional(std::string("hi")), 77)));
    }
    EXPECT_EQ(signal.bitOut, version >= 11 ? 13 : -1);
    EXPECT_EQ(signal.multiTrack, version >= 11 ? 1 : 0);
    EXPECT_EQ(signal.tracks.size(), version >= 11 ? 2U : 0U);
    EXPECT_EQ(signal.bitTracks.size(), version >= 12 ? 1U : 0U);
    EXPECT_EQ(data().nextID, 41);
    EXPECT_FALSE(data().changed);
  }
}

TEST_F(SignalFile, OldFilesWithoutColumnsOrBoundsSayMinusOne) {
  ASSERT_TRUE(loadVersion(0, "40\nclk\n0\n-1\n0\n255\n-1\n-1\n-1\n-1\n0\n0\n0\n0\n"));
  EXPECT_EQ(named("clk").inColumn, kNoColumn);
  EXPECT_EQ(named("clk").rightIndex, kNoBound);
}

TEST_F(SignalFile, OtherVersionsAreRefused) {
  for (const int version : {-1, 4, 5, 6, 7, 8, 13, 99}) {
    restart(kExtendedVersion);
    EXPECT_TRUE(failsToLoad("SIGNALS " + std::to_string(version) + "\n0 1\n0\n")) << version;
  }
  for (const int version : {11, 12}) {
    restart(kClassicVersion);
    EXPECT_TRUE(failsToLoad("SIGNALS " + std::to_string(version) + "\n0 1\n0\n")) << version;
  }
}

// --- Writing -------------------------------------------------------------------------

TEST_F(SignalFile, NewDatabaseIsWrittenInTableOrder) {
  add("A", BIDIR);
  // 36 buckets: "ALLSCAN" in 0, A in 1, the groups in 28 to 32.
  const std::string noColumns = " 65535 65535 65535 65535 0 D 0 -1 0 0 -1 0 \n";
  const std::string empty = "0\n0\n0\n0\n0\n0\n0\n";  // alias, description, lists
  const std::string onlyA = "0\n0\n1\n1\n0\n0\n0\n0\n";
  EXPECT_EQ(saved(),
            "SIGNALS 10\n2 2\n5\n100000\n100001\n100002\n100003\n100004\n"
            "117640512 0 -1 5 255" +
                noColumns + "7\nALLSCAN\n" + empty +
                "1 0 -1 0 2 0 1 65535 65535 0 D 0 -1 0 0 -1 0 \n1\nA\n" + empty +
                "100000 0 -1 2 255" + noColumns + "3\nALL\n" + onlyA + "100001 0 -1 2 255" +
                noColumns + "8\nALLINPUT\n" + empty + "100002 0 -1 2 255" + noColumns +
                "9\nALLOUTPUT\n" + empty + "100003 0 -1 2 255" + noColumns + "8\nALLBIDIR\n" +
                onlyA + "100004 0 -1 2 255" + noColumns + "6\nALLMUX\n" + empty);
  EXPECT_FALSE(data().changed);
}

// A signal with something in every field.
void fill(PVBsignal& signal) {
  signal.memberCount = -3;
  signal.propList = 12;
  signal.leftIndex = 4;
  signal.rightIndex = 9;
  signal.variety = 2;
  signal.radix = 'B';
  signal.inStates = {7, 70, {{"one", 1}, {std::nullopt, -1}}};
  signal.outStates = {8, 80, {{"two\nlines", 2}}};
  signal.members = {3, 999, -1};
  signal.muxChildren = {5};
  signal.lists3 = {1, 2};
  signal.lists4 = {3};
  signal.lists5 = {4};
  signal.alias = "other name";
  signal.description = "12\n34";
}

TEST_F(SignalFile, EverythingComesBack) {
  restart(kExtendedVersion);
  add("A", BIDIR);
  fill(named("A"));
  ASSERT_EQ(PVBsignalAllocTracks(db, named("A"), 3), 0);
  ASSERT_EQ(PVBsignalAllocBits(db, named("A"), 4), 0);
  auto nameless = make("x", OUTPUT);
  nameless->name.reset();
  nameless->radix = ' ';
  PVBsignalAdd(db, std::move(nameless));
  const std::string before = saved();
  EXPECT_EQ(before.rfind("SIGNALS 12\n", 0), 0U);
  ASSERT_TRUE(reload());
  EXPECT_EQ(saved(), before);
  EXPECT_THAT(named("A").bitTracks, ElementsAre(3, 4, 5, 6));
  EXPECT_EQ(named("A").description, "12\n34");
  EXPECT_THAT(named("A").outStates.entries,
              ElementsAre(Pair(Optional(std::string("two\nlines")), 2)));
}

TEST_F(SignalFile, SaveKeepsOnlyScalarsThatAreUsed) {
  const PVBid lost = PVBsignalInsert(db, make("lost"));
  const PVBid child = PVBsignalInsert(db, make("child"));
  const PVBid kept = add("kept");
  auto mux = make("mux", OUTPUT, MEM_MUX);
  mux->muxChildren = {child};
  PVBsignalInsert(db, std::move(mux));  // not in "ALL" either
  auto group = make("group", kNoDirection, MEM_GROUP);
  group->members = {lost, kept};
  group->lists4 = {lost};
  PVBsignalAdd(db, std::move(group));
  auto foreign = make("foreign");
  foreign->id = 5000;
  PVBsignalInsertAs(db, std::move(foreign));
  PVBscanObjectInsert(db, make("cell", kNoDirection, kScanCellType));

  saved();
  EXPECT_NE(PVBsignalInqByID(db, lost), nullptr);
  ASSERT_TRUE(reload());
  EXPECT_EQ(PVBsignalInqByName(db, "lost"), nullptr);
  EXPECT_THAT(named("group").members, ElementsAre(kept));
  EXPECT_THAT(named("group").lists4, ElementsAre(lost));
  for (const char* name : {"child", "mux", "foreign", "cell"}) named(name);
}

TEST_F(SignalFile, OnlyARenumberedWriteFilters) {
  PVBsignalInsert(db, make("alone"));
  PVBsignalRenumber(db);
  const TempDir elsewhere;
  EXPECT_EQ(SignalDataWrite(db, elsewhere.path()), 0);
  EXPECT_TRUE(data().changed);
  EXPECT_EQ(SignalDataWrite(db, ""), 0);
  EXPECT_FALSE(data().changed);
  ASSERT_TRUE(reload());
  named("alone");
}

// --- Bad files -----------------------------------------------------------------------

TEST_F(SignalFile, BadFilesAreRefused) {
  const std::string line = "40 2 7 1 2 5 6 3 1 4 H 0 -1 0 0 -1 0 \n";
  const std::string rest = "0\n0\n0\n0\n0\n0\n0\n0\n";
  struct Bad {
    const char* fault;
    std::string file;
  };
  const std::vector<Bad> cases = {
      {"empty", ""},
      {"other word", "LABELS 10\n0 1\n0\n"},
      {"no counters", "SIGNALS 10\n"},
      {"group list longer than the file", "SIGNALS 10\n0 1\n1000000\n1\n"},
      {"negative count", "SIGNALS 10\n0 1\n-1\n"},
      {"letters for an id", fileOf(10, "x" + line + rest)},
      {"column above 16 bits", fileOf(10, "40 2 7 1 2 65536 6 3 1 4 H 0 -1 0 0 -1 0 \n" + rest)},
      {"no id", fileOf(10, "-1 2 7 1 2 5 6 3 1 4 H 0 -1 0 0 -1 0 \n" + rest)},
      {"one id twice", fileOf(10, line + rest + line + rest)},
      {"one name twice",
       fileOf(10, line + "1\na\n" + rest.substr(2) + "4" + line + "1\na\n" + rest.substr(2))},
      {"name longer than the file", fileOf(10, line + "900\nabc\n")},
      {"more state texts than the file has",
       fileOf(10, "40 2 7 1 2 5 6 3 1 4 H 0 -1 2000000000 0 -1 0 \n" + rest + "0\n1\n")},
  };
  for (const Bad& bad : cases) EXPECT_TRUE(failsToLoad(bad.file)) << bad.fault;

  PBdiscardErrors();
  EXPECT_FALSE(load(fileOf(10, line + "3\nALL\n" + rest.substr(2))));
  EXPECT_TRUE(PBerrorHas("SignalDataCreate", 87));
}

TEST_F(SignalFile, OddNumbersInAFileDoNoHarm) {
  ASSERT_TRUE(
      load("SIGNALS 10\n-5 -1\n1\n999\n"
           "40 0 -1 77 9 60000 65535 65535 65535 0 \x01 0 -1 -4 0 -1 0 \n1\na\n"
           "0\n0\n2\n40\n41\n0\n0\n0\n0\n"));
  EXPECT_THAT(PVBsignalListToScalars(db, {40}), ElementsAre(40));
  EXPECT_EQ(PVBsignalColumn(named("a"), 1), 60000);
  add("b");
  EXPECT_EQ(named("b").id, 1);
  EXPECT_EQ(named("b").inColumn, 60001);
  EXPECT_EQ(PVBsignalDelete(db, 40), 0);
}

TEST_F(SignalFile, TruncatedFileIsReadWholeOrRefused) {
  for (const auto& [version, record] : kVersions) {
    restart(modelOf(version));
    const std::string whole = fileOf(version, record);
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const bool loaded = load(whole.substr(0, size));
      EXPECT_TRUE(loaded || PBerrorHas("SignalDataRead", 87));
      PBdiscardErrors();
    }
  }
}

}  // namespace
