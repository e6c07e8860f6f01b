#include "tools/formats.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "base/text.h"
#include "tools/export.h"
#include "tools/import.h"
#include "tools/table_output.h"
#include "tools/usage.h"

namespace {

constexpr std::string_view kPrefixEnd = ": ";
constexpr std::string_view kDefaultMark = "; else ";

// The description of an option of the format, or nothing when it is another's.
std::string_view ownDescription(std::string_view format, std::string_view description) {
  const std::size_t end = description.find(kPrefixEnd);
  const bool own = end != std::string_view::npos && PBstrEq(description.substr(0, end), format);
  return own ? description.substr(end + kPrefixEnd.size()) : std::string_view();
}

Cell textCell(std::string_view text) { return text.empty() ? Cell() : Cell(std::string(text)); }

void tellOption(TableOutput& table, std::string_view verb, std::string_view format,
                const DeclaredOption& option) {
  const std::string_view description = ownDescription(format, option.description);
  if (description.empty()) return;
  const std::size_t mark = std::min(description.find(kDefaultMark), description.size());
  const std::string_view standard = mark < description.size()
                                        ? description.substr(mark + kDefaultMark.size())
                                        : std::string_view(option.takesValue ? "" : "off");
  table.row({std::string(verb), std::string(format), Cell(),
             fmt::format("{}", fmt::join(option.names, ", ")), textCell(standard),
             std::string(description.substr(0, mark))});
}

// A row for each format, its options below it.
template <typename Format>
void tellFormats(TableOutput& table, std::string_view verb, std::span<const Format> formats,
                 int (*run)(std::span<const std::string> arguments)) {
  const std::vector<DeclaredOption> options = declaredOptions(run);
  for (const Format& format : formats) {
    table.row({std::string(verb), std::string(format.name), std::string(format.endings), Cell(),
               Cell(), std::string(format.description)});
    for (const DeclaredOption& option : options) tellOption(table, verb, format.name, option);
  }
}

}  // namespace

int runFormats(std::span<const std::string> arguments) {
  Usage usage("formats");
  usage.addFormat();
  if (const auto exit = usage.parse(arguments)) return *exit;
  TextSink out = streamSink(stdout);
  TableOutput table(out, usage.format(), "pvb-formats/1",
                    {"verb", "format", "endings", "option", "default", "meaning"});
  tellFormats(table, "import", importFormats(), runImport);
  tellFormats(table, "export", exportFormats(), runExport);
  return table.finish() ? kExitYes : refuse(kOutputLost, "standard output can't be written");
}
