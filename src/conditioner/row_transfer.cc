#include "conditioner/row_transfer.h"

#include <algorithm>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/property.h"
#include "pvb/timeplate.h"

namespace {

// A character of which nothing is known, and its high half.
constexpr int kNoCharacter = 45;
constexpr int kNoCharacterHigh = kNoCharacter >> 4;

// The columns that rows of a database have room for.
std::int32_t columnsOf(int database) { return 2 * PVBrowDataSize(database); }

PVBintList bitColumns(const PVBsignal& signal) {
  return signal.multiBit != 0 ? signal.bitTracks : PVBintList{signal.bitIn, signal.bitOut};
}

// --- Pairs ---------------------------------------------------------------------------

// Compiles pairs for rows of two databases. Columns that don't lie in the rows are left
// out: nothing can stand there.
class PairBuilder {
 public:
  PairBuilder(int source, int dest)
      : sourceColumns_(columnsOf(source)),
        destColumns_(columnsOf(dest)),
        extended_(PVBmodelExtended(dest, true)) {}

  void add(ScalarPairs& pairs, const PVBsignal& from, const PVBsignal& to) {
    pairs.pairs.emplace_back(&from, &to);
    if (!extended_) {
      addColumn(pairs, from.inColumn, to.inColumn);
      addColumn(pairs, from.outColumn, to.outColumn);
      return;
    }
    const int tracks = PVBsignalColumns(from);
    for (int track = 1; track <= tracks; ++track) {
      addColumn(pairs, PVBsignalColumn(from, track), PVBsignalColumn(to, track));
    }
    addBits(pairs, from, to);
  }

 private:
  bool inSource(std::int32_t column) const { return column >= 0 && column < sourceColumns_; }
  bool inDest(std::int32_t column) const { return column >= 0 && column < destColumns_; }

  void addColumn(ScalarPairs& pairs, std::int32_t from, std::int32_t to) const {
    if (!inSource(from) || !inDest(to)) return;
    pairs.states.add(static_cast<std::uint32_t>(from), static_cast<std::uint32_t>(to));
  }

  void addBits(ScalarPairs& pairs, const PVBsignal& from, const PVBsignal& to) const {
    if (from.multiBit == 0 && to.multiBit == 0) {
      addCharacter(pairs, from, to);
      return;
    }
    const PVBintList source = bitColumns(from);
    const PVBintList dest = bitColumns(to);
    for (std::size_t i = 0; i < std::min(source.size(), dest.size()); ++i) {
      addColumn(pairs, source[i], dest[i]);
    }
  }

  void addCharacter(ScalarPairs& pairs, const PVBsignal& from, const PVBsignal& to) const {
    const ScalarPairs::BitColumns bits = {
        inSource(from.bitIn) ? from.bitIn : -1, inSource(from.bitOut) ? from.bitOut : -1,
        inDest(to.bitIn) ? to.bitIn : -1, inDest(to.bitOut) ? to.bitOut : -1};
    if (bits.fromIn >= 0 || bits.fromOut >= 0) pairs.bits.push_back(bits);
  }

