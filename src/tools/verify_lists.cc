#include <fmt/format.h>

#include "pvb/label.h"
#include "pvb/pattern.h"
#include "pvb/pin.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "tools/dump_format.h"
#include "tools/verify_internal.h"

namespace {

std::string idText(PVBid id) {
  std::string text;
  appendId(text, id);
  return text;
}

class ListCheck {
 public:
  ListCheck(Verification& verification, int database, PropertyCheck& properties)
      : verification_(verification), slot_(*PVBget(database)), properties_(properties) {}

  void signals();
  void timePlates();
  void pins();

 private:
  void signal(const PVBsignal& signal);
  void columns(const PVBsignal& signal);
  void column(const PVBsignal& signal, std::int64_t column);
  void timePlate(const PVBtimePlate& plate);
  void pin(const PVBpin& pin, const char* kind);
  void ids(const PVBidList& list, std::string_view file, const std::string& place,
           const char* what);
  bool signalExists(PVBid id) const {
    PVBsignal probe;
    probe.id = id;
    return slot_.signals->byId.find(probe) != nullptr;
  }

  Verification& verification_;
  const PVBdatabase& slot_;
  PropertyCheck& properties_;
  std::vector<bool> taken_;  // columns
};

void ListCheck::ids(const PVBidList& list, std::string_view file, const std::string& place,
                    const char* what) {
  if (!slot_.signals) return;
  for (const PVBid id : list) {
    if (id == UNDEF || signalExists(id)) continue;
    verification_.fault(kUnknownSignal, file, place,
                        fmt::format("{} names signal {}, which doesn't exist", what, idText(id)));
  }
}

void ListCheck::signals() {
  taken_.assign(kMaxRowWidth, false);
  ids(slot_.signals->allGroups, "pvb.s", "", "the list of groups");
  // One iteration of a table at a time: ids first, look-ups then.
  std::vector<const PVBsignal*> all;
  slot_.signals->byId.forEach([&](const PVBsignal& record) { all.push_back(&record); });
  for (const PVBsignal* record : all) signal(*record);
}

void ListCheck::signal(const PVBsignal& signal) {
  const std::string place = "signal " + idText(signal.id);
  ids(signal.members, "pvb.s", place, "its member list");
  ids(signal.muxChildren, "pvb.s", place, "its list of children");
  if (signal.type == kScanChainType) ids(signal.lists3, "pvb.s", place, "its pair of signals");
  properties_.own(signal.propList, "pvb.s", place);
  columns(signal);
}

void ListCheck::columns(const PVBsignal& signal) {
  if (signal.type != MEM_SIGNAL && signal.type != MEM_MUX) return;
  if (signal.multiTrack != 0) {
    for (const std::int32_t track : signal.tracks) column(signal, track);
  } else {
    if (signal.inColumn != kNoColumn) column(signal, signal.inColumn);
    if (signal.outColumn != kNoColumn) column(signal, signal.outColumn);
  }
  if (signal.multiBit == 0) return;
  for (const std::int32_t bit : signal.bitTracks) column(signal, bit);
}

void ListCheck::column(const PVBsignal& signal, std::int64_t column) {
  if (column == -1 || column == kNoColumn) return;
  const std::string place = "signal " + idText(signal.id);
  if (column < 0 || column >= slot_.rowWidth) {
    verification_.fault(kColumnFault, "pvb.s", place,
                        fmt::format("column {} isn't in a row of {}", column, slot_.rowWidth));
    return;
  }
  const auto index = static_cast<std::size_t>(column);
  if (taken_[index]) {
    verification_.fault(kColumnFault, "pvb.s", place,
                        fmt::format("column {} belongs to another signal too", column));
  }
  taken_[index] = true;
}

void ListCheck::timePlates() {
  for (const auto& plate : slot_.timePlates->plates) {
    if (plate) timePlate(*plate);
  }
}

void ListCheck::timePlate(const PVBtimePlate& plate) {
  const std::string place = fmt::format("timeplate {}", plate.id);
  properties_.own(plate.firstRow, "pvb.tp", place);
  for (const auto& [direction, signals] : plate.selectorLists) {
    ids(signals, "pvb.tp", place, "a slot");
  }
  for (const PVBlevel& level : plate.levels) {
    for (const PVBtrack& track : level.tracks) {
      ids(track.signals, "pvb.tp", place, "a track");
      properties_.own(track.propList, "pvb.tp", place);
    }
  }
}

void ListCheck::pins() {
  slot_.pins->atePins.forEach([&](const PVBpin& record) { pin(record, "tester"); });
  slot_.pins->dutPins.forEach([&](const PVBpin& record) { pin(record, "device"); });
  slot_.pins->columns.forEach([&](const PVBcolumn& column) {
    ids(column.signals, "pvb.p", "column " + idText(column.id), "its list");
  });
}

void ListCheck::pin(const PVBpin& pin, const char* kind) {
  const std::string place = fmt::format("{} pin {}", kind, idText(pin.id));
  ids(pin.signals, "pvb.p", place, "its list");
  properties_.own(pin.propList, "pvb.p", place);
}

}  // namespace

void verifyLists(Verification& verification, int database, PropertyCheck& properties) {
  const PVBdatabase& slot = *PVBget(database);
  ListCheck check(verification, database, properties);
  if (slot.signals) check.signals();
  if (slot.timePlates) check.timePlates();
  if (slot.pins) check.pins();
}

// A label whose row was deleted has no number: it stays, as a note.
void verifyLabels(Verification& verification, int database) {
  for (const PVBlabel& label : PVBlabels(database)) {
    const std::string place = "label " + quotedText(label.name);
    const bool known =
        label.subroutine == kMainPattern || PVBsubroutineInq(database, label.subroutine) != nullptr;
    if (!known) {
      verification.fault(kLostLabel, "pvb.lb", place,
                         fmt::format("subroutine {} doesn't exist", label.subroutine));
    } else if (label.rowNumber == kNoRowNumber) {
      verification.note(kLostLabel, "pvb.lb", place, "its row doesn't exist");
    }
  }
}
