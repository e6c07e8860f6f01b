// What is stored, compared as the lines of two dumps. The lines of a side go to a
// temporary file, in a form that doesn't depend on how things are numbered: names for
// ids, and the records of sections whose order follows the ids sorted by name. Then both
// files are read together, a window of lines at a time.

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <deque>
#include <string_view>
#include <unordered_map>

#include "base/file_copy.h"
#include "base/platform.h"
#include "base/temp_directory.h"
#include "base/text_file.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/pin.h"
#include "tools/diff.h"
#include "tools/dump.h"
#include "tools/dump_format.h"

namespace {

// --- Lines without numbers -----------------------------------------------------------

// Which numbers stand in the lists of a keyword.
enum class Ids { objects, pins, columns };
struct ListKeyword {
  std::string_view keyword;
  Ids ids;
};
constexpr std::array kListKeywords = {
    ListKeyword{"members", Ids::objects},    ListKeyword{"mux-children", Ids::objects},
    ListKeyword{"groups", Ids::objects},     ListKeyword{"of", Ids::objects},
    ListKeyword{"on", Ids::objects},         ListKeyword{"signals-of", Ids::objects},
    ListKeyword{"ate-pins", Ids::pins},      ListKeyword{"dut-pins", Ids::pins},
    ListKeyword{"linked", Ids::pins},        ListKeyword{"columns-of", Ids::columns},
    ListKeyword{"pin-columns", Ids::columns}};

// Records whose number comes before their name.
constexpr std::array<std::string_view, 5> kNumberedRecords = {"signal", "timeplate", "ate-pin",
                                                              "dut-pin", "subroutine"};
// Sections that are written in the order of ids. What begins one counts ids, too.
constexpr std::array<std::string_view, 3> kSortedSections = {"signals", "timeplates", "pins"};
// Their records.
constexpr std::array<std::string_view, 5> kSortedRecords = {"signal", "timeplate", "ate-pin",
                                                            "dut-pin", "column"};

template <std::size_t N>
bool isOneOf(const std::array<std::string_view, N>& words, std::string_view word) {
  return !word.empty() && std::ranges::find(words, word) != words.end();
}

// The first word of `text`, which then begins behind it.
std::string_view takeWord(std::string_view& text) {
  const std::size_t begin = std::min(text.find_first_not_of(' '), text.size());
  const std::size_t end = std::min(text.find(' ', begin), text.size());
  const std::string_view word = text.substr(begin, end - begin);
  text.remove_prefix(end);
  return word;
}

using NameTable = std::unordered_map<std::string, std::string>;

class PlainLines {
 public:
  explicit PlainLines(int database);
  std::string line(std::string_view line) const;

 private:
  void names(std::string& out, const NameTable& table, std::string_view ids) const;
  std::string subroutine(std::string_view number) const;

