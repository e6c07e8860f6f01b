#include "pvb/timeplate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "base/errors.h"
#include "support/database.h"

namespace {

using testing::ElementsAre;

class TimePlates : public testing::Test {
 protected:
  PVBid insert(const char* name) {
    auto plate = PVBtimePlateNew();
    if (name != nullptr) plate->name = name;
    return PVBtimePlateInsert(db(), std::move(plate));
  }
  PVBid insertAs(PVBid id, const char* name) {
    auto plate = PVBtimePlateNew();
    plate->id = id;
    plate->name = name;
    return PVBtimePlateInsertAs(db(), std::move(plate));
  }
  int db() const { return database_.handle(); }
  bool& changed() const { return database_.slot().timePlates->changed; }

  TestDatabase database_{32, 16, kSectionTimePlates};
};

TEST_F(TimePlates, ModeAndFlagsShareAWord) {
  EXPECT_EQ(PVBpmode(db()), LAST_FORCE);
  EXPECT_EQ(PVBsetDatabaseFlags(db(), 0xC00000FF), 0);
  EXPECT_TRUE(changed());
  EXPECT_EQ(PVBpmode(db()), LAST_FORCE);
  EXPECT_EQ(PVBsetPmode(db(), IMS), 0);
  EXPECT_EQ(PVBdatabaseFlags(db()), 0xC0000000);
  EXPECT_EQ(database_.slot().timePlates->tpVersion, static_cast<std::int32_t>(0xC0000005));
}

TEST_F(TimePlates, FreedIndicesAreGivenOutLowestFirst) {
  for (const char* name : {"a", "b", "c", "d"}) insert(name);
  EXPECT_EQ(PVBtimePlateDelete(db(), 2), 0);
  EXPECT_EQ(PVBtimePlateDelete(db(), 0), 0);
  EXPECT_EQ(PVBtimePlateDelete(db(), 0), -2);
  EXPECT_THAT(PVBtimePlateInqAll(db()), ElementsAre(1, 3));
  EXPECT_EQ(insertAs(7, "seven"), 7);
  EXPECT_EQ(insertAs(5, "five"), 5);
  for (const PVBid expected : {0, 2, 4, 6, 8}) EXPECT_EQ(insert(nullptr), expected);
  EXPECT_EQ(PVBtimePlateCount(db()), 9);
}

TEST_F(TimePlates, RefusesNamesAndIdsInUseOrOutOfRangeAndMoreThanATableful) {
  EXPECT_EQ(insert("tp"), 0);
  EXPECT_EQ(insert("tp"), -1);
  EXPECT_EQ(database_.slot().status, kStatusNameTaken);
  for (const PVBid id : {0, -1, 65535}) EXPECT_EQ(insertAs(id, "other"), -1) << id;
  EXPECT_EQ(insertAs(kMaxTimePlate, "last"), kMaxTimePlate);
  EXPECT_EQ(PVBtimePlateInsert(db(), nullptr), -1);
  EXPECT_EQ(PVBtimePlateCount(db()), 2);
  EXPECT_EQ(PVBtimePlateInqByID(db(), -5), nullptr);
  EXPECT_EQ(PVBtimePlateInqByID(db(), 70000), nullptr);
  EXPECT_EQ(PVBtimePlatePeriod(db(), 1), TIME_ZERO);
  for (PVBid id = 1; id < kMaxTimePlate; ++id) ASSERT_EQ(insert(nullptr), id);
  EXPECT_EQ(insert(nullptr), -1);
  EXPECT_TRUE(PBerrorHas("(PVB)tpStore", 82));
  PBdiscardErrors();
}

TEST_F(TimePlates, RenameKeepsNamesFindableAndUnique) {
  insert("a");
  insert("b");
  changed() = false;
  EXPECT_EQ(PVBtimePlateRename(db(), 0, "b"), -2);
  EXPECT_EQ(PVBtimePlateRename(db(), 0, "x"), 0);
  EXPECT_FALSE(changed());
  EXPECT_EQ(PVBtimePlateInqByName(db(), "a"), nullptr);
  EXPECT_EQ(PVBtimePlateInqByName(db(), "x")->id, 0);
  EXPECT_EQ(PVBtimePlateInqByName(db(), "X"), nullptr);
  EXPECT_EQ(insert("a"), 2);
  // A name changed through the pointer is lost to look-ups, but breaks nothing.
  PVBtimePlateInqByID(db(), 2)->name = "b";
  EXPECT_EQ(PVBtimePlateInqByName(db(), "a"), nullptr);
  EXPECT_EQ(PVBtimePlateDelete(db(), 2), 0);
  EXPECT_EQ(PVBtimePlateInqByName(db(), "b")->id, 1);
}

TEST_F(TimePlates, CopyIsDeepAndAClosedSectionAnswersNothing) {
  insert("a");
  PVBtimePlate& plate = *PVBtimePlateInqByID(db(), 0);
  PVBallocLevelAsNecessary(plate, 0, 0, -1, {0, 5}, "a+b", 'D', 3);
  plate.used = true;
  const auto copy = PVBtimePlateCopy(plate);
  plate.levels.clear();
  EXPECT_EQ(copy->id, UNDEF);
  EXPECT_FALSE(copy->used);
  EXPECT_EQ(copy->levels.at(0).tracks.at(0).eventExprs.at(0), "a+b");

  EXPECT_EQ(PVBtimePlateClose(db()), 0);
  EXPECT_EQ(PVBtimePlateClose(db()), 0);
  EXPECT_EQ(insert("a"), -1);
  EXPECT_EQ(database_.slot().status, kStatusNotOpen);
  EXPECT_EQ(PVBtimePlateSave(db(), ""), -2);
}

// --- States, modes -------------------------------------------------------------------

TEST(States, HaveTextLevelAndDirection) {
  constexpr std::string_view kLevels[] = {"low",    "high",       "unknown level", "hi-Z",
                                          "sample", "complement", "previous"};
  int valid = 0;
  for (int c = 0; c < 256; ++c) {
    const char state = static_cast<char>(c);
    if (!PVBstateValid(state)) continue;
    ++valid;
    const std::string text = PVBstateText(state);
    EXPECT_THAT(text, testing::HasSubstr(std::string(kLevels[PVBstateLevel(state)])));
    EXPECT_EQ(PVBstateDirection(state), text.starts_with("expect")  ? 1
                                        : text.starts_with("force") ? 0
                                                                    : -1);
  }
  EXPECT_EQ(valid, 32);
  EXPECT_STREQ(PVBstateText('.'), "force previous pattern");
  EXPECT_STREQ(PVBstateText('E'), "ILLEGAL_SEF_STATE");
  EXPECT_EQ(PVBstateLevel('E'), -1);
  std::string all;
  std::string plain;
  for (int code = -1; code <= 9; ++code) {
    all.push_back(PVBcodeCharacter(code));
    plain.push_back(PVBplainCodeCharacter(code));
  }
  EXPECT_EQ(all, "?-01ZX?!*.?");
  EXPECT_EQ(plain, "?-01ZX?????");
  EXPECT_EQ(PVBcharacterCode('.'), 8);
  EXPECT_EQ(PVBcharacterCode('\0'), -1);
}

TEST(States, ModesAreFoundByFamilyAndName) {
  std::int32_t mode = 77;
  EXPECT_EQ(PVBfamilyToMode(mode, "l200"), 0);
  EXPECT_EQ(mode, FORCE_OR_Z);
  EXPECT_EQ(PVBfamilyToMode(mode, "J941_j967_J983"), 0);
  EXPECT_EQ(mode, LAST_FORCE);
  EXPECT_EQ(PVBfamilyToMode(mode, "j941"), -2);
  EXPECT_EQ(PVBfamilyToMode(mode, ""), -2);
  EXPECT_EQ(PVBmodeFromName(mode, "p_force_or_Z"), 0);
  EXPECT_EQ(mode, FORCE_OR_Z);
  EXPECT_EQ(PVBmodeFromName(mode, "P_"), -2);
  EXPECT_EQ(mode, LAST_FORCE);
}

// --- Selectors -----------------------------------------------------------------------

// A plate of one slot with these characters taken and one without a table.
PVBtimePlate plateWithTaken(std::string_view taken) {
  PVBtimePlate plate;
  PVBselectorTable table;
  table.fill(-1);
  for (const char c : taken) table[static_cast<unsigned char>(c)] = 1;
  plate.selectorTables = {table, std::nullopt};
  return plate;
}

TEST(Selectors, PicksTheFirstFreeOne) {
  const struct {
    const char* taken;
    int slot, direction, state;
    char expected;
  } picks[] = {
      {"", 0, 0, 1, '0'},        {"0L", 0, 0, 1, 'l'},   {"0LlDd", 0, 0, 1, 'i'},
      {"1HhUuoO", 0, 1, 2, '2'}, {"ZzTt", 0, 2, 3, 'b'}, {"", 0, 1, 9, 'o'},
      {"ZX", 1, 0, 3, 'Z'},      {"", 1, 2, 0, 'b'},     {"", 2, 0, 1, 0},
  };
  for (const auto& p : picks) {
    EXPECT_EQ(PVBtrackSelectorPick(plateWithTaken(p.taken), p.slot, p.direction, p.state, false),
              p.expected)
        << p.taken << " " << p.slot << p.direction << p.state;
  }
  const PVBtimePlate none;
  const std::string defaults = "201ZX2";
  for (int state = 0; state <= 5; ++state) {
    EXPECT_EQ(PVBtrackSelectorPick(none, 9, 0, state, true), defaults[static_cast<size_t>(state)]);
  }
}

TEST(Selectors, NarrowAlphabetHasLettersAndDigitsOnly) {
  for (int direction = 0; direction < 3; ++direction) {
    for (const bool narrow : {true, false}) {
      std::string taken;
      while (const char c = PVBtrackSelectorPick(plateWithTaken(taken), 0, direction, 0, narrow)) {
        ASSERT_EQ(taken.find(c), std::string::npos);
        taken.push_back(c);
      }
      EXPECT_EQ(taken.size(), narrow ? 62u : 93u);
      EXPECT_EQ(narrow, std::all_of(taken.begin(), taken.end(), isalnum));
    }
  }
}

TEST(Selectors, EncodesDigitsOfBaseThree) {
  const auto encode = [](std::vector<std::uint8_t> digits) {
    return PVBtrackSelectorEncode(digits.data(), static_cast<int>(digits.size()));
  };
  EXPECT_EQ(encode({}), '0');
  EXPECT_EQ(encode({1, 1}), '4');
  EXPECT_EQ(encode({1, 0, 1, 0, 1}), '`');
  EXPECT_EQ(encode({0, 1, 1, 0, 1, 0}), '-');
  std::vector<std::uint8_t> zeros(2000);
  EXPECT_EQ(encode(zeros), '0');
  zeros.back() = 2;
  EXPECT_EQ(encode(zeros), '-');
}

TEST(Selectors, WaveEntriesAreReadByRowState) {
  PVBtrack wave;
  for (const int state : {0, 1, 2, 3, 4}) {
    PVBwaveSetSelector(wave, static_cast<char>('a' + state), 1, state);
  }
  PVBwaveSetSelector(wave, 'n', 2, 1);
  EXPECT_EQ(PVBwaveSelectors(wave), "bceda");
  PVBwaveSetSelector(wave, 'B', 1, 1);
  EXPECT_EQ(PVBwaveSelectors(wave), "Bceda");
  wave.selectorLists[2].resize(2);  // lists of a damaged file
  EXPECT_EQ(PVBwaveSelectors(wave), "Ba");
  PVBwaveSetSelector(wave, 'q', 1, 2);
  EXPECT_EQ(PVBwaveSelectors(wave), "Bqa");
  EXPECT_EQ(wave.selectorLists[0].size(), 3u);
}

}  // namespace
