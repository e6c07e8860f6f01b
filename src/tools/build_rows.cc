#include <fmt/format.h>

#include <algorithm>

#include "base/errors.h"
#include "pvb/scan_run.h"
#include "pvb/state_vector.h"
#include "tools/build_internal.h"

namespace {

constexpr std::int8_t kNoCode = -1;

// The code of each character of a column.
struct StateCodes {
  constexpr StateCodes() {
    code.fill(kNoCode);
    for (std::size_t i = 0; i < kStateCharacters.size(); ++i) {
      code[static_cast<unsigned char>(kStateCharacters[i])] = static_cast<std::int8_t>(i);
    }
  }
  std::array<std::int8_t, 256> code{};
};
constexpr StateCodes kStateCodes;

int codeOf(char c) { return kStateCodes.code[static_cast<unsigned char>(c)]; }

// Packs characters two a byte, the first in the low half. The place of a bad one,
// or npos.
std::size_t packStates(std::string_view states, std::uint8_t* to) {
  for (std::size_t i = 0; i < states.size(); i += 2) {
    const int low = codeOf(states[i]);
    const int high = i + 1 < states.size() ? codeOf(states[i + 1]) : 0;
    if ((low | high) < 0) return low < 0 ? i : i + 1;
    *to++ = static_cast<std::uint8_t>(low | high << 4);
  }
  return std::string_view::npos;
}

PVBrow newFields(std::uint32_t type) {
  PVBrow row = {};
  row.type = type;
  row.repeat16 = kNoRepeat16;
  row.timeplate = kNoTimePlate;
  row.link = kNoLink;
  row.count = 1;
  row.tag = UNDEF;
  return row;
}

void takeFields(PVBrow& to, const PVBrow& from) {
  to.type = from.type;
  to.repeat16 = from.repeat16;
  to.timeplate = from.timeplate;
  if (from.link != kNoLink) to.link = from.link;
  to.startTime = from.startTime;
  to.count = from.count;
  to.spacerAddresses = from.spacerAddresses;
  to.endTime = from.endTime;
  to.spacerTime = from.spacerTime;
}

}  // namespace

// --- State vectors -------------------------------------------------------------------

bool VectorBuild::vector() {
  if (!finish()) return false;
  build_.noProperties();
  std::optional<std::string> name;
  head_ = {};
  cells_.clear();
  if (!build_.in.optionalText(name) || !readFields(build_.in, kVectorFields, head_)) return false;
  if (name && PVBstateVectorByName(build_.database, *name) != UNDEF) {
    return build_.in.failLine(kVectorRefused, "a vector of this name is there already");
  }
  const PVBid id = PVBstateVectorNew(build_.database, name.value_or(""));
  if (id == UNDEF) return build_.fail(kVectorRefused, "the vector can't be made");
  vectors_.push_back(id);
  open_ = true;
  return true;
}

bool VectorBuild::cells() {
  if (!open_) return build_.in.failLine(kWrongPlace, "cells stand below a vector");
  std::string_view states;
  if (!build_.in.states(states)) return false;
  const std::size_t before = cells_.size();
  cells_.resize(before + (states.size() + 1) / 2);
  auto* to = reinterpret_cast<std::uint8_t*>(cells_.data() + before);
  const std::size_t bad = packStates(states, to);
  if (bad == std::string_view::npos) return true;
  return build_.in.fail(kBadState, fmt::format("'{}' is no state", states[bad]));
}

bool VectorBuild::finish() {
  if (!open_) return true;
  open_ = false;
  const PVBid id = vectors_.back();
  if (PVBstateVectorSetBytes(build_.database, id, cells_) != 0 ||
      PVBstateVectorSetValue(build_.database, id, head_.value) != 0) {
    return build_.in.failText(
        kVectorRefused, fmt::format("the cells of vector {} can't be stored", vectors_.size()));
  }
  return true;
}

