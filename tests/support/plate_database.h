#pragma once

// A database of plain signals with timeplates of one-signal tracks and rows, as the
// optimizer works on, with the optimizer's run open on it.

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pvb/pattern.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "support/database.h"
#include "timeplate/pstate_store.h"
#include "timeplate/row_lists.h"
#include "timeplate/row_store.h"
#include "timeplate/tp_run.h"

struct PlateTrack {
  int signal;  // by its place
  int direction;
  std::string states;
};

class PlateDatabase {
 public:
  // Signals "s0", "s1", ... of these directions, two columns a bidirectional one.
  explicit PlateDatabase(const std::vector<int>& directions, int rowWidth = 8, int numBuffers = 16)
      : database(rowWidth, numBuffers) {
    for (const int direction : directions) {
      auto signal = PVBsignalNew();
      signal->name = "s" + std::to_string(ids_.size());
      signal->direction = direction;
      ids_.push_back(PVBsignalAdd(handle(), std::move(signal)));
    }
  }
  ~PlateDatabase() {
    tpPStateClose();
    tpRowStoreDrop();
    tpRowListsFree();
    tpRunEnd();
  }

  int handle() const { return database.handle(); }
  PVBid id(int signal) const { return ids_[static_cast<std::size_t>(signal)]; }
  void begin(int pmode = LAST_FORCE) const {
    PVBsetPmode(handle(), pmode);
    ASSERT_EQ(tpRunBegin(handle()), 0);
  }

  PVBid plate(const std::vector<PlateTrack>& tracks) const {
    auto plate = PVBtimePlateNew();
    plate->name = "p" + std::to_string(PVBtimePlateCount(handle()));
    plate->period = PBlongToTIME(1000000);
    for (std::size_t t = 0; t < tracks.size(); ++t) {
      const int track = static_cast<int>(t);
      PVBallocAsNecessary(*plate, track);
      for (std::size_t i = 0; i < tracks[t].states.size(); ++i) {
        PVBallocLevelAsNecessary(*plate, 0, track, -1,
                                 PBlongToTIME(static_cast<std::int32_t>(i) * 1000),
                                 tracks[t].states[i], 1);
      }
      PVBtrackSetDirection(*plate, track, tracks[t].direction);
      PVBtrackSetSignals(*plate, track, {id(tracks[t].signal)});
    }
    return PVBtimePlateInsert(handle(), std::move(plate));
  }
  // A row at the end of the pattern, with codes of its columns.
  void row(int plate, const std::vector<int>& codes = {}, RowType type = ROW_LITERAL,
           std::uint32_t count = 1, std::uint32_t link = kNoLink, int pattern = kMainPattern) {
    const RowHandle row(handle(), PVBpatternNew(handle()));
    row->type = type;
    row->count = count;
    row->link = link;
    row->timeplate = plate < 0 ? kNoTimePlate : static_cast<std::uint16_t>(plate);
    for (std::size_t i = 0; i < codes.size(); ++i) {
      setRowCode(row->states(), static_cast<std::uint32_t>(i), codes[i]);
    }
    PVBposition end;
    ASSERT_EQ(PVBpatternInqSize(handle(), pattern, end), 0);
    ASSERT_GE(PVBrowInsert(handle(), pattern, end, BY_ROW, *row), 0);
  }

  TestDatabase database;

 private:
  std::vector<PVBid> ids_;
};
