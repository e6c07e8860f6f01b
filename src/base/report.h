#pragma once

// The paged plain-text report: wrapping and page breaks, the frame that opens a
// report, and the date as reports show it. The state is one record for the
// process; streams belong to the caller. Printing tells no failures but for the
// banner: who must know that all arrived closes the stream and looks.

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// --- Paging --------------------------------------------------------------------------

// Prints the heading of a page, by PBprintHeading.
using NewPageFn = std::function<void(FILE* stream)>;

// PBsetPage and the print functions keep it; `pageNumber` is for the callback,
// which shows and raises it.
struct PagingState {
  std::int32_t column = 1;  // the next one
  std::int32_t maxColumn = 100;
  std::int32_t line = 0;  // within the page
  std::int32_t maxLine = 66;
  NewPageFn newPage;
  bool firstPage = true;
  std::int32_t pageNumber = 1;
};
extern PagingState PBpaging;

// Sets the page's size and goes to column 1 of line 12, which is below a heading
// and a banner. An empty callback: no page breaks.
void PBsetPage(std::int32_t width, std::int32_t lines, NewPageFn newPage);
// Starts a page with `text`: a form feed unless it is the first page.
void PBprintHeading(FILE* stream, std::string_view text);
// Prints what ends in a line end with wrapping and page breaks. What comes behind
// the last line end is kept whole: it starts on a new line when it would pass the
// last column, with `indent` blanks before it.
void PBprint(FILE* stream, std::string_view text);
void PBprintIndented(int indent, FILE* stream, std::string_view text);
// Paging, banner width and letter case of the date as at the start of the process.
void resetReport();

// --- Banner --------------------------------------------------------------------------

struct BannerIdentity {
  std::string name;
  std::string version;
};
struct BannerEntry {
  std::string label;
  std::vector<std::string> values;
};

// Writes a frame from the first column to the banner's width: asterisks, name and
// version, the date, a line "prefix label:value" (without blanks between) for each
// value, asterisks. Every line begins with `prefix` and ends with `suffix`. Without
// an identity the lines of name and date are left out. 0, or -2 when the stream
// didn't take all.
int PBprintBanner(FILE* stream, const BannerIdentity* identity,
                  std::span<const BannerEntry> entries, std::string_view prefix,
                  std::string_view suffix);
int PBprintBanner(FILE* stream, const BannerIdentity* identity,
                  std::span<const BannerEntry> entries, std::string_view prefix,
                  std::string_view suffix, int width);
// The width of the first form, 72 at the start.
void PBsetBannerWidth(int width);

// --- Date ----------------------------------------------------------------------------

// Seconds since the epoch, as std::time(nullptr).
using ClockFn = std::time_t (*)();
// Puts a clock in place of the system's (null: the system's again) and returns
// the one before (null for the system's).
ClockFn PBsetClock(ClockFn clock);
std::time_t PBcurrentTime();

// The present date in the form of ctime, without the line end.
std::string PBdateText();
void PBsetDateUpperCase(bool upperCase);
