// The head of a dump: definitions up to $enddefinitions.

#include <fmt/format.h>

#include <charconv>
#include <limits>

#include "tools/vcd_reader.h"
#include "tools/vcd_reader_internal.h"

namespace {

constexpr std::uint64_t kDefaultStep = 1000000;  // a nanosecond

struct Unit {
  std::string_view name;
  std::uint64_t femtoseconds;
};
constexpr std::array kUnits = {
    Unit{"fs", 1},          Unit{"ps", 1000},          Unit{"ns", 1000000},
    Unit{"us", 1000000000}, Unit{"ms", 1000000000000}, Unit{"s", 1000000000000000},
};
constexpr std::uint64_t kLongestTimescale = 1000;  // of its number

struct Kind {
  std::string_view type;
  VcdKind kind;
};
// Types that aren't bits.
constexpr std::array kKinds = {
    Kind{"real", VcdKind::real},      Kind{"realtime", VcdKind::real},
    Kind{"shortreal", VcdKind::real}, Kind{"real_parameter", VcdKind::real},
    Kind{"string", VcdKind::string},  Kind{"event", VcdKind::event},
};

VcdKind kindOf(std::string_view type) {
  for (const Kind& row : kKinds) {
    if (row.type == type) return row.kind;
  }
  return VcdKind::bits;
}

template <typename T>
bool parseWhole(std::string_view text, T& out) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
  return error == std::errc() && end == text.data() + text.size();
}

struct Range {
  std::int32_t left = 0;
  std::int32_t right = 0;
  std::uint64_t width() const {
    const std::int64_t distance = std::int64_t{left} - right;
    return static_cast<std::uint64_t>(distance < 0 ? -distance : distance) + 1;
  }
};

// "[7:0]", or "[3]" for one bit.
bool parseRange(std::string_view text, Range& range) {
  if (text.size() < 3 || text.front() != '[' || text.back() != ']') return false;
  text = text.substr(1, text.size() - 2);
  const std::size_t colon = text.find(':');
  if (!parseWhole(text.substr(0, colon), range.left)) return false;
  range.right = range.left;
  return colon == std::string_view::npos || parseWhole(text.substr(colon + 1), range.right);
}

// Splits a range of the variable's width off the end of its name.
void splitRange(VcdVar& var) {
  const std::size_t bracket = var.name.rfind('[');
  Range range;
  if (bracket == std::string::npos || bracket == 0 ||
      !parseRange(std::string_view(var.name).substr(bracket), range) ||
      range.width() != var.width) {
    return;
  }
  var.name.resize(bracket);
  var.ranged = true;
  var.left = range.left;
  var.right = range.right;
}

// The words of a reference. An escaped name has its brackets as part of it.
void nameVariable(VcdVar& var, const std::vector<std::string>& words, std::size_t first) {
  for (std::size_t i = first; i < words.size(); ++i) {
    if (i > first && !words[i].starts_with('[')) var.name += ' ';
    var.name += words[i];
  }
  const bool escaped = var.name.starts_with('\\') && var.name.size() > 1;
  if (!escaped || words.size() > first + 1) splitRange(var);
  if (escaped) var.name.erase(0, 1);
}

}  // namespace

void vcdScopePath(const VcdHeader& header, std::int32_t scope, std::string& path) {
  path.clear();
  for (; scope >= 0; scope = header.scopes[static_cast<std::size_t>(scope)].parent) {
    const std::string& name = header.scopes[static_cast<std::size_t>(scope)].name;
    if (name.empty()) continue;
    if (!path.empty()) path.insert(0, 1, '.');
    path.insert(0, name);
  }
}

bool VcdReader::readHeader() {
  std::string_view keyword;
  while (word(keyword)) {
    event_ = placeOf(keyword);
    if (keyword == "$enddefinitions") {
      if (!skipCommand()) break;
      bodyOffset_ = base_ + at_;
      const Message place = messageAt(at_, kVcdSyntax, {});
      bodyLine_ = static_cast<std::uint64_t>(place.line);
      bodyLineBegin_ = bodyOffset_ + 1 - place.column;
      if (header_.stepFemtoseconds != 0) return true;
      header_.stepFemtoseconds = kDefaultStep;
      tell(Severity::warning, kVcdBadTime, "the file has no $timescale: steps of 1 ns are taken");
      return true;
    }
    if (!definition(keyword)) break;
  }
  return failAt(end_, kVcdEndsEarly, "the file ends before $enddefinitions");
}