  int database_;
  std::array<NameTable, 3> tables_;  // by Ids
};

PlainLines::PlainLines(int database) : database_(database) {
  const auto enter = [](NameTable& table, PVBid id, const std::optional<std::string>& name) {
    if (!name) return;
    std::string key;
    appendId(key, id);
    appendQuoted(table[key], *name);
  };
  const PVBdatabase& slot = *PVBget(database);
  NameTable& objects = tables_[static_cast<std::size_t>(Ids::objects)];
  slot.signals->byId.forEach(
      [&](const PVBsignal& signal) { enter(objects, signal.id, signal.name); });
  NameTable& pins = tables_[static_cast<std::size_t>(Ids::pins)];
  slot.pins->atePins.forEach([&](const PVBpin& pin) { enter(pins, pin.id, pin.name); });
  slot.pins->dutPins.forEach([&](const PVBpin& pin) { enter(pins, pin.id, pin.name); });
  NameTable& columns = tables_[static_cast<std::size_t>(Ids::columns)];
  slot.pins->columns.forEach([&](const PVBcolumn& column) {
    enter(columns, column.id, "number " + std::to_string(column.number));
  });
}

void PlainLines::names(std::string& out, const NameTable& table, std::string_view ids) const {
  for (std::string_view id = takeWord(ids); !id.empty(); id = takeWord(ids)) {
    const auto name = table.find(std::string(id));
    out += ' ';
    out += name != table.end() ? std::string_view(name->second) : id;
  }
}

std::string PlainLines::subroutine(std::string_view number) const {
  int index = -1;
  std::from_chars(number.data(), number.data() + number.size(), index);
  const std::string_view name = PVBsubroutineName(database_, index);
  std::string text;
  if (name.empty()) return std::string(number);
  appendQuoted(text, name);
  return text;
}

std::string PlainLines::line(std::string_view line) const {
  std::string_view rest = line;
  const std::string_view keyword = takeWord(rest);
  std::string out(line.substr(0, line.size() - rest.size()));
  if (isOneOf(kSortedSections, keyword)) {
    // The P mode stays.
    const std::string_view mode = takeWord(rest);
    return mode.starts_with("mode=") ? out + " " + std::string(mode) : out;
  }
  const auto list = std::ranges::find(kListKeywords, keyword, &ListKeyword::keyword);
  if (list != kListKeywords.end()) {
    names(out, tables_[static_cast<std::size_t>(list->ids)], rest);
    return out;
  }
  if (isOneOf(kNumberedRecords, keyword)) {
    std::string_view named = rest;
    takeWord(named);
    return named.starts_with(" \"") ? out + std::string(named) : std::string(line);
  }
  if (keyword == "rows") {
    out += " " + subroutine(takeWord(rest));
  } else if (keyword == "run") {
    out += " " + std::string(takeWord(rest));
    names(out, tables_[static_cast<std::size_t>(Ids::objects)], takeWord(rest));
  } else if (keyword == "column") {
    takeWord(rest);
  }
  constexpr std::string_view kSubroutine = " subroutine=";
  const std::size_t place = keyword == "label" ? rest.find(kSubroutine) : rest.npos;
  if (place == rest.npos) return out.append(rest);
  std::string_view behind = rest.substr(place + kSubroutine.size());
  out.append(rest.substr(0, place + kSubroutine.size()));
  out += subroutine(takeWord(behind));
  return out.append(behind);
}

// --- One side as a file --------------------------------------------------------------

class StructureFile {
 public:
  explicit StructureFile(int database) : plain_(database) {}
  // False after a message.
  bool write(int database, const MessageSink& sink);
  TextFilePtr read() const { return PBopenCompressedTextFile(file_.path(), "r", false, 0); }

 private:
  bool take(std::string_view piece);
  void line(std::string_view line);
  void flushRecords();

  PlainLines plain_;
  TempFile file_;
  StreamPtr stream_;
  bool good_ = true;
  std::string begun_;                 // of a line that the last piece cut
  std::vector<std::string> records_;  // of a section to be sorted, lines and all
};

bool StructureFile::write(int database, const MessageSink& sink) {
  const std::string path = PBtempFileName("pvbdiff");
  stream_ = openStream(path, "w");
  file_ = stream_ ? TempFile(path) : TempFile();
  TextSink out([this](std::string_view piece) { return take(piece); });
  const bool dumped = stream_ && dumpDatabase(database, out, sink);
  flushRecords();
  if (dumped && good_ && closeStream(std::move(stream_)) == 0) return true;
  if (dumped || !stream_ || !good_) {
    sink(errorMessage(kCantWrite, std::strerror(errno), path));
  }
  return false;
}

bool StructureFile::take(std::string_view piece) {
  for (std::size_t end = piece.find('\n'); end != piece.npos; end = piece.find('\n')) {
    begun_.append(piece.substr(0, end));
    line(begun_);
    begun_.clear();
    piece.remove_prefix(end + 1);
  }
  begun_.append(piece);
  return good_;
}

void StructureFile::line(std::string_view text) {
  const std::string out = plain_.line(text) + '\n';
  std::string_view rest = text;
  const bool margin = !text.starts_with(' ');
  if (margin && isOneOf(kSortedRecords, takeWord(rest))) {
    records_.push_back(out);
    return;
  }
  if (!margin && !records_.empty()) {
    records_.back() += out;
    return;
  }
  flushRecords();
  good_ = good_ && std::fwrite(out.data(), 1, out.size(), stream_.get()) == out.size();
}

void StructureFile::flushRecords() {
  std::ranges::sort(records_);
  for (const std::string& record : records_) {
    good_ = good_ && std::fwrite(record.data(), 1, record.size(), stream_.get()) == record.size();
  }
  records_.clear();
}

// --- Two files -----------------------------------------------------------------------

// Lines that are looked ahead to find where both sides agree again.
constexpr std::size_t kWindow = 64;

struct Line {
  std::string text;
  std::string section;  // the line on the left margin that it belongs to, its first word
  std::string row;
};

// The lines of a side with what they belong to.
class LineWindow {
 public:
  explicit LineWindow(TextFilePtr file) : file_(std::move(file)) {}

