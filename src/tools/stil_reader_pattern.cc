#include <fmt/format.h>

#include "tools/stil_reader_internal.h"

namespace {

using Kind = StilTokenKind;

std::vector<std::string>* domainList(StilDomains& domains, std::string_view word) {
  if (word == "SignalGroups") return &domains.signalGroups;
  if (word == "Procedures") return &domains.procedures;
  if (word == "MacroDefs") return &domains.macros;
  return word == "ScanStructures" ? &domains.scanStructures : nullptr;
}

// What bursts and the entries of their lists have in common.
bool readDomain(StilBlocks& blocks, StilDomains& domains, const StilWhere& where,
                const std::string& word) {
  StilCursor& cursor = blocks.cursor;
  std::vector<std::string>* list = domainList(domains, word);
  if (list != nullptr) return cursor.name(list->emplace_back(), "a domain") && cursor.end();
  if (word == "Start" || word == "Stop") {
    cursor.warnOnce(where, kStilNotCarried,
                    fmt::format("{}: the pattern is taken whole, from its first statement to "
                                "its last",
                                word));
    return cursor.passOver();
  }
  if (word == "Termination") return cursor.passOver();
  return passOverUnknown(blocks, where, word, "PatternBurst");
}

bool readDomainStatement(StilBlocks& blocks, StilDomains& domains) {
  const StilWhere where = blocks.cursor.where();
  std::string word;
  return blocks.cursor.name(word, "a statement") && readDomain(blocks, domains, where, word);
}

bool readEntry(StilBlocks& blocks, StilBurst& burst) {
  StilCursor& cursor = blocks.cursor;
  StilBurstEntry entry;
  entry.where = cursor.where();
  if (!cursor.name(entry.name, "a pattern or a burst")) return false;
  if (cursor.is(Kind::open)) {
    if (!cursor.block("the pattern's domains",
                      [&] { return readDomainStatement(blocks, entry.domains); })) {
      return false;
    }
  } else if (!cursor.take(Kind::stop, "';' or '{'")) {
    return false;
  }
  burst.entries.push_back(std::move(entry));
  return true;
}

bool readList(StilBlocks& blocks, StilBurst& burst) {
  return blocks.cursor.block("the list of patterns", [&] { return readEntry(blocks, burst); });
}

// Patterns side by side have no counterpart; one alone is a list of one.
bool readParallelList(StilBlocks& blocks, StilBurst& burst, const StilWhere& where) {
  const std::size_t before = burst.entries.size();
  while (blocks.cursor.isName()) blocks.cursor.next();  // how they go together
  if (!readList(blocks, burst)) return false;
  if (burst.entries.size() - before <= 1) return true;
  return blocks.cursor.failAt(where, kStilUnsupported,
                              "ParallelPatList runs several patterns side by side");
}

bool readBurstStatement(StilBlocks& blocks, StilBurst& burst) {
  const StilWhere where = blocks.cursor.where();
  std::string word;
  if (!blocks.cursor.name(word, "a statement of a PatternBurst")) return false;
  if (word == "PatList" || word == "PatSet") return readList(blocks, burst);
  if (word == "ParallelPatList") return readParallelList(blocks, burst, where);
  return readDomain(blocks, burst.domains, where, word);
}

bool readExecStatement(StilBlocks& blocks, StilExec& exec) {
  StilCursor& cursor = blocks.cursor;
  const StilWhere where = cursor.where();
  std::string word;
  std::string name;
  if (!cursor.name(word, "a statement of a PatternExec")) return false;
  const bool known =
      word == "Timing" || word == "Selector" || word == "Category" || word == "PatternBurst";
  if (!known) return passOverUnknown(blocks, where, word, "PatternExec");
  if (!cursor.name(name, "a name") || !cursor.end()) return false;
  if (word == "Timing") exec.timing = name;
  if (word == "PatternBurst") exec.burst = name;
  if (word == "Selector") exec.selectors.push_back(name);
  if (word == "Category") exec.categories.push_back(name);
  return true;
}

bool readRoutines(StilBlocks& blocks, std::string_view what, std::string_view kind,
                  std::vector<StilRoutine>& routines) {
  StilCursor& cursor = blocks.cursor;
  std::string domain;
  if (!cursor.optionalName(domain)) return false;
  return cursor.block(what, [&] {
    StilRoutine routine;
    routine.domain = domain;
    routine.where = cursor.where();
    if (!cursor.name(routine.name, "the name of a procedure or macro")) return false;
    if (!blocks.statements.readRoutine(routine)) return false;
    if (!defineStil(blocks, routine.where, kind, domain, routine.name)) return false;
    routines.push_back(std::move(routine));
    return true;
  });
}

}  // namespace

bool readStilBurst(StilBlocks& blocks) {
  StilBurst burst;
  burst.where = blocks.cursor.where();
  if (!blocks.cursor.name(burst.name, "the name of a PatternBurst")) return false;
  if (!blocks.cursor.block("the PatternBurst", [&] { return readBurstStatement(blocks, burst); })) {
    return false;
  }
  if (!defineStil(blocks, burst.where, "PatternBurst", "", burst.name)) return false;
  blocks.model.bursts.push_back(std::move(burst));
  return true;
}

bool readStilExec(StilBlocks& blocks) {
  StilExec exec;
  exec.where = blocks.cursor.where();
  if (!blocks.cursor.optionalName(exec.name)) return false;
  if (!blocks.cursor.block("the PatternExec", [&] { return readExecStatement(blocks, exec); })) {
    return false;
  }
  blocks.model.execs.push_back(std::move(exec));
  return true;
}

bool readStilProcedures(StilBlocks& blocks) {
  return readRoutines(blocks, "Procedures", "procedure", blocks.model.procedures);
}

bool readStilMacros(StilBlocks& blocks) {
  return readRoutines(blocks, "MacroDefs", "macro", blocks.model.macros);
}