bool VcdReader::definition(std::string_view keyword) {
  if (keyword == "$timescale") return readArguments("$timescale") && timescale();
  if (keyword == "$scope") return readArguments("$scope") && enterScope();
  if (keyword == "$upscope") return readArguments("$upscope") && upScope();
  if (keyword == "$var") return readArguments("$var") && variable();
  if (keyword == "$end") return true;
  if (keyword.starts_with('$')) return skipCommand();
  return fail(kVcdSyntax, "a definition is expected: $timescale, $scope, $var, $enddefinitions");
}

bool VcdReader::skipCommand() {
  std::string_view text;
  while (word(text)) {
    if (text == "$end") return true;
  }
  return false;
}

bool VcdReader::readArguments(const std::string& name) {
  arguments_.clear();
  std::string_view text;
  while (word(text)) {
    if (text == "$end") return true;
    arguments_.emplace_back(text);
  }
  return failAt(end_, kVcdEndsEarly, fmt::format("the file ends before the $end of {}", name));
}

bool VcdReader::timescale() {
  std::string text;
  for (const std::string& word : arguments_) text += word;
  const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
  std::uint64_t number = 0;
  if (parseWhole(std::string_view(text).substr(0, digits), number) && number > 0 &&
      number <= kLongestTimescale) {
    for (const Unit& unit : kUnits) {
      if (unit.name != std::string_view(text).substr(digits)) continue;
      header_.stepFemtoseconds = number * unit.femtoseconds;
      return true;
    }
  }
  return fail(kVcdBadTime,
              fmt::format("'{}' is no timescale: a number and a unit are expected, as 1 ns",
                          text.substr(0, 40)));
}

bool VcdReader::enterScope() {
  VcdScope scope;
  scope.parent = scope_;
  for (std::size_t i = 1; i < arguments_.size(); ++i) {
    scope.name += (i > 1 ? " " : "") + arguments_[i];
  }
  if (scope.name.starts_with('\\')) scope.name.erase(0, 1);
  pathLength_ += scope.name.size() + 1;
  if (pathLength_ > kLongestPath) {
    return fail(kVcdSyntax,
                fmt::format("the path of the scope is longer than {} bytes", kLongestPath));
  }
  scope_ = static_cast<std::int32_t>(header_.scopes.size());
  header_.scopes.push_back(std::move(scope));
  return true;
}

bool VcdReader::upScope() {
  if (scope_ < 0) return fail(kVcdSyntax, "$upscope without a $scope");
  const VcdScope& scope = header_.scopes[static_cast<std::size_t>(scope_)];
  pathLength_ -= scope.name.size() + 1;
  scope_ = scope.parent;
  return true;
}

bool VcdReader::variable() {
  constexpr std::size_t kType = 0, kSize = 1, kCode = 2, kName = 3;
  if (arguments_.size() <= kName) {
    return fail(kVcdSyntax, "$var TYPE SIZE CODE NAME $end is expected");
  }
  VcdVar var;
  var.type = arguments_[kType];
  var.scope = scope_;
  var.kind = kindOf(var.type);
  if (!variableWidth(var, arguments_[kSize])) {
    return fail(kVcdSyntax, fmt::format("'{}' is no size", arguments_[kSize].substr(0, 40)));
  }
  if (var.type == "port") header_.hasPorts = true;
  nameVariable(var, arguments_, kName);
  enterNet(arguments_[kCode], var);
  header_.vars.push_back(std::move(var));
  return true;
}

// A number, or the range of a port.
bool VcdReader::variableWidth(VcdVar& var, std::string_view text) {
  constexpr std::uint32_t kWidest = std::numeric_limits<std::int32_t>::max();
  Range range;
  if (parseRange(text, range)) {
    if (range.width() > kWidest) return false;
    var.width = static_cast<std::uint32_t>(range.width());
    var.ranged = true;
    var.left = range.left;
    var.right = range.right;
    return true;
  }
  if (!parseWhole(text, var.width) || var.width > kWidest) return false;
  if (var.width == 0) {
    if (var.kind == VcdKind::bits) return false;
    var.width = 1;  // strings and events come without one
  }
  return true;
}

void VcdReader::enterNet(std::string_view code, VcdVar& var) {
  var.net = findNet(code);
  if (var.net != kNoNet) {
    std::uint32_t& width = header_.netWidths[var.net];
    width = std::max(width, var.width);
    return;
  }
  var.net = static_cast<std::uint32_t>(header_.netWidths.size());
  header_.netWidths.push_back(var.width);
  const std::size_t number = vcdCodeNumber(code);
  if (number == kNoCodeNumber) {
    longCodes_.emplace(code, var.net);
    return;
  }
  if (number >= shortCodes_.size()) shortCodes_.resize(number + 1, kNoNet);
  shortCodes_[number] = var.net;
}
