#pragma once

// Small operations on texts. Letter case and white space are those of ASCII,
// whatever the locale. Texts that may be absent come as TextArg, which every
// kind of text converts to.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/memory.h"

// A text argument that may be absent: a null pointer, std::nullopt and an empty
// optional all are none. A view, for the length of a call.
class TextArg {
 public:
  TextArg(std::nullopt_t) {}
  TextArg(const char* text) {
    if (text != nullptr) text_ = text;
  }
  TextArg(std::string_view text) : text_(text) {}
  TextArg(const std::string& text) : text_(text) {}
  TextArg(const std::optional<std::string>& text) {
    if (text) text_ = *text;
  }
  TextArg(std::optional<std::string_view> text) : text_(text) {}

  bool absent() const { return !text_; }
  // The text; empty when there is none.
  std::string_view view() const { return text_.value_or(std::string_view()); }

 private:
  std::optional<std::string_view> text_;
};

// An owned text, ended by a zero byte.
using PBtext = std::unique_ptr<char[], BlockFree>;

struct TextArrayFree {
  void operator()(char** texts) const;
};
// An owned array of owned texts, ended by a null.
using PBtextArray = std::unique_ptr<char*[], TextArrayFree>;

// A copy; null for null. This one doesn't wait for memory: null after a post of
// code 82 when there is none.
PBtext PBcopyStr(const char* text);
// A copy of a null-ended array and its texts; null as PBcopyStr.
PBtextArray PBcopyStrArray(const char* const* texts);

// Equal when case is ignored. None equals none and no text, not even an empty one.
bool PBstrEq(TextArg a, TextArg b);
bool PBisEmpty(TextArg text);
// The sum of the bytes as signed characters; 0 for none.
int PBstrHash(TextArg text);
// The sign of strcmp, with null behind every text.
int PBstrCompare(const char* a, const char* b);

// One of the six characters of white space.
constexpr bool PBisSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
// The number at the start of a text as atoi reads it: white space, a sign,
// decimal digits; 0 when there are no digits. What doesn't fit becomes the
// nearest int.
int PBtextToInt(std::string_view text);
// Whether the text ends with one of the blank-separated endings, in any case.
bool PBendsWithOneOf(std::string_view text, std::string_view endings);
std::string PBlowerText(std::string_view text);
// The text without any of its white space.
std::string PBstripSpace(std::string_view text);
