#include "timeplate/tp_rewrite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "pvb/database.h"
#include "pvb/pattern.h"
#include "support/database.h"
#include "support/optimizer_report.h"
#include "timeplate/ate.h"
#include "timeplate/optimizer.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_merge.h"
#include "timeplate/tp_pair.h"
#include "timeplate/tp_rows.h"
#include "timeplate/tp_settings.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr const char* kShapes =
    "#% shape\nS\nPS\nDSD\nSC\nD\nDUD\n#% simpleShape forceMap\nD S\nDUD DSD\n#% "
    "noMapping\nquiet\n";
constexpr int kStep = 10;    // nanoseconds between edges
constexpr int kPeriod = 80;  // nanoseconds

TIME ns(int count) { return PBintToTIME(1000000 * count); }

// "D0U10": states with the nanoseconds of their edges.
Wave waveOf(std::string_view text) {
  Wave wave;
  for (std::size_t i = 0; i < text.size();) {
    wave.states += text[i++];
    int time = 0;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])) != 0) {
      time = 10 * time + (text[i++] - '0');
    }
    wave.times.push_back(ns(time));
  }
  return wave;
}

// Inputs a and quiet, and a bidirectional b. A row's data are written as the codes of a,
// quiet, b driven, b expected.
struct RewriteWorld {
  RewriteWorld() {
    add("a", INPUT);
    add("quiet", INPUT);
    add("b", BIDIR);
  }
  ~RewriteWorld() {
    tpOptimizerRelease();
    tpSettings = {};
    tpRun.trackPass = false;
    ateBindSignals(-1);
  }

  void add(const char* name, std::int32_t direction) {
    auto signal = PVBsignalNew();
    signal->name = name;
    signal->direction = direction;
    EXPECT_GT(PVBsignalAdd(handle(), std::move(signal)), 0);
  }
  void scanThrough(const char* signal) {
    auto chain = PVBsignalNew();
    chain->type = kScanChainType;
    chain->lists3 = {PVBsignalInqByName(handle(), signal)->id, UNDEF};
    EXPECT_NE(PVBscanObjectInsert(handle(), std::move(chain)), UNDEF);
  }
  int handle() const { return database_.handle(); }

  struct Track {
    const char* signal;
    std::int32_t direction;
    std::string wave;
  };
  PVBid plate(const std::vector<Track>& tracks) {
    auto plate = PVBtimePlateNew();
    plate->name = "tp" + std::to_string(PVBtimePlateCount(handle()));
    plate->period = ns(kPeriod);
    for (int slot = 0; slot < static_cast<int>(tracks.size()); ++slot) {
      const Track& track = tracks[static_cast<std::size_t>(slot)];
      const Wave wave = waveOf(track.wave);
      PVBallocAsNecessary(*plate, slot);
      for (std::size_t i = 0; i < wave.states.size(); ++i) {
        PVBallocLevelAsNecessary(*plate, 0, slot, -1, wave.times[i], wave.states[i], 1);
      }
      PVBtrackSetDirection(*plate, slot, track.direction);
      PVBtrackSetSignals(*plate, slot, {PVBsignalInqByName(handle(), track.signal)->id});
    }
    return PVBtimePlateInsert(handle(), std::move(plate));
  }
  void row(PVBid plate, std::string_view codes, std::uint32_t type = ROW_LITERAL,
           std::uint32_t count = 1) {
    const RowHandle row(handle(), PVBpatternNew(handle()));
    row->type = type;
    row->count = count;
    row->timeplate = static_cast<std::uint16_t>(plate);
    for (std::uint32_t i = 0; i < codes.size(); ++i) setRowCode(row->states(), i, codes[i] - '0');
    PVBposition end;
    end.row = rows_++;
    ASSERT_GE(PVBrowInsert(handle(), kMainPattern, end, BY_ROW, *row), 0);
  }

