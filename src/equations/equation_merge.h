#pragma once

// Equation data of two databases: whether they can be combined, and combining them.
// Sheets are read into plain records, compared, and copied into the destination's
// "pvb.sdb" (see spec_data.h). Databases are given by handle; only their directories
// are used, so the sections may be open or not. Nothing of the equation data hangs on
// the handle: whoever opens the file next sees what was merged.
//
// Failure: -2 after a post. A step that only an inconsistency of the program can fail
// ends the program through the assertion hook.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "equations/spec_data.h"

using eqValue = ssValue;

struct eqItem {
  std::string name;
  std::optional<std::string> expression;
  eqValue attribute4;  // minimum
  eqValue attribute5;  // maximum
  eqValue attribute7;  // measured value
};

struct eqVariable {
  std::string name;
  std::string expression;
};

struct eqSet {
  std::string name;
  std::int32_t count = 0;  // variables of the sheet
  // Those of which the set says anything; an item that isn't here is empty.
  std::unordered_map<std::string, eqItem> items;
};

struct eqSheet {
  std::optional<std::string> name;  // none: under "" in tables and categories
  std::int32_t setCount = 0;
  std::unordered_map<std::string, eqSet> sets;
  std::int32_t itemCount = 0;
  std::unordered_map<std::string, eqVariable> variables;
  std::string defaultSet;  // the set that the sheet has selected
};

// The sheets of a database in the order of its file.
struct eqSheetTable {
  std::vector<eqSheet> sheets;
  std::unordered_map<std::string, std::size_t> byName;
};

// Bits of what eqInspect gives.
inline constexpr int kEquationsIn1 = 1;
inline constexpr int kEquationsIn2 = 2;
inline constexpr int kEquationsInBoth = kEquationsIn1 | kEquationsIn2;

enum eqSheetCategory : std::size_t {
  SRC1_DISJOINT_SHEETS = 0,
  SRC1_NON_IDENTICAL_NON_DISJOINT_SHEETS = 1,
  SRC2_DISJOINT_SHEETS = 2,
  SRC2_NON_IDENTICAL_NON_DISJOINT_SHEETS = 3,
  IDENTICAL_SHEETS = 4,
};
// Names of sheets by category, each in the order of its source's file.
using eqSheetCategories = std::array<std::vector<std::string>, 5>;

// Whether a database has equation data with content: a sheet with rows or sets. A file
// that can't be read counts, so that it isn't passed over: loading it tells the reason.
bool eqHasContent(int database);
int eqInspect(int src1, int src2);
// Reads the sheets of a database. 0, or -2 after a post for a file that can't be read.
int eqLoad(int database, eqSheetTable& sheets);
// Two sheets are disjoint when their names differ, one at least has a name, and they
// share no variable.
bool eqSheetsDisjoint(const eqSheet& a, const eqSheet& b);
// Texts are compared exactly and numbers with ==, so that a value that is no number
// makes sheets different.
bool eqSheetsIdentical(const eqSheet& a, const eqSheet& b);
// 0, or -2 for an inconsistency: a sheet of source 2 that is identical to one of source
// 1, but not the other way.
int eqCategorize(const eqSheetTable& src1, const eqSheetTable& src2, eqSheetCategories& categories);
// Copies one sheet into the destination's equation data, as its last one; a sheet of
// that name goes. The copy has "Set1" even where the source's sheet hasn't.
int eqCopySheet(int dst, int src, const eqSheet& sheet);
// By `code`, as eqInspect gives it: nothing, the file of one source, or the sheets of
// both by their categories. In the last case the destination's first sheet "Sheet1" goes,
// and the sheet that source 1 has selected is selected. 0, or -2 after a post.
int eqMerge(int dst, int src1, int src2, int code, const eqSheetCategories& categories);
