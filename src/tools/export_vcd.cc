// The waves of a database over time as a value change dump.
//
//   driven     D 0   U 1   Z z   N x
//   expected   L 0   H 1   T z   X x     where nothing is driven, or Z
//
// A cycle that only drives a signal ends what was expected of it before, one that only
// expects ends what was driven. What is expected shows from its strobe on.
//
// Events wait in buckets, one for each time, until no earlier one can come: those of a
// cycle may reach into the next. All of a bucket happen together, so that a signal
// changes once at a time. A signal whose cycle has the same events as the one before,
// and only one level, is passed over.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <numeric>
#include <unordered_set>

#include "pvb/database.h"
#include "pvb/pattern.h"
#include "tools/export.h"
#include "tools/flat_walk.h"
#include "tools/meaning.h"
#include "tools/nearest.h"
#include "tools/tool_progress.h"

namespace {

constexpr std::int64_t kNoEnd = std::numeric_limits<std::int64_t>::max();
constexpr std::string_view kDriven = "DUZN";
constexpr std::string_view kExpected = "LHTX";
constexpr std::string_view kValues = "01zx";  // by place in both
constexpr char kNothing = 0;
constexpr std::string_view kOwnScope = "pattern";
// Above this many cycles the length is told before anything is written.
constexpr std::uint64_t kManyCycles = 50000000;

// --- Units of time -------------------------------------------------------------------

struct Timescale {
  std::int64_t femtoseconds;
  std::string_view text;
};
constexpr std::array<Timescale, 9> kTimescales = {{{100000000, "100 ns"},
                                                   {10000000, "10 ns"},
                                                   {1000000, "1 ns"},
                                                   {100000, "100 ps"},
                                                   {10000, "10 ps"},
                                                   {1000, "1 ps"},
                                                   {100, "100 fs"},
                                                   {10, "10 fs"},
                                                   {1, "1 fs"}}};
constexpr Timescale kUsualTimescale = kTimescales[2];

// The greatest time of which all periods, events and spacers are multiples.
std::int64_t commonTime(int database) {
  std::int64_t common = 0;
  const auto take = [&](TIME time) { common = std::gcd(common, femtoseconds(time)); };
  for (const auto& plate : PVBget(database)->timePlates->plates) {
    if (plate == nullptr) continue;
    take(plate->period);
    if (plate->levels.empty()) continue;
    for (const PVBtrack& track : plate->levels.front().tracks) {
      for (const TIME time : track.eventTimes) take(time);
    }
  }
  const auto& subroutines = PVBget(database)->patterns->subroutines;
  for (int pattern = kMainPattern; pattern < static_cast<int>(subroutines.size()); ++pattern) {
    if (pattern >= 0 && subroutines[static_cast<std::size_t>(pattern)].root == kNoNode) continue;
    PatternWalk walk(database, pattern);
    while (walk.next()) {
      if (walk.entry().type == ROW_SPACER) take(walk.entry().time);
    }
  }
  return common;
}

Timescale timescaleOf(std::int64_t common) {
  if (common == 0) return kUsualTimescale;
  return *std::ranges::find_if(
      kTimescales, [common](const Timescale& scale) { return common % scale.femtoseconds == 0; });
}

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

struct WaveEvent {
  std::uint32_t signal;
  char driven;    // value; kNothing: it stays
  char expected;  // likewise
  bool alone;     // ends the other kind
};

struct Bucket {
  std::int64_t time = 0;
  std::vector<WaveEvent> events;
};

struct Wave {
  std::string code;
  char driven = kNothing;
  char expected = kNothing;
  char written = 'x';
  bool touched = false;
  EventListId last = kNotWorkedOut;  // the events of the cycle before

