// Folding timeplates that are duplicates of one another into one.
//
// Timeplates are compared by their fingerprints: for each signal, in the order of the
// names, the sorted hashes of the waves that it has. That two waves with one hash count
// as the same, and that neither the names of the signals nor directions nor selectors are
// compared, is so on purpose: what was folded before must be folded the same way again.

#include <fmt/printf.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <unordered_map>

#include "base/errors.h"
#include "pvb/annotate.h"
#include "pvb/pattern.h"
#include "pvb/row_rewrite.h"
#include "pvb/signal.h"
#include "timeplate/tp_optimize_internal.h"

namespace {

// --- Hashes --------------------------------------------------------------------------

// The words of a time and their upper halves, added up; wraps.
std::uint32_t timeHash(TIME time) {
  const auto word = [](std::int32_t value) { return static_cast<std::uint32_t>(value); };
  return (word(time.major) + word(time.minor) + word(time.major >> 16) + word(time.minor >> 16)) &
         65535;
}

std::uint32_t waveHash(const PVBtrack& wave) {
  const std::size_t edges = tpEdgeCount(wave);
  auto hash = static_cast<std::uint32_t>(edges) << 24;
  for (std::size_t i = 0; i < edges; ++i) {
    const auto state = static_cast<signed char>(wave.stateChars[i]);
    hash += (static_cast<std::uint32_t>(state) + timeHash(wave.eventTimes[i])) << (8 * (i % 3));
  }
  return hash;
}

// --- Fingerprints --------------------------------------------------------------------

// Numbers that stand for the names of signals and run like them, bytewise.
class NameOrder {
 public:
  explicit NameOrder(int database) {
    std::vector<std::pair<std::string_view, PVBid>> names;
    for (const PVBid id : PVBsignalInqAll(database)) {
      const PVBsignal* signal = PVBsignalInqByID(database, id);
      if (signal != nullptr && signal->name) names.emplace_back(*signal->name, id);
    }
    std::ranges::sort(names);
    std::uint32_t rank = 0;
    for (const auto& [name, id] : names) ranks_[id] = ++rank;
  }

  // 0 for a signal without a name.
  std::uint32_t of(PVBid signal) const {
    const auto found = ranks_.find(signal);
    return found != ranks_.end() ? found->second : 0;
  }

 private:
  std::unordered_map<PVBid, std::uint32_t> ranks_;
};

// For each signal of a timeplate in name order the count of its waves and their hashes.
using TpSignature = std::vector<std::uint32_t>;
// What a timeplate whose tracks name groups over and over may come to: one of more is damaged
// and like no other.
constexpr std::size_t kMostWaves = std::size_t{1} << 20;

class Fingerprints {
 public:
  explicit Fingerprints(int database) : database_(database), order_(database) {}

  // None for a timeplate that is like no other.
  std::optional<TpSignature> of(const PVBtimePlate& plate) {
    if (!collect(plate)) return std::nullopt;
    std::ranges::sort(waves_);
    TpSignature signature;
    for (std::size_t i = 0; i < waves_.size();) {
      std::size_t end = i;
      while (end < waves_.size() && waves_[end].signal == waves_[i].signal) ++end;
      signature.push_back(static_cast<std::uint32_t>(end - i));
      for (; i < end; ++i) signature.push_back(waves_[i].hash);
    }
    return signature;
  }

 private:
  struct SignalWave {
    std::uint32_t signal;  // place of its name
    std::uint32_t hash;
    friend auto operator<=>(const SignalWave&, const SignalWave&) = default;
  };

  bool collect(const PVBtimePlate& plate) {
    waves_.clear();
    for (int track = 0; track < PVBslotCount(plate); ++track) {
      const PVBtrack* wave = tpFirstWave(plate, track);
      const std::uint32_t hash = wave != nullptr ? waveHash(*wave) : 0;
      for (const PVBid id : PVBsignalListToScalars(database_, PVBtrackSignals(plate, track))) {
        waves_.push_back({order_.of(id), hash});
      }
      if (waves_.size() > kMostWaves) return false;
    }
    return true;
  }

  int database_;
  NameOrder order_;
  std::vector<SignalWave> waves_;  // kept for its room
};

// --- Masters -------------------------------------------------------------------------

// The timeplates that are kept. Of a fingerprint only a key is remembered and the rest
// made again when keys meet, since a track may name whole groups of signals.
class Masters {
 public:
  explicit Masters(int database) : database_(database), fingerprints_(database) {}

