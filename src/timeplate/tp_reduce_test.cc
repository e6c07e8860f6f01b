#include "timeplate/tp_reduce.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>

#include "support/optimizer_report.h"
#include "support/plate_database.h"
#include "timeplate/ate.h"
#include "timeplate/tp_pair.h"
#include "timeplate/tp_rows.h"
#include "timeplate/tp_settings.h"

namespace {

TIME at(std::int64_t femtoseconds) { return PBlongToTIME(static_cast<std::int32_t>(femtoseconds)); }

// States with a time each 1000 femtoseconds, or at these.
struct Track {
  std::string states;
  std::vector<std::int64_t> times = {};
};

// Two timeplates of one signal, whose rows take turns.
struct World {
  explicit World(const std::string& shapes, int pmode = LAST_FORCE, int direction = INPUT)
      : direction_(direction), database_({direction}) {
    std::string text = "#% shape\n" + shapes + "\n";
    std::replace(text.begin() + 9, text.end(), ' ', '\n');
    const Arguments arguments({"ATEFamily=other", "Pmode=last_force", "TmpPrefix=" + dir_.path(),
                               "ShapeFile=" + dir_.write("own.shp", text)});
    EXPECT_EQ(tpReadSettings(arguments), 0);
    EXPECT_EQ(ateInit(), 0);
    database_.begin(pmode);
  }
  ~World() { tpSettings = {}; }

  PVBid plate(const Track& track) const {
    const PVBid id = database_.plate({{0, direction_, track.states}});
    for (std::size_t i = 0; i < track.times.size(); ++i) {
      plateOf(id).levels[0].tracks[0].eventTimes[i] = at(track.times[i]);
    }
    return id;
  }
  PVBtimePlate& plateOf(PVBid id) const { return *PVBtimePlateInqByID(database_.handle(), id); }
  // Rows by their data, "10Z-": of the first timeplate and the second in turn.
  void rows(PVBid first, const std::string& ofFirst, PVBid second, const std::string& ofSecond) {
    const auto row = [&](PVBid id, const std::string& data, std::size_t i) {
      if (i < data.size()) database_.row(id, {PVBcharacterCode(data[i])});
    };
    for (std::size_t i = 0; i < std::max(ofFirst.size(), ofSecond.size()); ++i) {
      row(first, ofFirst, i);
      row(second, ofSecond, i);
    }
    const PVBidList ids = PVBtimePlateInqAll(database_.handle());
    EXPECT_EQ(tpPrepareRows(ids, false), 0);
  }
  Reduction reduce(PVBid first, PVBid second, bool conservative = false) const {
    tpPairBegin(first, second);
    const auto reduceTracks = conservative ? tpReduceTracksConservative : tpReduceTracks;
    return reduceTracks(plateOf(first), plateOf(second), 0, 0, tpRun.signals[0], direction_);
  }