  char value() const {
    if (driven != kNothing && driven != 'z') return driven;
    if (expected != kNothing) return expected;
    return driven != kNothing ? driven : 'x';
  }
};

// A list of events, as values.
struct ListWave {
  struct Event {
    std::int64_t time;
    char driven;
    char expected;
  };
  bool known = false;
  bool drives = false;
  bool expects = false;
  bool level = true;  // one value of each kind, and no more
  std::int64_t latest = 0;
  std::vector<Event> events;
};

char valueOf(std::string_view states, char state) {
  const std::size_t place = states.find(state);
  return place != std::string_view::npos ? kValues[place] : kNothing;
}

ListWave waveOf(const std::vector<MeaningEvent>& events) {
  ListWave list;
  list.known = true;
  std::unordered_set<char> driven = {kNothing};
  std::unordered_set<char> expected = {kNothing};
  for (const MeaningEvent& event : events) {
    const ListWave::Event values = {event.time, valueOf(kDriven, event.state),
                                    valueOf(kExpected, event.state)};
    if (event.time < 0 || (values.driven == kNothing && values.expected == kNothing)) continue;
    driven.insert(values.driven);
    expected.insert(values.expected);
    list.latest = std::max(list.latest, event.time);
    list.events.push_back(values);
  }
  list.drives = driven.size() > 1;
  list.expects = expected.size() > 1;
  list.level = driven.size() <= 2 && expected.size() <= 2;
  return list;
}

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
        waves_(signals_.size()) {}

  bool run();

