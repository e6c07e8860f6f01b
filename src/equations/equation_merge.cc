#include "equations/equation_merge.h"

#include <algorithm>
#include <cerrno>
#include <unordered_set>

#include "base/errors.h"
#include "pvb/database.h"

namespace {

// --- Loading -------------------------------------------------------------------------

std::int32_t countOf(std::size_t count) { return static_cast<std::int32_t>(count); }

eqItem itemOf(const std::string& name, const ssItem& item) {
  return {name, item.expression, item.minimum, item.maximum, item.measured};
}

eqSet setOf(const ssSheet& from, const ssSet& set) {
  eqSet out;
  out.name = set.name;
  out.count = countOf(from.variables.size());
  for (const auto& [row, item] : set.items) {
    if (ssHoldsNothing(item)) continue;
    const std::string& name = from.variables[row].name;
    out.items.emplace(name, itemOf(name, item));
  }
  return out;
}

eqSheet sheetOf(const ssSheet& from) {
  eqSheet out;
  if (!from.name.empty()) out.name = from.name;
  out.itemCount = countOf(from.variables.size());
  out.setCount = countOf(from.sets.size());
  if (!from.sets.empty()) out.defaultSet = from.sets[from.selectedSet].name;
  for (const ssVariable& variable : from.variables) {
    out.variables.emplace(variable.name, eqVariable{variable.name, variable.expression});
  }
  for (const ssSet& set : from.sets) out.sets.emplace(set.name, setOf(from, set));
  return out;
}

const std::string& keyOf(const eqSheet& sheet) {
  static const std::string kNoName;
  return sheet.name ? *sheet.name : kNoName;
}

// --- Comparing -----------------------------------------------------------------------

bool sameValue(const eqValue& a, const eqValue& b) {
  if (a.code != b.code) return false;
  if (a.code == kValueUndefined) return true;
  return a.code == kValueText ? a.text == b.text : a.number == b.number;
}

bool sameItem(const eqItem& a, const eqItem& b) {
  return a.name == b.name && a.expression == b.expression &&
         sameValue(a.attribute4, b.attribute4) && sameValue(a.attribute5, b.attribute5) &&
         sameValue(a.attribute7, b.attribute7);
}

bool sameVariable(const eqVariable& a, const eqVariable& b) {
  return a.name == b.name && a.expression == b.expression;
}

// Whether each entry of one is found in the other and is equal, in both directions.
template <typename Map, typename Same>
bool sameEntries(const Map& a, const Map& b, Same same) {
  const auto foundIn = [&](const Map& other) {
    return [&](const auto& entry) {
      const auto found = other.find(entry.first);
      return found != other.end() && same(entry.second, found->second);
    };
  };
  return std::ranges::all_of(a, foundIn(b)) && std::ranges::all_of(b, foundIn(a));
}

bool sameSet(const eqSet& a, const eqSet& b) {
  return a.name == b.name && a.count == b.count && sameEntries(a.items, b.items, sameItem);
}

// --- Categories ----------------------------------------------------------------------

const eqSheet* namesake(const eqSheetTable& table, const eqSheet& sheet) {
  const auto found = table.byName.find(keyOf(sheet));
  return found != table.byName.end() ? &table.sheets[found->second] : nullptr;
}

// The names by which a sheet can overlap any sheet of a table, so that not each has to
// be compared with each.
class Overlap {
 public:
  explicit Overlap(const eqSheetTable& table) : table_(table) {
    for (const eqSheet& sheet : table.sheets) {
      for (const auto& [name, variable] : sheet.variables) variables_.insert(name);
    }
  }
  // Whether eqSheetsDisjoint fails for some sheet of the table.
  bool with(const eqSheet& sheet) const {
    return namesake(table_, sheet) != nullptr ||
           std::ranges::any_of(sheet.variables, [this](const auto& entry) {
             return variables_.contains(entry.first);
           });
  }

 private:
  const eqSheetTable& table_;
  std::unordered_set<std::string_view> variables_;
};

// --- Copying -------------------------------------------------------------------------

[[noreturn]] void inconsistent(int line) { assertFail(__FILE__, line); }

void copySymbols(ssSheet& to, const ssSheet& from) {
  for (const ssVariable& symbol : from.variables) {
    if (ssAddSymbol(to, symbol.name, symbol.type, symbol.expression) == nullptr) {
      inconsistent(__LINE__);
    }
  }
}

// Rows are the same in both sheets.
void copySets(ssSheet& to, const ssSheet& from) {
  for (const ssSet& set : from.sets) {
    if (set.name != kFirstSet && ssAddSet(to, set.name) == nullptr) inconsistent(__LINE__);
    const std::size_t index = to.sets.find(set.name);
    if (index == kNotFound) inconsistent(__LINE__);
    to.sets[index].items = set.items;
  }
}

void copySheet(ssData& to, const ssData& from, const std::string& name) {
  const std::size_t index = from.sheets.find(name);
  if (index == kNotFound) inconsistent(__LINE__);
  const ssSheet& source = from.sheets[index];
  ssSheet* sheet = ssAddSheet(to, name);
  if (sheet == nullptr) inconsistent(__LINE__);
  if (ssSelectSheet(to, name) == kNotFound) inconsistent(__LINE__);
  copySymbols(*sheet, source);
  copySets(*sheet, source);
  if (source.sets.empty()) return;
  if (ssSelectSet(*sheet, source.sets[source.selectedSet].name) == kNotFound) {
    inconsistent(__LINE__);
  }
}

struct CopyStep {
  eqSheetCategory category;
  int source;
};
// Identical sheets come from source 1.
constexpr std::array<CopyStep, 3> kCopySteps = {
    {{SRC1_DISJOINT_SHEETS, 1}, {IDENTICAL_SHEETS, 1}, {SRC2_DISJOINT_SHEETS, 2}}};

// A destination that was copied from a source holds its sheets already; they are put in
// anew, which gives the same order everywhere.
void cutSheetsToCopy(ssData& to, const eqSheetCategories& categories) {
  std::unordered_set<std::string_view> names = {kFirstSheet};
  for (const CopyStep& step : kCopySteps) {
    names.insert(categories[step.category].begin(), categories[step.category].end());
  }
  ssCutSheets(to, [&](const ssSheet& sheet) { return names.contains(sheet.name); });
}

int mergeSheets(int dst, int src1, int src2, const eqSheetCategories& categories) {
  std::optional<ssData> to = ssOpen(PVBpath(dst));
  const std::optional<ssData> from1 = ssOpen(PVBpath(src1));
  const std::optional<ssData> from2 = ssOpen(PVBpath(src2));
  if (!to || !from1 || !from2) return -2;
  cutSheetsToCopy(*to, categories);
  for (const CopyStep& step : kCopySteps) {
    for (const std::string& name : categories[step.category]) {
      copySheet(*to, step.source == 1 ? *from1 : *from2, name);
    }
  }
  if (!from1->sheets.empty()) ssSelectSheet(*to, from1->sheets[from1->selectedSheet].name);
  return ssSave(*to, PVBpath(dst));
}

}  // namespace

