#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "tools/stil_expand_internal.h"

namespace {

// Signals with a `#` take at most so much in a pass of a Shift.
constexpr std::size_t kMostTaken = std::size_t{1} << 32;
constexpr std::size_t kMostLead = std::numeric_limits<std::uint32_t>::max();

// Sets a flag and puts it back.
class Quiet {
 public:
  Quiet(bool& flag, bool value) : flag_(flag), before_(flag) { flag = value; }
  ~Quiet() { flag_ = before_; }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;

 private:
  bool& flag_;
  bool before_;
};

// Whether a body is one vector at its end with nothing but assignments in front: then
// all its passes are equal.
bool isOneVector(const std::vector<StilStatement>& body) {
  if (body.empty() || body.back().kind != StilStatementKind::vector) return false;
  return std::ranges::all_of(body, [&](const StilStatement& statement) {
    switch (statement.kind) {
      case StilStatementKind::condition:
      case StilStatementKind::fixed:
      case StilStatementKind::table:
      case StilStatementKind::annotation:
        return true;
      default:
        return &statement == &body.back();
    }
  });
}

}  // namespace

// --- Calls ---------------------------------------------------------------------------

StilCallable* StilExpand::Parts::find(const StilStatement& statement) {
  const bool macro = statement.kind == StilStatementKind::macro;
  const auto& table = macro ? macroNames : procedureNames;
  const auto found = table.find(statement.name);
  if (found != table.end() && !found->second->active) return found->second;
  fail(statement.where, kStilUnknownRoutine,
       found != table.end()
           ? fmt::format("'{}' calls itself", statement.name)
           : fmt::format("there is no {} '{}'", macro ? "macro" : "procedure", statement.name));
  return nullptr;
}

bool StilExpand::Parts::call(const StilStatement& statement) {
  StilCallable* callable = find(statement);
  if (callable == nullptr) return false;
  const bool plain = statement.kind == StilStatementKind::call && statement.assignments.empty();
  if (!plain || options.flat || inSubroutine || states.dry()) return inPlace(statement, *callable);
  if (!callable->parameters) callable->parameters = hasParameters(callable->routine->body);
  return *callable->parameters ? inPlace(statement, *callable) : asSubroutine(statement, *callable);
}

bool StilExpand::Parts::inPlace(const StilStatement& statement, StilCallable& callable) {
  if (!enter(statement)) return false;
  const bool procedure = statement.kind == StilStatementKind::call;
  if (procedure) states.save(frame().saved);
  callable.active = true;
  bool good = false;
  {
    const Quiet quietBody(quiet, true);
    good = runBlock(callable.routine->body);
  }
  callable.active = false;
  if (procedure) states.restore(frame().saved);
  if (good) leave(statement, callable);
  return good;
}

bool StilExpand::Parts::asSubroutine(const StilStatement& statement, StilCallable& callable) {
  if (!callable.effect && !findEffect(statement, callable)) return false;
  if (callable.effect->stops) return inPlace(statement, callable);
  if (!callable.effect->vectors) return true;
  std::string key = variantKey(*callable.effect);
  auto variant = callable.variants.find(key);
  if (variant == callable.variants.end()) {
    if (callable.variants.size() == kMostVariants) return inPlace(statement, callable);
    StilVariant made{};
    if (!define(statement, callable, made)) return false;
    variant = callable.variants.emplace(std::move(key), made).first;
  }
  if (writer.rowCount() >= options.mostRows) {
    return fail(statement.where, kStilTooLong, "the pattern has too many rows");
  }
  if (!writer.call(variant->second.subroutine)) return writerFailed(statement.where);
  idle = 0;
  addCycles(variant->second.cycles);
  return true;
}

bool StilExpand::Parts::findEffect(const StilStatement& statement, StilCallable& callable) {
  if (!enter(statement)) return false;
  StilEffect effect;
  callable.active = true;
  const bool good = dryBlock(callable.routine->body, effect);
  callable.active = false;
  --depth;
  if (good) callable.effect = std::move(effect);
  return good;
}

// What is fixed around a call holds in it too.
std::string StilExpand::Parts::variantKey(const StilEffect& effect) const {
  std::string key = fmt::format("{}:", effect.usesTable ? states.table() : kNoTable);
  for (std::uint32_t signal = 0; signal < states.size(); ++signal) {
    const bool counts = effect.inherited[signal] != 0 || states.isFixed(signal);
    key += counts ? states.of(signal) : kNeverSet;
  }
  return key;
}

bool StilExpand::Parts::define(const StilStatement& statement, StilCallable& callable,
                               StilVariant& variant) {
  variant.subroutine = writer.beginSubroutine(subroutineName(callable.routine->name));
  if (variant.subroutine < 0) return writerFailed(statement.where);
  if (!enter(statement)) return false;
  states.save(frame().saved);
  const std::uint64_t before = cycles;
  cycles = 0;
  bool good = false;
  {
    const Quiet quietBody(quiet, false);
    const Quiet within(inSubroutine, true);
    callable.active = true;
    good = runBlock(callable.routine->body);
    callable.active = false;
  }
  states.restore(frame().saved);
  --depth;
  variant.cycles = cycles;
  cycles = before;
  return good && (writer.endSubroutine() || writerFailed(statement.where));
}

