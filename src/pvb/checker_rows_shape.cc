// Shapes of rows that need no second look.

#include <algorithm>
#include <cstring>

#include "pvb/checker_rows_internal.h"
#include "pvb/row_track.h"

namespace {

constexpr std::size_t kWordBytes = sizeof(std::uint64_t);
constexpr std::uint64_t kLowestBits = 0x1111111111111111U;  // of the columns of a word
// Of one plate; rows of a pattern differ little in which columns hold data.
constexpr std::size_t kMostShapes = 8;
// Of all plates together; beyond that all are forgotten.
constexpr std::size_t kMostKept = std::size_t{1} << 25;

// The lowest bit of each column that holds anything.
std::uint64_t anyBits(std::uint64_t word) {
  return (word | word >> 1 | word >> 2 | word >> 3) & kLowestBits;
}

}  // namespace

RowShapes::RowShapes(const Check& check, bool observed)
    : observed_(observed), bytes_(static_cast<std::size_t>(PVBrowDataSize(check.database))) {
  const std::size_t words = (bytes_ + kWordBytes - 1) / kWordBytes;
  asTheyAre_.resize(words);
  ifAny_.resize(words);
  key_.resize(words);
  const PVBidList& ids = PVBtimePlateInqAll(check.database);
  plates_.resize(ids.empty() ? 0 : static_cast<std::size_t>(ids.back()) + 1);
  const auto addSignal = [this](const PVBsignal& signal) {
    const DataColumns data = PVBsignalDataColumns(signal);
    addColumn(data.in, false);
    addColumn(data.out, false);
    for (const std::int32_t column : signal.bitTracks) addColumn(column, true);
  };
  for (const CheckedSignal& signal : check.signals) {
    addSignal(*signal.record);
    for (const PVBid id : signal.record->muxChildren) {
      const PVBsignal* part = PVBsignalInqByID(check.database, id);
      if (part != nullptr) addSignal(*part);
    }
  }
}

void RowShapes::addColumn(std::int32_t column, bool selector) {
  if (column < 0 || static_cast<std::size_t>(column) / 2 >= bytes_) return;
  const auto place = static_cast<std::size_t>(column) / (2 * kWordBytes);
  std::array<std::uint8_t, kWordBytes> bytes{};
  bytes[static_cast<std::size_t>(column) / 2 % kWordBytes] =
      static_cast<std::uint8_t>((selector ? 15U : 1U) << (column % 2 * 4));
  std::uint64_t bits = 0;
  std::memcpy(&bits, bytes.data(), kWordBytes);
  (selector ? asTheyAre_ : ifAny_)[place] |= bits;
}

void RowShapes::makeKey(const PVBrow& row) {
  const std::uint8_t* states = row.states();
  for (std::size_t i = 0; i < key_.size(); ++i) {
    std::uint64_t word = 0;
    std::memcpy(&word, states + i * kWordBytes, std::min(kWordBytes, bytes_ - i * kWordBytes));
    key_[i] = (anyBits(word) & ifAny_[i] & ~asTheyAre_[i]) | (word & asTheyAre_[i]);
  }
}

RowShapes::Shape* RowShapes::find(std::uint16_t plate) {
  for (Shape& shape : plates_[plate].shapes) {
    if (shape.key == key_) return &shape;
  }
  return nullptr;
}

RowShapes::Shape& RowShapes::add(std::uint16_t plate) {
  const std::size_t size = bytes_ * (observed_ ? 5 : 1) + sizeof(Shape);
  if (kept_ > kMostKept) {
    for (PlateShapes& other : plates_) other = {};
    kept_ = 0;
  }
  PlateShapes& own = plates_[plate];
  if (own.shapes.size() < kMostShapes) {
    own.shapes.emplace_back();
    kept_ += size;
    return own.shapes.back();
  }
  own.next = (own.next + 1) % kMostShapes;
  return own.shapes[own.next];
}

bool RowShapes::sawCodes(const Shape& shape, const PVBrow& row) const {
  unsigned unseen = 0;
  const std::uint8_t* states = row.states();
  const std::uint16_t* codes = shape.codes.data();
  for (std::size_t i = 0; i < bytes_; ++i) {
    unseen |= ~(unsigned{codes[2 * i]} >> (states[i] & 15U));
    unseen |= ~(unsigned{codes[2 * i + 1]} >> (states[i] >> 4));
  }
  return (unseen & 1U) == 0;
}

void RowShapes::noteCodes(Shape& shape, const PVBrow& row) const {
  const auto columns = static_cast<std::uint32_t>(2 * bytes_);
  shape.codes.resize(columns);
  for (std::uint32_t column = 0; column < columns; ++column) {
    shape.codes[column] |= static_cast<std::uint16_t>(1U << rowCode(row.states(), column));
  }
}

bool RowShapes::isKnown(const PVBrow& row) {
  if (row.timeplate >= plates_.size()) return false;
  makeKey(row);
  const Shape* shape = find(row.timeplate);
  return shape != nullptr && (!observed_ || sawCodes(*shape, row));
}

void RowShapes::note(const PVBrow& row) {
  if (row.timeplate >= plates_.size()) return;
  Shape* shape = find(row.timeplate);
  if (shape == nullptr) {
    shape = &add(row.timeplate);
    shape->key = key_;
    shape->codes.clear();
  }
  if (observed_) noteCodes(*shape, row);
}
