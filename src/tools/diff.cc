#include "tools/diff.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "pvb/database.h"
#include "tools/diff_internal.h"
#include "tools/dump_format.h"
#include "tools/nearest.h"

namespace {

using Scalars = std::vector<const PVBsignal*>;

bool tellFailure(const MessageSink& sink, MessageCode code, std::string text,
                 const std::string& file) {
  sink(errorMessage(code, std::move(text), file));
  return false;
}

// --- Signals -------------------------------------------------------------------------

// The scalars of "ALL" that have a name.
Scalars scalarsOf(int database) {
  Scalars scalars;
  const PVBsignal* all = PVBsignalInqByID(database, kGroupAll);
  if (all == nullptr) return scalars;
  const PVBidList ids = PVBsignalListToScalars(database, all->members);
  for (const PVBid id : ids) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal != nullptr && signal->name) scalars.push_back(signal);
  }
  return scalars;
}

std::unordered_map<std::string_view, const PVBsignal*> byName(const Scalars& scalars) {
  std::unordered_map<std::string_view, const PVBsignal*> names;
  for (const PVBsignal* signal : scalars) names.emplace(*signal->name, signal);
  return names;
}

std::string directionText(const PVBsignal& signal) {
  std::string text;
  appendWord(text, kDirectionWords, signal.direction);
  return text;
}

// Pairs the signals of two databases by name.
class SignalMatch {
 public:
  SignalMatch(const DiffOptions& options, DiffTally& tally, const MessageSink& sink)
      : options_(options), tally_(tally), sink_(sink) {}

  bool run(int databaseA, int databaseB, DiffSignals& matched);

 private:
  bool requireNames(const Scalars& a, const Scalars& b) const;
  bool wanted(const PVBsignal& signal) const;
  void pair(const PVBsignal& a, const PVBsignal& b, DiffSignals& matched);
  void alone(const PVBsignal& signal, bool inA);

  const DiffOptions& options_;
  DiffTally& tally_;
  const MessageSink& sink_;
};

bool SignalMatch::run(int databaseA, int databaseB, DiffSignals& matched) {
  const Scalars a = scalarsOf(databaseA);
  const Scalars b = scalarsOf(databaseB);
  if (!requireNames(a, b)) return false;
  const auto namesA = byName(a);
  const auto namesB = byName(b);
  for (const PVBsignal* signal : a) {
    if (!wanted(*signal) || namesA.at(*signal->name) != signal) continue;
    const auto partner = namesB.find(*signal->name);
    if (partner != namesB.end()) {
      pair(*signal, *partner->second, matched);
    } else {
      alone(*signal, true);
    }
  }
  for (const PVBsignal* signal : b) {
    if (wanted(*signal) && !namesA.contains(*signal->name)) alone(*signal, false);
  }
  return true;
}

bool SignalMatch::requireNames(const Scalars& a, const Scalars& b) const {
  std::vector<std::string_view> known;
  for (const Scalars* scalars : {&a, &b}) {
    for (const PVBsignal* signal : *scalars) known.push_back(*signal->name);
  }
  for (const std::string& name : options_.signals) {
    if (std::ranges::find(known, name) != known.end()) continue;
    return tellFailure(
        sink_, kNoSuchSignal,
        fmt::format("'{}' is no signal of either database{}", name, didYouMean(name, known)), {});
  }
  return true;
}

bool SignalMatch::wanted(const PVBsignal& signal) const {
  return options_.signals.empty() ||
         std::ranges::find(options_.signals, *signal.name) != options_.signals.end();
}

void SignalMatch::pair(const PVBsignal& a, const PVBsignal& b, DiffSignals& matched) {
  matched.a.push_back(&a);
  matched.b.push_back(&b);
  if (a.direction == b.direction) return;
  Difference found;
  found.what = "direction";
  found.signal = *a.name;
  found.a.text = directionText(a);
  found.b.text = directionText(b);
  tally_.tell(found);
}

void SignalMatch::alone(const PVBsignal& signal, bool inA) {
  if (options_.common) return;
  Difference found;
  found.what = "signal";
  found.signal = *signal.name;
  found.a.text = inA ? directionText(signal) : "no such signal";
  found.b.text = inA ? "no such signal" : directionText(signal);
  tally_.tell(found);
}

// --- Patterns ------------------------------------------------------------------------

class PatternDiff {
 public:
  PatternDiff(int databaseA, int databaseB, const DiffOptions& options, const DiffSignals& signals,
              const MessageSink& sink)
      : databaseA_(databaseA),
        options_(options),
        signals_(signals),
        sink_(sink),
        a_(databaseA, options.stretchA, store_, signals.a, options.previous),
        b_(databaseB, options.stretchB, store_, signals.b, options.previous),
        pathA_(PVBpath(databaseA)),
        pathB_(PVBpath(databaseB)) {}

  bool run(DiffTally& tally) {
    if (!reach(a_, pathA_) || !reach(b_, pathB_)) return false;
    const auto compare = options_.ignoreCycles ? diffWaves : diffCycles;
    Progress progress(length(), "Comparing", options_.quiet);
    if (compare(a_, b_, signals_, store_, tally, progress)) return true;
    tellWalk(a_, pathA_);
    tellWalk(b_, pathB_);
    return false;
  }
  std::uint64_t cycles() const { return a_.cycle(); }

 private:
  // What of A is compared, in femtoseconds.
  std::int64_t length() const {
    PVBposition sums;
    PVBpatternInqSize(databaseA_, kMainPattern, sums);
    return std::min(femtoseconds(sums.time), options_.stretchA.to) - options_.stretchA.from;
  }
  bool reach(DiffSideWalk& side, const std::string& path) {
    if (!side.reach()) {
      tellWalk(side, path);
      return false;
    }
    const bool begins = side.time() >= 0 || (options_.ignoreCycles && side.ready());
    return begins ||
           tellFailure(sink_, kBadStretch, "no cycle begins where the comparison should", path);
  }
  void tellWalk(DiffSideWalk& side, const std::string& path) {
    if (side.walk().failed()) tellFailure(sink_, kNotComparable, side.walk().failure(), path);
  }

  int databaseA_;
  const DiffOptions& options_;
  const DiffSignals& signals_;
  const MessageSink& sink_;
  EventStore store_;
  DiffSideWalk a_;
  DiffSideWalk b_;
  std::string pathA_;
  std::string pathB_;
};

}  // namespace

DiffResult diffDatabases(int databaseA, int databaseB, const DiffOptions& options,
                         const DifferenceSink& told, const MessageSink& sink) {
  DiffResult result;
  DiffTally tally(told);
  DiffSignals signals;
  if (!SignalMatch(options, tally, sink).run(databaseA, databaseB, signals)) return result;
  PatternDiff patterns(databaseA, databaseB, options, signals, sink);
  result.done = patterns.run(tally);
  result.differences = tally.count;
  result.signals = signals.a.size();
  result.cycles = patterns.cycles();
  return result;
}