std::string StilExpand::Parts::subroutineName(const std::string& routine) {
  std::string name = routine;
  for (std::size_t number = 2; !subroutineNames.insert(name).second; ++number) {
    name = fmt::format("{}_{}", routine, number);
  }
  return name;
}

// --- Loops ---------------------------------------------------------------------------

bool StilExpand::Parts::loop(const StilStatement& statement) {
  if (statement.count > 0) return repeat(statement, statement.count);
  if (!states.dry() && firstAt(statement.where)) {
    reader.warnAt(statement.where, kStilNotCarried, "a Loop of 0 passes does nothing");
  }
  return true;
}

bool StilExpand::Parts::matchLoop(const StilStatement& statement) {
  if (!options.lenient) {
    return fail(statement.where, kStilUnsupported, "a MatchLoop has no counterpart");
  }
  if (!states.dry() && firstAt(statement.where)) {
    reader.warnAt(statement.where, kStilUnsupported,
                  statement.count == 0 ? "a MatchLoop without an end is taken once"
                                       : "a MatchLoop is taken as a loop");
  }
  return repeat(statement, std::max<std::uint64_t>(statement.count, 1));
}

// Passes that take data differ, and stand one by one. Of the others the first may, when
// it begins with other states than it ends with.
bool StilExpand::Parts::repeat(const StilStatement& statement, std::uint64_t count) {
  const Quiet quietAfter(quiet, quiet);
  const bool takes = hasData() && hasParameters(statement.body);
  if (takes && !repeatTaking(statement, count)) return false;
  if (count == 0 || stopped) return true;
  if (states.dry()) return runBlock(statement.body);
  if (isOneVector(statement.body)) return repeatVector(statement, count);
  StilEffect effect;
  if (!dryBlock(statement.body, effect)) return false;
  if (effect.stops || !effect.vectors || count == 1) return runBlock(statement.body);
  if (options.flat) return writeOut(statement, count);
  if (!effect.repeats) {
    if (!runBlock(statement.body)) return false;
    quiet = true;
    --count;
  }
  return count == 1 ? runBlock(statement.body) : writeLoop(statement, count);
}

bool StilExpand::Parts::repeatTaking(const StilStatement& statement, std::uint64_t& count) {
  for (bool took = true; took && count > 0 && !stopped; --count) {
    const std::uint64_t before = frame().taken;
    if (!runBlock(statement.body)) return false;
    took = frame().taken != before;
    quiet = true;
  }
  return true;
}

bool StilExpand::Parts::writeOut(const StilStatement& statement, std::uint64_t count) {
  for (; count > 0; --count) {
    if (!runBlock(statement.body)) return false;
    quiet = true;
  }
  return true;
}

bool StilExpand::Parts::repeatVector(const StilStatement& statement, std::uint64_t count) {
  if (options.flat) return writeOut(statement, count);
  if (count > std::numeric_limits<std::uint32_t>::max()) {
    return fail(statement.where, kImportRefused,
                fmt::format("{} passes are more than a row can count", count));
  }
  const std::size_t mark = states.mark();
  const std::vector<StilStatement>& body = statement.body;
  for (std::size_t i = 0; i + 1 < body.size(); ++i) {
    if (!run(body[i])) return false;
  }
  if (!body.back().label.empty() && !quiet) writer.label(body.back().label);
  const bool good = vector(body.back(), static_cast<std::uint32_t>(count));
  states.release(mark);
  return good;
}

bool StilExpand::Parts::writeLoop(const StilStatement& statement, std::uint64_t count) {
  if (count > std::numeric_limits<std::uint32_t>::max()) {
    return fail(statement.where, kImportRefused,
                fmt::format("{} passes are more than a loop can count", count));
  }
  const std::uint64_t before = cycles;
  if (!writer.beginLoop(static_cast<std::uint32_t>(count))) return writerFailed(statement.where);
  if (!runBlock(statement.body)) return false;
  if (!writer.endLoop()) return writerFailed(statement.where);
  const std::uint64_t body = cycles - before;
  const std::uint64_t most = std::numeric_limits<std::uint64_t>::max() / count;
  addCycles(body > most ? std::numeric_limits<std::uint64_t>::max() : body * (count - 1));
  return true;
}

bool StilExpand::Parts::dryBlock(const std::vector<StilStatement>& body, StilEffect& effect) {
  StilStates::Saved before;
  states.save(before);
  states.beginDry();
  const bool good = runBlock(body);
  states.endDry(before, effect);
  effect.stops = stopped;
  stopped = false;
  return good;
}

// --- Shifts --------------------------------------------------------------------------