  // Begins the run, with the shapes in force.
  void begin() {
    const std::string shapes = "ShapeFile=" + database_.directory().write("own.shp", kShapes);
    const TpSettings settings = tpSettings;
    ASSERT_EQ(tpReadSettings(Arguments({"ATEFamily=other", "Pmode=last_force", shapes,
                                        "TmpPrefix=" + database_.directory().path()})),
              0);
    ASSERT_EQ(ateInit(), 0);
    tpSettings = settings;
    tpOptimizerSetDatabase(handle());
    ASSERT_EQ(tpOptimizerBegin(), 0);
    ASSERT_EQ(tpPrepareRows(ids(), false), 0);
  }
  PVBidList ids() const { return PVBtimePlateInqAll(handle()); }
  PVBtimePlate& at(PVBid id) const { return *PVBtimePlateInqByID(handle(), id); }
  static const TpSignal& named(std::string_view name) {
    return *std::ranges::find(tpRun.signals, name, &TpSignal::name);
  }

  void beginPair(PVBid first, PVBid second) {
    tpPairBegin(first, second);
    tpPair.rewriteFirst = tpPair.rewriteSecond = true;
  }
  enum Shown { byWaves, byRows };
  static void propose(const char* signal, int direction, const char* wave, Shown shown,
                      std::array<int, 2> codes = {0, 0}) {
    tpPairSet(named(signal), direction, waveOf(wave)).fromHistory = shown == byRows;
    const auto index = static_cast<std::size_t>(named(signal).index);
    for (std::size_t side = 0; side < 2; ++side) {
      tpPair.scratch[side][index] = static_cast<std::uint8_t>(codes[side]);
    }
  }
  std::string forbidden(PVBid first, PVBid second = UNDEF) const {
    const PVBtimePlate* other = second == UNDEF ? nullptr : &at(second);
    const TpSignal* signal = tpRowsForbid(at(first), other, tpRun.trackPass);
    return signal == nullptr ? "" : signal->name;
  }
  // As a merge folds two timeplates.
  void rewrite(PVBid first, PVBid second, bool overwrite = false) {
    tpRewriteStaticRows(at(first), 0, overwrite);
    tpRewriteStaticRows(at(second), 1, overwrite);
    tpRewriteRows(at(first), &at(second), tpRun.trackPass);
  }
  // "0:1200" for the timeplate and the codes of each row.
  static std::string stored() {
    std::string text;
    for (std::int32_t number = 0; number < tpRowStoreCount(); ++number) {
      const TpRow& row = *tpRowGet(number);
      text += (number == 0 ? "" : " ") + std::to_string(row.timeplate) + ":";
      for (int column = 0; column < 4; ++column) text += std::to_string(tpRowCode(row, column));
    }
    return text;
  }

  OptimizerReport report_;
  TestDatabase database_;

  std::uint32_t rows_ = 0;
};
struct TpRewrite : testing::Test, RewriteWorld {};

TEST_F(TpRewrite, RowsGetTheDataThatTheWavesShowedButKeepWhatTheirOwnShows) {
  const PVBid data = plate({{"a", INPUT, "D0S10D20"}});
  const PVBid pulse = plate({{"a", INPUT, "D0U10D20"}});
  for (const char* codes : {"0", "1", "4"}) row(data, codes);
  for (const char* codes : {"0", "1", "2"}) row(pulse, codes);  // 1 would drive low
  begin();
  beginPair(data, pulse);
  propose("a", INPUT, "D0S10D20", byWaves, {4, 2});
  EXPECT_EQ(forbidden(data, pulse), "");
  rewrite(data, pulse, true);
  EXPECT_EQ(stored(), "0:0000 0:1000 0:4000 0:2000 0:2000 0:2000");
}

TEST_F(TpRewrite, RowsGetTheDataThatTheyShow) {
  const PVBid same = plate({{"a", INPUT, "S0"}});
  const PVBid turned = plate({{"a", INPUT, "C0S10"}});
  for (const char* codes : {"1", "2"}) row(same, codes);
  for (const char* codes : {"1", "2", "3"}) row(turned, codes);
  begin();
  tpRun.trackPass = true;  // first and second stay
  beginPair(same, turned);
  propose("a", INPUT, "S0C10", byRows);
  EXPECT_EQ(forbidden(same), "a");  // nothing that changes is shown by S alone
  EXPECT_EQ(forbidden(turned), "");
  tpPair.rewriteFirst = false;
  rewrite(same, turned);
  EXPECT_EQ(stored(), "0:1000 0:2000 1:2000 1:1000 1:3000");
}

