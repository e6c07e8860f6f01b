#include "tools/stil_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "base/platform.h"
#include "tools/stil_reader_internal.h"

namespace {

using Kind = StilTokenKind;

// Files that a text may include, all levels together.
constexpr std::size_t kMostFiles = 256;

// Blocks that would say more than the database keeps.
constexpr std::array<std::string_view, 9> kNotCarried = {
    "Environment", "Variables",     "DCLevels",   "DCSets", "SignalVariables",
    "NameMaps",    "FileReference", "DCSequence", "CTLMode"};

// `path` as it is opened when the file `from` names it. "-" isn't standard input there.
std::string pathBeside(const std::string& from, const std::string& path) {
  if (path.starts_with('/')) return path;
  const std::string beside = from.substr(0, from.rfind('/') + 1) + path;
  return beside == "-" ? "./-" : beside;
}

// What isn't a plain file could be without an end, or make us wait.
bool isPlainFile(const std::string& path, std::string& reason) {
  struct stat status = {};
  if (platform().status(path.c_str(), status) != 0) {
    reason = std::strerror(errno);
    errno = 0;
    return false;
  }
  reason = "it isn't a plain file";
  return S_ISREG(status.st_mode);
}

}  // namespace

bool defineStil(StilBlocks& blocks, const StilWhere& where, std::string_view kind,
                std::string_view domain, std::string_view name) {
  // No name has a line end and a zero byte.
  if (blocks.defined.insert(fmt::format("{}\n{}{}{}", kind, domain, '\0', name)).second)
    return true;
  return blocks.cursor.failAt(where, kStilTwice,
                              fmt::format("the {} \"{}\" is there already", kind, name));
}

bool passOverUnknown(StilBlocks& blocks, const StilWhere& where, const std::string& word,
                     std::string_view block) {
  if (blocks.userKeywords.contains(word)) {
    blocks.cursor.warnOnce(where, kStilNotCarried,
                           fmt::format("{} is a keyword of the user", word));
  } else {
    blocks.cursor.warnOnce(where, kStilUnknownStatement,
                           fmt::format("{} is no statement of {}", word, block));
  }
  return blocks.cursor.passOver();
}

struct StilReader::Parts {
  Parts(MessageSink messages, StilModel& outcome)
      : sink(std::move(messages)),
        model(outcome),
        cursor(sink, outcome.references),
        statements(cursor),
        blocks{cursor, outcome, statements, {}, {}, 0} {}

  bool readFirst(std::unique_ptr<ByteSource> source);
  bool readFile(std::unique_ptr<ByteSource> source);
  bool readBlock();
  bool readHead();
  bool readHeader();
  bool readHeaderStatement();
  bool readUserKeywords();
  bool readPattern();
  bool readInclude();
  bool include(const StilWhere& where, const std::string& name, bool ifNeed);
  void enterPattern(const StilPatternPlace& place);
  std::int64_t bytesRead() const;
  std::int64_t bytesTotal() const;

  MessageSink sink;
  StilModel& model;
  StilCursor cursor;
  StilStatementReader statements;
  StilBlocks blocks;
  std::vector<std::uint32_t> open;  // files being read, each included by the one before
  std::int64_t closedSize = 0;      // bytes of files without patterns, given back
  std::vector<bool> patternFiles;   // files that patterns were read from; none in the first pass
  bool inMemory = false;
  bool inPattern = false;
  bool notOpened = false;
};

namespace {

struct BlockWord {
  std::string_view word;
  bool (*read)(StilBlocks& blocks);
};
constexpr std::array<BlockWord, 10> kBlocks = {{
    {"Signals", readStilSignals},
    {"SignalGroups", readStilGroups},
    {"ScanStructures", readStilScanStructures},
    {"Timing", readStilTiming},
    {"Spec", readStilSpec},
    {"Selector", readStilSelector},
    {"PatternBurst", readStilBurst},
    {"PatternExec", readStilExec},
    {"Procedures", readStilProcedures},
    {"MacroDefs", readStilMacros},
}};

}  // namespace

// --- Files ---------------------------------------------------------------------------

bool StilReader::Parts::readFirst(std::unique_ptr<ByteSource> source) {
  model = {};
  return readFile(std::move(source));
}