  std::int32_t sourceColumns_;
  std::int32_t destColumns_;
  bool extended_;
};

// Adds the signals of one source that the destination has too.
void addPairs(ScalarPairs& pairs, const SignalTable& table, int source, int dest) {
  PairBuilder builder(source, dest);
  for (const PVBsignal* signal : table.signals()) {
    const PVBsignal* same = PVBsignalInqByName(dest, *signal->name);
    if (same != nullptr) builder.add(pairs, *signal, *same);
  }
}

// --- States --------------------------------------------------------------------------

int codeAt(const std::uint8_t* states, std::int32_t column) {
  return column >= 0 ? rowCode(states, static_cast<std::uint32_t>(column)) : 0;
}

// The low half of a character stands in one column, the high half in another. The first
// is written with the whole character, so that in an even column the high half lands in
// its neighbour too: kept on purpose.
void copyBits(std::uint8_t* to, const std::uint8_t* from, const ScalarPairs::BitColumns& bits) {
  const bool known = bits.fromIn >= 0;
  const int high = codeAt(from, bits.fromOut);
  const int value = known ? codeAt(from, bits.fromIn) | high << 4 : kNoCharacter;
  if (bits.toIn >= 0) setRowCode(to, static_cast<std::uint32_t>(bits.toIn), value);
  if (bits.toOut < 0) return;
  setRowCode(to, static_cast<std::uint32_t>(bits.toOut), known ? high : kNoCharacterHigh);
}

// --- Properties ----------------------------------------------------------------------

void requireList(PVBrow& row, int database) {
  if (row.tag == UNDEF) row.tag = PVBpropListNew(database);
  if (row.tag == UNDEF) assertFail(__FILE__, __LINE__);
}

void addProperties(PVBrow& destRow, int destDatabase, const PVBrow& srcRow, int srcDatabase) {
  if (srcRow.tag == UNDEF) return;
  requireList(destRow, destDatabase);
  if (PVBpropListAppend(destDatabase, destRow.tag, srcDatabase, srcRow.tag, PropKinds::reversed) !=
      0) {
    assertFail(__FILE__, __LINE__);
  }
}

void dropEmptyList(PVBrow& row, int database) {
  if (row.tag == UNDEF || !PVBpropListIsUnused(database, row.tag)) return;
  PVBpropListFree(database, row.tag);
  row.tag = UNDEF;
}

}  // namespace

ScalarPairs buildScalarPairs(const SignalTable& table, const PVBregion& src,
                             const PVBregion& dest) {
  ScalarPairs pairs;
  addPairs(pairs, table, src.pvbHandle, dest.pvbHandle);
  pairs.states.compile();
  return pairs;
}

std::pair<ScalarPairs, ScalarPairs> buildScalarPairs(const SigCategories& categories,
                                                     const PVBregion& src1, const PVBregion& src2,
                                                     const PVBregion& dest) {
  std::pair<ScalarPairs, ScalarPairs> pairs;
  auto& [first, second] = pairs;
  addPairs(first, categories[SRC1_DISJOINT_SCALARS], src1.pvbHandle, dest.pvbHandle);
  addPairs(first, categories[OVERLAP_SCALARS], src1.pvbHandle, dest.pvbHandle);
  addPairs(second, categories[SRC2_DISJOINT_SCALARS], src2.pvbHandle, dest.pvbHandle);
  first.states.compile();
  second.states.compile();
  return pairs;
}

void copyRowStates(PVBrow& destRow, const PVBrow& srcRow, const ScalarPairs& pairs) {
  std::uint8_t* to = destRow.states();
  const std::uint8_t* from = srcRow.states();
  // Characters first: what they leave in a neighbour is overwritten by its own state.
  for (const ScalarPairs::BitColumns& bits : pairs.bits) copyBits(to, from, bits);
  pairs.states.copy(to, from);
  destRow.count = srcRow.count;
}

RowHandle mergeRow(int destDatabase, const PVBrow& row1, const PVBrow& row2, PVBid plate,
                   const ScalarPairs& pairs1, const ScalarPairs& pairs2) {
  RowHandle merged(destDatabase, PVBpatternNew(destDatabase));
  if (!merged) return merged;
  const bool fits = plate >= 0 && plate <= kMaxTimePlate;
  merged->timeplate = fits ? static_cast<std::uint16_t>(plate) : kNoTimePlate;
  copyRowStates(*merged, row1, pairs1);
  copyRowStates(*merged, row2, pairs2);
  return merged;
}

void copyRowProperties(PVBrow& destRow, const PVBrow& srcRow, int destDatabase, int srcDatabase) {
  addProperties(destRow, destDatabase, srcRow, srcDatabase);
  dropEmptyList(destRow, destDatabase);
}

void mergeRowProperties(PVBrow& newRow, int destDatabase, const PVBrow& row1, int database1,
                        const PVBrow& row2, int database2) {
  addProperties(newRow, destDatabase, row1, database1);
  addProperties(newRow, destDatabase, row2, database2);
  dropEmptyList(newRow, destDatabase);
}
