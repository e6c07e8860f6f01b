// The waves of a database over time as a value change dump.
//
//   driven     D 0   U 1   Z z   N x
//   expected   L 0   H 1   T z   X x     where nothing is driven, or Z
//
// A cycle that only drives a signal ends what was expected of it before, one that only
// expects ends what was driven. What is expected shows from its strobe on.
//
// A signal whose cycle has the same events as the one before, and only one level, is
// passed over.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <numeric>
#include <optional>
#include <unordered_set>

#include "pvb/database.h"
#include "pvb/pattern.h"
#include "tools/export.h"
#include "tools/export_vcd_internal.h"
#include "tools/flat_walk.h"
#include "tools/meaning.h"
#include "tools/nearest.h"
#include "tools/tool_progress.h"

namespace {

constexpr std::int64_t kNoEnd = std::numeric_limits<std::int64_t>::max();
constexpr std::string_view kOwnScope = "pattern";
// Above this many cycles the length is told before anything is written.
constexpr std::uint64_t kManyCycles = 50000000;

// --- Names ---------------------------------------------------------------------------

// Printable characters, short ones first.
std::string codeOf(std::size_t number) {
  constexpr std::size_t kCharacters = 94;
  std::string code;
  for (++number; number > 0; number = (number - 1) / kCharacters) {
    code += static_cast<char>('!' + (number - 1) % kCharacters);
  }
  return code;
}

// Names end at blanks, and those that begin with "$" are keywords.
std::string nameOf(std::string_view name) {
  std::string result(name);
  std::ranges::replace_if(
      result, [](char c) { return static_cast<unsigned char>(c) <= ' '; }, '_');
  if (result.empty() || result.front() == '$') result.insert(0, 1, '_');
  return result;
}

std::string scopeOf(const std::string& path) {
  const std::string base = std::filesystem::path(path).filename().replace_extension().string();
  return base.empty() ? std::string(kOwnScope) : nameOf(base);
}

// --- Waves ---------------------------------------------------------------------------

class VcdText {
 public:
  VcdText(int database, std::vector<const PVBsignal*> signals, const ExportOptions& options,
          TextSink& out, const MessageSink& sink)
      : database_(database),
        signals_(std::move(signals)),
        begin_(options.from ? femtoseconds(*options.from) : 0),
        end_(options.to ? femtoseconds(*options.to) : kNoEnd),
        quiet_(options.quiet),
        out_(out),
        sink_(sink),
        walk_(database, kMainPattern),
        meaning_(database, store_, signals_, PreviousMode::resolve),
        previous_(signals_.size(), kLeftUnknown),
        last_(signals_.size(), kNotWorkedOut) {}

  bool run();

 private:
  bool tell(Severity severity, MessageCode code, std::string text) const;
  void tellLength(std::uint64_t cycles) const;
  void header();
  void cycles(std::int64_t length);
  bool cycle();
  EventListId settled(PlateMeaning& plate, std::size_t signal);
  const VcdListWave& listWave(EventListId id);

