#include <fmt/format.h>

#include <array>

#include "base/text.h"
#include "tools/dump_text.h"
#include "tools/import.h"
#include "tools/nearest.h"

namespace {

// A keyword, and where its values go: into a list, a time, or a text.
struct OptionLine {
  std::string_view keyword;
  std::vector<std::string> ImportOptions::*names = nullptr;
  std::optional<TIME> ImportOptions::*time = nullptr;
  std::string ImportOptions::*text = nullptr;
};
constexpr std::array kOptionLines = {
    OptionLine{"input", &ImportOptions::inputs},
    OptionLine{"output", &ImportOptions::outputs},
    OptionLine{"bidir", &ImportOptions::bidirs},
    OptionLine{"clock", &ImportOptions::clocks},
    OptionLine{"period", nullptr, &ImportOptions::period},
    OptionLine{"strobe", nullptr, &ImportOptions::strobe},
    OptionLine{"scope", nullptr, nullptr, &ImportOptions::scope},
};

// A word of a line, and the column where it stands.
struct Word {
  std::string_view text;
  std::size_t column = 1;
};

std::vector<Word> wordsOf(std::string_view line) {
  std::vector<Word> words;
  for (std::size_t at = 0; at < line.size();) {
    const std::size_t begin = at;
    while (at < line.size() && !PBisSpace(line[at])) ++at;
    if (line[begin] == '#') break;
    if (at > begin) {
      words.push_back({line.substr(begin, at - begin), begin + 1});
    } else {
      ++at;
    }
  }
  return words;
}

const OptionLine* findLine(std::string_view keyword) {
  for (const OptionLine& line : kOptionLines) {
    if (line.keyword == keyword) return &line;
  }
  return nullptr;
}

bool unknownLine(DumpScanner& in, const Word& keyword) {
  std::vector<std::string_view> known;
  known.reserve(kOptionLines.size());
  for (const OptionLine& line : kOptionLines) known.push_back(line.keyword);
  return in.failColumn(
      kUnknownKeyword,
      fmt::format("'{}' is no option{}", keyword.text, didYouMean(keyword.text, known)),
      keyword.column);
}

bool takeTime(DumpScanner& in, const Word& word, std::optional<TIME>& out) {
  TIME time;
  if (!parseWholeTIME(word.text, time)) {
    return in.failColumn(kBadTime, fmt::format("'{}' is no time", word.text), word.column);
  }
  if (!out) out = time;
  return true;
}

bool takeLine(DumpScanner& in, ImportOptions& options) {
  const std::vector<Word> words = wordsOf(in.line());
  const OptionLine* line = findLine(words[0].text);
  if (line == nullptr) return unknownLine(in, words[0]);
  if (words.size() < 2) {
    return in.failColumn(kExpected, fmt::format("a value is expected behind '{}'", line->keyword),
                         in.line().size() + 1);
  }
  if (line->names != nullptr) {
    for (std::size_t i = 1; i < words.size(); ++i) {
      (options.*line->names).emplace_back(words[i].text);
    }
    return true;
  }
  if (words.size() > 2) {
    return in.failColumn(kExtraText, fmt::format("'{}' takes one value", line->keyword),
                         words[2].column);
  }
  if (line->time != nullptr) return takeTime(in, words[1], options.*line->time);
  if ((options.*line->text).empty()) (options.*line->text) = words[1].text;
  return true;
}

}  // namespace

bool readImportOptions(const std::string& file, ImportOptions& options, const MessageSink& sink) {
  TextFilePtr text = PBopenCompressedTextFile(file, "r", false, 0);
  if (!text) {
    const std::string reasons = takePostedReasons();
    sink(errorMessage(kCantRead, "the options can't be read: " + reasons, file));
    return false;
  }
  DumpScanner in(std::move(text), file, sink);
  while (in.nextLine()) {
    if (!takeLine(in, options)) return false;
  }
  return !in.failed();
}
