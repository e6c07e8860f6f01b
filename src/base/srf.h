#pragma once

// SRF, the plain text table format of the suite. A file holds any number of
// tables, each a header line that names its columns and rows of values:
//
//   #% regionname pvbname  start       a header begins with "#%"
//   # comment                          any other line that begins with "#"
//      core       db/core  10nS        a row; values are separated by white space
//      rest       "my db"  -   # note  quoted value, no value, trailing comment
//      last       a\       b           a final backslash joins the next line
//
// An unquoted "-" is no value, and what a row leaves out at its end has none.
// "\#" is a "#" of the value, "\\" a backslash, and inside quotes "\"" a quote.
// Joining comes first of all, so a comment that ends in a backslash takes the
// next line with it. White space at the end of a value is removed, quoted or not.
//
// Reading calls row handlers, writing takes tuples; one reader and one writer
// exist in a process, each with one file at a time. Vocabulary, modes and hooks
// stay set until changed. Failures are a false result with a post on the
// numbered stack, a note (standard error unless a hook takes it), or a text on
// the list of failed rows. One thread.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// One value of a row. Views: of the line and of the vocabulary when read, of
// whatever the caller keeps when written.
struct SRFitem {
  std::uint32_t attribute = 0;
  std::string_view keyword;
  std::string_view value;
};

// One row. A handler's tuple lives for its call; it copies what it keeps.
struct SRFtuple {
  std::uint32_t mask = 0;  // all attributes of the items
  std::vector<SRFitem> items;
  std::string_view comment;  // written above the table, not read
};

// Takes a row whose columns hold all of the handler's mask, which is `matched`.
// False fails the row.
using SRFhandler = std::function<bool(const SRFtuple& row, std::uint32_t matched)>;
struct SRFrowHandler {
  std::uint32_t mask = 0;  // 0 ends the handlers
  SRFhandler handler;
};

// --- Reading -------------------------------------------------------------------------

// Reads the file, or PATH.gz when there is no such file, and calls the handlers
// that fit each row in their order, up to the first that fails; the rows after a
// failed one are still read. `initialAttributes`, when given, stands for a
// header before the first line. True if nothing failed and nothing stopped the
// parse. Refused during a parse.
bool SRF_parseFile(const std::string& path, std::span<const SRFrowHandler> handlers,
                   std::span<const std::string_view> initialAttributes = {});
// The same over a text, shown as `name` in messages ("text_buffer" when empty).
bool SRF_parseBuffer(std::string_view text, std::string_view name,
                     std::span<const SRFrowHandler> handlers,
                     std::span<const std::string_view> initialAttributes = {});

struct SRFkeyword {
  std::string_view name;
  std::uint32_t mask = 0;
};
// The vocabulary, found without regard to case. Name i has the attribute bit
// 1 << i; from position 31 on all share bit 31. Names are copied.
void SRF_setKeywords(std::span<const std::string_view> names);
void SRF_setKeywordPairs(std::span<const SRFkeyword> pairs);
// Names that are not in the vocabulary become keywords with this attribute, until
// the next parse begins; compared exactly or without regard to case. 0: not so.
void SRF_setDynamicKeywords(std::uint32_t attribute, bool ignoreCase = false);
// A backslash takes any next character literally, and in a table of one column
// the whole line is the value.
void SRF_setRawEscapes(bool on);

// Called before the handlers; false fails the row. Not to be set from inside a
// call of the same hook, like the two below.
void SRF_setRowHook(std::function<bool(const SRFtuple& row)> hook);
// Called with the names in a header; false skips the table and fails the parse.
void SRF_setHeaderHook(std::function<bool(std::span<const std::string_view> names)> hook);
// Whether an unknown column is noted; so it is at the start. A parse notes the
// first 1,000 of them; all are counted.
void SRF_setUnknownKeywordNote(bool on);
// Takes the notes in place of standard error; true stops the parse.
void SRF_setNoteHook(std::function<bool(std::string_view note)> hook);
// Vocabulary, modes and hooks as they are when the process starts.
void SRF_resetModes();

// The value of a column, found without regard to case.
std::optional<std::string_view> SRF_get(const SRFtuple& tuple, std::string_view keyword);
// Sets, replaces or, without a value, removes. The value stays the caller's; the
// keyword is the vocabulary's and lives as long as that. False for a name that
// isn't a keyword and for more than 31 columns from a vocabulary without masks.
bool SRF_set(SRFtuple& tuple, std::string_view keyword, std::optional<std::string_view> value);

// Ends the running parse after this row, with false as its result.
void SRF_stopParse();
// A note on the line that is being read. SRF_error has the label "SRF error",
// SRF_warning "Warning", SRF_information "Note"; the program's name stands before
// the label unless it is "Error", "Note" or "Warning".
void SRF_note(std::string_view label, std::string_view text);
void SRF_error(std::string_view text);
void SRF_warning(std::string_view text);
void SRF_information(std::string_view text);
// The errors counted since the parse began.
int SRF_errorCount();
void SRF_clearErrorCount();
void SRF_addError();
// The failed rows of the last parse, oldest first, each with its line end and at
// most 1,023 characters of the row; a text is handed out once.
std::optional<std::string> SRF_nextMessage();
bool SRF_noMoreMessages();

// --- Writing -------------------------------------------------------------------------

// No path is standard output. `mode` as for openStream.
bool SRF_openSrf(const std::optional<std::string>& path, const char* mode = "w");
// False when any write was lost.
bool SRF_closeSrf();
// A comment line with the text up to its first newline; none is an empty line.
bool SRF_comment(std::optional<std::string_view> text);
// A header for the columns of `tuple` inside `mask`, or for the keywords of the
// list without those whose column is outside; widths fit the tuple's values. A
// keyword that can't stand in a header (empty, or in need of quotes) is refused.
bool SRF_putRd(std::uint32_t mask, const SRFtuple& tuple,
               std::span<const std::string_view> keywords = {});
// A row under the header in force; one that covers this row is written first when
// the columns are not those for which the header in force was written. A tuple
// without items writes nothing. A row that can't be written leaves nothing
// behind: a value with a newline, or one whose escaped form takes 1,024
// characters or more.
bool SRF_putTpl(const SRFtuple& tuple);
// The same with the columns of the list, a missing one being written as "-".
bool SRF_putTplOrdered(const SRFtuple& tuple, std::span<const std::string_view> keywords);
// One value on any stream, quoted as needed; none is "-". `width`, when given,
// holds the column's width and receives the characters written.
bool SRF_putString(std::FILE* stream, std::optional<std::string_view> text, int* width = nullptr);
