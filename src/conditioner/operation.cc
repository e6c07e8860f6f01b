#include "conditioner/operation.h"

#include <algorithm>

#include "base/errors.h"
#include "base/text.h"
#include "conditioner/concat.h"
#include "conditioner/copy.h"
#include "conditioner/merge.h"
#include "conditioner/messages.h"
#include "conditioner/muxify.h"

namespace {

// --- Handlers ------------------------------------------------------------------------

PVBregion& given(PVBregion* operand) {
  if (operand == nullptr) assertFail(__FILE__, __LINE__);
  return *operand;
}

int doMerge(OpSpec& op, RegionTable&) {
  return merge(given(op.dest), given(op.src1), given(op.src2), op.refPvb);
}
int doConcat(OpSpec& op, RegionTable&) {
  return concat(given(op.dest), given(op.src1), given(op.src2), kAppend);
}
int doInsert(OpSpec& op, RegionTable&) {
  return concat(given(op.dest), given(op.src1), given(op.src2), kPrepend);
}
int doCopy(OpSpec& op, RegionTable&) { return copy(given(op.src2), given(op.src1)); }
int doMuxify(OpSpec& op, RegionTable&) {
  if (op.src2 != nullptr) return muxify(given(op.src1), *op.src2, op.muxDegree);
  PBerrPush(PBconditionerError, kNoParameter, "muxify()", "destinationPVB");
  return -2;
}

// --- The table -----------------------------------------------------------------------

constexpr Operation kOperations[] = {
    {kOpMerge, "merge", "merge", "merge", 0, doMerge},
    {kOpConcat, "concat", "concat", "concat", 1, doConcat},
    {kOpInsert, "insert", nullptr, "concat", 2, doInsert},
    {kOpCopy, "copy", "copy", "copy", 3, doCopy},
    {kOpRename, nullptr, "rename", "renameSignal", 4, nullptr},
    {kOpAdd, nullptr, "add", "adds", 5, nullptr},
    {kOpCut, nullptr, "cut", "cut", 6, nullptr},
    {kOpDeleteDB, nullptr, "deleteDB", "deleteDB", 7, deleteDB},
    {kOpFlatten, "flatten", nullptr, "flatten", 8, nullptr},
    {kOpAddCompression, "addcompression", "addCompression", "AddCompression", 83, nullptr},
    {kOpDuplicateRow, nullptr, "duplicateRow", nullptr, kNoFailureIndex, nullptr},
    {kOpTimeplateOptimize, "timeplate_optimize", nullptr, "tpOptimize", 9, nullptr},
    {kOpTimeplateRename, "timeplate_rename", "timeplateRename", "timeplateRename", 9, nullptr},
    {kOpAnnotateVectors, "annotate_vectors", nullptr, "annotateVectors", 86, nullptr},
    {kOpMuxify, "muxify", nullptr, "muxify", 87, doMuxify},
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
