// Laws of rows in motion, over databases that nobody thought of: what a copy, a
// concatenation, an insertion or a merge means follows from what its sources mean.

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

#include "support/any.h"
#include "support/pattern_model.h"

namespace {

// Every case starts half a dozen programs.
const bool kFewerCases = setenv("RC_PARAMS", "max_success=50", 0) == 0;

struct SignalShape {
  std::string name;
  std::string direction;
};
using SignalShapes = std::vector<SignalShape>;

SignalShapes anySignals(const std::string& prefix) {
  SignalShapes signals;
  const int count = number(1, 4);
  for (int i = 0; i < count; ++i) {
    const std::string name = prefix + std::to_string(i);
    signals.push_back({name, oneOf({"input", "output", "bidir"})});
  }
  return signals;
}

// A period in tens of picoseconds; first events stand at zero.
std::string anyEvents(bool input, int period) {
  const std::vector<std::string> states = input ? std::vector<std::string>{"D", "U", "S", "Z", "C"}
                                                : std::vector<std::string>{"X", "Q", "H", "R"};
  std::set<int> times = {0};
  const int more = number(0, 2);
  for (int i = 0; i < more; ++i) times.insert(number(1, period - 1));
  std::string events;
  for (const int time : times) events += std::to_string(time * 10) + "pS " + oneOf(states) + " ";
  return events;
}

void addTracks(std::vector<TrackText>& tracks, const SignalShape& signal, int period) {
  if (signal.direction != "bidir") {
    tracks.push_back({signal.name, anyEvents(signal.direction == "input", period), ""});
    return;
  }
  tracks.push_back({signal.name, anyEvents(true, period), "input"});
  tracks.push_back({signal.name, anyEvents(false, period), "output"});
}

// Timeplates with all signals; their periods.
std::vector<int> addPlates(DatabaseText& text, const SignalShapes& signals,
                           const std::vector<int>& periods) {
  for (std::size_t i = 0; i < periods.size(); ++i) {
    std::vector<TrackText> tracks;
    for (const SignalShape& signal : signals) addTracks(tracks, signal, periods[i]);
    text.plate("t" + std::to_string(i), std::to_string(periods[i] * 10) + "pS", tracks);
  }
  return periods;
}

std::vector<int> anyPeriods() {
  std::vector<int> periods;
  const int count = number(1, 3);
  for (int i = 0; i < count; ++i) periods.push_back(oneOf<int>({10, 20, 30, 45, 100, 7}));
  return periods;
}

std::string anyStates(const SignalShapes& signals) {
  std::string states;
  for (const SignalShape& signal : signals) {
    for (int i = signal.direction == "bidir" ? 2 : 1; i > 0; --i) {
      states += oneOf({"0", "1", "Z", "X", "-"});
    }
  }
  return states;
}

std::string anyLiteral(const SignalShapes& signals, std::size_t plates, int maxCount) {
  const int plate = number(0, static_cast<int>(plates) - 1);
  const int count = number(1, maxCount);
  return "  row \"t" + std::to_string(plate) + "\"" +
         (count > 1 ? " x" + std::to_string(count) : std::string()) + " |" + anyStates(signals) +
         "\n";
}

// Rows with structures down to a depth; none of them stands empty.
std::string anyRows(const SignalShapes& signals, std::size_t plates, int depth,
                    const std::string& called) {
  std::string rows;
  const int count = number(1, 5);
  for (int i = 0; i < count; ++i) {
    const int kind = number(0, 9);
    const std::string times = " x" + std::to_string(number(1, 3));
    if (kind < 2 && depth > 0) {
      rows += "  loop" + times + "\n" + anyRows(signals, plates, depth - 1, called) + "  end\n";
    } else if (kind == 2 && !called.empty()) {
      rows += "  call \"" + called + "\"" + times + "\n";
    } else {
      rows += anyLiteral(signals, plates, kind == 3 ? 4 : 1);
    }
  }
  return rows;
}

// A database with every structure over these signals. The sources of one operation
// share subroutines of one name, so each names its own.
std::string anyDatabase(const SignalShapes& signals, const std::string& subroutine) {
  DatabaseText text(oneOf<int>({501, 1501}));
  for (const SignalShape& signal : signals) text.signal(signal.name, signal.direction);
  const std::size_t plates = addPlates(text, signals, anyPeriods()).size();
  text.rows(anyRows(signals, plates, 2, subroutine));
  return text.subroutine(subroutine, anyRows(signals, plates, 1, "")).text();
}

// A database of literal rows, as merge takes them.
std::string anyFlatDatabase(const SignalShapes& signals) {
  DatabaseText text(oneOf<int>({501, 1501}));
  for (const SignalShape& signal : signals) text.signal(signal.name, signal.direction);
  const std::size_t plates = addPlates(text, signals, anyPeriods()).size();
  std::string rows;
  const int count = number(1, 8);
  for (int i = 0; i < count; ++i) rows += anyLiteral(signals, plates, 1);
  return text.rows(rows).text();
}

struct Stretch {
  std::int64_t start = 0;
  std::int64_t stop = 0;
};

std::string at(std::int64_t picoseconds) { return std::to_string(picoseconds) + "pS"; }

// Bounds that a walk accepts: the start before a row of the top, or anywhere inside a
// literal one; the stop behind a later row, or inside one of a single cycle.
Stretch anyStretch(const PatternModel& model) {
  std::vector<ModelCycle> starts;
  for (const ModelCycle& cycle : model.cycles) {
    const bool begins = starts.empty() || starts.back().topRow != cycle.topRow;
    if (begins || cycle.literal) starts.push_back(cycle);
  }
  const ModelCycle first = oneOf(starts);
  Stretch stretch = {first.start, model.duration};
  if (first.literal && number(0, 2) == 0) {
    stretch.start += number(0, static_cast<int>(first.period) - 1);
  }
  std::vector<Stretch> stops = {{0, model.duration}};
  for (std::size_t i = 0; i + 1 < model.cycles.size(); ++i) {
    const ModelCycle& cycle = model.cycles[i];
    const ModelCycle& next = model.cycles[i + 1];
    if (cycle.topRow >= first.topRow && next.topRow != cycle.topRow) {
      stops.push_back({0, next.start});
      if (next.single) stops.push_back({next.start, next.start + next.period});
    }
  }
  const Stretch end = oneOf(stops);
  stretch.stop =
      end.start == 0 ? end.stop : end.start + number(1, static_cast<int>(end.stop - end.start) - 1);
  return stretch;
}

std::string boundsOf(const Stretch& stretch) { return at(stretch.start) + " " + at(stretch.stop); }

void requireWave(const OperationWorld& world, const std::string& name, const ModelWave& expected,
                 std::int64_t duration) {
  const PatternModel model = modelOf(world.dump(name));
  RC_ASSERT(shown(model.wave) == shown(expected));
  RC_ASSERT(model.duration == duration);
}

RC_GTEST_PROP(MotionProperty, CopyKeepsTheStretchAndConcatenatePutsOneBehindTheOther, ()) {
  const SignalShapes signals = anySignals("s");
  const std::string textA = anyDatabase(signals, "subA");
  const std::string textB = anyDatabase(signals, "subB");
  const PatternModel a = modelOf(textA);
  const PatternModel b = modelOf(textB);
  const Stretch ra = anyStretch(a);
  const Stretch rb = anyStretch(b);
  OperationWorld world({PVBCONDITIONER_BINARY, PVB_BINARY});
  RC_LOG() << textA << boundsOf(ra) << "\n" << textB << boundsOf(rb) << "\n";
  world.build("A", textA);
  world.build("B", textB);
  requireDone(world.runOperations(
      "#% regionname pvbname start stop\n ra A " + boundsOf(ra) + "\n rb B " + boundsOf(rb) +
      "\n#% operation operand1 operand2 operand3\n copy ra dest1 -\n concat ra rb dest2\n"));
  const ModelWave waveA = sliceOf(a.wave, ra.start, ra.stop);
  const ModelWave waveB = sliceOf(b.wave, rb.start, rb.stop);
  requireWave(world, "dest1", waveA, ra.stop - ra.start);
  const std::int64_t length = ra.stop - ra.start;
  requireWave(world, "dest2", joined(waveA, length, waveB), length + rb.stop - rb.start);
  requireSame(world,
              {"dest1", "A", "--ignore-cycles", "--b-from", at(ra.start), "--b-to", at(ra.stop)});
  requireSame(world, {"dest2", "B", "--ignore-cycles", "--a-from", at(length), "--b-from",
                      at(rb.start), "--b-to", at(rb.stop)});
}

// All in one operation file, some twice: what one leaves doesn't show in the next.
RC_GTEST_PROP(MotionProperty, EditsKeepTheMeaningOfAllOtherSignals, ()) {
  const SignalShapes signals = anySignals("s");
  const std::string text = anyDatabase(signals, "sub");
  OperationWorld world({PVBCONDITIONER_BINARY, PVB_BINARY});
  RC_LOG() << text;
  world.build("A", text);
  world.build("destA", text);
  requireDone(world.runOperations(
      "#% addlist addsigname sigdir track patbit\n more n[0..1] bio t 1X\n - m in u 1\n"
      "#% trackname sigshape\n t [0ns:S,3us:Q]\n u [0ns:S]\n"
      "#% cutlist cutsigname\n less m\n - n[1..0]\n"
      "#% siglist oldsigname newsigname\n there s0 z\n back z s0\n"
      "#% operation operand1 operand2 operand3\n"
      " add A more dest1\n add A more dest2\n cut dest1 less dest3\n add destA more\n"
      " cut destA less\n rename destA there\n copy destA dest4\n rename destA back\n"
      " rename dest4 back dest5\n"));
  RC_ASSERT(world.dump("dest1") == world.dump("dest2"));
  requireSame(world, {"A", "dest1", "--common"});
  for (const char* same : {"dest3", "destA", "dest5"}) requireSame(world, {"A", same});
}

RC_GTEST_PROP(MotionProperty, InsertPutsTheStretchInFront, ()) {
  const SignalShapes signals = anySignals("s");
  const std::string textA = anyDatabase(signals, "subA");
  const std::string textB = anyDatabase(signals, "subB");
  const PatternModel a = modelOf(textA);
  const PatternModel b = modelOf(textB);
  const Stretch ra = anyStretch(a);
  OperationWorld world({PVBCONDITIONER_BINARY, PVB_BINARY});
  RC_LOG() << textA << boundsOf(ra) << "\n" << textB;
  world.build("A", textA);
  world.build("B", textB);
  requireDone(world.runParameters({"Operation=insert", "SourcePVB1=A", "SourcePVB2=B",
                                   "DestinationPVB=dest", "Start1=" + at(ra.start),
                                   "Stop1=" + at(ra.stop)}));
  requireWave(world, "dest", joined(sliceOf(a.wave, ra.start, ra.stop), ra.stop - ra.start, b.wave),
              ra.stop - ra.start + b.duration);
}

// The times at which cycles of a stretch begin, counted from its start.
std::set<std::int64_t> boundariesOf(const PatternModel& model, const Stretch& stretch,
                                    std::int64_t duration) {
  std::set<std::int64_t> times = {0};
  for (const ModelCycle& cycle : model.cycles) {
    const std::int64_t time = cycle.start - stretch.start;
    if (time > 0 && time < duration) times.insert(time);
  }
  return times;
}

RC_GTEST_PROP(MotionProperty, MergePutsBothSideBySide, ()) {
  const std::string textA = anyFlatDatabase(anySignals("a"));
  const std::string textB = anyFlatDatabase(anySignals("b"));
  const PatternModel a = modelOf(textA);
  const PatternModel b = modelOf(textB);
  const Stretch ra = anyStretch(a);
  const Stretch rb = anyStretch(b);
  OperationWorld world({PVBCONDITIONER_BINARY, PVB_BINARY});
  RC_LOG() << textA << boundsOf(ra) << "\n" << textB << boundsOf(rb) << "\n";
  world.build("A", textA);
  world.build("B", textB);
  requireDone(world.runOperations(
      "#% regionname pvbname start stop\n ra A " + boundsOf(ra) + "\n rb B " + boundsOf(rb) +
          "\n#% operation operand1 operand2 operand3\n"
          " merge ra rb dest\n",
      {"ReferencePVB=A", oneOf({"TpNamingMode=short", "TpNamingMode=long"})}));
  const std::int64_t duration = std::min(ra.stop - ra.start, rb.stop - rb.start);
  ModelWave expected = sliceOf(a.wave, ra.start, ra.start + duration);
  expected.merge(sliceOf(b.wave, rb.start, rb.start + duration));
  requireWave(world, "dest", expected, duration);
  requireSame(world, {"dest", "A", "--common", "--ignore-cycles", "--b-from", at(ra.start),
                      "--b-to", at(ra.start + duration)});
  requireSame(world, {"dest", "B", "--common", "--ignore-cycles", "--b-from", at(rb.start),
                      "--b-to", at(rb.start + duration)});
  std::set<std::int64_t> boundaries = boundariesOf(a, ra, duration);
  boundaries.merge(boundariesOf(b, rb, duration));
  RC_ASSERT(boundariesOf(modelOf(world.dump("dest")), {}, duration) == boundaries);
}

// What two databases agree on: signals with their tracks and states, cycle by cycle.
struct Agreement {
  SignalShapes signals;
  std::vector<int> periods;
  std::vector<std::vector<TrackText>> tracks;  // by timeplate
  std::vector<std::size_t> plates;             // by row
  std::vector<std::string> states;             // by row
};

Agreement anyAgreement() {
  Agreement common{anySignals("c"), anyPeriods(), {}, {}, {}};
  for (const int period : common.periods) {
    std::vector<TrackText>& tracks = common.tracks.emplace_back();
    for (const SignalShape& signal : common.signals) addTracks(tracks, signal, period);
  }
  const int rows = number(1, 8);
  for (int i = 0; i < rows; ++i) {
    const int plate = number(0, static_cast<int>(common.periods.size()) - 1);
    common.plates.push_back(static_cast<std::size_t>(plate));
    common.states.push_back(anyStates(common.signals));
  }
  return common;
}

// The first rows of the agreement, with signals of its own in front of the others or
// behind them.
std::string anyDatabaseOver(const Agreement& common, const SignalShapes& own) {
  const bool ownFirst = number(0, 1) == 1;
  SignalShapes signals = ownFirst ? own : common.signals;
  const SignalShapes& rest = ownFirst ? common.signals : own;
  signals.insert(signals.end(), rest.begin(), rest.end());
  DatabaseText text(oneOf<int>({501, 1501}));
  for (const SignalShape& signal : signals) text.signal(signal.name, signal.direction);
  for (std::size_t i = 0; i < common.periods.size(); ++i) {
    std::vector<TrackText> tracks = common.tracks[i];
    for (const SignalShape& signal : own) addTracks(tracks, signal, common.periods[i]);
    text.plate("t" + std::to_string(i), at(common.periods[i] * 10), tracks);
  }
  const auto count = static_cast<std::size_t>(number(1, static_cast<int>(common.plates.size())));
  for (std::size_t i = 0; i < count; ++i) {
    const std::string ownStates = anyStates(own);
    text.rows(steps("t" + std::to_string(common.plates[i]),
                    {ownFirst ? ownStates + common.states[i] : common.states[i] + ownStates}));
  }
  return text.text();
}

RC_GTEST_PROP(MotionProperty, MergeTakesCommonSignalsOnce, ()) {
  const Agreement common = anyAgreement();
  const std::string textA = anyDatabaseOver(common, anySignals("a"));
  const std::string textB = anyDatabaseOver(common, anySignals("b"));
  const PatternModel a = modelOf(textA);
  const PatternModel b = modelOf(textB);
  OperationWorld world({PVBCONDITIONER_BINARY, PVB_BINARY});
  RC_LOG() << textA << "\n" << textB;
  world.build("A", textA);
  world.build("B", textB);
  requireDone(world.runOperations("merge A B dest"));
  const std::int64_t duration = std::min(a.duration, b.duration);
  ModelWave expected = sliceOf(a.wave, 0, duration);
  expected.merge(sliceOf(b.wave, 0, duration));
  requireWave(world, "dest", expected, duration);
}

}  // namespace
