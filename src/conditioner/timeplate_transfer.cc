#include "conditioner/timeplate_transfer.h"

#include <cerrno>
#include <string>

#include "base/errors.h"
#include "conditioner/messages.h"
#include "conditioner/run.h"
#include "conditioner/timeplate_transfer_internal.h"
#include "pvb/database.h"
#include "pvb/timeplate_match.h"
#include "timeplate/optimizer.h"
#include "timeplate/tp_rewrite.h"

std::unique_ptr<PVBtimePlate> baseTimePlate(int database) {
  auto plate = PVBtimePlateNew();
  plate->levels.resize(1);
  const PVBsignal* all = PVBsignalInqByID(database, kGroupAll);
  if (all == nullptr) return plate;
  for (const PVBid id : all->members) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal == nullptr) continue;
    const bool known = signal->direction >= INPUT && signal->direction <= BIDIR;
    plate->selectorLists.push_back(
        {known ? signal->direction : kUndefinedDirection, PVBidList{id}});
    plate->levels.front().tracks.emplace_back().signals = {id};
  }
  PVBtimePlateRebuildMaps(*plate);
  return plate;
}

// --- Translating ---------------------------------------------------------------------

namespace {

std::unique_ptr<PVBtimePlate> cloneTimePlate(const PVBtimePlate& srcPlate, const PVBregion& src) {
  auto plate = PVBtimePlateCopy(srcPlate);
  plate->firstRow = UNDEF;
  plate->lastRow = UNDEF;
  for (PVBlevel& level : plate->levels) {
    for (PVBtrack& track : level.tracks) track.propList = UNDEF;
  }
  for (int slot = 0; slot < PVBslotCount(*plate); ++slot) {
    PVBidList signals;
    for (const PVBid id : PVBsignalListToScalars(src.pvbHandle, PVBtrackSignals(*plate, slot))) {
      const PVBid mapped = mappedId(src, id);
      if (mapped != UNDEF) signals.push_back(mapped);
    }
    PVBtrackSetSignals(*plate, slot, signals);
  }
  PVBtimePlateRebuildMaps(*plate);
  return plate;
}

}  // namespace

std::unique_ptr<PVBtimePlate> translateTimePlate(const PVBtimePlate& srcPlate,
                                                 const PVBtimePlate& base, const PVBregion& src,
                                                 const SignalTable& table, bool extended) {
  if (extended) return cloneTimePlate(srcPlate, src);
  auto plate = PVBtimePlateCopy(base);
  plate->name = srcPlate.name;
  plate->period = srcPlate.period;
  plate->family = srcPlate.family;
  if (mapTimePlateTracks(*plate, srcPlate, src, table) != 0) return nullptr;
  return plate;
}

// --- Storing -------------------------------------------------------------------------

namespace {

// Of generated plates; -1 after a failure of the optimizer, which brings them down to what
// rows need once the limit is reached. It works for merges only.
int countBelowLimit(int database) {
  const int count = PVBtimePlateCount(database);
  if (run.tpGenLimit < 0 || count < run.tpGenLimit) return count;
  if (!run.optimizeTimePlates || tpOptimizerDatabase() != database) return count;
  if (tpOptimizerBegin() != 0 || !tpCheckShapes()) return -1;
  return tpOptimizeGenerated(false);
}

}  // namespace

PVBtimePlate* insertTimePlate(int database, std::unique_ptr<PVBtimePlate> plate) {
  const int count = countBelowLimit(database);
  if (count < 0) return nullptr;
  if (run.tpGenLimit >= 0 && run.tpGenLimit <= count) {
    errno = 0;
    PBerrPush(PBconditionerError, kTooManyTimePlates, "insertTimePlate", std::to_string(count + 1),
              std::to_string(run.tpGenLimit));
    return nullptr;
  }
  if (plate->name) plate->name = PVBtimePlateFreeName(database, *plate->name);
  const std::string name = plate->name.value_or("");
  const PVBid id = PVBtimePlateInsert(database, std::move(plate));
  if (id < 0) {
    errno = 0;
    PBerrPush(PBconditionerError, kFunctionAndText, "insertTimePlate",
              "no room for timeplate (" + name + ") in PVB (" + PVBpath(database) + ")");
    assertFail(__FILE__, __LINE__);
  }
  return PVBtimePlateInqByID(database, id);
}

PVBtimePlate* matchOrInsertTimePlate(int database, std::unique_ptr<PVBtimePlate> plate) {
  PVBtimePlate* existing = nullptr;
  if (matchTimePlate(plate.get(), existing) == 0) return existing;
  const unsigned passes = tpOptimizerPasses();
  PVBtimePlate* stored = insertTimePlate(database, std::move(plate));
  if (stored == nullptr) matchTimePlateForget();
  // A pass has emptied the table.
  if (stored != nullptr && passes != tpOptimizerPasses()) matchTimePlate(stored, existing);
  return stored;
}
