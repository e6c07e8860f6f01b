// The runs of scan rows.

#include <algorithm>
#include <tuple>

#include "pvb/checker_internal.h"
#include "pvb/scan_run.h"
#include "pvb/state_vector.h"

namespace {

constexpr unsigned kCodeX = 4;
constexpr std::size_t kMostRuns = 65536;

// Which edges of its chain a run type uses.
struct RunEdges {
  bool in;
  bool out;
};
constexpr std::array<RunEdges, 3> kRunEdges = {{{true, false}, {false, true}, {true, true}}};

class RunCheck {
 public:
  RunCheck(Check& check, const RowPlace& place, std::vector<ScanEdge>& edges)
      : check_(check), place_(place), edges_(edges) {}

  bool runs(const PVBrow& row);

 private:
  bool run(const PVBscanRun& run);
  bool cells(const PVBscanRun& run, const PVBsignal& chain, RunEdges uses);
  bool edge(PVBid signal, bool input, std::uint16_t codes);
  bool serves(PVBid signal, bool input) const;
  bool problem(Problem number);

  Check& check_;
  const RowPlace& place_;
  std::vector<ScanEdge>& edges_;
  bool conflict_ = false;
};

bool RunCheck::problem(Problem number) {
  return prob2(check_, number, item(subrItem, place_.pattern), item(rowItem, place_.number));
}

bool RunCheck::serves(PVBid signal, bool input) const {
  const PVBsignal* record = PVBsignalInqByID(check_.database, signal);
  return record != nullptr &&
         (record->direction == BIDIR || record->direction == (input ? INPUT : OUTPUT));
}

// Two runs that shift through one column of a signal can't both have their way.
bool RunCheck::edge(PVBid signal, bool input, std::uint16_t codes) {
  const auto place = check_.places.find(signal);
  if (place == check_.places.end()) return false;
  const auto found = std::find_if(edges_.begin(), edges_.end(), [&](const ScanEdge& other) {
    return other.signal == place->second;
  });
  ScanEdge& own = found != edges_.end() ? *found : edges_.emplace_back();
  own.signal = place->second;
  std::uint16_t& side = input ? own.inCodes : own.outCodes;
  conflict_ = conflict_ || side != 0;
  side |= codes;
  return false;
}

// Reads the cells of the chain in the run's vector.
bool RunCheck::cells(const PVBscanRun& run, const PVBsignal& chain, RunEdges uses) {
  const std::string* bytes = PVBstateVectorBytes(check_.database, run.state);
  if (bytes == nullptr) return problem(kMissingVector);
  std::uint16_t codes = 0;
  for (const PVBid cell : chain.members) {
    const auto index = static_cast<std::size_t>(std::max(PVBidIndex(cell), 0));
    unsigned code = kCodeX;
    if (index / 2 < bytes->size()) {
      code = static_cast<unsigned char>((*bytes)[index / 2]) >> (index % 2 * 4) & 15U;
    }
    codes |= static_cast<std::uint16_t>(1U << code);
    if (!uses.in || code != kCodeX) continue;
    if (prob4(check_, kUnknownInInputScan, item(subrItem, place_.pattern),
              item(rowItem, place_.number), item(sigItem, cell), item(sigItem, run.chain))) {
      return true;
    }
  }
  if (uses.in && edge(PVBinqInSignal(check_.database, run.chain), true, codes)) return true;
  return uses.out && edge(PVBinqOutSignal(check_.database, run.chain), false, codes);
}

bool RunCheck::run(const PVBscanRun& run) {
  if (run.type >= kRunEdges.size()) return problem(kUndefinedRunType);
  const PVBsignal* chain = PVBidClass(run.chain) == kClassScanChain
                               ? PVBobjectInqByID(check_.database, run.chain)
                               : nullptr;
  if (chain == nullptr) return problem(kMissingChain);
  if (!PVBstateVectorExists(check_.database, run.state)) return problem(kMissingVector);
  const RunEdges uses = kRunEdges[run.type];
  const bool fits = (!uses.in || serves(PVBinqInSignal(check_.database, run.chain), true)) &&
                    (!uses.out || serves(PVBinqOutSignal(check_.database, run.chain), false));
  if (!fits) return problem(kWrongRunType);
  return cells(run, *chain, uses);
}

bool RunCheck::runs(const PVBrow& row) {
  PVBscanRunIterator iterator = PVBcreateScanRunIterator(check_.database, row);
  if (iterator.whole && iterator.runs.empty()) return problem(kEmptyScanRow);
  if (!iterator.whole || iterator.runs.size() > kMostRuns) return true;
  for (const PVBid id : iterator.runs) {
    PVBscanRun fields;
    if (!PVBscanRunInq(check_.database, id, fields) || run(fields)) return true;
  }
  std::sort(edges_.begin(), edges_.end(),
            [](const ScanEdge& a, const ScanEdge& b) { return a.signal < b.signal; });
  return conflict_ && problem(kConflictingRuns);
}

}  // namespace

bool checkScanRun(Check& check, const PVBrow& row, const RowPlace& place,
                  std::vector<ScanEdge>& edges) {
  edges.clear();
  return RunCheck(check, place, edges).runs(row);
}
