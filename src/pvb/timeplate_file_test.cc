// "pvb.tp": every version, damage.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "base/errors.h"
#include "pvb/timeplate.h"
#include "storage/cio.h"
#include "support/database.h"

namespace {

using testing::ElementsAre;

// One plate with a track of two events, and a track that holds nothing, as version
// `version` has it.
std::string plateFile(int version) {
  const auto since = [version](int first, const char* text) {
    return std::string(version >= first ? text : "");
  };
  return "TIMEPLATES " + std::to_string(version) + " 1\n" + since(2, "D 1073741826\n") +
         "3\n3\ntp1\n100nS\n1\n" + since(8, "v93000\n") + since(7, "4\n") +
         "1\n0\n2\n5\n6\n17\n-1\n0pS\n2\n" +  //
         "2 2 9" + since(3, " 10") + since(4, " 11 12") + since(5, " 3") + since(9, " a") +
         since(10, " 8 9") + "\n" +  //
         "0pS\n" + since(8, "*\n") + "12.5NS\n" + since(8, "t0+2ns\n") + "DU\n" +
         since(9, "1\n25\n") + since(1, "2\n5\n6\n") + since(9, "1\n97\n1\n1\n1\n2\n") + "0 0 -1" +
         since(3, " -1") + since(4, " -1 -1") + since(5, " 1") + since(9, " -") +
         since(10, " 0 0") + "\n" + since(1, "0\n") + since(9, "0\n0\n0\n") +
         since(6, "\n8 1\n0\n2\nc1\n1uS\n");
}

// What a version 10 or 8 file of two plates with a hole looks like when written.
std::string writtenFile(int version) {
  const bool wide = version == 10;
  const auto only = [wide](const char* text) { return std::string(wide ? text : ""); };
  return "TIMEPLATES " + std::to_string(version) + " 2\nD 1\n" + "1\n0\n0pS\n0\n*\n1\n0\n-1\n-1\n" +
         "4\n3\ntp1\n100nS\n2\nv93000\n4\n1\n2\n1\n7\n17\n-1\n" + "0pS\n1\n2 3 -1 -1 -1 -1 1" +
         only(" a 8 9") + "\n1.000001nS\n*\n999S\nt0+2ns\nDU?\n" + only("1\n25\n1\n") + "1\n7\n" +
         only("1\n97\n1\n1\n1\n2\n") + "5nS\n0\n" + "\n8 2\n0\n2\nc1\n1uS\n5\n0\n0pS\n";
}

class TimePlateFile : public testing::Test {
 protected:
  ~TimePlateFile() override { PBdiscardErrors(); }

  std::string path() const { return database_.path() + "/pvb.tp"; }
  int load(const std::string& text, bool extended = true) {
    database_.directory().write("db/pvb.tp", text);
    return reload(extended);
  }
  int reload(bool extended = true) {
    PVBtimePlateClose(db());
    database_.slot().version = extended ? kExtendedVersion : kClassicVersion;
    return PVBtimePlateOpen(db());
  }
  std::string fileText() const {
    const int descriptor = PBcfopen(path(), kCfRead);
    std::string text(static_cast<std::size_t>(PBcfsize(descriptor)), ' ');
    PBcfread(descriptor, text.data(), text.size());
    PBcfclose(descriptor);
    return text;
  }
  std::string rewritten() {
    EXPECT_EQ(PVBtimePlateSave(db(), ""), 0);
    return fileText();
  }
  int db() const { return database_.handle(); }
  PVBtimePlateData& data() const { return *database_.slot().timePlates; }

