#pragma once

// The operations: their kinds, what one queued operation consists of, and the
// one table that says how each is named, which function carries it out and which
// message tells that it failed. A new operation is a row of this table.

#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <string_view>

#include "conditioner/region.h"

// The numbers are fixed: they are the same in both ways of giving an operation.
enum OpKind : std::int32_t {
  kOpNone = -1,
  kOpMerge = 0,
  kOpConcat = 1,
  kOpInsert = 2,
  kOpCopy = 3,
  kOpRename = 4,
  kOpAdd = 5,
  kOpCut = 6,
  kOpDeleteDB = 7,
  kOpFlatten = 8,
  kOpAddCompression = 9,
  kOpDuplicateRow = 10,
  kOpTimeplateOptimize = 11,
  kOpTimeplateRename = 12,
  kOpAnnotateVectors = 13,
  kOpMuxify = 14,
};

// One queued operation. The regions belong to the run's RegionTable; null where
// an operand isn't given.
struct OpSpec {
  OpKind type = kOpNone;
  PVBregion* src1 = nullptr;
  PVBregion* src2 = nullptr;  // the destination for kinds given with two operands
  PVBregion* dest = nullptr;
  std::string refPvb;
  std::int32_t loopBlockSize = 1;
  std::string repeatKeyword;
  std::string loopKeyword;
  std::int32_t muxDegree = 0;
  bool deleteDuplicateTps = false;
  bool deleteUnusedTps = false;
  bool deleteUnusedTracks = false;
  bool clockShapes = false;
  bool annotateRowsWithTp = false;
};

using OpList = std::deque<OpSpec>;

// 0 for success; anything else after the reasons were put on the error stacks.
using OpHandler = int (*)(OpSpec& op, RegionTable& regions);

struct Operation {
  OpKind kind;
  const char* parameterName;  // null: not to be had by the parameter `Operation`
  const char* fileName;       // null: not to be had in an operation file
  int failureIndex;           // row of PBconditionerError
  OpHandler handler;          // null: the kind can be queued, and ends the run when reached
};

// Indexed by kind.
std::span<const Operation> operations();

// The operation of this name (any case); null when there is none.
const Operation* operationOfParameter(std::string_view name);
const Operation* operationOfFile(std::string_view name);
