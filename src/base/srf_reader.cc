#include <algorithm>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/srf.h"
#include "base/srf_internal.h"
#include "base/text.h"
#include "base/text_file.h"

namespace {

constexpr std::size_t kMaxShownLine = 1023;
constexpr int kMaxUnknownNotes = 1000;
constexpr std::size_t kSharedBit = 31;
constexpr std::size_t kMaxPlainColumns = 31;

// --- Vocabulary ----------------------------------------------------------------------

struct Keyword {
  std::string name;
  std::uint32_t attribute;
};

// Keywords by name. A keyword's address is good as long as the vocabulary.
class Vocabulary {
 public:
  Vocabulary(bool ignoreCase, std::size_t maxColumns)
      : ignoreCase_(ignoreCase), maxColumns_(maxColumns) {}

  // Of two equal names the first one counts.
  const Keyword* add(std::string_view name, std::uint32_t attribute) {
    return &byKey_.try_emplace(keyOf(name), Keyword{std::string(name), attribute}).first->second;
  }
  const Keyword* find(std::string_view name) const {
    const auto found = byKey_.find(keyOf(name));
    return found == byKey_.end() ? nullptr : &found->second;
  }
  // How many columns SRF_set allows in a tuple.
  std::size_t maxColumns() const { return maxColumns_; }

 private:
  std::string keyOf(std::string_view name) const {
    return ignoreCase_ ? PBlowerText(name) : std::string(name);
  }

  bool ignoreCase_;
  std::size_t maxColumns_;
  std::unordered_map<std::string, Keyword> byKey_;
};

constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

// The texts of failed rows. Each ends with its line end and holds no other, so
// that they lie in one string.
class MessageList {
 public:
  void clear() {
    texts_.clear();
    taken_ = 0;
  }
  void add(std::string_view text, std::int64_t lineNumber, std::string_view line) {
    line = line.empty() ? "<No line information given>" : line.substr(0, kMaxShownLine);
    texts_.append(text).append(" ").append(std::to_string(lineNumber)).append(": ");
    texts_.append(line).append("\n");
  }
  bool empty() const { return taken_ == texts_.size(); }
  std::optional<std::string> next() {
    if (empty()) return std::nullopt;
    const std::size_t start = taken_;
    taken_ = texts_.find('\n', start) + 1;
    return texts_.substr(start, taken_ - start);
  }