  // The master of a plate, or UNDEF when it is one itself, as it is from now on.
  PVBid masterOf(const PVBtimePlate& plate) {
    const std::optional<TpSignature> signature = fingerprints_.of(plate);
    if (!signature) return UNDEF;
    std::vector<PVBid>& alike = byKey_[keyOf(plate.period, *signature)];
    for (const PVBid id : alike) {
      const PVBtimePlate* other = PVBtimePlateInqByID(database_, id);
      if (other->period == plate.period && fingerprints_.of(*other) == signature) return id;
    }
    alike.push_back(plate.id);
    return UNDEF;
  }

 private:
  static std::uint64_t keyOf(TIME period, const TpSignature& signature) {
    std::uint64_t key = 0;
    const auto add = [&key](std::uint32_t word) {
      key = (key ^ word) * 0x9E3779B97F4A7C15U;
      key ^= key >> 29;
    };
    add(static_cast<std::uint32_t>(period.major));
    add(static_cast<std::uint32_t>(period.minor));
    for (const std::uint32_t word : signature) add(word);
    return key;
  }

  int database_;
  Fingerprints fingerprints_;
  std::unordered_map<std::uint64_t, std::vector<PVBid>> byKey_;
};

bool findDuplicates(TpOptimization& work) {
  Masters masters(work.database);
  const PVBidList all = PVBtimePlateInqAll(work.database);
  for (const PVBid id : all) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(work.database, id);
    if (plate == nullptr) {
      errno = 0;
      PBerrPush(PBconditionerError, kFunctionAndText, "tpDeleteDuplicateTimeplates",
                "PVBtimePlateInqByID() failed");
      return false;
    }
    const PVBid master = masters.masterOf(*plate);
    if (master != UNDEF) work.tpDuplicates[id] = master;
  }
  return true;
}

// --- Rows ----------------------------------------------------------------------------

// Every row keeps the name of the timing that it was written with, whether or not its
// timeplate goes.
RowChange fixTpRowRef(const TpOptimization& work, PVBrow& row, bool annotateRows) {
  if (row.timeplate == kNoTimePlate) return RowChange::none;
  if (annotateRows && !annotateVector(work.database, row)) return RowChange::refused;
  const auto duplicate = work.tpDuplicates.find(row.timeplate);
  if (duplicate == work.tpDuplicates.end()) return RowChange::none;
  row.timeplate = static_cast<std::uint16_t>(duplicate->second);
  return RowChange::changed;
}

bool fixTpRowRefs(const TpOptimization& work, bool annotateRows) {
  return PVBrewriteAllRows(work.database, "fixTpRowRefs",
                           [&](PVBrow& row) { return fixTpRowRef(work, row, annotateRows); });
}

void reportDuplicates(const TpOptimization& work) {
  std::fputs(
      "\nDUPLICATE TIMEPLATE REPORT\n\n"
      "MASTER TP (kept)        DUPLICATE TP (deleted)\n"
      "======================  ======================\n",
      work.report);
  for (const auto& [duplicate, master] : work.tpDuplicates) {
    fmt::fprintf(work.report, "%-22s  %s\n", tpName(*PVBtimePlateInqByID(work.database, master)),
                 tpName(*PVBtimePlateInqByID(work.database, duplicate)));
  }
  std::fputc('\n', work.report);
}

}  // namespace

bool tpDeleteDuplicateTimeplates(TpOptimization& work, bool annotateRows) {
  if (!findDuplicates(work)) return false;
  if (work.tpDuplicates.empty()) {
    std::fputs("Deleting duplicate timeplates...none found.\n", stderr);
    std::fputs("INFORMATIVE: No duplicate timeplates found\n\n", work.report);
    return true;
  }
  fmt::fprintf(stderr, "Deleting %lu duplicate timeplates...\n", work.tpDuplicates.size());
  reportDuplicates(work);
  if (!fixTpRowRefs(work, annotateRows)) return false;
  // Rows reach the disk before the timeplates go that they named.
  if (PVBpatternSave(work.database, {}) != 0) return false;
  for (const auto& [duplicate, master] : work.tpDuplicates) {
    PVBtimePlateDelete(work.database, duplicate);
  }
  return true;
}
