#include "tools/stil_expand.h"

#include <fmt/format.h>

#include <limits>

#include "tools/stil_expand_internal.h"

namespace {

// Blocks within blocks and calls within calls that are being carried out.
constexpr std::size_t kDeepestNesting = 256;

StilAlignment alignmentOf(const StilSignal& signal) {
  switch (signal.direction) {
    case StilDirection::out:
      return StilAlignment::unload;
    case StilDirection::inOut:
      if (signal.attributes.scanIn && !signal.attributes.scanOut) return StilAlignment::load;
      if (signal.attributes.scanOut && !signal.attributes.scanIn) return StilAlignment::unload;
      return StilAlignment::byData;
    default:
      return StilAlignment::load;
  }
}

// Blanks that separate a text from its marks.
std::string_view annotationText(std::string_view text) {
  if (text.starts_with(' ')) text.remove_prefix(1);
  if (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

// The first domain named that has a routine, then the one without a name; where none is
// named, any other.
void fillNames(std::vector<StilCallable>& callables, const std::vector<std::string>& domains,
               std::unordered_map<std::string_view, StilCallable*>& names) {
  names.clear();
  const auto add = [&](const auto& wanted) {
    for (StilCallable& callable : callables) {
      if (wanted(callable.routine->domain)) names.emplace(callable.routine->name, &callable);
    }
  };
  for (const std::string& domain : domains) {
    add([&](const std::string& name) { return name == domain; });
  }
  add([](const std::string& name) { return name.empty(); });
  if (domains.empty()) add([](const std::string&) { return true; });
}

std::vector<StilCallable> callablesOf(const std::vector<StilRoutine>& routines) {
  std::vector<StilCallable> callables(routines.size());
  for (std::size_t i = 0; i < routines.size(); ++i) callables[i].routine = &routines[i];
  return callables;
}

bool sameDomains(const StilDomains& a, const StilDomains& b) {
  return a.procedures == b.procedures && a.macros == b.macros;
}

}  // namespace

StilExpand::Parts::Parts(StilReader& reader_, StilNames& names_, StilTiming& timing_,
                         PatternWriter& writer_, StilExpandOptions options_)
    : reader(reader_),
      names(&names_),
      timing(timing_),
      writer(writer_),
      options(options_),
      states(reader_, timing_, writer_, options_.lenient) {
  const StilModel& model = reader.model();
  lengths.assign(model.signals.size(), 0);
  for (std::size_t i = 0; i < model.signals.size(); ++i) {
    const StilSignal& signal = model.signals[i];
    alignments.push_back(alignmentOf(signal));
    lengths[i] =
        std::max(signal.attributes.scanIn.value_or(0), signal.attributes.scanOut.value_or(0));
  }
  for (const StilChain& chain : model.chains) {
    for (const bool in : {true, false}) {
      const std::int64_t signal = names->signal(in ? chain.scanIn : chain.scanOut);
      if (signal < 0) continue;
      const auto place = static_cast<std::size_t>(signal);
      lengths[place] = std::max<std::size_t>(lengths[place], chain.length);
      if (model.signals[place].direction != StilDirection::inOut) continue;
      alignments[place] = in ? StilAlignment::load : StilAlignment::unload;
    }
  }
  frames.push_back(std::make_unique<StilFrame>());
  frames.front()->streams.resize(model.signals.size());
  depth = 1;
}

void StilExpand::Parts::use(const StilDomains& wanted) {
  if (domains && sameDomains(*domains, wanted)) return;
  domains = wanted;
  procedures = callablesOf(reader.model().procedures);
  macros = callablesOf(reader.model().macros);
  fillNames(procedures, wanted.procedures, procedureNames);
  fillNames(macros, wanted.macros, macroNames);
}

// --- Statements ----------------------------------------------------------------------

bool StilExpand::Parts::top(const StilStatement& statement) {
  if (stopped) {
    if (!toldStopped)
      reader.warnAt(statement.where, kStilNotCarried, "what follows a Stop is left out");
    toldStopped = true;
    return true;
  }
  idle = 0;
  return run(statement);
}

bool StilExpand::Parts::runBlock(const std::vector<StilStatement>& body) {
  if (nesting == kDeepestNesting) {
    return fail(body.empty() ? StilWhere() : body.front().where, kStilTooLong,
                "blocks and calls nest too deep");
  }
  ++nesting;
  const std::size_t mark = states.mark();
  bool good = true;
  for (const StilStatement& statement : body) {
    good = run(statement);
    if (!good || stopped) break;
  }
  states.release(mark);
  --nesting;
  return good;
}

bool StilExpand::Parts::run(const StilStatement& statement) {
  if (++idle > options.mostIdle) {
    return fail(statement.where, kStilTooLong, "statements go on without a vector");
  }
  if (!statement.label.empty() && !quiet && !states.dry()) writer.label(statement.label);
  switch (statement.kind) {
    case StilStatementKind::vector:
      return vector(statement, 1);
    case StilStatementKind::condition:
      return assignAll(statement, false);
    case StilStatementKind::fixed:
      return assignAll(statement, true);
    case StilStatementKind::table:
      return table(statement);
    case StilStatementKind::loop:
      return loop(statement);
    case StilStatementKind::matchLoop:
      return matchLoop(statement);
    case StilStatementKind::call:
    case StilStatementKind::macro:
      return call(statement);
    case StilStatementKind::shift:
      return shift(statement);
    case StilStatementKind::annotation:
      annotation(statement);
      return true;
    case StilStatementKind::gotoLabel:
      return fail(statement.where, kStilUnsupported, "a Goto has no counterpart");
    case StilStatementKind::branch:
      return fail(statement.where, kStilUnsupported,
                  fmt::format("{} has no counterpart", statement.name));
    case StilStatementKind::stop:
      stopped = true;
      return true;
    case StilStatementKind::breakPoint:
      return runBlock(statement.body);
    case StilStatementKind::iddq:
      testPoint(statement);
      return true;
    case StilStatementKind::scanChain:
    case StilStatementKind::unknown:
      return true;
  }
  return true;
}

bool StilExpand::Parts::vector(const StilStatement& statement, std::uint32_t count) {
  if (!assignAll(statement, false)) return false;
  if (states.dry()) {
    states.dryVector();
    return true;
  }
  if (states.table() == kNoTable) {
    return fail(statement.where, kStilUnknownTable, "no WaveformTable holds here");
  }
  if (!states.tell(statement.where)) return false;
  if (writer.rowCount() >= options.mostRows) {
    return fail(statement.where, kStilTooLong, "the pattern has too many rows");
  }
  if (!writer.cycle(count)) return writerFailed(statement.where);
  idle = 0;
  addCycles(count);
  return true;
}

bool StilExpand::Parts::assignAll(const StilStatement& statement, bool fixes) {
  for (const StilAssignment& assignment : statement.assignments) {
    if (!assign(assignment, fixes)) return false;
  }
  return true;
}

bool StilExpand::Parts::assign(const StilAssignment& assignment, bool fixes) {
  const StilTarget* target = this->target(assignment.signals);
  if (target == nullptr) return false;
  const std::size_t count = target->signals.size();
  std::string_view data;
  if (!characters(assignment, *target, count, room, data)) return false;
  if (data.size() != count && data.size() != 1) {
    return wrongCount(assignment, data.size(), count);
  }
  states.at(assignment.signals.where);
  const std::size_t step = data.size() == count ? 1 : 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t signal = target->signals[i];
    char character = data[i * step];
    if (character == '#' || character == '%') {
      character = take(signal, character);
      if (character == kNeverSet) continue;
    }
    if (fixes) {
      states.fix(signal, character);
    } else {
      states.put(signal, character);
    }
  }
  return true;
}

bool StilExpand::Parts::table(const StilStatement& statement) {
  if (statement.name != tableName || tableNumber == kNoTable) {
    const std::int64_t number = timing.table(statement.name);
    if (number < 0) {
      return fail(statement.where, kStilUnknownTable,
                  fmt::format("there is no WaveformTable '{}'", statement.name));
    }
    tableName = statement.name;
    tableNumber = number;
  }
  states.useTable(tableNumber);
  return true;
}

void StilExpand::Parts::annotation(const StilStatement& statement) {
  if (!quiet && !states.dry()) writer.comment(annotationText(statement.name));
}

void StilExpand::Parts::testPoint(const StilStatement& statement) {
  if (states.dry()) return;
  if (!quiet) writer.comment("IddqTestPoint");
  if (toldTestPoint) return;
  toldTestPoint = true;
  reader.warnAt(statement.where, kStilNotCarried, "each IddqTestPoint becomes a comment");
}

bool StilExpand::Parts::writerFailed(const StilWhere& where) {
  return fail(where, kImportRefused, writer.failure());
}

void StilExpand::Parts::addCycles(std::uint64_t count) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  cycles = count > kMost - cycles ? kMost : cycles + count;
}

// --- The class -----------------------------------------------------------------------

StilExpand::StilExpand(StilReader& reader, StilNames& names, StilTiming& timing,
                       PatternWriter& writer, StilExpandOptions options)
    : parts_(std::make_unique<Parts>(reader, names, timing, writer, options)) {}
StilExpand::~StilExpand() = default;

void StilExpand::useNames(StilNames& names) {
  parts_->names = &names;
  parts_->domains.reset();
}
void StilExpand::useRoutines(const StilDomains& domains) { parts_->use(domains); }

bool StilExpand::begin() {
  parts_->states.forget();
  parts_->stopped = false;
  parts_->toldStopped = false;
  return true;
}

bool StilExpand::statement(const StilStatement& statement) { return parts_->top(statement); }

bool StilExpand::end() {
  parts_->states.release(0);
  return true;
}

std::uint64_t StilExpand::cycles() const { return parts_->cycles; }
