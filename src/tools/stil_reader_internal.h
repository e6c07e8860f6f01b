#pragma once

// What the files of the STIL reader share: a function for each kind of block. Each is
// called at the token behind the block's keyword and leaves the one behind the block.

#include <string>
#include <unordered_set>

#include "tools/stil_cursor.h"
#include "tools/stil_model.h"
#include "tools/stil_statement.h"

// Ranges make many names of few bytes.
inline constexpr std::size_t kMostStilSignals = std::size_t{1} << 17;
inline constexpr std::uint64_t kMostRangedCells = std::uint64_t{1} << 20;

// What the blocks are read with, besides what they become.
struct StilBlocks {
  StilCursor& cursor;
  StilModel& model;
  StilStatementReader& statements;
  std::unordered_set<std::string> defined;  // kinds, domains and names
  std::unordered_set<std::string> userKeywords;
  std::uint64_t rangedCells = 0;
};

bool readStilSignals(StilBlocks& blocks);
bool readStilGroups(StilBlocks& blocks);
bool readStilScanStructures(StilBlocks& blocks);

bool readStilTiming(StilBlocks& blocks);
bool readStilSpec(StilBlocks& blocks);
bool readStilSelector(StilBlocks& blocks);

bool readStilBurst(StilBlocks& blocks);
bool readStilExec(StilBlocks& blocks);
bool readStilProcedures(StilBlocks& blocks);
bool readStilMacros(StilBlocks& blocks);

// False, after a message, when something of that kind and domain has the name already.
bool defineStil(StilBlocks& blocks, const StilWhere& where, std::string_view kind,
                std::string_view domain, std::string_view name);
// The state an event's name or character means; false when there is no such event.
bool stilState(std::string_view name, StilState& state);
// Passes over the rest of a statement whose first word, at `where`, isn't known in that
// kind of block, with a warning the first time.
bool passOverUnknown(StilBlocks& blocks, const StilWhere& where, const std::string& word,
                     std::string_view block);
