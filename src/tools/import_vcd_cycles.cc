#include "tools/import_vcd_cycles.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "base/time.h"
#include "tools/import_vcd_shapes.h"

namespace {

constexpr std::uint64_t kMostCycles = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kMostChanges = 1000;  // of a signal in a cycle

// Row data of a compared signal, by level; nothing is '-'.
constexpr std::array<std::uint8_t, 5> kOutCodes = {0, 1, 2, 3, 4};

struct Drive {
  VcdLevel entry = kVcdNone;  // when the cycle began
  VcdLevel level = kVcdNone;
  std::vector<VcdChange> changes;
  VcdShapeList shapes;
};

struct Compare {
  VcdLevel level = kVcdUnknown;
  VcdLevel strobed = kVcdUnknown;
};

struct Signal {
  SignalDirection direction;
  bool clock;
  bool active = true;  // its next cycle may differ from the one before
  std::uint32_t bit;
  std::string name;
  Drive drive;
  Compare compare;
  SignalCycle cycle;  // as the writer has it
};

struct Setting {
  std::uint32_t signal;
  SignalCycle cycle;
};

std::array<VcdPortState, 128> portStates() {
  std::array<VcdPortState, 128> table;
  for (std::size_t c = 0; c < table.size(); ++c) table[c] = vcdPortState(static_cast<char>(c));
  return table;
}

}  // namespace

struct VcdCycles::Parts {
  Parts(PatternWriter& patternWriter, const VcdChoice& choice, std::size_t nets)
      : writer(patternWriter), shapes(patternWriter), firstOfNet(nets + 1, 0) {
    enterSignals(choice);
  }

  void enterSignals(const VcdChoice& choice);
  template <typename Take>
  bool change(std::uint32_t net, std::size_t width, Take take);
  bool drive(Signal& signal, VcdLevel level);
  void show(Signal& signal, VcdLevel level);
  void activate(std::uint32_t index);

  bool goTo(std::uint64_t cycle);
  bool endCycle();
  bool endSignal(std::uint32_t index);
  void settleChanges(Signal& signal);
  bool fitDrive(Signal& signal, SignalCycle& cycle);
  bool flush();
  bool fail(std::string text) {
    if (failure.empty()) failure = std::move(text);
    return false;
  }

  PatternWriter& writer;
  VcdShapes shapes;
  std::int64_t period = 0;
  std::int64_t strobe = 0;
  ShapeId strobeShape = kNoShape;
  std::vector<Signal> signals;
  // Signals by net: those of net n stand from firstOfNet[n] to firstOfNet[n + 1].
  std::vector<std::uint32_t> firstOfNet;
  std::vector<std::uint32_t> byNet;
  std::vector<std::uint32_t> active;
  std::vector<std::uint32_t> stillActive;
  std::vector<Setting> settings;
  const std::array<VcdPortState, 128> states = portStates();

  std::int64_t offset = 0;
  std::int64_t cycleBegin = 0;
  std::uint64_t cycleNumber = 0;
  std::uint64_t pending = 0;  // cycles like the one set, not written yet
  std::string failure;
};

void VcdCycles::Parts::enterSignals(const VcdChoice& choice) {
  for (const VcdSignal& signal : choice.signals) {
    Signal& added = signals.emplace_back();
    added.direction = signal.direction;
    added.clock = signal.clock;
    added.bit = signal.bit;
    // A bidirectional signal is compared where the file tells what the device drives.
    if (signal.direction == BIDIR) added.compare = {kVcdNone, kVcdNone};
    added.name = signal.name;
    ++firstOfNet[signal.net + 1];
  }
  for (std::size_t net = 1; net < firstOfNet.size(); ++net) firstOfNet[net] += firstOfNet[net - 1];
  byNet.resize(signals.size());
  std::vector<std::uint32_t> next(firstOfNet.begin(), firstOfNet.end());
  for (std::uint32_t i = 0; i < signals.size(); ++i) {
    byNet[next[choice.signals[i].net]++] = i;
    active.push_back(i);
  }
}

