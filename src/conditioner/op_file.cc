#include "conditioner/op_file.h"

#include <cstdio>
#include <optional>
#include <span>

#include "base/errors.h"
#include "base/srf.h"
#include "base/text.h"
#include "conditioner/messages.h"
#include "conditioner/run.h"
#include "timeplate/rename_settings.h"

namespace {

// --- Columns -------------------------------------------------------------------------

enum Column : unsigned {
  kAddList,
  kAddSigName,
  kSigDir,
  kTrack,
  kPatBit,
  kTrackName,
  kSigShape,
  kCutList,
  kCutSigName,
  kSigList,
  kOldSigName,
  kNewSigName,
  kRegionName,
  kPvbName,
  kStart,
  kStop,
  kOperationColumn,
  kOperand1,
  kOperand2,
  kOperand3,
  kCompressSpec,
  kRepeatKey,
  kLoopKey,
  kLoopBlockSize,
  kRowNumber,
  kCopies,
  kColumnCount
};

// Indexed by Column; a column's position is its attribute bit. The last two are
// words of the file that nothing reads.
constexpr std::string_view kColumns[] = {
    "addlist",    "addsigname", "sigdir",       "track",     "patbit",     "trackname",
    "sigshape",   "cutlist",    "cutsigname",   "siglist",   "oldsigname", "newsigname",
    "regionname", "pvbname",    "start",        "stop",      "operation",  "operand1",
    "operand2",   "operand3",   "compressspec", "repeatkey", "loopkey",    "loopblocksize",
    "rowNumber",  "copies",
};
static_assert(std::size(kColumns) == kColumnCount);

constexpr std::uint32_t bit(Column column) { return std::uint32_t{1} << column; }

// The value of a column in a row; none when the row has none. The columns of a
// row are few, and their attributes tell them apart without comparing names.
ErrArg valueOf(const SRFtuple& row, Column column) {
  if ((row.mask & bit(column)) == 0) return {};
  for (const SRFitem& item : row.items) {
    if (item.attribute == bit(column)) return item.value;
  }
  return {};
}

std::string textOf(const SRFtuple& row, Column column) {
  return std::string(valueOf(row, column).value_or(""));
}

// A bound of a region: none when it is absent or empty.
std::optional<std::string> boundOf(const SRFtuple& row, Column column) {
  std::string text = textOf(row, column);
  return text.empty() ? std::nullopt : std::optional(std::move(text));
}

bool failRow(ConditionerMessage message, std::string_view function, ErrArg arg2 = {},
             ErrArg arg3 = {}) {
  PBerrPush(PBconditionerError, message, function, arg2, arg3);
  return false;
}

// --- Lists ---------------------------------------------------------------------------

// Adds a row's item to the list that the row names, or to the one that an
// earlier row opened. `signal` is for the message when there is neither.
template <typename Item>
bool appendToList(ListTable<Item>& table, const SRFtuple& row, Column listColumn, Item item,
                  ConditionerMessage message, std::string_view function, std::string_view signal) {
  if (const ErrArg name = valueOf(row, listColumn)) {
    table.select(*name);
  } else if (!table.hasCurrent()) {
    return failRow(message, function, kColumns[listColumn], signal);
  }
  table.append(std::move(item));
  return true;
}

bool handleRenameSignalListSpec(const SRFtuple& row) {
  RenamePair pair = {textOf(row, kOldSigName), textOf(row, kNewSigName)};
  const std::string signal = pair.oldName;
  return appendToList(run.lists.sigListTable, row, kSigList, std::move(pair), kRenameListArgument,
                      "handleRenameSignalListSpec", signal);
}

bool handleAddsListSpec(const SRFtuple& row) {
  constexpr std::string_view kFunction = "handleAddsListSpec";
  AddedSignal added;
  added.name = textOf(row, kAddSigName);
  const std::string signal = added.name;
  const ErrArg direction = valueOf(row, kSigDir);
  if (!direction) {
    failRow(kAddListArgument, kFunction, kColumns[kSigDir], signal);
    assertFail(__FILE__, __LINE__);
  }
  added.direction = *direction;
  if (valueOf(row, kTrack)) {
    if (!valueOf(row, kPatBit)) {
      return failRow(kAddListArgument, kFunction, kColumns[kPatBit], signal);
    }
    added.track = textOf(row, kTrack);
    added.patBit = textOf(row, kPatBit);
  }
  return appendToList(run.lists.addListTable, row, kAddList, std::move(added), kAddListArgument,
                      kFunction, signal);
}

bool handleAddsTrackSpec(const SRFtuple& row) {
  const std::string shape = textOf(row, kSigShape);
  return appendToList(run.lists.trackListTable, row, kTrackName, TrackShape{shape},
                      kTrackListArgument, "handleAddsTrackSpec", shape);
}

bool handleCutListSpec(const SRFtuple& row) {
  const std::string signal = textOf(row, kCutSigName);
  return appendToList(run.lists.cutListTable, row, kCutList, CutSignal{signal}, kCutListArgument,
                      "handleCutListSpec", signal);
}

// --- Regions -------------------------------------------------------------------------

bool handleRegionSpec(const SRFtuple& row) {
  constexpr std::string_view kFunction = "handleRegionSpec";
  for (const Column column : {kRegionName, kPvbName}) {
    if (PBisEmpty(textOf(row, column))) {
      return failRow(kRegionArgument, kFunction, kColumns[column]);
    }
  }
  const std::string name = textOf(row, kRegionName);
  const std::optional<std::string> start = boundOf(row, kStart);
  const std::optional<std::string> stop = boundOf(row, kStop);
  std::unique_ptr<PVBregion> region = PVBregionNew();
  if (initRegionFromParams(*region, name, textOf(row, kPvbName), start ? &*start : nullptr,
                           stop ? &*stop : nullptr) != 0) {
    return failRow(kInvalidRegion, kFunction, name);
  }
  run.regionTable.insert(name, std::move(region));
  return true;
}

// The region that an operand means: one that an earlier row named, else the
// database at that path from begin to end. Null for an empty operand.
PVBregion* makeOperandRgn(const ErrArg& operand) {
  if (!operand || operand->empty()) return nullptr;
  const std::string key = regionKey(*operand);
  if (PVBregion* known = run.regionTable.find(key)) return known;
  std::unique_ptr<PVBregion> region = PVBregionNew();
  PVBregionInit(*region, key, *operand, TIME_ZERO, TIME_MAX);
  return &run.regionTable.insert(key, std::move(region));
}

// Turns the region of an operand that names a signal list into its carrier. A
// list used before has its carrier already.
void carryListName(PVBregion& region) {
  if (region.pvbName.empty()) return;
  region.regionName.clear();
  region.listName = std::move(region.pvbName);
  region.pvbName.clear();
}

// --- Operations ----------------------------------------------------------------------

constexpr std::string_view kOpFunction = "handleOpSpec";

struct Operands {
  ErrArg first, second, third;
};

bool isSignalEdit(OpKind kind) { return kind == kOpRename || kind == kOpAdd || kind == kOpCut; }

bool hasOperand(const ErrArg& operand) { return operand && !operand->empty(); }

bool checkOperandCount(OpKind kind, std::string_view word, const Operands& operands) {
  if ((kind == kOpMerge || kind == kOpConcat) && !hasOperand(operands.third)) {
    return failRow(kThirdOperandMissing, kOpFunction, operands.first, operands.second);
  }
  if ((kind == kOpCopy || kind == kOpTimeplateRename) && hasOperand(operands.third)) {
    return failRow(kTooManyArguments, kOpFunction, word);
  }
  if ((kind == kOpAddCompression || isSignalEdit(kind)) && !hasOperand(operands.second)) {
    return failRow(kOperationArgument, kOpFunction, operands.first);
  }
  return true;
}

void setCompression(OpSpec& op, const ErrArg& specName) {
  const auto found = run.lists.compressTable.find(std::string(*specName));
  if (found == run.lists.compressTable.end()) return;
  op.repeatKeyword = found->second.repeatKey;
  op.loopKeyword = found->second.loopKey;
  op.loopBlockSize = found->second.blockSize;
}

void setRegions(OpSpec& op, const Operands& operands) {
  op.src1 = makeOperandRgn(operands.first);
  if (op.type == kOpAddCompression) {
    op.dest = makeOperandRgn(operands.third);
    setCompression(op, operands.second);
    return;
  }
  op.src2 = makeOperandRgn(operands.second);
  op.dest = makeOperandRgn(operands.third);
  if (!isSignalEdit(op.type)) return;
  if (op.dest == nullptr) op.dest = op.src1;
  carryListName(*op.src2);
}

// With the reference database not given by parameter it is a region's name here,
// not its path.
std::string referenceOf(const OpSpec& op, const OpFileParams& params) {
  if (!params.referencePVB.empty()) return params.referencePVB;
  const PVBregion* region = op.src1 != nullptr ? op.src1 : op.src2;
  return region != nullptr ? region->regionName : std::string();
}

bool takeRenameSettings(const OpFileParams& params) {
  return tpRenameSetParams(params.tpRenameMode, params.tpRenameStartIndex, params.tpRenamePrefixStr,
                           params.tpRenameSearchStr, params.tpRenameReplaceStr);
}

bool handleOpSpec(const SRFtuple& row, const OpFileParams& params) {
  const Operands operands = {valueOf(row, kOperand1), valueOf(row, kOperand2),
                             valueOf(row, kOperand3)};
  if (!hasOperand(operands.first) && !hasOperand(operands.second)) {
    return failRow(kOperationArgument, kOpFunction, kColumns[kOperand1], kColumns[kOperand2]);
  }
  const std::string word = textOf(row, kOperationColumn);
  if (word.empty()) return failRow(kOperationArgument, kOpFunction, kColumns[kOperationColumn]);
  const Operation* operation = operationOfFile(word);
  if (operation == nullptr) return failRow(kInvalidOperation, kOpFunction, word);
  if (!checkOperandCount(operation->kind, word, operands)) return false;
  if (operation->kind == kOpTimeplateRename && !takeRenameSettings(params)) return false;
  OpSpec op;
  op.type = operation->kind;
  setRegions(op, operands);
  op.refPvb = referenceOf(op, params);
  run.opList.push_back(std::move(op));
  return true;
}

bool handleCompressSpec(const SRFtuple& row) {
  const std::string name = textOf(row, kCompressSpec);
  CompressSpec& spec = run.lists.compressTable.try_emplace(name, CompressSpec{name}).first->second;
  if (const ErrArg key = valueOf(row, kRepeatKey)) spec.repeatKey = *key;
  if (const ErrArg key = valueOf(row, kLoopKey)) spec.loopKey = *key;
  if (const ErrArg size = valueOf(row, kLoopBlockSize)) spec.blockSize = PBtextToInt(*size);
  return true;
}

// A row's handler sees only the row; the columns that wake it say which rows.
template <bool (*Handler)(const SRFtuple&)>
SRFrowHandler rowHandler(std::uint32_t columns) {
  return {columns, [](const SRFtuple& row, std::uint32_t) { return Handler(row); }};
}

}  // namespace

bool readOperationFile(const std::string& path, const OpFileParams& params) {
  const SRFrowHandler handlers[] = {
      rowHandler<handleRenameSignalListSpec>(bit(kOldSigName) | bit(kNewSigName)),
      rowHandler<handleAddsListSpec>(bit(kAddSigName)),
      rowHandler<handleAddsTrackSpec>(bit(kSigShape)),
      rowHandler<handleCutListSpec>(bit(kCutSigName)),
      rowHandler<handleRegionSpec>(bit(kRegionName) | bit(kPvbName)),
      {bit(kOperationColumn),
       [&](const SRFtuple& row, std::uint32_t) { return handleOpSpec(row, params); }},
      rowHandler<handleCompressSpec>(bit(kCompressSpec)),
  };
  SRF_setKeywords(kColumns);
  const bool parsed = SRF_parseFile(path, handlers);
  while (const std::optional<std::string> message = SRF_nextMessage()) {
    std::fputs(message->c_str(), stderr);
  }
  return parsed;
}
