#include "conditioner/rename.h"

#include <cerrno>
#include <string>
#include <unordered_map>
#include <utility>

#include "base/errors.h"
#include "base/text.h"
#include "conditioner/bus_range.h"
#include "conditioner/edit_target.h"
#include "conditioner/messages.h"
#include "conditioner/run.h"
#include "pvb/database.h"
#include "pvb/signal.h"

namespace {

constexpr EditWords kWords = {"renameSignal", "rename", "renaming", false};

using RenameList = ListTable<RenamePair>::List;

// Set by the first pair whose new range is narrower than the old one and never cleared: all
// later pairs of the run select members by their new bounds. Kept on purpose.
bool busSubset = false;

template <typename... Args>
int fail(int message, const Args&... args) {
  errno = 0;
  PBerrPush(PBconditionerError, message, args...);
  return -2;
}

class Renamer {
 public:
  Renamer(const EditTarget& target, const std::string& srcPath, const std::string& listName);

  void rename(const RenamePair& pair) {
    if (isBusRange(pair.oldName)) {
      renameBus(pair.oldName, pair.newName);
    } else {
      sigRename(pair.oldName, pair.newName);
    }
  }

 private:
  // Results of these are 0, or -2 after a push.
  int sigRename(const std::string& oldName, const std::string& newName);
  int renameBus(const std::string& oldName, const std::string& newName);
  int checkForIdenticalBuses(const std::string& oldName, const std::string& newName);
  int busRename(const std::string& oldName, const std::string& newName);
  int renameMember(const PVBsignal& signal, const std::string& newName);

  void noteNames(const PVBidList& ids);
  const PVBsignal* signalCalled(const std::string& name) const;
  bool isGoodRange(const std::string& name) const {
    return validateBus(name, listName_, database_, srcPath_);
  }

  int database_;
  const std::string& path_;
  const std::string& srcPath_;
  const std::string& listName_;
  // Names as they were before the first pair: what single signals are looked up by. A name
  // that a pair of this list has given isn't found, and one that it took away still is.
  std::unordered_map<std::string, PVBid> oldNames_;
};

Renamer::Renamer(const EditTarget& target, const std::string& srcPath, const std::string& listName)
    : database_(target.database()), path_(target.path()), srcPath_(srcPath), listName_(listName) {
  noteNames(PVBsignalInqAll(database_));
  const PVBsignal* scan = PVBobjectInqByID(database_, kGroupAllScan);
  if (scan != nullptr) noteNames(scan->members);
}

void Renamer::noteNames(const PVBidList& ids) {
  for (const PVBid id : ids) {
    const PVBsignal* signal = PVBobjectInqByID(database_, id);
    if (signal != nullptr && signal->name) oldNames_.emplace(*signal->name, id);
  }
}

// --- Single signals ------------------------------------------------------------------

// By its old name.
const PVBsignal* Renamer::signalCalled(const std::string& name) const {
  const auto found = oldNames_.find(name);
  return found != oldNames_.end() ? PVBobjectInqByID(database_, found->second) : nullptr;
}

int Renamer::sigRename(const std::string& oldName, const std::string& newName) {
  constexpr std::string_view kFunction = "sigRename";
  const PVBsignal* taken = signalCalled(newName);
  // Two signals of one name would make a database that can't be read.
  if (taken == nullptr) taken = PVBsignalInqByName(database_, newName);
  if (taken != nullptr) return fail(kNewNameTaken, kFunction, taken->name, path_);
  const PVBsignal* signal = signalCalled(oldName);
  if (signal != nullptr && PVBsignalRename(database_, signal->id, newName) == 0) return 0;
  return fail(kOldNameNotFound, kFunction, oldName, srcPath_);
}

// --- Buses ---------------------------------------------------------------------------

int Renamer::checkForIdenticalBuses(const std::string& oldName, const std::string& newName) {
  const std::string swapped =
      busMemberName(busBase(newName), std::to_string(busRightIndex(newName)) + ".." +
                                          std::to_string(busLeftIndex(newName)));
  if (newName != oldName && swapped != oldName) return 0;
  return fail(kIdenticalBuses, "checkForIdenticalBuses", newName, listName_);
}

int Renamer::renameBus(const std::string& oldName, const std::string& newName) {
  if (checkForIdenticalBuses(oldName, newName) != 0) return -2;
  if (!isGoodRange(oldName)) return -2;
  if (!isBusRange(newName)) return fail(kMalformedIndex, "validateBus", newName, listName_);
  if (!isGoodRange(newName)) return -2;
  return busRename(oldName, newName);
}

int getIndexBusRange(const BusRange& from, const BusRange& to, const RenamePair& pair) {
  if (to.width() < from.width()) busSubset = true;
  if (to.width() <= from.width()) return 0;
  return fail(kRangeTooWide, "getIndexBusRange", pair.newName, pair.oldName);
}

int Renamer::renameMember(const PVBsignal& signal, const std::string& newName) {
  const PVBsignal* taken = PVBsignalInqByName(database_, newName);
  if (taken != nullptr && taken != &signal) {
    return fail(kNewNameTaken, "busRename", taken->name, path_);
  }
  return PVBsignalRename(database_, signal.id, newName);
}

int Renamer::busRename(const std::string& oldName, const std::string& newName) {
  const BusRange from(oldName);
  const BusRange to(newName);
  if (getIndexBusRange(from, to, {oldName, newName}) != 0) return -2;
  bool found = false;
  const PVBidList all = PVBsignalInqByID(database_, kGroupAll)->members;
  for (const PVBid id : all) {
    const PVBsignal* signal = PVBsignalInqByID(database_, id);
    if (signal == nullptr || !signal->name || signal->name->find('[') == std::string::npos)
      continue;
    if (busBase(*signal->name) != from.base) continue;
    const std::string index(busIndexText(*signal->name));
    const int number = PBtextToInt(index);
    if (busSubset && (number < to.low || number > to.high)) continue;
    found = true;
    renameMember(*signal, busMemberName(to.base, index));
  }
  return found ? 0 : fail(kBusNotFound, "busRename", oldName, srcPath_);
}

}  // namespace

int renameSignal(PVBregion& dest, PVBregion& src, const PVBregion& listCarrier) {
  EditTarget target;
  if (openEditTarget(kWords, dest, src, target) != 0) return -2;
  const std::string& listName = listCarrier.listName;
  if (const RenameList* list = run.lists.sigListTable.find(listName)) {
    Renamer renamer(target, src.pvbName, listName);
    for (const RenamePair& pair : *list) renamer.rename(pair);
  } else {
    fail(kNoSigList, kWords.function, listName);
  }
  closeEditTarget(kWords, target);
  return 0;
}
