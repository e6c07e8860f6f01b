#include "base/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

PagingState PBpaging;

namespace {

constexpr char kFormFeed = '\f';
constexpr std::int32_t kLineBelowBanner = 12;
constexpr int kBannerWidth = 72;

// Set by the functions of the header, for the life of the process.
struct Settings {
  int bannerWidth = kBannerWidth;
  bool upperCaseDate = false;
  ClockFn clock = nullptr;
};
Settings settings;

void endLine(FILE* stream) {
  std::fputc('\n', stream);
  ++PBpaging.line;
  PBpaging.column = 1;
}

// The callback's heading brings the line number back to the top of the page.
void endLineAndPage(FILE* stream) {
  endLine(stream);
  if (PBpaging.line >= PBpaging.maxLine && PBpaging.newPage) PBpaging.newPage(stream);
  PBpaging.column = 1;
}

// Character by character, so that every line end and every wrap is counted. A
// line end right behind a full line isn't wrapped: no empty line comes of it.
void printWrapped(FILE* stream, std::string_view text, void (*lineEnd)(FILE*)) {
  for (const char c : text) {
    if (c == '\n') {
      lineEnd(stream);
      continue;
    }
    if (PBpaging.column > PBpaging.maxColumn) lineEnd(stream);
    std::fputc(c, stream);
    ++PBpaging.column;
  }
}

void printWhole(FILE* stream, std::string_view text, int indent) {
  const auto length = static_cast<std::int64_t>(text.size());
  if (length + PBpaging.column > std::int64_t{PBpaging.maxColumn} + 1) {
    endLineAndPage(stream);
    for (int i = 0; i < indent; ++i) std::fputc(' ', stream);
    PBpaging.column = indent + 1;
  }
  std::fwrite(text.data(), 1, text.size(), stream);
  constexpr std::int64_t kFarRight = 1000000000;  // far beyond any page, and no overflow
  PBpaging.column = static_cast<std::int32_t>(std::min(PBpaging.column + length, kFarRight));
}

class Frame {
 public:
  Frame(FILE* stream, std::string_view prefix, std::string_view suffix, int width)
      : stream_(stream),
        prefix_(prefix),
        suffix_(suffix),
        width_(static_cast<std::size_t>(std::max(width, 0))) {}

  void line(std::string_view content) { write(std::string(prefix_).append(content)); }
  void filledLine(std::string_view content, char fill) {
    std::string text = std::string(prefix_).append(content);
    if (text.size() < width_) text.append(width_ - text.size(), fill);
    write(text);
  }
  // Whether the stream took all; what it still holds is written first.
  bool arrived() { return std::fflush(stream_) == 0 && !failed_; }

 private:
  void write(const std::string& text) {
    const std::string whole = std::string(text).append(suffix_).append("\n");
    if (std::fputs(whole.c_str(), stream_) == EOF) failed_ = true;
  }

  FILE* stream_;
  std::string_view prefix_, suffix_;
  std::size_t width_;
  bool failed_ = false;
};

}  // namespace

void PBsetPage(std::int32_t width, std::int32_t lines, NewPageFn newPage) {
  PBpaging.maxColumn = width;
  PBpaging.maxLine = lines;
  PBpaging.newPage = std::move(newPage);
  PBpaging.column = 1;
  PBpaging.line = kLineBelowBanner;
}

void PBprintHeading(FILE* stream, std::string_view text) {
  if (!PBpaging.firstPage) std::fputc(kFormFeed, stream);
  PBpaging.firstPage = false;
  PBpaging.line = 0;
  PBpaging.column = 1;
  printWrapped(stream, text, endLine);
}

void PBprint(FILE* stream, std::string_view text) { PBprintIndented(0, stream, text); }

void PBprintIndented(int indent, FILE* stream, std::string_view text) {
  // The callback of a page break may print: what is printed must be our own.
  const std::string copy(text);
  const std::string_view all = copy;
  const std::size_t lines = all.rfind('\n') + 1;  // npos + 1 is 0
  printWrapped(stream, all.substr(0, lines), endLineAndPage);
  printWhole(stream, all.substr(lines), indent);
}

void resetReport() {
  PBpaging = {};
  settings.bannerWidth = kBannerWidth;
  settings.upperCaseDate = false;
}

int PBprintBanner(FILE* stream, const BannerIdentity* identity,
                  std::span<const BannerEntry> entries, std::string_view prefix,
                  std::string_view suffix) {
  return PBprintBanner(stream, identity, entries, prefix, suffix, settings.bannerWidth);
}

int PBprintBanner(FILE* stream, const BannerIdentity* identity,
                  std::span<const BannerEntry> entries, std::string_view prefix,
                  std::string_view suffix, int width) {
  Frame frame(stream, prefix, suffix, width);
  frame.filledLine("", '*');
  if (identity != nullptr) {
    frame.filledLine(fmt::format(" {} {}", identity->name, identity->version), ' ');
  }
  frame.line("");
  if (identity != nullptr) frame.line(fmt::format(" {}", PBdateText()));
  for (const BannerEntry& entry : entries) {
    for (const std::string& value : entry.values)
      frame.line(fmt::format("{}:{}", entry.label, value));
  }
  frame.line("");
  frame.filledLine("", '*');
  return frame.arrived() ? 0 : -2;
}

void PBsetBannerWidth(int width) { settings.bannerWidth = width; }

ClockFn PBsetClock(ClockFn clock) { return std::exchange(settings.clock, clock); }

std::time_t PBcurrentTime() {
  return settings.clock != nullptr ? settings.clock() : std::time(nullptr);
}

std::string PBdateText() {
  const std::time_t now = PBcurrentTime();
  std::array<char, 64> buffer{};  // ctime_r needs 26 for a year of four digits
  const char* text = ctime_r(&now, buffer.data());
  std::string date = text != nullptr ? text : "";
  std::erase(date, '\n');
  if (settings.upperCaseDate) {
    for (char& c : date) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  return date;
}

void PBsetDateUpperCase(bool upperCase) { settings.upperCaseDate = upperCase; }