TEST_F(TpRewrite, RowsThatUseAnotherTrackStay) {
  const std::vector<Track> both = {{"b", INPUT, "U0"}, {"b", OUTPUT, "X0Q20"}};
  const PVBid first = plate(both);
  const PVBid second = plate(both);
  row(first, "0010");
  row(first, "0002");
  row(second, "0003");
  row(second, "0021");
  begin();
  beginPair(first, second);
  propose("b", INPUT, "S0", byWaves, {2, 2});
  EXPECT_EQ(forbidden(first, second), "");
  rewrite(first, second, true);
  EXPECT_EQ(stored(), "0:0020 0:0002 0:0003 0:0021");
}

TEST_F(TpRewrite, ATrackThatIsTakenOverMustNotBeChosenInAnothersPlace) {
  const PVBid drives = plate({{"b", INPUT, "S0"}});
  const PVBid expects = plate({{"b", OUTPUT, "X0Q20"}});
  row(drives, "0010");
  row(expects, "0001");
  const auto takeOver = [&] {
    begin();
    beginPair(drives, expects);
    Candidate& taken = tpPairSet(named("b"), OUTPUT, waveOf("X0Q20"));
    taken.fromSecond = true;
    taken.source = tpTrack(at(expects), 0);
    return forbidden(drives, expects);
  };
  EXPECT_EQ(takeOver(), "");
  // With expected data alone the row would use the new track, and drive nothing.
  row(drives, "0002");
  EXPECT_EQ(takeOver(), "b");
}

TEST_F(TpRewrite, WhatTheRowsBeforeLeftMustBeKnown) {
  const PVBid data = plate({{"a", INPUT, "S0"}});
  const PVBid held = plate({{"a", INPUT, "D0S10"}});
  const auto hold = [&](std::uint32_t count) {
    row(data, "1");
    row(held, "2", ROW_LITERAL, count);
    begin();
    beginPair(held, UNDEF);
    propose("a", INPUT, "P0S10", byRows);
    return forbidden(held);
  };
  EXPECT_EQ(hold(1), "");
  // Before a part of a cycle other parts have driven the pin.
  tpRun.signals[static_cast<std::size_t>(named("a").index)].muxed = true;
  EXPECT_EQ(forbidden(held), "a");
  EXPECT_EQ(hold(2), "a");  // the second time, it begins where it has ended
}

TEST_F(TpRewrite, WhatAPStandsForMustStay) {
  const PVBid unknown = plate({{"a", INPUT, "D0S10"}});
  const PVBid compared = plate({{"b", INPUT, "S0"}, {"b", OUTPUT, "X0Q20"}});
  row(unknown, "0");
  row(compared, "0021");
  const auto forbids = [&](int mode, PVBid id, const char* signal, const char* wave) {
    PVBsetPmode(handle(), mode);
    begin();
    beginPair(id, UNDEF);
    propose(signal, INPUT, wave, byRows);
    return !forbidden(id).empty();
  };
  // Later rows would begin with what was driven in place of an unknown level.
  EXPECT_FALSE(forbids(LAST_FORCE, unknown, "a", "S0C10"));
  EXPECT_TRUE(forbids(LAST_DRIVE, unknown, "a", "S0C10"));
  // What is expected at the same time counts in some modes.
  EXPECT_FALSE(forbids(LAST_FORCE, compared, "b", "S0P10"));
  EXPECT_TRUE(forbids(ADVANTEST, compared, "b", "S0P10"));
  EXPECT_FALSE(forbids(ADVANTEST, compared, "b", "S0S5P10"));
  EXPECT_FALSE(forbids(ADVANTEST, compared, "b", "S0S30"));
  EXPECT_TRUE(forbids(IMS, compared, "b", "S0S30"));
}

