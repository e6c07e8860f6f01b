#pragma once

// Equation data of two databases: whether they can be combined, and combining them.
// Sheets are read into plain records, compared, and copied into the destination's
// "pvb.sdb" (see spec_data.h). Databases are given by handle; only their directories
// are used, so the sections may be open or not.

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

// Attribute of a variable in a set. Code kValueUndefined has no value, kValueText a
// text (which may be absent), any other a number.
inline constexpr int kValueText = 2;
inline constexpr int kValueUndefined = 9;
struct eqValue {
  int code = kValueUndefined;
  double number = 0;
  std::optional<std::string> text;
};

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
  std::int32_t count = 0;
  std::unordered_map<std::string, eqItem> items;
};

struct eqSheet {
  std::optional<std::string> name;
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

// Whether a database has equation data with content: a sheet with rows or sets.
bool eqHasContent(int database);
int eqInspect(int src1, int src2);
// Reads the sheets of a database. 0, or -2 after a post for a file that can't be read.
int eqLoad(int database, eqSheetTable& sheets);
bool eqSheetsDisjoint(const eqSheet& a, const eqSheet& b);
bool eqSheetsIdentical(const eqSheet& a, const eqSheet& b);
// 0, or -2 for an inconsistency.
int eqCategorize(const eqSheetTable& src1, const eqSheetTable& src2, eqSheetCategories& categories);
// Copies one sheet into the destination's equation data.
int eqCopySheet(int dst, int src, const eqSheet& sheet);
// By `code`, as eqInspect gives it: nothing, the file of one source, or the sheets of
// both by their categories. 0, or -2 after a post.
int eqMerge(int dst, int src1, int src2, int code, const eqSheetCategories& categories);
