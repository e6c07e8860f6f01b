#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tools/stil_range.h"
#include "tools/stil_reader_internal.h"

namespace {

using Kind = StilTokenKind;

constexpr std::uint64_t kMostScanLength = std::uint64_t{1} << 31;

struct DirectionWord {
  std::string_view word;
  StilDirection direction;
};
constexpr std::array<DirectionWord, 5> kDirections = {{
    {"In", StilDirection::in},
    {"Out", StilDirection::out},
    {"InOut", StilDirection::inOut},
    {"Supply", StilDirection::supply},
    {"Pseudo", StilDirection::pseudo},
}};

// Attributes that say nothing about what patterns do.
constexpr std::array<std::string_view, 5> kPlainAttributes = {
    "Termination", "DataBitCount", "DataType", "DriveRequirements", "CompareRequirements"};
constexpr std::array<std::string_view, 7> kPlainChainStatements = {
    "ScanInversion", "ScanMasterClock", "ScanSlaveClock", "ScanOutLength",
    "ScanEnable",    "ScanMasterCell",  "ScanCellType"};

template <std::size_t size>
bool isOneOf(const std::array<std::string_view, size>& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

class AttributeReader {
 public:
  AttributeReader(StilBlocks& blocks, StilAttributes& attributes)
      : blocks_(blocks), cursor_(blocks.cursor), attributes_(attributes) {}

  // `;`, or a block of attributes.
  bool read() {
    if (!cursor_.is(Kind::open)) return cursor_.take(Kind::stop, "';' or '{'");
    return cursor_.block("attributes", [this] { return attribute(); });
  }

 private:
  bool attribute() {
    const StilWhere where = cursor_.where();
    std::string word;
    if (!cursor_.name(word, "an attribute")) return false;
    if (word == "ScanIn") return scanLength(attributes_.scanIn);
    if (word == "ScanOut") return scanLength(attributes_.scanOut);
    if (word == "Base") return base();
    if (word == "Alignment") return alignment();
    if (word == "DefaultState") return defaultState();
    if (isOneOf(kPlainAttributes, word)) return cursor_.passOver();
    return passOverUnknown(blocks_, where, word, "attributes");
  }

  bool scanLength(std::optional<std::uint32_t>& length) {
    std::uint64_t value = 0;
    if (!cursor_.is(Kind::stop) && !cursor_.number(value, kMostScanLength, "a number of bits")) {
      return false;
    }
    length = static_cast<std::uint32_t>(value);
    return cursor_.end();
  }

  bool base() {
    StilBase base;
    if (!cursor_.isWord("Hex") && !cursor_.isWord("Dec")) return cursor_.expected("Hex or Dec");
    base.radix = cursor_.isWord("Hex") ? 16 : 10;
    cursor_.next();
    if (!cursor_.name(base.characters, "a list of waveform characters")) return false;
    attributes_.base = std::move(base);
    return cursor_.end();
  }

  bool alignment() {
    if (!cursor_.isWord("MSB") && !cursor_.isWord("LSB")) return cursor_.expected("MSB or LSB");
    attributes_.alignLeft = cursor_.isWord("MSB");
    cursor_.next();
    return cursor_.end();
  }

  bool defaultState() {
    StilState state;
    if (!cursor_.isName() || !stilState(cursor_.token().text, state)) {
      return cursor_.expected("a state");
    }
    attributes_.defaultState = state.state;
    cursor_.next();
    return cursor_.end();
  }

  StilBlocks& blocks_;
  StilCursor& cursor_;
  StilAttributes& attributes_;
};

bool addSignal(StilBlocks& blocks, StilSignal signal) {
  if (blocks.model.signals.size() >= kMostStilSignals) {
    return blocks.cursor.failAt(signal.where, kStilTooLong,
                                fmt::format("there are more than {} signals", kMostStilSignals));
  }
  if (!defineStil(blocks, signal.where, "signal", "", signal.name)) return false;
  blocks.model.signals.push_back(std::move(signal));
  return true;
}

// One signal, or one for each name of a range.
bool addSignals(StilBlocks& blocks, const StilSignal& written, bool ranged) {
  const std::optional<StilRange> range = stilRange(written.name);
  if (!ranged || !range) return addSignal(blocks, written);
  for (std::uint64_t i = 0; i < range->size(); ++i) {
    StilSignal signal = written;
    signal.name = range->name(i);
    if (!addSignal(blocks, std::move(signal))) return false;
  }
  return true;
}

bool readSignal(StilBlocks& blocks) {
  StilCursor& cursor = blocks.cursor;
  StilSignal signal;
  signal.where = cursor.where();
  const std::string quoted(cursor.is(Kind::string) ? cursor.token().text : std::string_view());
  if (!cursor.name(signal.name, "the name of a signal")) return false;
  const bool ranged = signal.name != quoted;  // brackets between the quotes are part of a name
  const auto* direction = std::find_if(kDirections.begin(), kDirections.end(),
                                       [&](const auto& row) { return cursor.isWord(row.word); });
  if (direction == kDirections.end()) {
    return cursor.expected("In, Out, InOut, Supply or Pseudo");
  }
  signal.direction = direction->direction;
  cursor.next();
  return AttributeReader(blocks, signal.attributes).read() && addSignals(blocks, signal, ranged);
}

// One name, or names with + and - between, which become an expression.
bool readMembers(StilCursor& cursor, StilReference& members) {
  if (!cursor.reference(members, "a name or an expression between single quotes")) return false;
  if (!cursor.isName()) return true;
  std::string text = '"' + members.text + '"';
  while (cursor.isName()) {
    const bool sign = cursor.isWord("+") || cursor.isWord("-");
    std::string name;
    if (!cursor.name(name, "a name")) return false;
    text += sign ? ' ' + name + ' ' : '"' + name + '"';
  }
  members.text = std::move(text);
  members.expression = true;
  members.number = cursor.referenceNumber(members.text, true);
  return true;
}

bool readGroup(StilBlocks& blocks, const std::string& domain) {
  StilCursor& cursor = blocks.cursor;
  StilGroup group;
  group.domain = domain;
  group.where = cursor.where();
  if (!cursor.name(group.name, "the name of a group")) return false;
  if (!cursor.take(Kind::equals, "'='")) return false;
  if (!readMembers(cursor, group.members)) return false;
  if (!AttributeReader(blocks, group.attributes).read()) return false;
  if (!defineStil(blocks, group.where, "group", domain, group.name)) return false;
  blocks.model.groups.push_back(std::move(group));
  return true;
}

// --- Chains --------------------------------------------------------------------------

bool addCells(StilBlocks& blocks, StilChain& chain, const StilRange& range) {
  blocks.rangedCells += range.size();
  if (blocks.rangedCells > kMostRangedCells) {
    return blocks.cursor.fail(kStilTooLong,
                              fmt::format("ranges name more than {} scan cells", kMostRangedCells));
  }
  for (std::uint64_t i = 0; i < range.size(); ++i) chain.cells.push_back(range.name(i));
  return true;
}

// A word of the list: "!", a name, "!name", a range.
bool readCell(StilBlocks& blocks, StilChain& chain) {
  StilCursor& cursor = blocks.cursor;
  const bool quoted = cursor.is(Kind::string);
  std::string name;
  if (!cursor.name(name, "the name of a scan cell")) return false;
  if (!quoted && name.front() == '!') {
    chain.cells.emplace_back("!");
    name.erase(0, 1);
    if (name.empty()) return true;
  }
  const std::optional<StilRange> range = stilRange(name);
  if (!quoted && range) return addCells(blocks, chain, *range);
  chain.cells.push_back(std::move(name));
  return true;
}

// Names up to a `;`, or between braces with `;` as they like, also one behind the other.
bool readCells(StilBlocks& blocks, StilChain& chain) {
  StilCursor& cursor = blocks.cursor;
  while (cursor.isName()) {
    if (!readCell(blocks, chain)) return false;
  }
  if (cursor.is(Kind::stop)) cursor.next();
  if (!cursor.is(Kind::open)) return !cursor.failed();
  return cursor.block("scan cells", [&] {
    return cursor.is(Kind::open) ? cursor.passOver() : readCell(blocks, chain);
  });
}

bool readChainLength(StilBlocks& blocks, StilChain& chain) {
  std::uint64_t length = 0;
  if (!blocks.cursor.number(length, kMostScanLength, "a number of bits")) return false;
  chain.length = static_cast<std::uint32_t>(length);
  return blocks.cursor.end();
}

bool readChainStatement(StilBlocks& blocks, StilChain& chain) {
  StilCursor& cursor = blocks.cursor;
  const StilWhere where = cursor.where();
  std::string word;
  if (!cursor.name(word, "a statement of a ScanChain")) return false;
  if (word == "ScanLength") return readChainLength(blocks, chain);
  if (word == "ScanIn") return cursor.name(chain.scanIn, "a signal") && cursor.end();
  if (word == "ScanOut") return cursor.name(chain.scanOut, "a signal") && cursor.end();
  if (word == "ScanCells") return readCells(blocks, chain);
  if (isOneOf(kPlainChainStatements, word)) return cursor.passOver();
  return passOverUnknown(blocks, where, word, "ScanChain");
}

bool readChain(StilBlocks& blocks, const std::string& domain) {
  StilCursor& cursor = blocks.cursor;
  StilChain chain;
  chain.domain = domain;
  chain.where = cursor.where();
  std::string word;
  if (!cursor.name(word, "ScanChain")) return false;
  if (word != "ScanChain") return passOverUnknown(blocks, chain.where, word, "ScanStructures");
  if (!cursor.name(chain.name, "the name of a scan chain")) return false;
  if (!cursor.block("the scan chain", [&] { return readChainStatement(blocks, chain); })) {
    return false;
  }
  blocks.model.chains.push_back(std::move(chain));
  return true;
}

}  // namespace

bool readStilSignals(StilBlocks& blocks) {
  return blocks.cursor.block("Signals", [&] { return readSignal(blocks); });
}

bool readStilGroups(StilBlocks& blocks) {
  std::string domain;
  return blocks.cursor.optionalName(domain) &&
         blocks.cursor.block("SignalGroups", [&] { return readGroup(blocks, domain); });
}

bool readStilScanStructures(StilBlocks& blocks) {
  std::string domain;
  return blocks.cursor.optionalName(domain) &&
         blocks.cursor.block("ScanStructures", [&] { return readChain(blocks, domain); });
}