 private:
  std::string texts_;
  std::size_t taken_ = 0;
};

// What callers set and what stays set from parse to parse.
struct Modes {
  // Shared, because a running table goes on with the one its header was read by.
  std::shared_ptr<const Vocabulary> keywords = std::make_shared<Vocabulary>(true, kAnyNumber);
  std::uint32_t dynamicAttribute = 0;  // 0: no dynamic keywords
  bool dynamicIgnoresCase = false;
  bool rawEscapes = false;
  bool noteUnknown = true;
  std::function<bool(const SRFtuple&)> rowHook;
  std::function<bool(std::span<const std::string_view>)> headerHook;
  std::function<bool(std::string_view)> noteHook;
};

// The reader's process-wide state. `modes` belongs to the callers; the rest is
// made anew when a parse begins and, but for `input`, kept when it ends.
struct Reader {
  Modes modes;
  PBtextFile* input = nullptr;  // null when no parse runs
  std::shared_ptr<Vocabulary> dynamicKeywords = std::make_shared<Vocabulary>(false, kAnyNumber);
  MessageList messages;
  int errorCount = 0;
  int unknownNotes = 0;
  bool stopRequested = false;
};

// Made at the first use and left alive until the process ends.
Reader& reader() {
  static Reader& instance = *std::make_unique<Reader>().release();
  return instance;
}

void resetDynamicKeywords() {
  reader().dynamicKeywords =
      std::make_shared<Vocabulary>(reader().modes.dynamicIgnoresCase, kAnyNumber);
}

const Keyword* findKeyword(std::string_view name) {
  const Modes& modes = reader().modes;
  if (const Keyword* known = modes.keywords->find(name)) return known;
  if (modes.dynamicAttribute == 0) return nullptr;
  return reader().dynamicKeywords->add(name, modes.dynamicAttribute);
}

void noteError(std::string_view text) { SRF_note("Error", text); }

void noteCountedError(std::string_view text) {
  SRF_addError();
  noteError(text);
}

void noteUnknownKeyword(std::string_view name) {
  SRF_addError();
  if (!reader().modes.noteUnknown || ++reader().unknownNotes > kMaxUnknownNotes) return;
  noteError("No keyword named \"" + std::string(name) + "\" -- ignoring column");
}

// --- Lines and tokens ----------------------------------------------------------------

std::string_view withoutTrailingWhite(std::string_view text) {
  while (!text.empty() && PBisSpace(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view withoutWhiteAround(std::string_view text) {
  while (!text.empty() && PBisSpace(text.front())) text.remove_prefix(1);
  return withoutTrailingWhite(text);
}

// Whether the line goes on; then leaves what stands before the backslash.
bool takeContinuation(std::string_view& line) {
  const std::string_view content = withoutTrailingWhite(line);
  if (!content.ends_with('\\')) return false;
  line = content.substr(0, content.size() - 1);
  return true;
}

// A character is escaped behind an odd number of backslashes.
bool isEscaped(std::string_view text, std::size_t position) {
  std::size_t backslashes = 0;
  while (backslashes < position && text[position - 1 - backslashes] == '\\') ++backslashes;
  return backslashes % 2 == 1;
}

std::string_view withoutComment(std::string_view line) {
  std::size_t hash = line.find('#');
  while (hash != std::string_view::npos && isEscaped(line, hash)) hash = line.find('#', hash + 1);
  return line.substr(0, hash);
}

enum class TokenKind : std::uint8_t { unquoted, quoted, wholeLine };

struct Token {
  TokenKind kind;
  std::string_view text;  // as it stands in the line, without its quotes
};

bool isNoValue(const Token& token) {
  return token.kind != TokenKind::quoted && withoutWhiteAround(token.text) == "-";
}

// The characters that a backslash makes literal in a token, by kind.
constexpr std::string_view kEscapable[] = {"\\#", "\"\\#", "#"};

bool isEscapable(TokenKind kind, bool raw, char c) {
  if (raw && kind != TokenKind::wholeLine) return true;
  return kEscapable[static_cast<std::size_t>(kind)].find(c) != std::string_view::npos;
}

// Cuts a line's content into tokens.
class Splitter {
 public:
  Splitter(std::string_view content, bool raw) : rest_(content), raw_(raw) {}

  // False at the end, and at a quote that is never closed.
  bool next(Token& token) {
    while (!rest_.empty() && PBisSpace(rest_.front())) rest_.remove_prefix(1);
    if (rest_.empty()) return false;
    return rest_.front() == '"' ? takeQuoted(token) : takeUnquoted(token);
  }
  bool unbalanced() const { return unbalanced_; }

 private:
  bool takeQuoted(Token& token) {
    std::size_t end = 1;
    while (end < rest_.size() && rest_[end] != '"') end += rest_[end] == '\\' ? 2 : 1;
    if (end >= rest_.size()) {
      unbalanced_ = true;
      return false;
    }
    token = {TokenKind::quoted, rest_.substr(1, end - 1)};
    rest_.remove_prefix(end + 1);
    return true;
  }

  bool takeUnquoted(Token& token) {
    std::size_t end = 0;
    while (end < rest_.size() && !PBisSpace(rest_[end])) {
      end += raw_ && rest_[end] == '\\' ? 2 : 1;
    }
    end = std::min(end, rest_.size());
    token = {TokenKind::unquoted, rest_.substr(0, end)};
    rest_.remove_prefix(end);
    return true;
  }

  std::string_view rest_;
  bool raw_;
  bool unbalanced_ = false;
};

// --- The parse -----------------------------------------------------------------------

enum class Table : std::uint8_t { none, open, skipped };

// One parse from its first line to its last. All buffers are kept from line to
// line.
class Parse {
 public:
  Parse(std::string_view function, PBtextFile* input, std::span<const SRFrowHandler> handlers)
      : function_(function), input_(input), handlers_(handlers) {}

  bool run(std::span<const std::string_view> initialAttributes) {
    if (!initialAttributes.empty()) startTable(initialAttributes);
    while (!reader().stopRequested && readLine()) handleLine();
    return sound_ && !reader().stopRequested;
  }

 private:
  // Leaves the next logical line in line_; false at the end and after a failure.
  bool readLine() {
    std::string_view physical;
    if (!readPhysicalLine(physical)) return false;
    if (!takeContinuation(physical)) {
      line_ = physical;
      return true;
    }
    joined_.clear();
    bool goesOn = true;
    while (goesOn) {
      joined_.append(physical).append(" ");
      if (!readPhysicalLine(physical)) return failAfterContinuation();
      goesOn = takeContinuation(physical);
    }
    line_ = joined_.append(physical);
    return true;
  }

  bool readPhysicalLine(std::string_view& line) {
    std::string_view comment;
    const std::int64_t length = PBreadTextLine(input_, line, comment);
    if (length < -1) return failReading();
    if (length < 0) return false;
    if (line.ends_with('\n')) line.remove_suffix(1);
    return true;
  }

  bool failAfterContinuation() {
    if (readFailed_) return false;
    postSrf("getContinuedLine", 0, "Unexpected EOF after line continuation");
    return failReading();
  }

  bool failReading() {
    readFailed_ = true;
    sound_ = false;
    return postSrf(function_, 87, PBtextOpenedName(input_));
  }

  void handleLine() {
    if (line_.starts_with("#%")) {
      handleHeader(withoutComment(line_.substr(2)));
    } else if (!line_.starts_with('#') && table_ != Table::skipped) {
      handleRow(withoutTrailingWhite(withoutComment(line_)));
    }
  }

  // --- Headers

  void handleHeader(std::string_view content) {
    beginHeader();
    Splitter splitter(content, reader().modes.rawEscapes);
    bool accepted = true;
    for (Token token; accepted && splitter.next(token);) accepted = addColumn(valueOf(token));
    if (splitter.unbalanced()) {
      noteError("Missing closing \"");
      accepted = false;
    }
    finishHeader(accepted);
  }

  void startTable(std::span<const std::string_view> names) {
    beginHeader();
    finishHeader(
        std::ranges::all_of(names, [&](std::string_view name) { return addColumn(name); }));
  }

  void beginHeader() {
    columns_.clear();
    seen_.clear();
    names_.clear();
    scratch_.clear();
    keywords_ = reader().modes.keywords;
    dynamicKeywords_ = reader().dynamicKeywords;
  }

  void finishHeader(bool accepted) {
    accepted = accepted && !columns_.empty() && hookAcceptsHeader();
    table_ = accepted ? Table::open : Table::skipped;
    sound_ = sound_ && accepted;
  }

  bool addColumn(std::string_view name) {
    const Keyword* keyword = findKeyword(name);
    if (keyword == nullptr) {
      noteUnknownKeyword(name);
    } else if (!seen_.insert(keyword).second) {
      noteCountedError("Keyword \"" + std::string(name) +
                       "\" specified more than once -- skipping table");
      return false;
    }
    columns_.push_back(keyword);
    if (reader().modes.headerHook) names_.push_back(name);
    return true;
  }

  bool hookAcceptsHeader() const {
    return !reader().modes.headerHook || reader().modes.headerHook(names_);
  }

  // --- Rows

  void handleRow(std::string_view content) {
    if (std::ranges::all_of(content, PBisSpace)) return;
    if (table_ == Table::none) {
      noteCountedError("No attributes have been set: Is file in SRF format?");
      failRow("Could not parse line number: ");
    } else if (!split(content)) {
      noteError("Missing closing \"");
      failRow("Could not convert line to tuple: ");
    } else if (tuple_.mask != 0 && !callHandlers()) {
      failRow("Could not parse line number: ");
    }
  }

  // Fills tuple_; false for a quote that is never closed, wherever it stands.
  bool split(std::string_view content) {
    tuple_.mask = 0;
    tuple_.items.clear();
    scratch_.clear();
    if (reader().modes.rawEscapes && columns_.size() == 1) {
      addItem(columns_.front(), {TokenKind::wholeLine, content});
      return true;
    }
    Splitter splitter(content, reader().modes.rawEscapes);
    std::size_t column = 0;
    for (Token token; splitter.next(token); ++column) {
      if (column < columns_.size()) addItem(columns_[column], token);
    }
    return !splitter.unbalanced();
  }

  void addItem(const Keyword* keyword, const Token& token) {
    if (keyword == nullptr || isNoValue(token)) return;
    tuple_.items.push_back({keyword->attribute, keyword->name, valueOf(token)});
    tuple_.mask |= keyword->attribute;
  }

  // The token's own text when nothing in it is escaped, else one in scratch_,
  // which has room for the whole line and so never moves.
  std::string_view valueOf(const Token& token) {
    if (token.text.find('\\') == std::string_view::npos) return withoutTrailingWhite(token.text);
    const bool raw = reader().modes.rawEscapes;
    scratch_.reserve(line_.size());
    const std::size_t start = scratch_.size();
    for (std::size_t i = 0; i < token.text.size(); ++i) {
      const bool escape = token.text[i] == '\\' && i + 1 < token.text.size() &&
                          isEscapable(token.kind, raw, token.text[i + 1]);
      if (escape) ++i;
      scratch_ += token.text[i];
    }
    return withoutTrailingWhite(std::string_view(scratch_).substr(start));
  }

  bool callHandlers() {
    const Modes& modes = reader().modes;
    if (modes.rowHook && !modes.rowHook(tuple_)) return false;
    for (const SRFrowHandler& row : handlers_) {
      if (row.mask == 0) break;
      if ((row.mask & ~tuple_.mask) == 0 && !row.handler(tuple_, row.mask)) return false;
    }
    return true;
  }

  void failRow(std::string_view text) {
    sound_ = false;
    std::string_view line = line_;
    if (line.ends_with('\r')) line.remove_suffix(1);
    reader().messages.add(text, PBgetTextLineNumber(input_), line);
  }

  std::string_view function_;
  PBtextFile* input_;
  std::span<const SRFrowHandler> handlers_;
  bool sound_ = true;
  bool readFailed_ = false;
  Table table_ = Table::none;

  std::string_view line_;  // the logical line: joined_ or the text reader's own
  std::string joined_;
  std::string scratch_;  // values with escapes
  SRFtuple tuple_;

  std::vector<const Keyword*> columns_;  // null: to be ignored
  std::unordered_set<const Keyword*> seen_;
  std::vector<std::string_view> names_;  // for the header hook
  // Keep what columns_ points into.
  std::shared_ptr<const Vocabulary> keywords_;
  std::shared_ptr<const Vocabulary> dynamicKeywords_;
};

bool parse(std::string_view function, PBtextFile* input, std::span<const SRFrowHandler> handlers,
           std::span<const std::string_view> initialAttributes) {
  Reader& state = reader();
  resetDynamicKeywords();
  state.messages.clear();
  state.errorCount = 0;
  state.unknownNotes = 0;
  state.stopRequested = false;
  state.input = input;
  const bool sound = Parse(function, input, handlers).run(initialAttributes);
  state.input = nullptr;
  return sound;
}

void setVocabulary(std::span<const SRFkeyword> pairs, std::size_t maxColumns) {
  auto vocabulary = std::make_shared<Vocabulary>(true, maxColumns);
  for (const SRFkeyword& pair : pairs) vocabulary->add(pair.name, pair.mask);
  reader().modes.keywords = std::move(vocabulary);
}

// These labels say all; the others follow the program's name.
constexpr std::string_view kPlainLabels[] = {"Error", "Note", "Warning"};

std::string notePrefix(std::string_view label) {
  const bool plain = std::ranges::find(kPlainLabels, label) != std::end(kPlainLabels);
  std::string prefix = plain ? std::string() : PBprogramName;
  if (!prefix.empty() && !label.empty()) prefix += ' ';
  prefix += label;
  return prefix.empty() ? prefix : prefix + ": ";
}

}  // namespace

// --- Parsing -------------------------------------------------------------------------

bool SRF_parseFile(const std::string& path, std::span<const SRFrowHandler> handlers,
                   std::span<const std::string_view> initialAttributes) {
  constexpr std::string_view kName = "SRF_parseFile";
  if (reader().input != nullptr) return postSrf(kName, 81, "Input file already opened.");
  TextFilePtr file = PBopenCompressedTextFile(path, "r", false, kTextGzip);
  if (!file) return postSrf(kName, 81, path);
  const bool sound = parse(kName, file.get(), handlers, initialAttributes);
  if (PBcloseCompressedTextFile(std::move(file)) != 0) return postSrf(kName, 78, path);
  return sound;
}

bool SRF_parseBuffer(std::string_view text, std::string_view name,
                     std::span<const SRFrowHandler> handlers,
                     std::span<const std::string_view> initialAttributes) {
  constexpr std::string_view kName = "SRF_parseBuffer";
  if (reader().input != nullptr) {
    return postSrf(kName, 77, "Recursive SRF parse of the same buffer.");
  }
  const TextFilePtr file = PBopenMemoryText(text, name.empty() ? "text_buffer" : name, false);
  return parse(kName, file.get(), handlers, initialAttributes);
}

// --- Modes ---------------------------------------------------------------------------

void SRF_setKeywords(std::span<const std::string_view> names) {
  std::vector<SRFkeyword> pairs;
  for (const std::string_view name : names) {
    pairs.push_back({name, std::uint32_t{1} << std::min(pairs.size(), kSharedBit)});
  }
  setVocabulary(pairs, kMaxPlainColumns);
}

void SRF_setKeywordPairs(std::span<const SRFkeyword> pairs) { setVocabulary(pairs, kAnyNumber); }

void SRF_setDynamicKeywords(std::uint32_t attribute, bool ignoreCase) {
  reader().modes.dynamicAttribute = attribute;
  reader().modes.dynamicIgnoresCase = ignoreCase;
  resetDynamicKeywords();
}

void SRF_setRawEscapes(bool on) { reader().modes.rawEscapes = on; }

void SRF_setRowHook(std::function<bool(const SRFtuple& row)> hook) {
  reader().modes.rowHook = std::move(hook);
}

void SRF_setHeaderHook(std::function<bool(std::span<const std::string_view> names)> hook) {
  reader().modes.headerHook = std::move(hook);
}

void SRF_setUnknownKeywordNote(bool on) { reader().modes.noteUnknown = on; }

void SRF_setNoteHook(std::function<bool(std::string_view note)> hook) {
  reader().modes.noteHook = std::move(hook);
}

void SRF_resetModes() {
  reader().modes = Modes();
  resetDynamicKeywords();
}

// --- Tuples --------------------------------------------------------------------------

std::optional<std::string_view> SRF_get(const SRFtuple& tuple, std::string_view keyword) {
  const auto item = std::ranges::find_if(
      tuple.items, [&](const SRFitem& each) { return PBstrEq(each.keyword, keyword); });
  if (item == tuple.items.end()) return std::nullopt;
  return item->value;
}

bool SRF_set(SRFtuple& tuple, std::string_view keyword, std::optional<std::string_view> value) {
  const auto item = std::ranges::find_if(
      tuple.items, [&](const SRFitem& each) { return PBstrEq(each.keyword, keyword); });
  if (item != tuple.items.end() && value) {
    item->value = *value;
  } else if (item != tuple.items.end()) {
    tuple.items.erase(item);
  } else {
    const Keyword* known = findKeyword(keyword);
    if (known == nullptr) return false;
    if (!value) return true;
    if (tuple.items.size() >= reader().modes.keywords->maxColumns()) return false;
    tuple.items.push_back({known->attribute, known->name, *value});
  }
  tuple.mask = 0;
  for (const SRFitem& each : tuple.items) tuple.mask |= each.attribute;
  return true;
}

// --- Notes and messages --------------------------------------------------------------

void SRF_stopParse() { reader().stopRequested = true; }

void SRF_note(std::string_view label, std::string_view text) {
  Reader& state = reader();
  if (state.input == nullptr) {
    postSrf("SRF_note", 87, "File not open");
    return;
  }
  std::string note = notePrefix(label).append(text);
  note.append("\n  on ").append(PBtextPosition(state.input)).append("\n");
  if (!state.modes.noteHook) {
    std::fwrite(note.data(), 1, note.size(), stderr);
  } else if (state.modes.noteHook(note)) {
    state.stopRequested = true;
  }
}

void SRF_error(std::string_view text) { SRF_note("SRF error", text); }
void SRF_warning(std::string_view text) { SRF_note("Warning", text); }
void SRF_information(std::string_view text) { SRF_note("Note", text); }

int SRF_errorCount() { return reader().errorCount; }
void SRF_clearErrorCount() { reader().errorCount = 0; }
void SRF_addError() { ++reader().errorCount; }

std::optional<std::string> SRF_nextMessage() { return reader().messages.next(); }
bool SRF_noMoreMessages() { return reader().messages.empty(); }
