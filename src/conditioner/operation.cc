#include "conditioner/operation.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include "base/errors.h"
#include "base/text.h"
#include "conditioner/add.h"
#include "conditioner/add_compression.h"
#include "conditioner/annotate.h"
#include "conditioner/concat.h"
#include "conditioner/copy.h"
#include "conditioner/cut.h"
#include "conditioner/flatten.h"
#include "conditioner/merge.h"
#include "conditioner/messages.h"
#include "conditioner/muxify.h"
#include "conditioner/rename.h"
#include "conditioner/run.h"
#include "timeplate/timeplate_rename.h"
#include "timeplate/tp_optimize.h"

namespace {

// --- Handlers ------------------------------------------------------------------------

PVBregion& given(PVBregion* operand) {
  if (operand == nullptr) assertFail(__FILE__, __LINE__);
  return *operand;
}

void tellNoDestination(std::string_view function) {
  errno = 0;
  PBerrPush(PBconditionerError, kNoParameter, function, "destinationPVB");
}

int doMerge(OpSpec& op, RegionTable&) {
  return merge(given(op.dest), given(op.src1), given(op.src2), op.refPvb);
}
int doConcat(OpSpec& op, RegionTable&) {
  return concat(given(op.dest), given(op.src1), given(op.src2), kAppend);
}
// Its destination isn't asked for with the parameters, and ends the run here, as a failed
// check does. Kept on purpose; what is missing is told first.
int doInsert(OpSpec& op, RegionTable&) {
  if (op.dest == nullptr) tellNoDestination("concat");
  return concat(given(op.dest), given(op.src1), given(op.src2), kPrepend);
}
int doCopy(OpSpec& op, RegionTable&) { return copy(given(op.src2), given(op.src1)); }
int doAddCompression(OpSpec& op, RegionTable&) {
  return AddCompression(op.dest, given(op.src1), op.loopBlockSize, op.repeatKeyword,
                        op.loopKeyword);
}
// The compression that follows is that of an operation without a destination and keywords,
// so it looks at the comments of the source. Kept on purpose; when it fails, the message is
// that of a compression.
int doFlatten(OpSpec& op, RegionTable& regions) {
  if (flatten(given(op.src1), op.src2) != 0) return -2;
  op.type = kOpAddCompression;
  return doAddCompression(op, regions);
}
int doAnnotateVectors(OpSpec& op, RegionTable&) { return annotateVectors(op.src1, op.src2); }
// The path of an operand's database.
std::optional<std::string> pathOf(const PVBregion* operand) {
  return operand != nullptr ? std::optional(operand->pvbName) : std::nullopt;
}
int doTimeplateOptimize(OpSpec& op, RegionTable&) {
  const TpOptimizations wanted = {op.deleteDuplicateTps, op.deleteUnusedTps, op.deleteUnusedTracks,
                                  op.annotateRowsWithTp, op.clockShapes};
  return tpOptimize(pathOf(op.src1), pathOf(op.src2), wanted, run.reportStream);
}
int doTimeplateRename(OpSpec& op, RegionTable&) {
  return timeplateRename(pathOf(op.src1), pathOf(op.src2), run.reportStream);
}
int doRename(OpSpec& op, RegionTable&) {
  return renameSignal(given(op.dest), given(op.src1), given(op.src2));
}
int doAdd(OpSpec& op, RegionTable&) { return adds(given(op.dest), given(op.src1), given(op.src2)); }
int doCut(OpSpec& op, RegionTable&) { return cut(given(op.dest), given(op.src1), given(op.src2)); }
int doMuxify(OpSpec& op, RegionTable&) {
  if (op.src2 != nullptr) return muxify(given(op.src1), *op.src2, op.muxDegree);
  tellNoDestination("muxify()");
  return -2;
}

// --- The table -----------------------------------------------------------------------

constexpr Operation kOperations[] = {
    {kOpMerge, "merge", "merge", 0, doMerge},
    {kOpConcat, "concat", "concat", 1, doConcat},
    {kOpInsert, "insert", nullptr, 2, doInsert},
    {kOpCopy, "copy", "copy", 3, doCopy},
    {kOpRename, nullptr, "rename", 4, doRename},
    {kOpAdd, nullptr, "add", 5, doAdd},
    {kOpCut, nullptr, "cut", 6, doCut},
    {kOpDeleteDB, nullptr, "deleteDB", 7, deleteDB},
    {kOpFlatten, "flatten", nullptr, 8, doFlatten},
    {kOpAddCompression, "addcompression", "addCompression", 83, doAddCompression},
    {kOpDuplicateRow, nullptr, "duplicateRow", 0, nullptr},
    {kOpTimeplateOptimize, "timeplate_optimize", nullptr, 9, doTimeplateOptimize},
    {kOpTimeplateRename, "timeplate_rename", "timeplateRename", 9, doTimeplateRename},
    {kOpAnnotateVectors, "annotate_vectors", nullptr, 86, doAnnotateVectors},
    {kOpMuxify, "muxify", nullptr, 87, doMuxify},
};

constexpr bool isIndexedByKind() {
  return std::ranges::all_of(kOperations, [](const Operation& operation) {
    return &operation - kOperations == operation.kind;
  });
}
static_assert(isIndexedByKind());

const Operation* operationNamed(std::string_view name, const char* Operation::*column) {
  const auto found = std::ranges::find_if(kOperations, [&](const Operation& operation) {
    return operation.*column != nullptr && PBstrEq(operation.*column, name);
  });
  return found == std::end(kOperations) ? nullptr : found;
}

}  // namespace

std::span<const Operation> operations() { return kOperations; }

const Operation* operationOfParameter(std::string_view name) {
  return operationNamed(name, &Operation::parameterName);
}

const Operation* operationOfFile(std::string_view name) {
  return operationNamed(name, &Operation::fileName);
}
