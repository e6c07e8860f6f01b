#pragma once

// Texts of any bytes as they stand in our text forms: between double quotes, with `\"`,
// `\\`, `\n`, `\t` and `\xHH`. Whole UTF-8 sequences stay as they are; every other
// byte that isn't printable ASCII becomes `\xHH`. Reading gives the same bytes back.

#include <cstddef>
#include <string>
#include <string_view>

void appendQuoted(std::string& out, std::string_view text);
std::string quotedText(std::string_view text);

// Reads a quoted text that begins at `position` (which holds the quote) and leaves
// `position` behind it. Otherwise false with `position` at what is wrong.
bool readQuoted(std::string_view line, std::size_t& position, std::string& out);
