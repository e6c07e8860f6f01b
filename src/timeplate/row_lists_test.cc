#include "timeplate/row_lists.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>

#include "base/errors.h"
#include "support/plate_database.h"
#include "timeplate/ate.h"

namespace {

constexpr int kTracks = 3;
// There is room for the shapes of the shape file, if one was read, and to the end of a byte.
int shapeRoom() {
  return (std::max(ateShapeCount(kComplexShapes), ateShapeCount(kMuxShapes)) / 4 + 1) * 4;
}

struct ModelList {
  std::set<std::int32_t> rows;
  std::map<std::pair<int, int>, int> memo;  // by track and shape
};

int merged(int a, int b) {
  if (a == NOMATCH || b == NOMATCH) return NOMATCH;
  return a == MATCH && b == MATCH ? MATCH : NOTSET;
}

ModelList mergeModels(ModelList first, ModelList second) {
  first.rows.insert(second.rows.begin(), second.rows.end());
  for (int track = 0; track < kTracks; ++track) {
    for (int shape = 0; shape < shapeRoom(); ++shape) {
      int& entry = first.memo[{track, shape}];
      entry = merged(entry, second.memo[{track, shape}]);
    }
  }
  return first;
}

void forgetMatches(ModelList& list) {
  for (auto& [key, value] : list.memo) value = value == MATCH ? NOTSET : value;
}

RC_GTEST_PROP(RowListsProperty, ListsAndMemosAreThoseOfAModel, ()) {
  tpRowListsBuild(2, 8, 1);
  const int shapes = shapeRoom();
  std::map<PVBid, ModelList> model;
  const auto steps = *rc::gen::inRange(0, 60);
  for (int i = 0; i < steps; ++i) {
    const PVBid a = *rc::gen::inRange(0, 4);
    const PVBid b = *rc::gen::inRange(0, 4);
    const int track = *rc::gen::inRange(0, kTracks);
    const int shape = *rc::gen::inRange(0, shapes + 2);
    switch (*rc::gen::inRange(0, 5)) {
      case 0:
      case 1: {
        const auto row = *rc::gen::inRange(0, 40);
        tpRowListAdd(row, a);
        if (model[a].rows.insert(row).second) forgetMatches(model[a]);
        break;
      }
      case 2: {
        const auto value = *rc::gen::element(NOTSET, MATCH, NOMATCH);
        tpMemoSet(a, track, shape, value);
        if (model.contains(a) && shape < shapes) model[a].memo[{track, shape}] = value;
        break;
      }
      case 3:
        tpMemoForget(a, track);
        if (model.contains(a)) {
          std::erase_if(model[a].memo, [&](const auto& e) { return e.first.first == track; });
        }
        break;
      default:
        tpRowListMerge(a, b);
        if (a == b || !model.contains(b)) break;
        if (!model.contains(a)) forgetMatches(model[b]);
        model[a] = model.contains(a) ? mergeModels(model[a], model[b]) : model[b];
        model.erase(b);
        break;
    }
  }
  for (PVBid id = 0; id < 4; ++id) {
    std::vector<std::int32_t> rows;
    for (auto row = tpRowListFirst(id); row >= 0; row = tpRowListNext(id)) rows.push_back(row);
    RC_ASSERT(rows == std::vector<std::int32_t>(model[id].rows.begin(), model[id].rows.end()));
    for (int track = 0; track < kTracks; ++track) {
      for (int shape = 0; shape < shapes + 2; ++shape) {
        RC_ASSERT(static_cast<int>(tpMemoGet(id, track, shape)) ==
                  (model[id].memo[{track, shape}]));
      }
    }
  }
  tpRowListsFree();
}

TEST(RowListsTest, AMemoKnowsNothingOfSignalsThatShareATrackOrItsNumber) {
  PlateDatabase world({INPUT, INPUT});
  const PVBid first = world.plate({{0, INPUT, "D"}, {1, INPUT, "D"}});
  const PVBid second = world.plate({{0, INPUT, "U"}, {0, INPUT, "U"}});
  const PVBid shared = world.plate({{0, INPUT, "D"}});
  PVBtrackSetSignals(*PVBtimePlateInqByID(world.handle(), shared), 0, {world.id(0), world.id(1)});
  world.begin();
  tpRowListsBuild(3, 10, 2);
  for (const PVBid id : {first, second, shared}) {
    tpRowListAdd(id, id);
    for (const int track : {0, 1}) tpMemoSet(id, track, 0, MATCH);
  }
  EXPECT_EQ(tpMemoGet(shared, 0, 0), NOTSET);
  tpRowListMerge(first, second);
  EXPECT_EQ(tpMemoGet(first, 0, 0), MATCH);
  EXPECT_EQ(tpMemoGet(first, 1, 0), NOTSET);
}

TEST(RowListsTest, TheTableHasTheTimeplatesByTheirRows) {
  PlateDatabase world({INPUT});
  for (int i = 0; i < 3; ++i) world.plate({{0, INPUT, "D"}});
  world.begin();
  tpRowListsBuild(3, 5, 1);
  tpRowListAdd(0, 2);
  for (const int row : {1, 2, 4}) tpRowListAdd(row, 1);
  tpRowListAdd(3, 0);
  tpRowListSetQuestion(1, true);

  char* text = nullptr;
  std::size_t size = 0;
  FILE* stream = ::open_memstream(&text, &size);
  tpNoticeSettings.stream = stream;
  tpTimeplateFrequency();
  tpNoticeSettings.stream = nullptr;
  std::fclose(stream);
  EXPECT_EQ(std::string(text, size),
            "\nTimeplate Frequency\n"
            "      Timeplate Name     # Rows    Has '?'\n"
            "                  p1          3     YES\n"
            "                  p2          1      -\n"
            "                  p0          1      -\n"
            "\nTotal entries examined = 3, Total rows = 5\n");
  std::free(text);
}

}  // namespace
