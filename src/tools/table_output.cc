#include "tools/table_output.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

namespace {

constexpr std::size_t kRowsKept = 1000;
constexpr std::string_view kGap = "  ";

std::string cellText(const Cell& cell) {
  if (const auto* number = std::get_if<std::int64_t>(&cell)) return std::to_string(*number);
  if (const auto* text = std::get_if<std::string>(&cell)) return *text;
  return {};
}

std::vector<std::string> cellTexts(const std::vector<Cell>& cells) {
  std::vector<std::string> texts;
  texts.reserve(cells.size());
  for (const Cell& cell : cells) texts.push_back(cellText(cell));
  return texts;
}

// Line ends and other control characters would break a table's lines.
std::string oneLine(std::string text) {
  std::ranges::replace_if(
      text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }, ' ');
  return text;
}

void appendCsv(std::string& out, std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
    out += text;
    return;
  }
  out += '"';
  for (const char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
}

}  // namespace

std::span<const std::string> tableFormatNames() {
  static const std::array<std::string, 5> names = {"table", "json", "jsonl", "csv", "md"};
  return names;
}

TableFormat tableFormat(std::string_view name) {
  const auto names = tableFormatNames();
  const auto found = std::ranges::find(names, name);
  return found == names.end() ? TableFormat::table
                              : static_cast<TableFormat>(found - names.begin());
}

void appendJsonText(std::string& out, std::string_view text) {
  out += nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

TableOutput::TableOutput(TextSink& out, TableFormat format, std::string_view schema,
                         std::vector<std::string> columns)
    : out_(out), format_(format), columns_(std::move(columns)), numeric_(columns_.size(), true) {
  for (const std::string& column : columns_) widths_.push_back(column.size());
  if (format_ == TableFormat::json) {
    out_.text() += "{\"schema\":";
    appendJsonText(out_.text(), schema);
    out_.text() += ",\"rows\":[";
  }
  if (format_ == TableFormat::csv) csvRow(columns_);
  if (format_ == TableFormat::md) {
    mdRow(columns_);
    mdRow(std::vector<std::string>(columns_.size(), "---"));
  }
}

void TableOutput::row(const std::vector<Cell>& cells) {
  if (format_ == TableFormat::table) {
    alignedRow(cells);
  } else if (format_ == TableFormat::csv) {
    csvRow(cellTexts(cells));
  } else if (format_ == TableFormat::md) {
    mdRow(cellTexts(cells));
  } else {
    jsonRow(cells);
  }
  firstRow_ = false;
  out_.offer();
}

bool TableOutput::finish() {
  if (format_ == TableFormat::table) fixWidths();
  if (format_ == TableFormat::json) out_.text() += "\n]}\n";
  return out_.finish();
}

// --- The forms -----------------------------------------------------------------------

void TableOutput::alignedRow(const std::vector<Cell>& cells) {
  std::vector<std::string> texts = cellTexts(cells);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    texts[i] = oneLine(std::move(texts[i]));
    if (widthsFixed_) continue;
    if (std::holds_alternative<std::string>(cells[i])) numeric_[i] = false;
    widths_[i] = std::max(widths_[i], texts[i].size());
  }
  if (widthsFixed_) return plainRow(texts);
  kept_.push_back(std::move(texts));
  if (kept_.size() == kRowsKept) fixWidths();
}

void TableOutput::fixWidths() {
  if (widthsFixed_) return;
  widthsFixed_ = true;
  plainRow(columns_);
  for (const auto& texts : kept_) plainRow(texts);
  kept_.clear();
}

void TableOutput::plainRow(const std::vector<std::string>& texts) {
  std::string line;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::size_t blanks = widths_[i] - std::min(widths_[i], texts[i].size());
    if (i > 0) line += kGap;
    if (numeric_[i]) line.append(blanks, ' ');
    line += texts[i];
    if (!numeric_[i]) line.append(blanks, ' ');
  }
  while (line.ends_with(' ')) line.pop_back();
  out_.text() += line;
  out_.text() += '\n';
}

void TableOutput::jsonRow(const std::vector<Cell>& cells) {
  std::string& text = out_.text();
  if (format_ == TableFormat::json) text += firstRow_ ? "\n" : ",\n";
  text += '{';
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (i > 0) text += ',';
    appendJsonText(text, columns_[i]);
    text += ':';
    if (const auto* words = std::get_if<std::string>(&cells[i])) {
      appendJsonText(text, *words);
    } else {
      const std::string number = cellText(cells[i]);
      text += number.empty() ? "null" : number;
    }
  }
  text += '}';
  if (format_ == TableFormat::jsonl) text += '\n';
}

void TableOutput::csvRow(const std::vector<std::string>& cells) {
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (i > 0) out_.text() += ',';
    appendCsv(out_.text(), cells[i]);
  }
  out_.text() += '\n';
}

void TableOutput::mdRow(const std::vector<std::string>& cells) {
  out_.text() += '|';
  for (const std::string& cell : cells) {
    out_.text() += ' ';
    for (const char c : oneLine(cell)) {
      if (c == '|') out_.text() += '\\';
      out_.text() += c;
    }
    out_.text() += " |";
  }
  out_.text() += '\n';
}
