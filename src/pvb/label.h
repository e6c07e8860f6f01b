#pragma once

// Labels: names of places in a pattern. A label keeps its row's number and id, so
// that it finds its row again after others were inserted or deleted. In "pvb.lb":
//
//   LABEL 2 count
//   for each: name as counted text, then a line each: subroutine, kind, rowId,
//             rowNumber; from version 2 on text as counted text
//
// Failures are rows of the message table labelError.

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pvb/id.h"

enum LabelKind : std::int32_t { kLabelPlain = 0, kLabelBlockBegin = 1, kLabelBlockEnd = 2 };
inline constexpr std::uint32_t kNoRowNumber = 0xFFFFFFFF;

struct PVBlabel {
  std::string name;
  std::int32_t subroutine = -1;  // index, -1 for the main pattern
  std::int32_t kind = kLabelPlain;
  PVBid rowId = UNDEF;
  std::uint32_t rowNumber = kNoRowNumber;
  std::optional<std::string> text;
};

struct PVBlabelData {
  std::vector<PVBlabel> labels;  // in order of insertion
  int current = -1;              // the label added last
  bool changed = false;
};

int PVBlabelsOpen(int database);
int PVBlabelsSave(int database, const std::string& directory);
int PVBlabelsClose(int database);

int PVBlabelAdd(int database, std::int32_t subroutine, const char* name, std::int32_t kind,
                std::uint32_t rowNumber);
void PVBlabelSetRowId(int database, PVBid rowId);
void PVBlabelSetText(int database, std::string_view text);
void PVBlabelClear(int database);
// Gives every label its row's number again.
int PVBlabelRecompute(int database);
// The labels in order; empty when the section isn't loaded.
const std::vector<PVBlabel>& PVBlabels(int database);
void PVBlabelDump(int database, FILE* stream);
