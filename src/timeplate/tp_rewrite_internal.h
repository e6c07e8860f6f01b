#pragma once

// What the sources of tp_rewrite share: what a signal does in one cycle, and which data a
// row needs so that it does the same through another wave.

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "timeplate/tp_pair.h"
#include "timeplate/tp_rewrite.h"

// --- A cycle -------------------------------------------------------------------------

// The row's codes of a signal; 0 where it has no column.
struct RowCodes {
  int in = 0;
  int out = 0;

  friend bool operator==(const RowCodes&, const RowCodes&) = default;
};
// Both codes are 4 bits.
inline constexpr std::size_t kRowCodePairs = 256;
RowCodes tpRowCodes(const TpSignal& signal, const TpRow& row);
void tpSetRowCodes(const TpSignal& signal, TpRow& row, RowCodes codes);

// What a signal does in one cycle: its changes of state in the order of time. A `P` stands
// where the state before isn't known. Both are empty when nothing is driven or expected.
struct Cycle {
  bool unsaid = false;  // the timeplate has no track of the signal
  Wave driven;          // with the expected states of a bidirectional wave
  Wave expected;
  // What is expected beside comes last, and in some P modes decides what later rows keep.
  bool expectsLast = false;
};
// What the row says of the signal through the timeplate.
void tpCycleOf(const PVBtimePlate& plate, const TpSignal& signal, const TpRow& row, Cycle& cycle);
// Whether the same is driven, and with tpoOptimizeOnly expected, at every time. What was
// `N` or unsaid before may be anything unless `strictly`.
bool tpSameCycle(const Cycle& before, const Cycle& after, bool strictly);

// As tpTrackOf; a track that hasn't been given a direction is found in that of its wave only.
std::int32_t tpDirectedTrack(const PVBtimePlate& plate, const TpSignal& signal, int direction);

// --- What changes for rows -----------------------------------------------------------

// A copy of the timeplate with the pair's candidates in it.
std::unique_ptr<PVBtimePlate> tpWithCandidates(const PVBtimePlate& plate);
// The wave of the candidates that the rows of a timeplate get data for.
enum class ShownBy { waves, rows };

// Data for the rows of `owner` when their timeplate becomes `after`. Both must outlive it,
// and neither they nor the pair may change meanwhile.
class RowChanges {
 public:
  // `side` is that of the pair; `overwrite`: rows with data get what the waves showed.
  RowChanges(const PVBtimePlate& owner, const PVBtimePlate& after, int side, bool overwrite);

  // Whether the rows can stay as they are.
  bool empty() const { return changes_.empty(); }
  // Whether data for what was shown in this way may have to be written.
  bool concern(ShownBy way) const;
  // The first signal for which the row would do something else whatever its data.
  const TpSignal* forbiddenIn(const TpRow& row);
  // All of them that no row before has given yet.
  void gatherForbidden(const TpRow& row, std::vector<const TpSignal*>& signals);
  // Gives the row its data for what was shown in this way. Whether it changed. What no
  // data can say stays as it is.
  bool rewrite(TpRow& row, ShownBy way);

 private:
  // A signal whose tracks the two timeplates don't have in common.
  struct Change {
    const TpSignal* signal;
    bool byWaves;  // has a candidate shown in this way
    bool byRows;
    bool usesPrevious;
    bool sharesData;  // with other signals, so that they can't be changed
    bool forbidden = false;
    // By the row's codes, where these are all that an answer depends on.
    std::array<std::int16_t, kRowCodePairs> answersOfCodes;
    // By what else it depends on; the first ones that were asked for.
    std::vector<std::pair<std::uint32_t, std::int16_t>> answers;
  };
  // What a row gets for a signal.
  struct Answer {
    RowCodes codes;
    ShownBy way;
  };

  bool isForbidden(Change& change);
  std::optional<Answer> answerFor(Change& change, TpRow& row);
  std::int16_t knownOrWorkedOut(Change& change, std::uint32_t key, TpRow& row);
  std::int16_t workOut(const Change& change, TpRow& row);
  void addChange(const TpSignal& signal, bool usesPrevious);
  std::optional<RowCodes> search(const Change& change, TpRow& row);
  bool holds(const TpSignal& signal, TpRow& row, RowCodes codes, bool strictly);
  RowCodes wanted(const TpSignal& signal, const TpRow& row);
  RowCodes fromWaves(const TpSignal& signal, RowCodes own) const;
  RowCodes fromRows(const TpSignal& signal, const TpRow& row, std::int32_t track, int direction,
                    RowCodes own);

  const PVBtimePlate& owner_;
  const PVBtimePlate& after_;
  int side_;
  bool overwrite_;
  std::vector<Change> changes_;
  // Working records.
  TpRow row_;
  Cycle before_;
  Cycle trial_;
  Wave flat_;
  Wave target_;
};

// Takes candidates of signals out of the pair until every row of its one timeplate would do
// the same as before.
void tpKeepCandidatesThatHold(const PVBtimePlate& plate);
// Rewrites the rows of a timeplate on its own for the candidates, and puts these in.
void tpRewriteAlone(PVBtimePlate& plate, bool overwrite);
