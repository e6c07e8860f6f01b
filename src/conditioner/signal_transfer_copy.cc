// Making the destination's copies of signals, with their columns, pins and pin columns.

#include <algorithm>
#include <cerrno>
#include <memory>
#include <unordered_map>
#include <utility>

#include "base/errors.h"
#include "conditioner/messages.h"
#include "conditioner/signal_transfer.h"
#include "conditioner/signal_transfer_internal.h"
#include "pvb/database.h"
#include "pvb/pin.h"
#include "pvb/property.h"

namespace {

constexpr int kBitsOfCharacter = 2;  // columns of four bits

// --- Pins and pin columns ------------------------------------------------------------

// What differs between the three kinds of records: how to find one by id, which one of
// the destination is the same, and how to enter one.
struct AtePins {
  using Record = PVBpin;
  static Record* byId(int database, PVBid id) { return PVBatePinInqByID(database, id); }
  static Record* same(int database, const Record& pin) {
    if (pin.name) return PVBatePinInqByName(database, *pin.name);
    return pin.node ? PVBatePinInqByNode(database, *pin.node) : nullptr;
  }
  static PVBid insert(int database, std::unique_ptr<Record> pin) {
    return PVBatePinInsert(database, std::move(pin));
  }
};

struct DutPins {
  using Record = PVBpin;
  static Record* byId(int database, PVBid id) { return PVBdutPinInqByID(database, id); }
  static Record* same(int database, const Record& pin) {
    if (pin.name) return PVBdutPinInqByName(database, *pin.name);
    return pin.node ? PVBdutPinInqByNode(database, *pin.node) : nullptr;
  }
  static PVBid insert(int database, std::unique_ptr<Record> pin) {
    return PVBdutPinInsert(database, std::move(pin));
  }
};

struct PinColumns {
  using Record = PVBcolumn;
  static Record* byId(int database, PVBid id) { return PVBcolumnInqByID(database, id); }
  static Record* same(int database, const Record& column) {
    return column.number != -1 ? PVBcolumnInqByNumber(database, column.number) : nullptr;
  }
  static PVBid insert(int database, std::unique_ptr<Record> column) {
    return PVBcolumnInsert(database, std::move(column));
  }
};

void carryProperties(int from, int to, PVBpin& pin) {
  if (pin.propList == UNDEF) return;
  pin.propList = PVBpropListCarry(to, from, pin.propList);
  if (pin.propList == UNDEF) assertFail(__FILE__, __LINE__);
}
void carryProperties(int /*from*/, int /*to*/, const PVBcolumn& /*column*/) {}

// Records of one kind on their way from one database to another.
template <typename Kind>
class Carrier {
 public:
  using Record = typename Kind::Record;

  Carrier(int from, int to) : from_(from), to_(to) {}

  // Replaces a signal's list of source records by one of the destination's, which get
  // to know the signal.
  void carry(PVBid signal, PVBidList& list) {
    PVBidList carried;
    for (const PVBid id : list) {
      Record* record = Kind::byId(to_, destinationOf(id));
      if (record == nullptr) continue;
      record->signals.push_back(signal);
      carried.push_back(record->id);
    }
    list = std::move(carried);
  }

  // Translates a list; what has no counterpart is dropped.
  void translate(PVBidList& list) {
    PVBidList translated;
    for (const PVBid id : list) {
      const PVBid there = counterpart(id);
      if (there != UNDEF) translated.push_back(there);
    }
    list = std::move(translated);
  }

  // The records that were made; their lists are those of the source but for the signals.
  const PVBidList& made() const { return made_; }

 private:
  PVBid counterpart(PVBid id) {
    const auto known = ids_.find(id);
    if (known != ids_.end()) return known->second;
    const Record* source = Kind::byId(from_, id);
    const Record* same = source != nullptr ? Kind::same(to_, *source) : nullptr;
    return same != nullptr ? same->id : UNDEF;
  }

  PVBid destinationOf(PVBid id) {
    PVBid there = counterpart(id);
    const Record* source = there == UNDEF ? Kind::byId(from_, id) : nullptr;
    if (source != nullptr) there = make(*source);
    ids_[id] = there;
    return there;
  }

  PVBid make(const Record& source) {
    auto record = std::make_unique<Record>(source);
    record->id = UNDEF;
    record->signals.clear();
    carryProperties(from_, to_, *record);
    const PVBid id = Kind::insert(to_, std::move(record));
    if (id == UNDEF) assertFail(__FILE__, __LINE__);
    made_.push_back(id);
    return id;
  }

  int from_;
  int to_;
  std::unordered_map<PVBid, PVBid> ids_;  // by id of the source
  PVBidList made_;
};

// What hangs on signals, on its way from a source to the destination.
class Carriers {
 public:
  Carriers(int from, int to)
      : to_(to), atePins_(from, to), dutPins_(from, to), columns_(from, to) {}