 private:
  bool tell(Severity severity, MessageCode code, std::string text) const;
  void tellLength() const;
  void header();
  void dumpValues();
  void cycles();
  bool cycle();
  EventListId settled(PlateMeaning& plate, std::size_t signal);
  const ListWave& listWave(EventListId id);
  void add(std::size_t signal, std::int64_t start, const ListWave& list);
  Bucket& bucket(std::int64_t time);
  void flush(std::int64_t before);
  void happen(const Bucket& bucket);
  void stamp(std::int64_t time);

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
  std::vector<ListWave> lists_;  // by list of events
  std::vector<Wave> waves_;
  std::vector<Bucket> buckets_;  // in rising time
  std::vector<Bucket> spare_;
  std::vector<std::uint32_t> touched_;
  Timescale scale_ = kUsualTimescale;
  std::int64_t stamped_ = -1;
  bool begun_ = false;  // the values at the beginning are written
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

void VcdText::tellLength() const {
  PVBposition sums;
  if (end_ != kNoEnd || PVBpatternInqSize(database_, kMainPattern, sums) != 0) return;
  if (sums.cycle < kManyCycles) return;
  tell(Severity::note, kExportNotCarried,
       fmt::format("the pattern has {} cycles, all of which are written out; --end TIME ends the "
                   "waves earlier",
                   sums.cycle));
}

bool VcdText::run() {
  if (walk_.failed()) return tell(Severity::error, kExportRefused, walk_.failure());
  scale_ =
      timescaleOf(std::gcd(std::gcd(commonTime(database_), begin_), end_ == kNoEnd ? 0 : end_));
  tellLength();
  header();
  cycles();
  if (walk_.failed()) return tell(Severity::error, kExportRefused, walk_.failure());
  const std::int64_t last = std::min(walk_.time(), end_);
  flush(last);
  if (!begun_) dumpValues();
  if (stamped_ != last && last >= begin_) stamp(last);
  return out_.finish();
}

// --- The head ------------------------------------------------------------------------

void VcdText::header() {
  std::string& text = out_.text();
  text += fmt::format("$version pvb $end\n$timescale {} $end\n", scale_.text);
  text += fmt::format("$scope module {} $end\n", scopeOf(PVBpath(database_)));
  for (std::size_t i = 0; i < signals_.size(); ++i) {
    waves_[i].code = codeOf(i);
    text += fmt::format("$var wire 1 {} {} $end\n", waves_[i].code, nameOf(*signals_[i]->name));
    out_.offer();
  }
  text += "$upscope $end\n$enddefinitions $end\n";
}

// What holds where the stretch begins.
void VcdText::dumpValues() {
  begun_ = true;
  stamp(begin_);
  out_.text() += "$dumpvars\n";
  for (const Wave& wave : waves_) {
    out_.text().append(1, wave.written).append(wave.code) += '\n';
    out_.offer();
  }
  out_.text() += "$end\n";
}

void VcdText::stamp(std::int64_t time) {
  stamped_ = time;
  out_.text().append(1, '#').append(std::to_string(time / scale_.femtoseconds)) += '\n';
}

// --- Cycles --------------------------------------------------------------------------

void VcdText::cycles() {
  PVBposition sums;
  PVBpatternInqSize(database_, kMainPattern, sums);
  Progress progress(std::min(femtoseconds(sums.time), end_), "Writing waves", quiet_);
  while (out_.good() && walk_.next()) {
    while (walk_.step().count > 0) {
      if (walk_.time() >= end_) return;
      progress.update(walk_.time());
      flush(walk_.time());
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
    const ListWave& list = listWave(id);
    if (id == waves_[i].last && list.level && list.latest < step.period) continue;
    waves_[i].last = id;
    if (list.events.empty()) continue;
    any = true;
    add(i, step.start, list);
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

const ListWave& VcdText::listWave(EventListId id) {
  if (id >= lists_.size()) lists_.resize(id + 1);
  ListWave& list = lists_[id];
  if (!list.known) list = waveOf(store_.events(id));
  return list;
}

// --- Events --------------------------------------------------------------------------

void VcdText::add(std::size_t signal, std::int64_t start, const ListWave& list) {
  const bool alone = list.drives != list.expects;
  for (const ListWave::Event& event : list.events) {
    bucket(start + event.time)
        .events.push_back(
            {static_cast<std::uint32_t>(signal), event.driven, event.expected, alone});
  }
}

Bucket& VcdText::bucket(std::int64_t time) {
  auto place = buckets_.end();
  while (place != buckets_.begin() && (place - 1)->time >= time) --place;
  if (place != buckets_.end() && place->time == time) return *place;
  Bucket fresh;
  if (!spare_.empty()) {
    fresh = std::move(spare_.back());
    spare_.pop_back();
  }
  fresh.time = time;
  return *buckets_.insert(place, std::move(fresh));
}

// Lets happen what comes before a time.
void VcdText::flush(std::int64_t before) {
  std::size_t count = 0;
  while (count < buckets_.size() && buckets_[count].time < before) happen(buckets_[count++]);
  for (std::size_t i = 0; i < count; ++i) {
    buckets_[i].events.clear();
    spare_.push_back(std::move(buckets_[i]));
  }
  buckets_.erase(buckets_.begin(), buckets_.begin() + static_cast<std::ptrdiff_t>(count));
}

void VcdText::happen(const Bucket& bucket) {
  touched_.clear();
  for (const WaveEvent& event : bucket.events) {
    Wave& wave = waves_[event.signal];
    if (event.driven != kNothing) wave.driven = event.driven;
    if (event.expected != kNothing) wave.expected = event.expected;
    if (event.alone && event.driven != kNothing) wave.expected = kNothing;
    if (event.alone && event.expected != kNothing) wave.driven = kNothing;
    if (!wave.touched) touched_.push_back(event.signal);
    wave.touched = true;
  }
  if (bucket.time >= begin_ && !begun_) dumpValues();
  for (const std::uint32_t signal : touched_) {
    Wave& wave = waves_[signal];
    wave.touched = false;
    const char value = wave.value();
    if (value == wave.written) continue;
    wave.written = value;
    if (bucket.time < begin_) continue;
    if (stamped_ != bucket.time) stamp(bucket.time);
    out_.text().append(1, value).append(wave.code) += '\n';
  }
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
  Message message;
  message.file = PVBpath(database);
  message.code = wanted.empty() ? kExportRefused : kNoSuchSignal;
  message.text = "there are no signals";
  for (const std::string& name : options.signals) {
    if (!wanted.contains(name)) continue;
    message.text =
        fmt::format("'{}' is no signal of the database{}", name, didYouMean(name, names));
    break;
  }
  if (wanted.empty() && !chosen.empty()) return true;
  sink(message);
  return false;
}

}  // namespace

bool exportVcd(int database, const ExportOptions& options, TextSink& out, const MessageSink& sink) {
  std::vector<const PVBsignal*> signals;
  if (!chooseSignals(database, options, sink, signals)) return false;
  return VcdText(database, std::move(signals), options, out, sink).run();
}
