#include <algorithm>
#include <memory>
#include <utility>

#include "base/platform.h"
#include "base/srf.h"
#include "base/srf_internal.h"
#include "base/text.h"

namespace {

constexpr std::size_t kMaxEscapedLength = 1023;
constexpr std::uint32_t kAllColumns = 0xFFFFFFFF;
// A header begins with "#%" and a blank, which the first column's width includes.
constexpr std::string_view kHeaderMark = "#% ";

struct Column {
  std::string keyword;
  std::size_t width;
};

// The writer's process-wide state, from SRF_openSrf to SRF_closeSrf.
struct Writer {
  std::FILE* stream = nullptr;  // null when nothing is open
  StreamPtr owned;              // the same stream, unless it is standard output
  std::string name;
  std::vector<Column> columns;  // of the header in force; empty before the first
  // The columns for which that header was written: the list's keywords, or those
  // of the tuple, of which the header may show a part.
  std::vector<std::string> writtenFor;
  std::string line;  // kept from row to row
};

// Made at the first use and left alive until the process ends.
Writer& writer() {
  static Writer& instance = *std::make_unique<Writer>().release();
  return instance;
}

bool checkOpen(std::string_view function) {
  return writer().stream != nullptr || postSrf(function, 85, "File not open");
}

bool putLine(std::string_view function) {
  const Writer& out = writer();
  if (std::fwrite(out.line.data(), 1, out.line.size(), out.stream) == out.line.size()) return true;
  PBpostError(function, 85, out.name);
  return false;
}

// --- Values --------------------------------------------------------------------------

bool holdsWhite(std::string_view text) { return std::ranges::any_of(text, PBisSpace); }

// Any white space counts, not only blanks and tabs, so that a value comes back.
bool needsQuotes(std::string_view text) {
  return text.empty() || text == "-" || holdsWhite(text) ||
         text.find_first_of("\"#\\") != std::string_view::npos;
}

bool isNumber(std::string_view text) {
  if (text.starts_with('-')) text.remove_prefix(1);
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

bool appendQuoted(std::string& line, std::string_view text) {
  line += '"';
  const std::size_t start = line.size();
  for (const char c : text) {
    if (c == '"' || c == '#' || c == '\\') line += '\\';
    line += c;
  }
  if (line.size() - start > kMaxEscapedLength)
    return postSrf("SRF_putString", 0, "SRF value too big\n");
  line += '"';
  return true;
}

// Appends the value in its column; false for one that can't be written.
bool appendValue(std::string& line, std::optional<std::string_view> value, std::size_t width) {
  const std::size_t start = line.size();
  const std::string_view text = value.value_or("-");
  if (text.find('\n') != std::string_view::npos) return false;
  if (value && needsQuotes(text)) {
    if (!appendQuoted(line, text)) return false;
  } else if (text.size() < width && isNumber(text)) {
    line.append(width - text.size(), ' ').append(text);
  } else {
    line += text;
  }
  const std::size_t used = line.size() - start;
  if (used < width) line.append(width - used, ' ');
  return true;
}

// --- Headers -------------------------------------------------------------------------

std::size_t columnWidth(std::string_view keyword, std::string_view value, bool first) {
  const std::size_t valueWidth = value.size() + (holdsWhite(value) ? 2 : 0);
  return std::max(keyword.size(), valueWidth) + (first ? kHeaderMark.size() : 0);
}

void addColumn(std::vector<Column>& columns, std::string_view keyword, std::string_view value) {
  columns.push_back({std::string(keyword), columnWidth(keyword, value, columns.empty())});
}

std::vector<Column> chooseColumns(std::uint32_t mask, const SRFtuple& tuple,
                                  std::span<const std::string_view> keywords) {
  std::vector<Column> columns;
  const auto outside = [&](const SRFitem& item) {
    return item.attribute != 0 && (item.attribute & mask) == 0;
  };
  for (const SRFitem& item : tuple.items) {
    if (keywords.empty() && !outside(item)) addColumn(columns, item.keyword, item.value);
  }
  for (const std::string_view keyword : keywords) {
    const auto item = std::ranges::find_if(
        tuple.items, [&](const SRFitem& each) { return PBstrEq(each.keyword, keyword); });
    const bool found = item != tuple.items.end();
    if (found && outside(*item)) continue;
    addColumn(columns, keyword, found ? item->value : std::string_view());
  }
  return columns;
}

std::vector<std::string> columnSet(const SRFtuple& tuple,
                                   std::span<const std::string_view> keywords) {
  std::vector<std::string> set(keywords.begin(), keywords.end());
  if (!set.empty()) return set;
  for (const SRFitem& item : tuple.items) set.emplace_back(item.keyword);
  return set;
}

void appendComment(std::string& line, std::string_view text) {
  line.append("# ").append(text.substr(0, text.find('\n'))).append("\n");
}

void appendHeader(std::string& line, const std::vector<Column>& columns, std::string_view comment) {
  if (!writer().columns.empty()) line += '\n';
  if (!comment.empty()) appendComment(line, comment);
  line += kHeaderMark;
  std::size_t lead = kHeaderMark.size();
  for (const Column& column : columns) {
    if (lead == 0) line += ' ';
    line.append(column.keyword).append(column.width - lead - column.keyword.size(), ' ');
    lead = 0;
  }
  line += '\n';
}

// Appends the header for the tuple and puts it in force.
bool startTable(std::uint32_t mask, const SRFtuple& tuple,
                std::span<const std::string_view> keywords) {
  std::vector<Column> columns = chooseColumns(mask, tuple, keywords);
  const bool sound = !columns.empty() && std::ranges::none_of(columns, [](const Column& column) {
    return column.keyword != "-" && needsQuotes(column.keyword);
  });
  if (!sound) return false;
  appendHeader(writer().line, columns, tuple.comment);
  writer().columns = std::move(columns);
  writer().writtenFor = columnSet(tuple, keywords);
  return true;
}

// --- Rows ----------------------------------------------------------------------------

bool sameSequence(std::span<const std::string_view> keywords) {
  return std::ranges::equal(writer().writtenFor, keywords,
                            [](const auto& a, const auto& b) { return PBstrEq(a, b); });
}

bool sameSet(const SRFtuple& tuple) {
  const std::vector<std::string>& set = writer().writtenFor;
  const std::vector<SRFitem>& items = tuple.items;
  const auto same = [](const std::string& name, const SRFitem& item) {
    return PBstrEq(name, item.keyword);
  };
  if (std::ranges::equal(set, items, same)) return true;
  return set.size() == items.size() && std::ranges::all_of(set, [&](const std::string& name) {
           return SRF_get(tuple, name).has_value();
         });
}

// The tuple's items mostly stand in the order of the columns.
std::optional<std::string_view> valueOfColumn(const SRFtuple& tuple, std::size_t column) {
  const std::string& keyword = writer().columns[column].keyword;
  if (column < tuple.items.size() && PBstrEq(tuple.items[column].keyword, keyword)) {
    return tuple.items[column].value;
  }
  return SRF_get(tuple, keyword);
}

bool appendRow(const SRFtuple& tuple) {
  Writer& out = writer();
  for (std::size_t column = 0; column < out.columns.size(); ++column) {
    if (column > 0) out.line += ' ';
    if (!appendValue(out.line, valueOfColumn(tuple, column), out.columns[column].width))
      return false;
  }
  out.line += '\n';
  return true;
}

// Writes the row, and its header first when `newTable`; all of it or nothing.
bool putRow(std::string_view function, bool newTable, const SRFtuple& tuple,
            std::span<const std::string_view> keywords) {
  Writer& out = writer();
  out.line.clear();
  if (!newTable) return appendRow(tuple) && putLine(function);
  const std::vector<Column> columnsBefore = out.columns;
  const std::vector<std::string> setBefore = out.writtenFor;
  if (startTable(kAllColumns, tuple, keywords) && appendRow(tuple)) return putLine(function);
  out.columns = columnsBefore;
  out.writtenFor = setBefore;
  return false;
}

}  // namespace

// --- Opening and closing -------------------------------------------------------------

bool SRF_openSrf(const std::optional<std::string>& path, const char* mode) {
  constexpr std::string_view kName = "SRF_openSrf";
  Writer& out = writer();
  if (out.stream != nullptr) return postSrf(kName, 81, "Output file already opened.");
  Writer opened;
  opened.name = path.value_or("standard output");
  if (path) opened.owned = openStream(*path, mode);
  opened.stream = path ? opened.owned.get() : stdout;
  if (opened.stream == nullptr) {
    PBpostError(kName, 81, *path);
    return false;
  }
  out = std::move(opened);
  return true;
}

bool SRF_closeSrf() {
  constexpr std::string_view kName = "SRF_closeSrf";
  if (!checkOpen(kName)) return false;
  Writer closing = std::exchange(writer(), Writer());
  const bool sound =
      closing.owned ? closeStream(std::move(closing.owned)) == 0 : std::fflush(stdout) == 0;
  if (!sound) PBpostError(kName, 78, closing.name);
  return sound;
}

// --- Writing -------------------------------------------------------------------------

bool SRF_comment(std::optional<std::string_view> text) {
  constexpr std::string_view kName = "SRF_comment";
  if (!checkOpen(kName)) return false;
  std::string& line = writer().line;
  line.clear();
  if (text) {
    appendComment(line, *text);
  } else {
    line += '\n';
  }
  return putLine(kName);
}

bool SRF_putRd(std::uint32_t mask, const SRFtuple& tuple,
               std::span<const std::string_view> keywords) {
  constexpr std::string_view kName = "SRF_putRd";
  if (!checkOpen(kName)) return false;
  writer().line.clear();
  return startTable(mask, tuple, keywords) && putLine(kName);
}

bool SRF_putTpl(const SRFtuple& tuple) {
  constexpr std::string_view kName = "SRF_putTpl";
  if (!checkOpen(kName)) return false;
  return tuple.items.empty() || putRow(kName, !sameSet(tuple), tuple, {});
}

bool SRF_putTplOrdered(const SRFtuple& tuple, std::span<const std::string_view> keywords) {
  constexpr std::string_view kName = "SRF_putTplOrdered";
  if (!checkOpen(kName)) return false;
  return tuple.items.empty() || keywords.empty() ||
         putRow(kName, !sameSequence(keywords), tuple, keywords);
}

bool SRF_putString(std::FILE* stream, std::optional<std::string_view> text, int* width) {
  constexpr std::string_view kName = "SRF_putString";
  if (stream == nullptr) return postSrf(kName, 85, "File not open");
  std::string value;
  const int columns = width == nullptr ? 0 : std::max(*width, 0);
  if (!appendValue(value, text, static_cast<std::size_t>(columns))) return false;
  if (std::fwrite(value.data(), 1, value.size(), stream) != value.size()) {
    PBpostError(kName, 85, "standard stream");
    return false;
  }
  if (width != nullptr) *width = static_cast<int>(value.size());
  return true;
}