  // The line `ahead` behind the next one; null at the end.
  const Line* peek(std::size_t ahead) {
    while (lines_.size() <= ahead && readLine()) {
    }
    return ahead < lines_.size() ? &lines_[ahead] : nullptr;
  }
  void drop(std::size_t lines) {
    const auto count = static_cast<std::ptrdiff_t>(std::min(lines, lines_.size()));
    lines_.erase(lines_.begin(), lines_.begin() + count);
  }
  bool failed() const { return failed_ || !file_; }

 private:
  bool readLine();

  TextFilePtr file_;
  std::deque<Line> lines_;
  std::string section_;
  std::string pattern_;
  std::int64_t row_ = -1;
  bool failed_ = false;
};

bool LineWindow::readLine() {
  std::string_view text;
  std::string_view comment;
  const std::int64_t size = file_ ? PBreadTextLine(file_.get(), text, comment) : -2;
  failed_ = failed_ || size < -1;
  if (size < 0) return false;
  while (text.ends_with('\n')) text.remove_suffix(1);
  std::string_view rest = text;
  const std::string_view word = takeWord(rest);
  if (!text.starts_with(' ')) {
    section_ = word;
    row_ = -1;
    if (word == "rows") pattern_ = takeWord(rest);
  } else if (section_ == "rows" && word != "prop" && word != "props" && word != "run") {
    ++row_;
  }
  Line line{
      std::string(text.substr(std::min(text.find_first_not_of(' '), text.size()))), section_, {}};
  if (row_ >= 0) line.row = (pattern_ == "main" ? "" : pattern_ + ":") + std::to_string(row_);
  lines_.push_back(std::move(line));
  return true;
}

class LineDiff {
 public:
  LineDiff(LineWindow& a, LineWindow& b, const DifferenceSink& told) : a_(a), b_(b), told_(told) {}

  std::uint64_t run() {
    while (a_.peek(0) != nullptr || b_.peek(0) != nullptr) {
      if (same(0, 0)) {
        a_.drop(1);
        b_.drop(1);
      } else {
        apart();
      }
    }
    return count_;
  }

 private:
  bool same(std::size_t i, std::size_t j) {
    const Line* a = a_.peek(i);
    const Line* b = b_.peek(j);
    return a != nullptr && b != nullptr && a->text == b->text;
  }
  void apart();
  void tell(const Line* a, const Line* b);

  LineWindow& a_;
  LineWindow& b_;
  const DifferenceSink& told_;
  std::uint64_t count_ = 0;
};

// Up to the nearest place where both sides have the same line again, the other lines
// stand against each other.
void LineDiff::apart() {
  std::size_t linesA = 1;
  std::size_t linesB = 1;
  bool found = false;
  for (std::size_t sum = 1; sum < kWindow && !found; ++sum) {
    for (std::size_t i = 0; i <= sum && !found; ++i) {
      found = same(i, sum - i);
      if (found) linesA = i, linesB = sum - i;
    }
  }
  for (std::size_t i = 0; i < std::max(linesA, linesB); ++i) {
    tell(i < linesA ? a_.peek(i) : nullptr, i < linesB ? b_.peek(i) : nullptr);
  }
  a_.drop(linesA);
  b_.drop(linesB);
}

void LineDiff::tell(const Line* a, const Line* b) {
  if (a == nullptr && b == nullptr) return;
  Difference difference;
  difference.what = a != nullptr ? a->section : b->section;
  difference.a = {a != nullptr ? a->row : "", {}, a != nullptr ? a->text : "none"};
  difference.b = {b != nullptr ? b->row : "", {}, b != nullptr ? b->text : "none"};
  ++count_;
  told_(difference);
}

}  // namespace

DiffResult diffStructures(int databaseA, int databaseB, const DifferenceSink& told,
                          const MessageSink& sink) {
  DiffResult result;
  StructureFile fileA(databaseA);
  StructureFile fileB(databaseB);
  if (!fileA.write(databaseA, sink) || !fileB.write(databaseB, sink)) return result;
  LineWindow a(fileA.read());
  LineWindow b(fileB.read());
  result.differences = LineDiff(a, b, told).run();
  result.done = !a.failed() && !b.failed();
  if (!result.done) sink(errorMessage(kCantRead, takePostedReasons()));
  return result;
}