bool StilExpand::Parts::shift(const StilStatement& statement) {
  StilFrame& frame = this->frame();
  if (frame.shifting) return fail(statement.where, kStilUnsupported, "a Shift within a Shift");
  frame.shifted.clear();
  if (!collect(statement.body, 1)) return false;
  std::size_t passes = 0;
  for (const StilShifted& shifted : frame.shifted) {
    const std::size_t left = frame.streams[shifted.signal].left();
    passes = std::max(passes, left / shifted.takes + (left % shifted.takes != 0 ? 1 : 0));
  }
  if (passes == 0) return shiftWithoutData(statement);
  for (const StilShifted& shifted : frame.shifted) align(shifted, passes);
  frame.shifting = true;
  const Quiet quietAfter(quiet, quiet);
  for (std::size_t pass = 0; pass < passes && !stopped; ++pass) {
    if (!runBlock(statement.body)) return false;
    quiet = true;
  }
  frame.shifting = false;
  for (const StilShifted& shifted : frame.shifted) {
    frame.streams[shifted.signal].lead = 0;
    frame.streams[shifted.signal].after = kNeverSet;
  }
  return true;
}

// It runs as long as the chains are, when that is known, on the states in force.
bool StilExpand::Parts::shiftWithoutData(const StilStatement& statement) {
  const std::vector<StilShifted>& all = frame().shifted;
  const auto longest = std::ranges::max_element(all, {}, &StilShifted::length);
  if (longest != all.end() && longest->length > 0) {
    return repeat(statement, longest->length);
  }
  if (!states.dry() && firstAt(statement.where)) {
    reader.warnAt(statement.where, kStilDataCount,
                  "a Shift without data on chains of unknown length does nothing");
  }
  return true;
}

// The signals with a `#`, and how many characters they take in one pass.
bool StilExpand::Parts::collect(const std::vector<StilStatement>& body, std::size_t times) {
  for (const StilStatement& statement : body) {
    const bool loops = statement.kind == StilStatementKind::loop;
    const std::size_t inside = loops ? std::min<std::uint64_t>(statement.count, kMostTaken) : 1;
    if (inside > 0 && !collect(statement.body, std::min(times * inside, kMostTaken))) return false;
    for (const StilAssignment& assignment : statement.assignments) {
      if (!collect(assignment, times)) return false;
    }
  }
  return true;
}

bool StilExpand::Parts::collect(const StilAssignment& assignment, std::size_t times) {
  if (assignment.data.characters.find('#') == std::string::npos) return true;
  const StilTarget* target = this->target(assignment.signals);
  if (target == nullptr) return false;
  const std::size_t count = target->signals.size();
  std::string_view data;
  if (!characters(assignment, *target, count, room, data)) return false;
  if (data.size() != count && data.size() != 1) return wrongCount(assignment, data.size(), count);
  for (std::size_t i = 0; i < count; ++i) {
    if (data[data.size() == 1 ? 0 : i] == '#')
      collect(target->signals[i], target->attributes, times);
  }
  return true;
}

void StilExpand::Parts::collect(std::uint32_t signal, const StilAttributes* attributes,
                                std::size_t times) {
  StilFrame& frame = this->frame();
  StilStream& stream = frame.streams[signal];
  const std::size_t known = std::size_t{stream.shifted} - 1;
  if (known < frame.shifted.size() && frame.shifted[known].signal == signal) {
    std::size_t& takes = frame.shifted[known].takes;
    takes = std::min(takes + times, kMostTaken);
    return;
  }
  StilShifted shifted{signal, alignments[signal], times, lengths[signal]};
  if (attributes != nullptr) {
    if (shifted.alignment == StilAlignment::byData && attributes->scanIn != attributes->scanOut) {
      shifted.alignment = attributes->scanOut ? StilAlignment::unload : StilAlignment::load;
    }
    shifted.length = std::max<std::size_t>(
        {shifted.length, attributes->scanIn.value_or(0), attributes->scanOut.value_or(0)});
  }
  frame.shifted.push_back(shifted);
  stream.shifted = static_cast<std::uint32_t>(frame.shifted.size());
}

// Data to load end with the Shift, data to compare begin with it.
void StilExpand::Parts::align(const StilShifted& shifted, std::size_t passes) {
  StilStream& stream = frame().streams[shifted.signal];
  const std::size_t missing = passes * shifted.takes - stream.left();
  if (stream.left() == 0 || missing == 0) return;
  bool unload = shifted.alignment == StilAlignment::unload;
  if (shifted.alignment == StilAlignment::byData) {
    const StilCharacter* wave =
        states.wave(shifted.signal, stream.data[std::size_t{stream.next} * stream.stride]);
    unload = wave != nullptr && wave->cycle.out != kNoShape && wave->cycle.in == kNoShape;
  }
  const char before = states.of(shifted.signal);
  if (unload) {
    stream.after = before;
  } else {
    stream.lead = static_cast<std::uint32_t>(std::min<std::size_t>(missing, kMostLead));
    stream.before = before;
  }
}