// --- Changes -------------------------------------------------------------------------

void VcdCycles::Parts::activate(std::uint32_t index) {
  if (signals[index].active) return;
  signals[index].active = true;
  active.push_back(index);
}

// The last of several changes at one time counts.
bool VcdCycles::Parts::drive(Signal& signal, VcdLevel level) {
  Drive& drive = signal.drive;
  if (level == drive.level) return true;
  drive.level = level;
  if (!drive.changes.empty() && drive.changes.back().offset == offset) {
    drive.changes.back().level = level;
    return true;
  }
  if (drive.changes.size() == kMostChanges) {
    return fail(fmt::format("'{}' changes more than {} times in cycle {}: the period is too long",
                            signal.name, kMostChanges, cycleNumber));
  }
  drive.changes.push_back({offset, level});
  return true;
}

void VcdCycles::Parts::show(Signal& signal, VcdLevel level) {
  signal.compare.level = level;
  if (offset <= strobe) signal.compare.strobed = level;
}

template <typename Take>
bool VcdCycles::Parts::change(std::uint32_t net, std::size_t width, Take take) {
  for (std::uint32_t i = firstOfNet[net]; i < firstOfNet[net + 1]; ++i) {
    Signal& signal = signals[byNet[i]];
    // A bit that the text leaves out has the place behind its end.
    if (!take(signal, signal.bit < width ? width - 1 - signal.bit : width)) return false;
    activate(byNet[i]);
  }
  return true;
}

bool VcdCycles::change(std::uint32_t net, std::string_view bits) {
  Parts& parts = *parts_;
  const VcdLevel extension = bits.front() == '1' ? kVcdLow : vcdLevel(bits.front());
  return parts.change(net, bits.size(), [&](Signal& signal, std::size_t place) {
    const VcdLevel level = place < bits.size() ? vcdLevel(bits[place]) : extension;
    if (signal.direction == OUTPUT) return parts.show(signal, level), true;
    return parts.drive(signal, level);
  });
}

bool VcdCycles::changePorts(std::uint32_t net, std::string_view states) {
  Parts& parts = *parts_;
  return parts.change(net, states.size(), [&](Signal& signal, std::size_t place) {
    const VcdPortState state = place < states.size()
                                   ? parts.states[static_cast<unsigned char>(states[place])]
                                   : VcdPortState{};
    if (signal.direction == OUTPUT) return parts.show(signal, state.wire), true;
    if (signal.direction == INPUT) return parts.drive(signal, state.wire);
    parts.show(signal, state.out);
    return parts.drive(signal, state.in);
  });
}

// --- Cycles --------------------------------------------------------------------------

// Leaves changes to other levels only.
void VcdCycles::Parts::settleChanges(Signal& signal) {
  std::vector<VcdChange>& changes = signal.drive.changes;
  VcdLevel before = signal.drive.entry;
  std::size_t kept = 0;
  for (const VcdChange& change : changes) {
    if (change.level == before) continue;
    before = change.level;
    changes[kept++] = change;
  }
  changes.resize(kept);
  if (signal.drive.entry == kVcdNone && (changes.empty() || changes.front().offset > 0)) {
    changes.insert(changes.begin(), {0, kVcdUnknown});  // as a variable without a value
    if (changes.size() > 1 && changes[1].level == kVcdUnknown) changes.erase(changes.begin() + 1);
    signal.drive.level = changes.back().level;
  }
}

bool VcdCycles::Parts::fitDrive(Signal& signal, SignalCycle& cycle) {
  Drive& drive = signal.drive;
  settleChanges(signal);
  VcdShapeList::Fit fit = drive.shapes.find(drive.entry, drive.changes);
  if (fit.shape == nullptr) {
    std::vector<VcdChange>& changes = drive.changes;
    const bool begins = !changes.empty() && changes.front().offset == 0;
    if (changes.empty() || (signal.clock && !begins)) {
      changes.insert(changes.begin(), {0, drive.entry});
    }
    fit.shape = shapes.make(drive.entry, changes);
    fit.datum = vcdDatum(*fit.shape, drive.entry, changes).value_or(kVcdUnknown);
    drive.shapes.add(fit.shape);
  }
  if (fit.shape->id == kNoShape) return fail("a shape can't be entered");
  cycle.in = fit.shape->id;
  cycle.inCode = fit.datum;
  return true;
}