TEST_F(TpRewrite, ScanRowsForbidChangesOfWhatTheyShift) {
  scanThrough("a");
  const PVBid pulse = plate({{"a", INPUT, "D0U10D20"}, {"quiet", INPUT, "D0U10D20"}});
  row(pulse, "2");
  row(pulse, "2", ROW_SCAN);
  begin();
  beginPair(pulse, UNDEF);
  propose("a", INPUT, "D0U10D20", byWaves);
  propose("quiet", INPUT, "D0S10D20", byWaves, {2, 0});
  EXPECT_EQ(forbidden(pulse), "");
  propose("a", INPUT, "D0S10D20", byWaves, {2, 0});
  EXPECT_EQ(forbidden(pulse), "a");
}

TEST_F(TpRewrite, AWindowThatIsNewDoesNotCompare) {
  tpSettings.tpoOptimizeOnly = true;
  const PVBid masked = plate({{"b", OUTPUT, "X0"}});
  const PVBid compared = plate({{"b", OUTPUT, "X0Q20X30"}});
  row(masked, "0002");
  row(compared, "0002");
  begin();
  beginPair(masked, compared);
  propose("b", OUTPUT, "X0Q20X30", byRows);
  EXPECT_EQ(forbidden(masked, compared), "");
  rewrite(masked, compared);
  EXPECT_EQ(stored(), "0:0004 0:0002");
}

// --- The law -------------------------------------------------------------------------

// What a wave drives at a time of a row with these data; '-' before its first edge.
char drivenAt(const Wave& wave, int code, int time) {
  char state = '-';
  for (std::size_t i = 0; i < wave.states.size() && wave.times[i] <= ns(time); ++i) {
    state = wave.states[i];
  }
  if (state != 'S' && state != 'C') return state;
  const char letter = code >= 1 && code <= 3 ? "DUZ"[code - 1] : 'N';
  if (state == 'S' || letter == 'Z' || letter == 'N') return letter;
  return letter == 'D' ? 'U' : 'D';
}

std::string textOf(const Wave& wave) {
  std::string text;
  for (std::size_t i = 0; i < wave.states.size(); ++i) {
    text += wave.states[i] + std::to_string(PBtimeToLong(wave.times[i]) / 1000000);
  }
  return text;
}

Wave anyWave(const std::string& states) {
  Wave wave;
  int time = *rc::gen::weightedElement<int>({{8, 0}, {1, kStep}});
  for (int edges = *rc::gen::inRange(1, 4); edges > 0; --edges) {
    wave.states += *rc::gen::elementOf(states);
    wave.times.push_back(ns(time));
    time += kStep * *rc::gen::inRange(1, 3);
  }
  return wave;
}
// A wave that the target shows with some data, or any.
Wave nearTo(const Wave& target) {
  Wave wave = target;
  const int code = *rc::gen::inRange(0, 8);
  if (code > 4) return anyWave("DUZSCN");
  for (char& state : wave.states) {
    if ((state == 'S' || state == 'C') && code > 0) {
      state = drivenAt({std::string(1, state), {TIME_ZERO}}, code, 0);
    }
  }
  return wave;
}

RC_GTEST_PROP(TpRewriteLaw, WhatRowsDriveStaysOrTheyForbidIt, ()) {
  RewriteWorld test;
  const Wave target = anyWave("DUSSC");
  const std::array<Wave, 2> waves = {nearTo(target), nearTo(target)};
  std::array<PVBid, 2> plates{};
  for (std::size_t i = 0; i < 2; ++i) plates[i] = test.plate({{"a", INPUT, textOf(waves[i])}});
  const auto rows = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 10));
  for (const int each : rows) {
    test.row(plates[static_cast<std::size_t>(each % 2)], std::to_string(each / 2));
  }
  test.begin();
  test.beginPair(plates[0], plates[1]);
  RewriteWorld::propose("a", INPUT, textOf(target).c_str(),
                        *rc::gen::arbitrary<bool>() ? RewriteWorld::byWaves : RewriteWorld::byRows,
                        {*rc::gen::inRange(0, 5), *rc::gen::inRange(0, 5)});
  const bool allowed = test.forbidden(plates[0], plates[1]).empty();
  RC_CLASSIFY(allowed && !rows.empty());
  if (!allowed) return;
  test.rewrite(plates[0], plates[1], *rc::gen::arbitrary<bool>());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const TpRow& row = *tpRowGet(static_cast<std::int32_t>(i));
    RC_ASSERT(row.timeplate == plates[0]);
    for (int time = 0; time < kPeriod; time += kStep) {
      const char before = drivenAt(waves[static_cast<std::size_t>(rows[i] % 2)], rows[i] / 2, time);
      RC_ASSERT(before == 'N' || drivenAt(target, tpRowCode(row, 0), time) == before);
    }
  }
}