  int direction_;
  TempDir dir_;
  OptimizerReport report_;
  PlateDatabase database_;
};

struct ReductionCase {
  const char* what;
  const char* shapes;
  Track first;
  const char* firstRows;
  Track second;
  const char* secondRows;
  int pmode;
  const char* result;  // empty: a refusal
  const char* reason;
};

TEST(ReduceTest, EachRoadHasItsConditions) {
  const char* const kTimes = "times not conformal, cannot match";
  const ReductionCase table[] = {
      {"data and simple", "DSD", {"DSD"}, "10", {"DUD"}, "00", 1, "DSD", ""},
      {"simple and data", "DSD", {"DUD"}, "10", {"DSD"}, "00", 1, "DSD", ""},
      {"other edges",
       "DSD",
       {"DSD"},
       "1",
       {"DUD", {0, 1500, 2000}},
       "0",
       1,
       "",
       "Shape to short cannot match"},
      {"two constants", "DSD", {"DUD"}, "1", {"DD"}, "0", 1, "DSD", ""},
      {"the tester's first shape", "SU DS", {"DU"}, "1", {"DD"}, "0", 1, "DS", ""},
      {"rows", "DSSD", {"DSD"}, "01", {"DSD", {0, 1000, 1500}}, "0", 1, "DSSD", ""},
      {"rows that forbid it", "DSSD", {"DSD"}, "01", {"DSD", {0, 1000, 1500}}, "1", 1, "", ""},
      {"the state before", "PS", {"PS"}, "11", {"UU"}, "11", 1, "PS", ""},
      {"another state before", "PS", {"PS"}, "10", {"UU"}, "11", 1, "", ""},
      {"a state before that isn't known",
       "S",
       {"P"},
       "1",
       {"U"},
       "1",
       0,
       "",
       "data cannot be written"},
      {"first edges apart", "S", {"D", {0}}, "1", {"U", {500}}, "0", 1, "", kTimes},
      {"a wrapping distance", "DS", {"DU", {0, 5}}, "1", {"DZ"}, "0", 1, "", kTimes},
      {"a mask elsewhere", "SX", {"DX"}, "1", {"XD"}, "0", 1, "", "positions of X differ"},
      {"a state shown twice", "SSXU", {"DXU"}, "1", {"UXU"}, "0", 1, "SSXU", ""},
      {"data that a later state tells", "SS", {"ND"}, "1", {"UU"}, "0", 1, "SS", ""},
      {"a span before", "S", {"?S"}, "1", {"S"}, "0", 1, "", "One contains ?, cannot reduce"},
      {"undefined", "S", {"?"}, "1", {"S"}, "0", 1, "", "One contains ?, cannot reduce"},
      {"times that don't ascend",
       "DS",
       {"DU", {0, 0}},
       "1",
       {"DD"},
       "0",
       1,
       "",
       "times not ascending"},
      {"codes without a letter", "S", {"S"}, "*", {"U"}, "0", 1, "S", ""},
      {"in rows that are asked", "DS", {"DS"}, "*", {"DC"}, "0", 1, "", "data cannot be written"},
  };
  for (const ReductionCase& each : table) {
    SCOPED_TRACE(each.what);
    World world(each.shapes, each.pmode);
    const PVBid first = world.plate(each.first);
    const PVBid second = world.plate(each.second);
    if (std::string_view(each.what) == "a wrapping distance") {
      world.plateOf(first).levels[0].tracks[0].eventTimes[1] = {4, 294968296};
    }
    world.rows(first, each.firstRows, second, each.secondRows);
    const Reduction reduction = world.reduce(first, second);
    EXPECT_EQ(reduction.wave != nullptr ? reduction.wave->states : "", each.result)
        << reduction.reason;
    if (*each.reason != '\0') {
      EXPECT_STREQ(reduction.reason, each.reason);
    }
  }
}

TEST(ReduceTest, AMatchOfEachWithOthersIsNoMatchOfTheTwo) {
  World world("DSSD");
  const PVBid first = world.plate({"DUD", {0, 1000, 2000}});
  const PVBid second = world.plate({"DSD", {0, 1500, 2000}});
  world.rows(first, "11", second, "11");
  const int id = ateShapeId(kComplexShapes, "DSSD");
  tpMemoSet(first, 0, id, MATCH);
  tpMemoSet(second, 0, id, MATCH);
  EXPECT_EQ(world.reduce(first, second).wave, nullptr);
  tpMemoSet(first, 0, id, NOMATCH);
  EXPECT_STREQ(world.reduce(first, second).reason, "both NOMATCH for shape");
}

TEST(ReduceTest, AProtectedWaveStaysAsItIs) {
  World world("DSD DDSD");
  const PVBid first = world.plate({"DSD"});
  const PVBid second = world.plate({"DUD"});
  const PVBid other = world.plate({"DD"});
  world.rows(first, "10", second, "00");
  tpSettings.tpoTrace = 2;
  EXPECT_EQ(world.reduce(first, second, true).wave->states, "DSD");
  EXPECT_FALSE(tpPair.rewriteFirst);
  EXPECT_TRUE(tpPair.rewriteSecond);
  EXPECT_EQ(tpPair.scratch[1][0], 2);
  EXPECT_NE(world.report_.text().find("tkFirst:\nDSD\ntkSecond:\nDUD\n"
                                      "first contains S or C, second is simple\n"
                                      "\tmatching shape:\n\tDSD\nfirst\nsecond\n"
                                      "\t*** matched shape, reduced ***\n"),
            std::string::npos)
      << world.report_.text();
  EXPECT_EQ(world.reduce(second, first, true).wave, nullptr);
  EXPECT_NE(world.reduce(other, first).wave, nullptr);
}

TEST(ReduceTest, StrobesOfBothComeBackAtTheirTimes) {
  World world("SX", LAST_FORCE, BIDIR);
  const PVBid first = world.plate({"SXQX"});
  const PVBid second = world.plate({"UXQX"});
  const PVBid later = world.plate({"UXQX", {0, 1000, 2000, 4000}});
  world.rows(first, "10", second, "00");
  EXPECT_EQ(world.reduce(first, second).wave, nullptr);
  tpSettings.tpoOptimizeOnly = true;
  const Reduction reduction = world.reduce(first, second);
  ASSERT_NE(reduction.wave, nullptr) << reduction.reason;
  EXPECT_EQ(reduction.wave->states, "SXQX");
  EXPECT_EQ(reduction.wave->times[3], at(3000));
  EXPECT_STREQ(world.reduce(first, later).reason, "strobe windows differ");
}

// --- The law ---------------------------------------------------------------------------

// What a wave without P drives at a time with the data of a row; ' ' before its first edge.
char drivenAt(std::string_view states, const std::vector<TIME>& times, char data, int time) {
  char driven = ' ';
  for (std::size_t i = 0; i < states.size() && PBtimeToLong(times[i]) <= time; ++i) {
    driven = states[i];
  }
  if (driven == 'S') return data;
  if (driven != 'C') return driven;
  return data == 'D' ? 'U' : data == 'U' ? 'D' : data;
}

// Whether the row can drive through the new wave what it drove, with some data.
bool canStay(const PVBtrack& track, char data, const Wave& wave) {
  return std::ranges::any_of(std::string_view("DUZN"), [&](char fresh) {
    for (int time = 0; time < 1000000; time += time < 5000 ? 250 : 99500) {
      const char old = drivenAt(track.stateChars, track.eventTimes, data, time);
      if (old != 'N' && old != drivenAt(wave.states, wave.times, fresh, time)) return false;
    }
    return true;
  });
}

RC_GTEST_PROP(ReduceLaw, EveryRowCanDriveWhatItDrove, ()) {
  World world("S DSD SD SU DS CS SC DSSD SCS DUSD SDU DSU SSD");
  const auto anyTrack = [] {
    Track track;
    std::int64_t time = 0;
    for (int edges = *rc::gen::inRange(1, 4); edges > 0; --edges) {
      track.states += *rc::gen::element('D', 'U', 'S', 'S', 'C', 'N');
      track.times.push_back(time);
      time += *rc::gen::element(500, 1000, 1000, 1000);
    }
    return track;
  };
  const auto anyRows = [] {
    return *rc::gen::resize(
        4, rc::gen::container<std::string>(rc::gen::element('0', '1', '0', '1', 'Z', '-')));
  };
  std::vector<PVBid> plates;
  for (int i = 0; i < 3; ++i) plates.push_back(world.plate(anyTrack()));
  std::map<PVBid, std::string> rows;
  for (const PVBid id : plates) rows[id] = anyRows();
  world.rows(plates[0], rows[plates[0]], plates[1], rows[plates[1]]);
  world.rows(plates[2], rows[plates[2]], plates[2], "");
  // The pairs share the memo.
  for (int i = 0; i < 6; ++i) {
    const auto place = static_cast<std::size_t>(i);
    const PVBid first = plates[place % 3];
    const PVBid second = plates[(place + 1 + place / 3) % 3];
    const Reduction reduction = world.reduce(first, second);
    RC_CLASSIFY(reduction.wave != nullptr, "reduced");
    if (reduction.wave == nullptr) continue;
    for (const PVBid id : {first, second}) {
      for (const char data : rows[id]) {
        RC_ASSERT(canStay(world.plateOf(id).levels[0].tracks[0],
                          tpDataLetter(PVBcharacterCode(data)), *reduction.wave));
      }
    }
  }
}

}  // namespace