bool eqHasContent(int database) {
  if (!ssExists(PVBpath(database))) return false;
  const int posts = PBerrorCount();
  const std::optional<ssData> data = ssOpen(PVBpath(database));
  while (PBerrorCount() > posts) PBpopError();
  if (!data) return true;
  return std::ranges::any_of(data->sheets, [](const ssSheet& sheet) {
    return !sheet.variables.empty() || !sheet.sets.empty();
  });
}

int eqInspect(int src1, int src2) {
  return (eqHasContent(src1) ? kEquationsIn1 : 0) | (eqHasContent(src2) ? kEquationsIn2 : 0);
}

int eqLoad(int database, eqSheetTable& sheets) {
  sheets = eqSheetTable();
  if (!ssExists(PVBpath(database))) return 0;
  const std::optional<ssData> data = ssOpen(PVBpath(database));
  if (!data) return -2;
  for (const ssSheet& sheet : data->sheets) {
    sheets.byName.emplace(sheet.name, sheets.sheets.size());
    sheets.sheets.push_back(sheetOf(sheet));
  }
  return 0;
}

bool eqSheetsDisjoint(const eqSheet& a, const eqSheet& b) {
  if (a.name == b.name) return false;
  return std::ranges::none_of(a.variables,
                              [&](const auto& entry) { return b.variables.contains(entry.first); });
}

bool eqSheetsIdentical(const eqSheet& a, const eqSheet& b) {
  return a.name == b.name && a.setCount == b.setCount && a.itemCount == b.itemCount &&
         a.defaultSet == b.defaultSet && sameEntries(a.variables, b.variables, sameVariable) &&
         sameEntries(a.sets, b.sets, sameSet);
}

int eqCategorize(const eqSheetTable& src1, const eqSheetTable& src2,
                 eqSheetCategories& categories) {
  categories = eqSheetCategories();
  const auto enter = [&](eqSheetCategory category, const eqSheet& sheet) {
    categories[category].push_back(keyOf(sheet));
  };
  const Overlap overlap1(src1);
  const Overlap overlap2(src2);
  for (const eqSheet& sheet : src1.sheets) {
    const eqSheet* same = namesake(src2, sheet);
    const bool identical = same != nullptr && eqSheetsIdentical(sheet, *same);
    enter(!overlap2.with(sheet) ? SRC1_DISJOINT_SHEETS
          : identical           ? IDENTICAL_SHEETS
                                : SRC1_NON_IDENTICAL_NON_DISJOINT_SHEETS,
          sheet);
  }
  const std::unordered_set<std::string_view> known(categories[IDENTICAL_SHEETS].begin(),
                                                   categories[IDENTICAL_SHEETS].end());
  for (const eqSheet& sheet : src2.sheets) {
    const eqSheet* same = namesake(src1, sheet);
    if (!overlap1.with(sheet)) {
      enter(SRC2_DISJOINT_SHEETS, sheet);
    } else if (same == nullptr || !eqSheetsIdentical(sheet, *same)) {
      enter(SRC2_NON_IDENTICAL_NON_DISJOINT_SHEETS, sheet);
    } else if (!known.contains(keyOf(sheet))) {
      return -2;
    }
  }
  return 0;
}

int eqCopySheet(int dst, int src, const eqSheet& sheet) {
  std::optional<ssData> to = ssOpen(PVBpath(dst));
  const std::optional<ssData> from = ssOpen(PVBpath(src));
  if (!to || !from) return -2;
  const std::string& name = keyOf(sheet);
  ssCutSheets(*to, [&](const ssSheet& old) { return old.name == name; });
  copySheet(*to, *from, name);
  return ssSave(*to, PVBpath(dst));
}

int eqMerge(int dst, int src1, int src2, int code, const eqSheetCategories& categories) {
  switch (code) {
    case kEquationsIn1:
      return ssCopyFile(PVBpath(dst), PVBpath(src1));
    case kEquationsIn2:
      return ssCopyFile(PVBpath(dst), PVBpath(src2));
    case kEquationsInBoth:
      return mergeSheets(dst, src1, src2, categories);
    default:
      return 0;
  }
}