  TestDatabase database_{32, 16, kSectionTimePlates};
};

TEST_F(TimePlateFile, EveryVersionIsRead) {
  for (int version = 0; version <= 10; ++version) {
    SCOPED_TRACE(version);
    ASSERT_EQ(load(plateFile(version)), 0);
    EXPECT_EQ(data().tpVersion, version >= 2 ? 1073741826 : 1);
    const PVBtimePlate& plate = *PVBtimePlateInqByName(db(), "tp1");
    EXPECT_EQ(plate.id, 3);
    EXPECT_TRUE(plate.used);
    EXPECT_EQ(plate.period, (TIME{0, 100000000}));
    EXPECT_EQ(plate.family.value_or("none"), version >= 8 ? "v93000" : "none");
    EXPECT_EQ(plate.multiplier, version >= 7 ? 4 : 1);
    EXPECT_THAT(plate.selectorLists.at(0).second, ElementsAre(5, 6));
    EXPECT_EQ(plate.firstRow, 17);
    ASSERT_EQ(plate.levels.at(0).tracks.size(), 1u);  // without the one that is empty
    const PVBtrack& track = plate.levels[0].tracks[0];
    EXPECT_EQ(track.eventTimes.at(1), (TIME{0, 12500000}));
    EXPECT_EQ(track.eventExprs.at(0), std::nullopt);
    EXPECT_EQ(track.eventExprs.at(1).value_or("none"), version >= 8 ? "t0+2ns" : "none");
    EXPECT_EQ(track.stateChars, "DU");
    EXPECT_THAT(track.stateCounts, ElementsAre(1, version >= 9 ? 25 : 1));
    EXPECT_EQ(track.propList, 9);
    EXPECT_EQ(track.slotIn, version >= 3 ? 10 : -1);
    EXPECT_EQ(track.slotOut, version >= 4 ? 11 : -1);
    EXPECT_EQ(track.slotBoth, version >= 4 ? 12 : -1);
    EXPECT_EQ(track.repeat, version >= 5 ? 3 : 1);
    EXPECT_EQ(track.selector, version >= 9 ? 'a' : '-');
    EXPECT_EQ(track.cycleLength, version >= 10 ? 9 : 0);
    EXPECT_EQ(track.signals.size(), version >= 1 ? 2u : 0u);
    EXPECT_EQ(track.selectorLists[2].size(), version >= 9 ? 1u : 0u);
    EXPECT_EQ(data().cycleTable.size(), version >= 6 ? 1u : 0u);
    EXPECT_EQ(PVBsignalTracks(plate, 6)->track[0], 0);
    EXPECT_EQ(load(plateFile(version), false), version <= 8 ? 0 : -2);  // the classic model
  }
  EXPECT_EQ(load(plateFile(11)), -2);
}

TEST_F(TimePlateFile, SavingGivesTheSameTextAgain) {
  for (const int version : {8, 10}) {
    ASSERT_EQ(load(writtenFile(version), version == 10), 0);
    EXPECT_EQ(rewritten(), writtenFile(version));
    EXPECT_EQ(reload(version == 10), 0);
    EXPECT_EQ(rewritten(), writtenFile(version));
  }
}

TEST_F(TimePlateFile, HolesAreGivenOutAfterLoading) {
  ASSERT_EQ(load(writtenFile(10)), 0);
  for (const PVBid expected : {0, 2, 3, 5}) {
    EXPECT_EQ(PVBtimePlateInsert(db(), PVBtimePlateNew()), expected);
  }
  EXPECT_EQ(PVBcycleCreate(db(), "c2", TIME_ZERO), 6);
  EXPECT_TRUE(data().changed);
  EXPECT_EQ(PVBtimePlateSave(db(), database_.directory().path("tmp")), 0);
  EXPECT_TRUE(data().changed);
  EXPECT_EQ(PVBtimePlateSave(db(), database_.path()), 0);
  EXPECT_FALSE(data().changed);
}

TEST_F(TimePlateFile, TextsThatCannotStandAsWordsAreAdapted) {
  auto plate = PVBtimePlateNew();
  plate->name = "two\nlines";
  plate->family = "9x";
  PVBallocLevelAsNecessary(*plate, 0, 0, -1, {0, 1}, "a + b", 'D', 1);
  PVBallocLevelAsNecessary(*plate, 0, 0, -1, {0, 1}, " ", 'D', 1);
  plate->levels[0].tracks[0].selector = '\0';
  plate->levels[0].tracks[0].eventExprs.resize(1);  // shorter than the events
  plate->levels[0].tracks[0].stateCounts.clear();
  plate->selectorLists = {{0, {4}}};
  PVBtimePlateInsert(db(), std::move(plate));
  rewritten();
  ASSERT_EQ(reload(), 0);
  const PVBtimePlate& read = *PVBtimePlateInqByName(db(), "two\nlines");
  EXPECT_EQ(read.family, std::nullopt);
  EXPECT_EQ(read.levels[0].tracks[0].eventExprs[0], "a+b");
  EXPECT_EQ(read.levels[0].tracks[0].eventExprs[1], std::nullopt);
  EXPECT_EQ(read.levels[0].tracks[0].selector, '-');
  EXPECT_THAT(read.levels[0].tracks[0].stateCounts, ElementsAre(1, 1));
  // Signals of the slot are written with each track.
  EXPECT_THAT(read.levels[0].tracks[0].signals, ElementsAre(4));
}

// --- Damage --------------------------------------------------------------------------

const struct {
  const char* name;
  const char* from;
  const char* to;
} kDamages[] = {
    {"keyword", "TIMEPLATES", "TIMEPLATE"},
    {"negative version", "TIMEPLATES 10", "TIMEPLATES -1"},
    {"too few plates", " 2\nD", " 1\nD"},
    {"too many plates", " 2\nD", " 3\nD"},
    {"absurd count of plates", " 2\nD", " 2000000000\nD"},
    {"id out of range", "\n4\n3\ntp1", "\n65535\n3\ntp1"},
    {"id twice", "\n4\n3\ntp1", "\n1\n3\ntp1"},
    {"time", "100nS", "100nX"},
    {"time below the femtosecond", "1.000001nS", "1.0000001nS"},
    {"absurd count of tracks", "0pS\n1\n2 3", "0pS\n1999999999\n2 3"},
    {"absurd count of events", "2 3 -1", "2000000000 3 -1"},
    {"absurd count of states", "2 3 -1", "2 2000000000 -1"},
    {"more on the track line", " a 8 9\n", " a 8 9 1\n"},
    {"no state", "DU?", "DE?"},
    {"letter", "D 1\n", "E 1\n"},
    {"states too few", "DU?\n", "DU\n"},
    {"states too many", "DU?\n", "DU?D\n"},
    {"cycles above capacity", "\n8 2\n", "\n1 2\n"},
    {"negative capacity", "\n8 2\n", "\n-8 2\n"},
    {"cycle index twice", "1uS\n5\n", "1uS\n0\n"},
    {"cycle index out of range", "1uS\n5\n", "1uS\n9\n"},
    {"more behind the end", "5\n0\n0pS\n", "5\n0\n0pS\n\n"},
};

TEST_F(TimePlateFile, DamageIsTold) {
  for (const auto& damage : kDamages) {
    SCOPED_TRACE(damage.name);
    std::string text = writtenFile(10);
    const std::size_t at = text.find(damage.from);
    ASSERT_NE(at, std::string::npos);
    text.replace(at, std::string(damage.from).size(), damage.to);
    PBdiscardErrors();
    EXPECT_EQ(load(text), -2);
    EXPECT_EQ(PBerrorFind("PVBtimePlateOpen", 87, false), path());
    EXPECT_EQ(PBerrorHas("cyclesRead", 82), std::string_view(damage.name) == "negative capacity");
    // What was read stands and can be worked with.
    EXPECT_EQ(PVBtimePlateInqAll(db()).size(), static_cast<std::size_t>(PVBtimePlateCount(db())));
    EXPECT_GE(PVBtimePlateInsert(db(), PVBtimePlateNew()), 0);
  }
  std::string text = writtenFile(10);
  text.replace(text.find("1\n0\n0pS"), 4, "1\n3\ntp1\n");  // the name of the other
  EXPECT_EQ(load(text), -2);
  EXPECT_THAT(PVBtimePlateInqAll(db()), ElementsAre(1));
}

TEST_F(TimePlateFile, EveryTruncationIsTold) {
  for (const int version : {2, 8, 10}) {
    const std::string text = version == 2 ? plateFile(2) : writtenFile(version);
    // The old files may lack the end of their last line.
    const std::size_t whole = version == 2 ? text.size() - 1 : text.size();
    for (std::size_t size = 0; size < whole; ++size) {
      PBdiscardErrors();
      EXPECT_EQ(load(text.substr(0, size)), -2) << version << " at " << size;
    }
  }
}

RC_GTEST_FIXTURE_PROP(TimePlateFile, AnyByteMayBeWrong, ()) {
  std::string text = writtenFile(10);
  const auto edits = *rc::gen::container<std::vector<std::pair<std::size_t, char>>>(
      rc::gen::pair(rc::gen::inRange<std::size_t>(0, text.size()), rc::gen::arbitrary<char>()));
  for (const auto& [at, c] : edits) text[at] = c;
  PBdiscardErrors();
  if (load(text) == 0) {
    // What was taken is written in a form that is taken again.
    const std::string once = rewritten();
    RC_ASSERT(reload() == 0);
    RC_ASSERT(rewritten() == once);
  }
}

TEST_F(TimePlateFile, InvalidStatesAreNotSaved) {
  ASSERT_EQ(load(writtenFile(10)), 0);
  const std::string old = rewritten();
  PVBtimePlateInqByID(db(), 4)->levels[0].tracks[0].stateChars[0] = 'E';
  EXPECT_EQ(PVBtimePlateSave(db(), ""), -2);
  EXPECT_TRUE(PBerrorHas("PVBtimePlateSave", 85));
  EXPECT_EQ(fileText(), old);
}

}  // namespace