// A file without patterns isn't read again and is given back.
bool StilReader::Parts::readFile(std::unique_ptr<ByteSource> source) {
  const auto file = static_cast<std::uint32_t>(model.files.size());
  const std::size_t patternsBefore = model.patterns.size();
  model.files.push_back(source->name());
  cursor.add(std::make_unique<StilScanner>(std::move(source), sink));
  open.push_back(file);
  if (!cursor.enter(file)) return false;
  if (!cursor.isWord("STIL") && file == 0) return cursor.expected("STIL and its version");
  while (!cursor.is(Kind::end)) {
    if (!readBlock()) return false;
  }
  open.pop_back();
  if (cursor.failed()) return false;
  if (model.patterns.size() == patternsBefore && file != 0) {
    closedSize += std::max<std::int64_t>(cursor.scanner(file)->source().size(), 0);
    cursor.close(file);
  }
  return true;
}

bool StilReader::Parts::readInclude() {
  const StilWhere where = cursor.where();
  std::string name;
  bool ifNeed = false;
  if (!cursor.name(name, "the name of a file")) return false;
  if (cursor.isWord("IfNeed")) {
    ifNeed = true;
    while (cursor.isName()) cursor.next();
  }
  // The file is read before what stands behind the `;`, whose token waits meanwhile.
  const std::uint32_t here = cursor.file();
  if (!cursor.end() || !include(where, name, ifNeed)) return false;
  cursor.resume(here);
  return !cursor.failed();
}

bool StilReader::Parts::include(const StilWhere& where, const std::string& name, bool ifNeed) {
  const std::string path = pathBeside(model.files[where.file], name);
  const auto isThis = [&](std::uint32_t file) { return model.files[file] == path; };
  if (std::any_of(open.begin(), open.end(), isThis)) {
    return cursor.failAt(where, kStilInclude, fmt::format("{} includes itself", path));
  }
  const bool known = std::find(model.files.begin(), model.files.end(), path) != model.files.end();
  if (ifNeed && known) return true;
  if (open.size() > kDeepestInclude || model.files.size() >= kMostFiles) {
    return cursor.failAt(where, kStilTooLong,
                         fmt::format("files are included more than {} deep, or more than {}",
                                     kDeepestInclude, kMostFiles));
  }
  std::string reason = "a text in memory includes no files";
  std::unique_ptr<ByteSource> source;
  if (!inMemory && isPlainFile(path, reason)) source = ByteSource::open(path, true, reason);
  if (source == nullptr) {
    return cursor.failAt(where, kStilInclude, fmt::format("{} can't be read: {}", path, reason));
  }
  return readFile(std::move(source));
}

void StilReader::Parts::enterPattern(const StilPatternPlace& place) {
  patternFiles.resize(cursor.files());
  patternFiles[place.body.file] = true;
  inPattern = true;
}

std::int64_t StilReader::Parts::bytesRead() const {
  std::int64_t total = closedSize;
  for (std::uint32_t file = 0; file < cursor.files(); ++file) {
    const StilScanner* scanner = cursor.scanner(file);
    if (scanner == nullptr || (!patternFiles.empty() && !patternFiles[file])) continue;
    total += std::max<std::int64_t>(scanner->source().consumed(), 0);
  }
  return total;
}

std::int64_t StilReader::Parts::bytesTotal() const {
  std::int64_t total = closedSize;
  for (std::uint32_t file = 0; file < cursor.files(); ++file) {
    const StilScanner* scanner = cursor.scanner(file);
    if (scanner != nullptr) total += std::max<std::int64_t>(scanner->source().size(), 0);
  }
  return total;
}

// --- Blocks --------------------------------------------------------------------------

bool StilReader::Parts::readBlock() {
  if (cursor.is(Kind::stop)) {
    cursor.next();
    return !cursor.failed();
  }
  const StilWhere where = cursor.where();
  std::string word;
  if (!cursor.is(Kind::word)) return cursor.expected("a block such as Signals or Pattern");
  word = cursor.token().text;
  cursor.next();
  const auto* row = std::find_if(kBlocks.begin(), kBlocks.end(),
                                 [&](const BlockWord& entry) { return entry.word == word; });
  if (row != kBlocks.end()) return row->read(blocks);
  if (word == "Ann") return cursor.annotation(word);
  if (word == "Pattern") return readPattern();
  if (word == "STIL") return readHead();
  if (word == "Header") return readHeader();
  if (word == "Include") return readInclude();
  if (word == "UserKeywords" || word == "UserFunctions") return readUserKeywords();
  if (std::find(kNotCarried.begin(), kNotCarried.end(), word) != kNotCarried.end()) {
    cursor.warnOnce(where, kStilNotCarried, fmt::format("{} is left out", word));
    return cursor.passOver();
  }
  return passOverUnknown(blocks, where, word, "a STIL text");
}

