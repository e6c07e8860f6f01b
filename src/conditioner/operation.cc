#include "conditioner/operation.h"

#include <algorithm>

#include "base/text.h"

namespace {

constexpr Operation kOperations[] = {
    {kOpMerge, "merge", "merge", "merge", 0, nullptr},
    {kOpConcat, "concat", "concat", "concat", 1, nullptr},
    {kOpInsert, "insert", nullptr, "concat", 2, nullptr},
    {kOpCopy, "copy", "copy", "copy", 3, nullptr},
    {kOpRename, nullptr, "rename", "renameSignal", 4, nullptr},
    {kOpAdd, nullptr, "add", "adds", 5, nullptr},
    {kOpCut, nullptr, "cut", "cut", 6, nullptr},
    {kOpDeleteDB, nullptr, "deleteDB", "deleteDB", 7, nullptr},
    {kOpFlatten, "flatten", nullptr, "flatten", 8, nullptr},
    {kOpAddCompression, "addcompression", "addCompression", "AddCompression", 83, nullptr},
    {kOpDuplicateRow, nullptr, "duplicateRow", nullptr, kNoFailureIndex, nullptr},
    {kOpTimeplateOptimize, "timeplate_optimize", nullptr, "tpOptimize", 9, nullptr},
    {kOpTimeplateRename, "timeplate_rename", "timeplateRename", "timeplateRename", 9, nullptr},
    {kOpAnnotateVectors, "annotate_vectors", nullptr, "annotateVectors", 86, nullptr},
    {kOpMuxify, "muxify", nullptr, "muxify", 87, nullptr},
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