bool VectorBuild::reference(PVBid& vector) const {
  vector = UNDEF;
  if (build_.in.peek() == '#') {
    build_.in.skip();
    std::size_t place = 0;
    if (!build_.in.number(place)) return false;
    if (place == 0 || place > vectors_.size()) {
      return build_.in.fail(kNoSuchVector, fmt::format("there is no vector {}", place));
    }
    vector = vectors_[place - 1];
    return true;
  }
  std::string name;
  if (!build_.in.quoted(name)) return false;
  vector = PVBstateVectorByName(build_.database, name);
  return vector != UNDEF ||
         build_.in.fail(kNoSuchVector, fmt::format("there is no vector '{}'", name));
}

// --- Patterns ------------------------------------------------------------------------

// Slots keep their numbers, so the table is filled directly.
bool RowBuild::subroutine() {
  constexpr std::uint32_t kMostSubroutines = 1 << 18;
  constexpr std::size_t kGrowth = 8;
  PVBpatternData& data = *build_.slot().patterns;
  PVBsubroutine entry;
  std::uint32_t slot = 0;
  PatternHead head;
  build_.noProperties();
  if (!build_.in.number(slot)) return false;
  if (slot >= kMostSubroutines) return build_.in.fail(kSubroutineRefused, "the slot is too high");
  if (isSubroutine(slot)) {
    return build_.in.fail(kSubroutineRefused, fmt::format("slot {} is defined twice", slot));
  }
  if (!build_.in.optionalText(entry.name)) return false;
  if (!readFields(build_.in, kPatternFields, head)) return false;
  const std::int64_t root = PVBtreeNew(data.nodes);
  if (root < 0) return build_.fail(kSubroutineRefused, "the subroutine can't be made");
  entry.root = static_cast<std::uint32_t>(root);
  entry.addressBase = head.addressBase;
  while (data.subroutines.size() <= slot) {
    data.subroutines.resize(data.subroutines.size() + kGrowth);
  }
  data.subroutines[slot] = std::move(entry);
  data.changed = true;
  return true;
}

bool RowBuild::isSubroutine(std::uint32_t slot) const {
  const auto& table = build_.slot().patterns->subroutines;
  return slot < table.size() && table[slot].root != kNoNode;
}

bool RowBuild::rows() {
  if (!finishPattern()) return false;
  int pattern = kMainPattern;
  std::string_view word;
  if (build_.in.peek() >= '0' && build_.in.peek() <= '9') {
    if (!build_.in.number(pattern)) return false;
    if (!isSubroutine(static_cast<std::uint32_t>(pattern))) {
      return build_.in.fail(kNoSuchSubroutine, fmt::format("there is no subroutine {}", pattern));
    }
  } else if (!build_.in.word(word)) {
    return false;
  } else if (word != "main") {
    return build_.in.fail(kExpected, "'main' or the slot of a subroutine is expected");
  }
  PatternHead head;
  if (!readFields(build_.in, kPatternFields, head)) return false;
  if (pattern == kMainPattern) build_.slot().patterns->addressBase = head.addressBase;
  PVBposition sums;
  PVBpatternInqSize(build_.database, pattern, sums);
  next_ = sums.row;
  pattern_ = pattern;
  columns_ = 2 * static_cast<std::size_t>(PVBrowDataSize(build_.database));
  if (!batch_) batch_.emplace(build_.database);
  build_.noProperties();
  return true;
}

bool RowBuild::finishPattern() {
  row_.reset();
  endAbove_ = false;
  if (depth_ > 0) return build_.in.failLine(kLoopNesting, "a loop above has no end");
  pattern_.reset();
  return true;
}

bool RowBuild::finish() {
  if (!finishPattern()) return false;
  if (batch_ && batch_->end() != 0) {
    return build_.fail(kRowRefused, "the sums of the patterns can't be brought up to date");
  }
  batch_.reset();
  return true;
}

void RowBuild::abandon() {
  row_.reset();
  batch_.reset();
}

// --- Rows ----------------------------------------------------------------------------