  int database_;
  std::vector<const PVBsignal*> signals_;
  std::int64_t begin_;
  std::int64_t end_;
  bool quiet_;
  TextSink& out_;
  const MessageSink& sink_;
  EventStore store_;
  FlatWalk walk_;
  Meaning meaning_;
  std::vector<std::uint8_t> previous_;
  std::vector<EventListId> last_;   // the events of the cycle before, by signal
  std::vector<VcdListWave> lists_;  // by list of events
  std::optional<VcdWaves> waves_;
};

bool VcdText::tell(Severity severity, MessageCode code, std::string text) const {
  Message message;
  message.severity = severity;
  message.code = code;
  message.text = std::move(text);
  message.file = PVBpath(database_);
  sink_(message);
  return false;
}

void VcdText::tellLength(std::uint64_t cycles) const {
  if (end_ != kNoEnd || cycles < kManyCycles) return;
  tell(Severity::note, kExportNotCarried,
       fmt::format("the pattern has {} cycles, all of which are written out; --end TIME ends the "
                   "waves earlier",
                   cycles));
}

bool VcdText::run() {
  if (walk_.failed()) return tell(Severity::error, kExportRefused, walk_.failure());
  PVBposition sums;
  PVBpatternInqSize(database_, kMainPattern, sums);
  if (begin_ > femtoseconds(sums.time)) {
    return tell(
        Severity::error, kExportRefused,
        fmt::format("the pattern ends at {}, before the waves begin", PBformatTIME(sums.time)));
  }
  tellLength(sums.cycle);
  header();
  cycles(femtoseconds(sums.time));
  if (walk_.failed()) return tell(Severity::error, kExportRefused, walk_.failure());
  if (waves_->overflown()) {
    return tell(Severity::error, kExportRefused,
                "too many events wait at once: they stand far behind the ends of their cycles");
  }
  waves_->finish(std::min(walk_.time(), end_));
  return out_.finish();
}

// --- The head ------------------------------------------------------------------------

void VcdText::header() {
  const VcdTimescale scale = vcdTimescale(database_, std::gcd(begin_, end_ == kNoEnd ? 0 : end_));
  std::string& text = out_.text();
  text += fmt::format("$version pvb $end\n$timescale {} $end\n", scale.text);
  text += fmt::format("$scope module {} $end\n", scopeOf(PVBpath(database_)));
  std::vector<std::string> codes;
  for (const PVBsignal* signal : signals_) {
    codes.push_back(codeOf(codes.size()));
    text += fmt::format("$var wire 1 {} {} $end\n", codes.back(), nameOf(*signal->name));
    out_.offer();
  }
  text += "$upscope $end\n$enddefinitions $end\n";
  waves_.emplace(std::move(codes), begin_, scale.femtoseconds, out_);
}

// --- Cycles --------------------------------------------------------------------------

void VcdText::cycles(std::int64_t length) {
  Progress progress(std::min(length, end_), "Writing waves", quiet_);
  while (out_.good() && !waves_->overflown() && walk_.next()) {
    while (walk_.step().count > 0 && !waves_->overflown()) {
      if (walk_.time() >= end_) return;
      progress.update(walk_.time());
      waves_->happenBefore(walk_.time());
      const bool nothing = walk_.step().row->type == ROW_SPACER || !cycle();
      walk_.take(nothing || walk_.step().period == 0 ? walk_.step().count : 1);
      out_.offer();
    }
  }
}

// Whether anything happened; if not, nothing does in equal cycles behind this one.
bool VcdText::cycle() {
  const FlatStep& step = walk_.step();
  PlateMeaning& plate = meaning_.plate(step.row->timeplate);
  bool any = false;
  for (std::size_t i = 0; i < signals_.size(); ++i) {
    const EventListId id = settled(plate, i);
    const VcdListWave& list = listWave(id);
    if (id == last_[i] && list.level && list.latest < step.period) continue;
    last_[i] = id;
    if (list.events.empty()) continue;
    any = true;
    waves_->add(i, step.start, list);
  }
  return any;
}

EventListId VcdText::settled(PlateMeaning& plate, std::size_t signal) {
  const EventListId id = meaning_.events(plate, *walk_.step().row, signal);
  if (!meaning_.usesPrevious()) return id;
  const ListEffect effect = meaning_.effect(id);
  const EventListId result = effect.settled[previous_[signal]];
  if (effect.drives) previous_[signal] = effect.after;
  return result;
}

const VcdListWave& VcdText::listWave(EventListId id) {
  if (id >= lists_.size()) lists_.resize(id + 1);
  VcdListWave& list = lists_[id];
  if (!list.known) list = vcdListWave(store_.events(id));
  return list;
}

// --- Signals -------------------------------------------------------------------------

// The chosen signals, all where none are named. False after a message.
bool chooseSignals(int database, const ExportOptions& options, const MessageSink& sink,
                   std::vector<const PVBsignal*>& chosen) {
  const PVBsignal* all = PVBsignalInqByID(database, kGroupAll);
  const PVBidList ids =
      all != nullptr ? PVBsignalListToScalars(database, all->members) : PVBidList();
  std::unordered_set<std::string_view> wanted(options.signals.begin(), options.signals.end());
  std::vector<std::string_view> names;
  for (const PVBid id : ids) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal == nullptr || !signal->name) continue;
    names.push_back(*signal->name);
    if (options.signals.empty() || wanted.erase(*signal->name) > 0) chosen.push_back(signal);
  }
  std::string text = "there are no signals";
  for (const std::string& name : options.signals) {
    if (!wanted.contains(name)) continue;
    text = fmt::format("'{}' is no signal of the database{}", name, didYouMean(name, names));
    break;
  }
  if (wanted.empty() && !chosen.empty()) return true;
  const MessageCode code = wanted.empty() ? kExportRefused : kNoSuchSignal;
  sink(errorMessage(code, std::move(text), PVBpath(database)));
  return false;
}

}  // namespace

bool exportVcd(int database, const ExportOptions& options, TextSink& out, const MessageSink& sink) {
  std::vector<const PVBsignal*> signals;
  if (!chooseSignals(database, options, sink, signals)) return false;
  return VcdText(database, std::move(signals), options, out, sink).run();
}
