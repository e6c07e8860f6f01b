#pragma once

// Debug output is switched by named tokens. A token has a text value, or none,
// and is enabled when that is "true"; code asks for a token or prints through
// it. Tokens come from a default table of the program and from an SRF file,
// which DebugTokenWrite writes for the user to edit:
//
//   #%token       value description
//     layout.walk true  "rows that a walk passes"
//     layout.size 12    <nil>
//
// "null" stands for no value, "<nil>" for the description of a token that was
// met without a default. "always" and "never" keep their values, "true" and
// "false". What the other reserved tokens do:
//
//   stdout, stderr             output goes there; both may be on
//   write_to_file              output goes to the file of write_to_file_path
//                              as well; with none of the three, to standard error
//   debug_token_display        traces what DebugTokenEnabled is asked
//   debug.mutex                traces the steps of the table's lock
//   debug.prefix.line_numbers  numbers the lines of output
//   debug.prefix.tokens        starts the lines with their token
//   debug.token_order          value "default": the written table has the order of
//                              the default table, tokens met later behind; any
//                              other: by name
//   assert, problem, todo      categories of output
//   savetokens                 DebugTokenEndRun writes the token file
//   debug_break_point_token    its value names a token; asking for that one calls
//                              the break point routine
//
// Before a table is loaded nothing but "always" is enabled and nothing can be
// set. Process-wide; every operation on the table takes the registered lock.

#include <fmt/printf.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct DebugToken {
  std::string token;
  std::optional<std::string> value;
  std::optional<std::string> description;  // none: met without a default
  bool isDefault = false;                  // the value is still the default
  bool hasDefault = false;
  std::optional<std::string> defaultValue;
};

inline constexpr const char* kDebugTokenFile = "debug.srf";

// Makes the table anew: from `defaults`, SRF with the columns "token", "value"
// and "description", and from the token file (kDebugTokenFile unless given) when
// it is there. False when one of them has a fault; what could be read counts.
// Sets the SRF reader's modes for itself and leaves them so.
bool DebugTokenLoad(std::string_view defaults, const std::optional<std::string>& tokenFile = {});
// A token that isn't in the table is inserted without a value.
bool DebugTokenEnabled(std::string_view token);
std::optional<std::string> DebugTokenValue(std::string_view token);
// The value as a number; 0 when it doesn't begin with one.
std::int64_t DebugTokenValueLong(std::string_view token);
double DebugTokenValueDouble(std::string_view token);
// Makes the token when needed; false without a table.
bool DebugTokenSetValue(std::string_view token, std::optional<std::string_view> value);
// Gives a token its default again, no value if it has none; false if unknown.
bool DebugTokenReset(std::string_view token);
// Whether the token has a default and that is its value.
bool DebugTokenIsDefault(std::string_view token);
// The tokens in the order of the hash table.
std::vector<DebugToken> DebugTokenHashCopy();
// Writes the tokens that aren't at their default. False when the file can't be
// written, or holds none ("-") for a text that can't stand in it (with a newline,
// or too long).
bool DebugTokenWrite(const std::string& path);
// For the end of a run: with "savetokens" on, writes the token file and says so.
bool DebugTokenEndRun();

// Prints line by line with the prefixes, whether the token is enabled or not.
void DebugPrefixPrint(std::string_view token, std::string_view text);
// Prints when the token is enabled.
template <typename... Args>
void DebugPrintf(std::string_view token, const char* format, const Args&... args) {
  if (DebugTokenEnabled(token)) DebugPrefixPrint(token, fmt::sprintf(format, args...));
}
// Prints under the category "assert" or "problem" when that is enabled.
void DebugAssertFailed(std::string_view text);
void DebugProblem(std::string_view text);
// No output while suspended.
void DebugPrintSuspend(bool suspended);

// Each of these takes a function, an empty one for none.
// Gets the lines of output, with their line ends, in place of the streams.
void DebugRegisterLogger(std::function<void(std::string_view line)> logger);
// Decides in place of the tokens' values.
void DebugRegisterEnabler(std::function<bool(std::string_view token)> enabler);
// Called with the token that is named by debug_break_point_token.
void DebugRegisterBreakPoint(std::function<void(std::string_view token)> routine);
// `where` is the function's name, ":" and the source line.
using DebugLockStep = std::function<void(std::string_view where)>;
void DebugRegisterLock(DebugLockStep lock, DebugLockStep unlock);