bool RowBuild::isRow(bool& good) {
  const std::string_view keyword = build_.in.keyword();
  for (const ValueWord& word : kPlainRowWords) {
    if (word.word != keyword) continue;
    good = plainRow(static_cast<std::uint32_t>(word.value));
    return true;
  }
  if (keyword == "loop") {
    good = loop();
  } else if (keyword == "end") {
    good = end();
  } else if (keyword == "call") {
    good = call();
  } else if (keyword == "other") {
    good = plainRow(kNoLink);
  } else {
    return false;
  }
  return true;
}

bool RowBuild::checkPattern() {
  row_.reset();
  endAbove_ = false;
  states_ = {};
  comment_.reset();
  build_.noProperties();
  return pattern_ || build_.in.failLine(kWrongPlace, "rows stand below a line 'rows'");
}

bool RowBuild::plainRow(std::uint32_t type) {
  if (!checkPattern()) return false;
  PVBrow fields = newFields(type);
  if (!readRowFields(fields)) return false;
  if (comment_) return build_.in.failLine(kUnknownAttribute, "this row has no comment");
  const bool structure = fields.type == ROW_LOOP || fields.type == ROW_END_LOOP ||
                         fields.type == ROW_SUBR_CALL || fields.type == kNoLink;
  if (structure) return build_.in.failLine(kExpected, "'other' needs a type of its own");
  return insert(fields);
}

bool RowBuild::loop() {
  if (!checkPattern()) return false;
  PVBrow fields = newFields(ROW_LOOP);
  if (!readRowFields(fields) || !insert(fields)) return false;
  ++depth_;
  return true;
}

bool RowBuild::call() {
  if (!checkPattern()) return false;
  PVBrow fields = newFields(ROW_SUBR_CALL);
  return subroutineReference(fields.link) && readRowFields(fields) && insert(fields);
}

// The end row came with its loop; only what differs is changed.
bool RowBuild::end() {
  if (!checkPattern()) return false;
  if (depth_ == 0) return build_.in.failLine(kLoopNesting, "there is no loop to end");
  --depth_;
  endAbove_ = true;
  ++next_;
  if (build_.in.atEnd()) return true;
  if (!holdRow()) return false;
  PVBrow fields = newFields(ROW_END_LOOP);
  fields.count = row_->count;
  if (!readRowFields(fields)) return false;
  takeFields(*row_, fields);
  if (comment_) PVBrowSetComment(build_.database, *row_, *comment_);
  PVBposition position;
  position.row = next_ - 1;
  return PVBrowUpdate(build_.database, *pattern_, position, BY_ROW, *row_) == 0 ||
         build_.fail(kRowRefused, "the end row can't be changed");
}

bool RowBuild::holdRow() {
  if (row_) return true;
  if (!endAbove_ || !pattern_) return true;
  PVBposition position;
  position.row = next_ - 1;
  row_ = RowHandle(build_.database, PVBpatternInqRow(build_.database, *pattern_, position, BY_ROW));
  if (!row_) return build_.fail(kRowRefused, "the end row isn't there");
  build_.ownProperties(row_->tag, row_.get());
  return true;
}

bool RowBuild::insert(const PVBrow& fields) {
  row_ = RowHandle(build_.database, PVBpatternNew(build_.database));
  if (!row_) return build_.fail(kRowRefused, "there is no block for the row");
  takeFields(*row_, fields);
  if (comment_) PVBrowSetComment(build_.database, *row_, *comment_);
  if (!fillStates(*row_)) return false;
  PVBposition position;
  position.row = next_;
  if (PVBrowInsert(build_.database, *pattern_, position, BY_ROW, *row_) < 0) {
    return build_.fail(kRowRefused, "the row can't be added to its pattern");
  }
  ++next_;
  build_.ownProperties(row_->tag, row_.get());
  return true;
}