// --- Passes over single timeplates ---------------------------------------------------

TEST_F(TpRewrite, TracksWithoutAShapeAreMendedWhereRowsAllow) {
  const PVBid good = plate({{"a", INPUT, "S0"}, {"b", INPUT, "D0U10"}});
  const PVBid mended = plate({{"a", kUndefinedDirection, "C0S10"}});
  const PVBid bad = plate({{"a", INPUT, "S0C10S20"}, {"b", BIDIR, "S0Z10"}});
  row(good, "2000");
  row(mended, "2000");
  row(bad, "2020");
  begin();
  ASSERT_TRUE(tpCheckShapes());
  EXPECT_THAT(report_.text(),
              HasSubstr("\nChecking for valid shapes:\n"
                        "Checking TimePlate tp0\n\tTimePlate tp0 is valid.\n"
                        "Checking TimePlate tp1\n\tINPUT track for Signal a is not valid.\n"));
  EXPECT_THAT(report_.text(), HasSubstr("\t\tfixed\n\tTimePlate tp1 has 1 fixed of 1 invalid"));
  EXPECT_THAT(report_.text(), HasSubstr("\tBIDIR track for Signal b is not valid.\n"
                                        "\tTimePlate tp2 has 0 fixed of 2 invalid tracks.\n"));
  EXPECT_THAT(report_.text(), HasSubstr("There are 2 invalid shapes in the timeplates"));
  EXPECT_THAT(report_.status(), HasSubstr("Checking for valid shapes.\n"));
  // Turned around, with data turned around.
  EXPECT_EQ(tpTrack(at(mended), 0)->stateChars, "SC");
  EXPECT_EQ(stored(), "0:2004 1:1000 2:2020");
}

TEST_F(TpRewrite, RowsOfBidirectionalSignalsAreSetUpUnlessThatChangesTheirTrack) {
  const PVBid mixed = plate({{"b", INPUT, "X0D20"}});
  const PVBid plain = plate({{"b", INPUT, "S0"}});
  const PVBid choice = plate({{"b", INPUT, "D0"}, {"b", OUTPUT, "X0Q20"}});
  for (const PVBid each : {mixed, plain, choice}) row(each, "0000");
  row(plain, "0010");
  begin();
  ASSERT_TRUE(tpCheckShapes());
  EXPECT_EQ(stored(), "0:0044 1:0004 2:0000 1:0010");
}

TEST_F(TpRewrite, SimpleWavesAreMappedAsTheShapeFileSays) {
  const PVBid first = plate({{"a", INPUT, "D0"}, {"quiet", INPUT, "D0"}, {"b", INPUT, "D0U10D30"}});
  const PVBid kept = plate({{"a", INPUT, "D0"}});
  const PVBid scanned = plate({{"a", INPUT, "D0"}, {"b", INPUT, "D0"}});
  row(first, "2010");
  row(kept, "2000");
  row(scanned, "2010", ROW_SCAN);
  scanThrough("a");
  begin();
  tpProtect(std::vector<PVBid>{kept});
  tpForcedMappings(ids());
  EXPECT_THAT(report_.status(), EndsWith("Performing Forced Mappings\n"));
  EXPECT_EQ(tpTrack(at(first), 0)->stateChars, "S");
  EXPECT_EQ(tpTrack(at(first), 1)->stateChars, "D");
  EXPECT_EQ(tpTrack(at(first), 2)->stateChars, "DSD");
  EXPECT_EQ(tpTrack(at(first), 2)->eventTimes, waveOf("D0S10D30").times);
  EXPECT_EQ(tpTrack(at(kept), 0)->stateChars, "D");
  EXPECT_EQ(tpTrack(at(scanned), 0)->stateChars, "D");
  EXPECT_EQ(tpTrack(at(scanned), 1)->stateChars, "S");
  EXPECT_EQ(stored(), "0:1020 1:2000 2:2010");
}

}  // namespace
