#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "tools/stil_expand_internal.h"

namespace {

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
    const StilQuiet quietBody(quiet, true);
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
    const StilQuiet quietBody(quiet, false);
    const StilQuiet within(inSubroutine, true);
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
  const StilQuiet quietAfter(quiet, quiet);
  const bool takes = hasData() && hasParameters(statement.body);
  if (takes && !repeatTaking(statement, count)) return false;
  if (count == 0 || stopped) return true;
  if (states.dry()) return runBlock(statement.body);
  if (isOneVector(statement.body)) return repeatVector(statement, count);
  StilEffect effect;
  if (!dryBlock(statement.body, effect)) return false;
  if (effect.stops || !effect.vectors || count == 1) return runBlock(statement.body);
  if (options.flat) return writeOut(statement, count);
  if (count > std::numeric_limits<std::uint32_t>::max()) {
    return fail(statement.where, kImportRefused,
                fmt::format("{} passes are more than a loop can count", count));
  }
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