// STIL 1.0;  STIL 1.0 { Design 2005; }
bool StilReader::Parts::readHead() {
  if (!cursor.is(Kind::word)) return cursor.expected("the version of STIL, such as 1.0");
  cursor.next();
  if (!cursor.is(Kind::open)) return cursor.take(Kind::stop, "';' or '{'");
  return cursor.passOver();
}

bool StilReader::Parts::readHeader() {
  return cursor.block("Header", [this] { return readHeaderStatement(); });
}

bool StilReader::Parts::readHeaderStatement() {
  const bool title = cursor.isWord("Title");
  std::string text;
  if (!cursor.name(text, "a statement of the Header")) return false;
  if (!title) return cursor.passOver();
  const bool first = model.title.empty();
  if (!cursor.name(text, "a text between double quotes")) return false;
  if (first) model.title = std::move(text);
  return cursor.end();
}

bool StilReader::Parts::readUserKeywords() {
  std::string word;
  while (cursor.isName()) {
    if (!cursor.name(word, "a word")) return false;
    blocks.userKeywords.insert(word);
  }
  return cursor.end();
}

bool StilReader::Parts::readPattern() {
  StilPatternPlace place;
  const StilWhere where = cursor.where();
  if (!cursor.name(place.name, "the name of a pattern")) return false;
  if (!defineStil(blocks, where, "pattern", "", place.name)) return false;
  place.body = cursor.where();
  if (!cursor.is(Kind::open)) return cursor.expected("'{'");
  if (!cursor.skipBlock()) return false;
  cursor.next();
  model.patterns.push_back(std::move(place));
  return !cursor.failed();
}

// --- The reader ----------------------------------------------------------------------

StilReader::StilReader(MessageSink sink)
    : parts_(std::make_unique<Parts>(std::move(sink), model_)) {}

StilReader::~StilReader() = default;

bool StilReader::open(const std::string& path) {
  std::string reason;
  std::unique_ptr<ByteSource> source = ByteSource::open(path, true, reason);
  if (source != nullptr) return parts_->readFirst(std::move(source));
  parts_->notOpened = true;
  parts_->sink(errorMessage(kCantRead, std::move(reason), path));
  return false;
}

bool StilReader::openText(std::string_view text, std::string name) {
  parts_->inMemory = true;
  return parts_->readFirst(openByteText(text, std::move(name)));
}

bool StilReader::beginPattern(const StilPatternPlace& pattern) {
  if (failed() || !parts_->cursor.enter(pattern.body)) return false;
  parts_->enterPattern(pattern);
  parts_->cursor.next();
  return !failed();
}

bool StilReader::nextStatement(StilStatement& statement) {
  StilCursor& cursor = parts_->cursor;
  if (!parts_->inPattern) return false;
  while (cursor.is(Kind::stop)) cursor.next();
  if (cursor.is(Kind::close) || failed()) {
    parts_->inPattern = false;
    return false;
  }
  return parts_->statements.read(statement);
}

bool StilReader::failed() const { return parts_->notOpened || parts_->cursor.failed(); }

std::uint32_t StilReader::referenceNumber(std::string_view text, bool expression) {
  return parts_->cursor.referenceNumber(text, expression);
}

bool StilReader::failAt(const StilWhere& where, MessageCode code, std::string text) {
  return parts_->cursor.failAt(where, code, std::move(text));
}

void StilReader::warnAt(const StilWhere& where, MessageCode code, std::string text) {
  parts_->cursor.warnAt(where, code, std::move(text));
}

std::int64_t StilReader::bytesTotal() const { return parts_->bytesTotal(); }

std::int64_t StilReader::bytesRead() const { return parts_->bytesRead(); }
