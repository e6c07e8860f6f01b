#include "timeplate/tp_rows.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <numeric>

#include "base/errors.h"
#include "support/plate_database.h"
#include "timeplate/previous_state.h"

namespace {

std::vector<PVBid> allPlates(const PlateDatabase& world) {
  return PVBtimePlateInqAll(world.handle());
}

// The letters going into each row.
std::string letters(int signal) {
  std::string text;
  for (std::int32_t row = 0; row < tpRowStoreCount(); ++row) text += tpPStateLetter(row, signal);
  return text;
}

TEST(PreviousStateTest, ATrackLeavesWhatItsModeCounts) {
  const std::string same(1, kSameLetter);
  const std::string unknown(1, kUnknownLetter);
  struct Case {
    const char* states;
    char value;
    std::string letters;  // modes 1 to 5
  };
  const Case cases[] = {
      {"DU", 'N', "UUUUU"},
      {"S", 'D', "DDDDD"},
      {"CS", 'U', "UUUUU"},
      {"SC", 'U', "DDDDD"},
      {"DZ", 'D', "ZDZZZ"},
      {"S", 'N', "N" + same + "NNN"},
      {"UP", 'D', "UUUUU"},  // of what was driven in the cycle
      {"P", 'D', same + same + same + same + same},
      {"P", 'Z', "Z" + same + same + "Z" + same},  // the data decide
      {"DH", 'D', "DDZDZ"},
      {"DLP", 'U', "DDZDZ"},
      {"UHPQ", 'U', "UUZUZ"},
      {"DHP", 'U', "DDZUZ"},
      {"?", 'D', same + same + same + same + same},
      {"", 'D', same + same + same + same + same},
  };
  for (const Case& c : cases) {
    std::string got;
    for (int mode = 1; mode <= 5; ++mode) got += tpLetterBehind(c.states, c.value, mode);
    EXPECT_EQ(got, c.letters) << c.states << ' ' << c.value;
  }
  EXPECT_EQ(tpLetterBehind("D", 'D', DONT_CARE), kUnknownLetter);
}

TEST(TpRowsTest, PGoesByTheMode) {
  // value, pstate, previous, then the letter in modes 0 to 6
  for (const char* c : {"ZDU"
                        "NZZUZUN",
                        "DDU"
                        "NDDUDUN",
                        "DNU"
                        "NUUUUUN",
                        "DNH"
                        "NNNZUZN",
                        "DNT"
                        "NNNZDZN",
                        "DNN"
                        "NNNNNNN",
                        "DNZ"
                        "NZZZZZN"}) {
    for (int mode = 0; mode <= 6; ++mode) {
      tpRun.pmode = mode;
      EXPECT_EQ(tpPState(c[0], c[1], c[2]), c[3 + mode]) << c << " mode " << mode;
    }
  }
  tpRunEnd();
}

TEST(TpRowsTest, StatesGoFromRowToRowAsFarAsOneWayLeadsThere) {
  PlateDatabase world({INPUT, BIDIR});
  const PVBid data = world.plate({{0, INPUT, "S"}, {1, INPUT, "DU"}, {1, OUTPUT, "H"}});
  const PVBid other = world.plate({{0, INPUT, "PU"}});
  // Signal 0 in column 0, signal 1 in columns 1 and 2.
  world.row(data, {1, 1, 0});
  world.row(data, {2, 0, 1});                  // signal 1 expects
  world.row(other, {});                        // and isn't there
  world.row(data, {1, 1, 0}, ROW_LITERAL, 2);  // follows itself
  for (int i = 0; i < 3; ++i) world.row(data, {3, 1, 0});
  ASSERT_GE(PVBloopMake(world.handle(), kMainPattern, 4, 2, 9), 0);
  world.begin();
  ASSERT_EQ(tpPrepareRows(allPlates(world), false), 0);
  // The loop row, its body of two rows and its end come behind the repeated row.
  EXPECT_EQ(letters(0), "NDUNDNZZN");
  EXPECT_EQ(letters(1), "NUUUUNUUN");
  EXPECT_EQ(tpPStateGet(0)[0], 0x10);  // seeded: S has no letter, D
  EXPECT_EQ(std::vector<std::int32_t>({0, 1, 3, 5, 6, 8}),
            std::vector<std::int32_t>(tpRowList(data).begin(), tpRowList(data).end()));
  EXPECT_EQ(loadPrevious(1, tpRun.signals[0]), 'N');
  tpRun.pmode = ADVANTEST;
  EXPECT_EQ(loadPrevious(1, tpRun.signals[0]), 'D');
  EXPECT_EQ(loadPrevious(-1, tpRun.signals[0]), 'N');
}

TEST(TpRowsTest, TakingRowsInTwoPassesGivesTheSameAsOne) {
  for (int mode = LAST_FORCE; mode <= IMS; ++mode) {
    PlateDatabase world({INPUT});
    const PVBid plates[] = {world.plate({{0, INPUT, "S"}}), world.plate({{0, INPUT, "P"}}),
                            world.plate({{0, INPUT, "UD"}}), world.plate({})};
    const auto append = [&](int from, int to) {
      for (int i = from; i < to; ++i) {
        world.row(plates[i * i % 7 % 4], {1 + i % 3}, ROW_LITERAL, i % 5 == 0 ? 2U : 1U);
      }
    };
    world.begin(mode);
    append(0, 3);
    for (int pass = 1; pass <= 8; ++pass) {
      ASSERT_EQ(tpPrepareRows(allPlates(world), false), 0);
      append(3 * pass, 3 * pass + 3);
    }
    ASSERT_EQ(tpPrepareRows(allPlates(world), false), 0);
    const std::string byPasses = letters(0);
    const std::size_t rows = tpRowList(plates[1]).size();
    tpPStateClose();
    tpRowStoreDrop();
    ASSERT_EQ(tpPrepareRows(allPlates(world), false), 0);
    EXPECT_EQ(letters(0), byPasses);
    EXPECT_EQ(tpRowList(plates[1]).size(), rows);
    EXPECT_NE(byPasses.find('D'), std::string::npos);
  }
}

TEST(TpRowsTest, WhatIsExpectedBesideMayBeTheStateBefore) {
  PlateDatabase world({BIDIR});
  const PVBid drives = world.plate({{0, INPUT, "S"}});
  const PVBid keeps = world.plate({{0, INPUT, "P"}, {0, OUTPUT, "X"}});
  for (const int expected : {0, 1}) {
    world.row(drives, {1, 0});
    world.row(keeps, {1, expected});
  }
  world.row(drives, {1, 0});
  for (const auto& [mode, known] : {std::pair(LAST_FORCE, "DDDD"), std::pair(IMS, "DDDN")}) {
    world.begin(mode);
    ASSERT_EQ(tpPrepareRows(allPlates(world), false), 0);
    EXPECT_EQ(letters(0).substr(1), known);
    tpPStateClose();
    tpRowStoreDrop();
  }
}

TEST(TpRowsTest, EmptyTracksGoUnlessRowsChooseThem) {
  PlateDatabase world({INPUT, BIDIR});
  const PVBid id =
      world.plate({{0, INPUT, ""}, {1, INPUT, ""}, {1, OUTPUT, "H"}, {1, BIDIR, "?D?"}});
  world.row(id, {1, 1, 0});
  world.begin();
  ASSERT_EQ(tpPrepareRows(allPlates(world), false), 0);
  const PVBtimePlate& plate = *PVBtimePlateInqByID(world.handle(), id);
  ASSERT_EQ(PVBslotCount(plate), 3);
  EXPECT_EQ(tpTrackOf(plate, tpRun.signals[0], INPUT), kNoTrack);
  EXPECT_EQ(tpTrackOf(plate, tpRun.signals[1], INPUT), 0);
  EXPECT_EQ(tpTrack(plate, tpTrackOf(plate, tpRun.signals[1], BIDIR))->stateChars, "?D?");
}

TEST(TpRowsTest, ARowWithoutItsTimeplateIsToldOfAndPassedOver) {
  PlateDatabase world({INPUT});
  const PVBid id = world.plate({{0, INPUT, "D"}});
  const PVBid gone = world.plate({{0, INPUT, "U"}});
  for (const PVBid plate : {id, gone, id}) world.row(plate, {1});
  world.begin();
  char* text = nullptr;
  std::size_t size = 0;
  tpNoticeSettings.stream = ::open_memstream(&text, &size);
  ASSERT_EQ(tpPrepareRows(allPlates(world), false), 0);
  ASSERT_EQ(PVBtimePlateDelete(world.handle(), gone), 0);
  ASSERT_EQ(tpPrepareRows(allPlates(world), false), 0);
  tpPStateClose();
  tpRowStoreDrop();
  ASSERT_EQ(tpPrepareRows(allPlates(world), false), 0);
  std::fclose(std::exchange(tpNoticeSettings.stream, nullptr));
  EXPECT_EQ(std::string(text, size),
            "WARNING: loadPProperty: Unmapped row at 1\n"
            "WARNING: loadPrevious: Unmapped row at 1\n");
  std::free(text);
  EXPECT_EQ(letters(0), "NDD");
}

}  // namespace
