#include "conditioner/cut.h"

#include <cerrno>
#include <string>
#include <unordered_set>
#include <vector>

#include "base/errors.h"
#include "conditioner/bus_range.h"
#include "conditioner/edit_target.h"
#include "conditioner/messages.h"
#include "conditioner/run.h"
#include "pvb/database.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"

namespace {

constexpr EditWords kWords = {"cut", "cut", "cutting", true};
constexpr int kStackNearlyFull = kErrStackDepth - 1;

using CutList = ListTable<CutSignal>::List;
using IdSet = std::unordered_set<PVBid>;

template <typename... Args>
void push(int message, const Args&... args) {
  errno = 0;
  PBerrPush(PBconditionerError, message, args...);
}

// --- Names ---------------------------------------------------------------------------

// The signals of a list.
class CutSearch {
 public:
  CutSearch(const EditTarget& target, const std::string& srcPath, const std::string& listName)
      : database_(target.database()),
        path_(target.path()),
        srcPath_(srcPath),
        listName_(listName) {}

  void addItem(const std::string& name) {
    if (!isBusRange(name)) return addSignal(name);
    if (!validateBus(name, listName_, database_, srcPath_)) return;
    const BusRange range(name);
    for (std::int64_t i = range.low; i <= range.high; ++i) addSignal(range.member(i));
  }
  // In the order of the list; none when the look-up of the last name failed, whatever the
  // others found: kept on purpose.
  PVBidList result() const { return lastFound_ ? cutIDs_ : PVBidList(); }

 private:
  void addSignal(const std::string& name) {
    const PVBsignal* signal = PVBsignalInqByName(database_, name);
    lastFound_ = signal != nullptr;
    if (lastFound_) return checkThenBuildIDlist(*signal, name);
    push(kCutNameNotFound, kWords.function, name, path_);
  }
  void checkThenBuildIDlist(const PVBsignal& signal, const std::string& name) {
    constexpr std::string_view kFunction = "checkThenBuildIDlist";
    if (known_.insert(signal.id).second) {
      cutIDs_.push_back(signal.id);
      return;
    }
    push(kDuplicateCut, kFunction, name, listName_);
    if (PBerrCount() >= kStackNearlyFull) push(kTooManyDuplicates, kFunction);
  }

  int database_;
  const std::string& path_;
  const std::string& srcPath_;
  const std::string& listName_;
  PVBidList cutIDs_;
  IdSet known_;
  bool lastFound_ = false;
};

// --- Timeplates ----------------------------------------------------------------------

// A group stands for its members.
IdSet idsInTimePlates(int database, const PVBidList& cutIDs) {
  IdSet ids;
  for (const PVBid id : cutIDs) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal != nullptr && signal->type == MEM_GROUP) {
      ids.insert(signal->members.begin(), signal->members.end());
    } else {
      ids.insert(id);
    }
  }
  return ids;
}

void cutFromTimePlate(PVBtimePlate& plate, const IdSet& ids) {
  std::vector<bool> leftEmpty(static_cast<std::size_t>(PVBslotCount(plate)));
  bool changed = false;
  for (int slot = 0; slot < PVBslotCount(plate); ++slot) {
    PVBidList signals = PVBtrackSignals(plate, slot);
    if (std::erase_if(signals, [&ids](PVBid id) { return ids.contains(id); }) == 0) continue;
    changed = true;
    leftEmpty[static_cast<std::size_t>(slot)] = signals.empty();
    if (!signals.empty()) PVBtrackSetSignals(plate, slot, signals);
  }
  if (changed) PVBtimePlateDeleteTracks(plate, leftEmpty);
}

void cutSignals(int database, const PVBidList& cutIDs) {
  if (cutIDs.empty()) return;
  const IdSet ids = idsInTimePlates(database, cutIDs);
  for (const PVBid id : PVBtimePlateInqAll(database)) {
    cutFromTimePlate(*PVBtimePlateInqByID(database, id), ids);
  }
  PVBsignalsDelete(database, cutIDs);
}

}  // namespace

int cut(PVBregion& dest, PVBregion& src, const PVBregion& listCarrier) {
  EditTarget target;
  if (openEditTarget(kWords, dest, src, target) != 0) return -2;
  const std::string& listName = listCarrier.listName;
  if (const CutList* list = run.lists.cutListTable.find(listName)) {
    CutSearch search(target, src.pvbName, listName);
    for (const CutSignal& item : *list) search.addItem(item.name);
    cutSignals(target.database(), search.result());
  } else {
    push(kNoCutList, kWords.function, listName);
  }
  closeEditTarget(kWords, target);
  return 0;
}