// Works out the cycle of a signal and keeps it active when the next may differ.
bool VcdCycles::Parts::endSignal(std::uint32_t index) {
  Signal& signal = signals[index];
  SignalCycle cycle;
  bool again = false;
  if (signal.direction != OUTPUT) {
    if (!fitDrive(signal, cycle)) return false;
    again = !signal.drive.changes.empty();
    signal.drive.changes.clear();
    signal.drive.entry = signal.drive.level;
  }
  if (signal.direction != INPUT) {
    Compare& compare = signal.compare;
    cycle.out = strobeShape;
    cycle.outCode = kOutCodes[compare.strobed];
    again = again || compare.strobed != compare.level;
    compare.strobed = compare.level;
  }
  if (!(cycle == signal.cycle)) settings.push_back({index, cycle});
  signal.active = again;
  if (again) stillActive.push_back(index);
  return true;
}

bool VcdCycles::Parts::endCycle() {
  settings.clear();
  stillActive.clear();
  for (const std::uint32_t index : active) {
    if (!endSignal(index)) return false;
  }
  std::swap(active, stillActive);
  if (!settings.empty()) {
    if (!flush()) return false;
    for (const Setting& setting : settings) {
      signals[setting.signal].cycle = setting.cycle;
      writer.set(setting.signal, setting.cycle);
    }
  }
  ++pending;
  return true;
}

bool VcdCycles::Parts::flush() {
  if (pending == 0) return true;
  const auto count = static_cast<std::uint32_t>(pending);
  pending = 0;
  return writer.cycle(count) || fail(writer.failure());
}

// Cycles without a change are all like the second of them.
bool VcdCycles::Parts::goTo(std::uint64_t cycle) {
  if (cycle >= kMostCycles) {
    return fail(
        fmt::format("the file has more than {} cycles: the period is too short", kMostCycles));
  }
  while (cycleNumber < cycle) {
    const bool quiet = active.empty();
    if (!quiet && !endCycle()) return false;
    const std::uint64_t like = quiet ? cycle - cycleNumber : 1;
    if (quiet) pending += like;
    cycleNumber += like;
  }
  return true;
}

VcdCycles::VcdCycles(PatternWriter& writer, const VcdChoice& choice, std::size_t nets,
                     std::int64_t period, std::int64_t strobe)
    : parts_(std::make_unique<Parts>(writer, choice, nets)) {
  parts_->period = period;
  parts_->strobe = strobe;
  std::vector<std::pair<std::int64_t, char>> events = {{strobe, 'Q'}};
  if (strobe > 0) events.insert(events.begin(), {0, 'X'});
  parts_->strobeShape = parts_->shapes.add(std::move(events))->id;
}
VcdCycles::~VcdCycles() = default;

bool VcdCycles::advance(std::int64_t time) {
  Parts& parts = *parts_;
  parts.offset = time - parts.cycleBegin;
  if (parts.offset < parts.period) return true;
  const std::int64_t cycle = time / parts.period;
  parts.cycleBegin = cycle * parts.period;
  parts.offset = time - parts.cycleBegin;
  return parts.goTo(static_cast<std::uint64_t>(cycle));
}

bool VcdCycles::finish() {
  Parts& parts = *parts_;
  if (parts.offset > 0 || parts.cycleNumber == 0) {
    if (!parts.endCycle()) return false;
    ++parts.cycleNumber;
  }
  return parts.flush();
}

const std::string& VcdCycles::failure() const { return parts_->failure; }
std::uint64_t VcdCycles::cycleCount() const { return parts_->cycleNumber; }
