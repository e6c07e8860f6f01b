#pragma once

// Rows of data in the forms that every verb offers: an aligned table for people,
// JSON (one document, with the version of its schema), JSON lines, CSV, Markdown.
// Rows are written as they come; only an aligned table keeps its first rows back
// until it knows how wide its columns are.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/text_sink.h"

enum class TableFormat { table, json, jsonl, csv, md };
// The words of --format, in the order of TableFormat.
std::span<const std::string> tableFormatNames();
TableFormat tableFormat(std::string_view name);

using Cell = std::variant<std::monostate, std::int64_t, std::string>;

class TableOutput {
 public:
  // `schema` names what the rows are, with a version: "pvb-verify/1".
  TableOutput(TextSink& out, TableFormat format, std::string_view schema,
              std::vector<std::string> columns);
  // As many cells as there are columns.
  void row(const std::vector<Cell>& cells);
  // Ends the document; false when output was lost.
  bool finish();

 private:
  void plainRow(const std::vector<std::string>& cells);
  void alignedRow(const std::vector<Cell>& cells);
  void jsonRow(const std::vector<Cell>& cells);
  void csvRow(const std::vector<std::string>& cells);
  void mdRow(const std::vector<std::string>& cells);
  void fixWidths();

  TextSink& out_;
  TableFormat format_;
  std::vector<std::string> columns_;
  std::vector<bool> numeric_;  // columns aligned on the right
  std::vector<std::size_t> widths_;
  std::vector<std::vector<std::string>> kept_;  // first rows of an aligned table
  bool widthsFixed_ = false;
  bool firstRow_ = true;
};

// A text as a JSON string; bytes that aren't UTF-8 become U+FFFD.
void appendJsonText(std::string& out, std::string_view text);