  void carry(PVBsignal& copy) {
    atePins_.carry(copy.id, copy.lists3);
    dutPins_.carry(copy.id, copy.lists4);
    columns_.carry(copy.id, copy.lists5);
  }

  // What the new records say of each other, once all are there.
  void finish() {
    for (const PVBid id : atePins_.made()) finishPin(*PVBatePinInqByID(to_, id), dutPins_);
    for (const PVBid id : dutPins_.made()) finishPin(*PVBdutPinInqByID(to_, id), atePins_);
    for (const PVBid id : columns_.made()) {
      PVBcolumn& column = *PVBcolumnInqByID(to_, id);
      atePins_.translate(column.atePins);
      dutPins_.translate(column.dutPins);
    }
  }

 private:
  template <typename Other>
  void finishPin(PVBpin& pin, Carrier<Other>& others) {
    others.translate(pin.linkedPins);
    columns_.translate(pin.columns);
    pin.spare.clear();
  }

  int to_;
  Carrier<AtePins> atePins_;
  Carrier<DutPins> dutPins_;
  Carrier<PinColumns> columns_;
};

// --- Signals -------------------------------------------------------------------------

bool hasBits(const PVBsignal& signal) {
  return signal.multiBit != 0 || signal.bitIn >= 0 || signal.bitOut >= 0;
}

int bitCount(const PVBsignal& signal) {
  if (signal.multiBit == 0) return kBitsOfCharacter;
  return static_cast<int>(std::min<std::size_t>(signal.bitTracks.size(), kMaxTracks + 1));
}

// A copy without anything that belongs to the source's rows or other signals.
std::unique_ptr<PVBsignal> bareCopy(const PVBsignal& signal) {
  std::unique_ptr<PVBsignal> copy = PVBsignalCopy(signal);
  copy->inColumn = copy->outColumn = kNoColumn;
  copy->multiTrack = 0;
  copy->tracks.clear();
  copy->bitIn = copy->bitOut = -1;
  copy->multiBit = 0;
  copy->bitTracks.clear();
  copy->members.clear();
  copy->muxChildren.clear();
  return copy;
}

// Makes the copy in the destination.
PVBsignal& copySignal(const PVBregion& dest, PVBregion& src, const PVBsignal& signal,
                      Carriers& carriers) {
  const PVBid id = PVBsignalAdd(dest.pvbHandle, bareCopy(signal));
  if (id == UNDEF) failSignal(dest, signal);
  PVBsignal& copy = *PVBsignalInqByID(dest.pvbHandle, id);
  widenSignal(dest, copy, signal);
  noteSignalId(src, signal.id, id);
  carriers.carry(copy);
  return copy;
}

}  // namespace

void failSignal(const PVBregion& dest, const PVBsignal& signal) {
  errno = 0;
  PBerrPush(PBconditionerError, kFunctionAndText, "copySignals",
            "no room for signal (" + signal.name.value_or("") + ") in PVB (" + dest.pvbName + ")");
  assertFail(__FILE__, __LINE__);
}

void widenSignal(const PVBregion& dest, PVBsignal& signal, const PVBsignal& source) {
  const bool tracks = source.multiTrack != 0;
  const bool bits = hasBits(source);
  if (!tracks && !bits) return;
  const int database = dest.pvbHandle;
  PVBraiseVersion(database, true);
  const int columns = std::max(PVBsignalColumns(source), PVBsignalColumns(signal));
  if (tracks && PVBsignalAllocTracks(database, signal, columns) != 0) failSignal(dest, signal);
  if (bits && PVBsignalAllocBits(database, signal, bitCount(source)) != 0) {
    failSignal(dest, signal);
  }
}

void copySignals(PVBregion& dest, PVBregion& src, const SignalTable& table) {
  makeSigIDMap(src);
  Carriers carriers(src.pvbHandle, dest.pvbHandle);
  for (const PVBsignal* signal : table.signals()) copySignal(dest, src, *signal, carriers);
  carriers.finish();
}

void copyOverlapSignals(PVBregion& dest, PVBregion& src1, PVBregion& src2,
                        const SignalTable& table) {
  makeSigIDMap(src1);
  makeSigIDMap(src2);
  Carriers carriers(src1.pvbHandle, dest.pvbHandle);
  for (const PVBsignal* signal : table.signals()) {
    PVBsignal& copy = copySignal(dest, src1, *signal, carriers);
    const PVBsignal* other = PVBsignalInqByName(src2.pvbHandle, *signal->name);
    if (other == nullptr) assertFail(__FILE__, __LINE__);
    noteSignalId(src2, other->id, copy.id);
    widenSignal(dest, copy, *other);
  }
  carriers.finish();
}