bool RowBuild::fillStates(PVBrow& row) {
  if (states_.empty()) return true;
  if (states_.size() > columns_) {
    return build_.in.fail(kStatesTooWide, fmt::format("{} states, but the row has {} columns",
                                                      states_.size(), columns_));
  }
  const std::size_t bad = packStates(states_, row.states());
  if (bad == std::string_view::npos) return true;
  return build_.in.fail(kBadState, fmt::format("'{}' (column {}) is no state", states_[bad], bad));
}

// --- Fields of a row -----------------------------------------------------------------

bool RowBuild::readRowFields(PVBrow& row) {
  while (!build_.in.atEnd()) {
    if (!readField(row)) return false;
  }
  return true;
}

bool RowBuild::readField(PVBrow& row) {
  DumpScanner& in = build_.in;
  switch (in.peek()) {
    case '"':
    case '#':
      return timePlate(row);
    case 'x':
      in.skip();
      return in.number(row.count);
    case '@':
      in.skip();
      return in.number(row.repeat16);
    case '|':
      return in.states(states_);
    default:
      return readAttribute(row);
  }
}

bool RowBuild::readAttribute(PVBrow& row) {
  DumpScanner& in = build_.in;
  std::string_view key;
  if (!in.attribute(key)) {
    return in.finish();  // tells that this isn't expected
  }
  if (key == "comment") return in.quoted(comment_.emplace());
  if (key == "link") return in.number(row.link);
  if (key == "type" && in.keyword() == "other") return in.number(row.type);
  for (const Field<PVBrow>& field : kRowFields) {
    if (field.key == key) return field.read(in, row);
  }
  constexpr std::array<std::string_view, 7> kKnown = {
      "comment", "link", "type", "spacer-time", "spacer-addresses", "start-time", "end-time"};
  return in.unknownAttribute(key, kKnown);
}

bool RowBuild::timePlate(PVBrow& row) {
  DumpScanner& in = build_.in;
  if (in.peek() == '#') {
    in.skip();
    return in.number(row.timeplate);
  }
  if (!in.quoted(name_)) return false;
  if (lastPlate_ == kNoTimePlate || name_ != lastPlateName_) {
    const PVBtimePlate* plate = PVBtimePlateInqByName(build_.database, name_);
    if (plate == nullptr) {
      return in.fail(kNoSuchTimePlate, fmt::format("there is no timeplate '{}'", name_));
    }
    lastPlate_ = static_cast<std::uint16_t>(plate->id);
    lastPlateName_ = name_;
  }
  row.timeplate = lastPlate_;
  return true;
}

bool RowBuild::subroutineReference(std::uint32_t& index) {
  DumpScanner& in = build_.in;
  if (in.peek() == '#') {
    in.skip();
    if (!in.number(index)) return false;
  } else {
    if (!in.quoted(name_)) return false;
    index = static_cast<std::uint32_t>(PVBsubroutineByName(build_.database, name_));
  }
  return isSubroutine(index) || in.fail(kNoSuchSubroutine, "there is no such subroutine");
}

bool RowBuild::run() {
  if (!row_ || row_->type != ROW_SCAN) {
    return build_.in.failLine(kWrongPlace, "runs stand below a scan row");
  }
  std::int64_t type = 0;
  PVBid chain = UNDEF;
  PVBid vector = UNDEF;
  if (!readWord(build_.in, kRunTypeWords, type) || !build_.in.id(chain)) return false;
  if (!vectors_.reference(vector) || !build_.in.finish()) return false;
  // The count is the text's, whatever the length of the chain.
  const std::uint32_t count = row_->count;
  if (type < 0 || type > RUN_FEEDBACK ||
      PVBscanRunInsert(build_.database, row_.get(), static_cast<std::uint32_t>(type), chain,
                       vector) == -1) {
    const char* reason = nullptr;
    PVBinqStatus(build_.database, reason);
    return build_.in.failLine(kRunRefused, fmt::format("the run doesn't fit: {}",
                                                       reason != nullptr ? reason : "unknown"));
  }
  row_->count = count;
  PVBrowDirty(build_.database, *row_);
  return true;
}
