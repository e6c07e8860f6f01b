#include "base/quote.h"

namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

bool isPlain(unsigned char c) { return c >= ' ' && c < 0x7F && c != '"' && c != '\\'; }

// Bytes of the sequence that a first byte of UTF-8 announces; 0 for none.
std::size_t sequenceLength(unsigned char first) {
  if (first >= 0xC2 && first <= 0xDF) return 2;
  if (first >= 0xE1 && first <= 0xEC) return 3;
  return first == 0xEE || first == 0xEF ? 3 : 0;
}

// Bytes of the UTF-8 sequence at `position`, 0 when it isn't whole. The rarer
// forms (beyond the basic plane) count as bytes: escaping them loses nothing.
std::size_t wholeSequence(std::string_view text, std::size_t position) {
  const std::size_t length = sequenceLength(static_cast<unsigned char>(text[position]));
  if (length == 0 || position + length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((static_cast<unsigned char>(text[position + i]) & 0xC0) != 0x80) return 0;
  }
  return length;
}

void appendEscaped(std::string& out, unsigned char c) {
  out += '\\';
  if (c == '"' || c == '\\') {
    out += static_cast<char>(c);
  } else if (c == '\n') {
    out += 'n';
  } else if (c == '\t') {
    out += 't';
  } else {
    out += 'x';
    out += kHexDigits[c >> 4];
    out += kHexDigits[c & 15];
  }
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool readHexByte(std::string_view line, std::size_t& position, std::string& out) {
  int value = 0;
  for (int digit = 0; digit < 2; ++digit) {
    const int part = position < line.size() ? hexValue(line[position]) : -1;
    if (part < 0) return false;
    value = value * 16 + part;
    ++position;
  }
  out += static_cast<char>(value);
  return true;
}

// `position` stands behind the backslash.
bool readEscape(std::string_view line, std::size_t& position, std::string& out) {
  if (position == line.size()) return false;
  const char c = line[position];
  if (c != '"' && c != '\\' && c != 'n' && c != 't' && c != 'x') return false;
  ++position;
  if (c == 'x') return readHexByte(line, position, out);
  out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
  return true;
}

}  // namespace

void appendQuoted(std::string& out, std::string_view text) {
  out += '"';
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    const std::size_t whole = isPlain(c) ? 1 : wholeSequence(text, i);
    if (whole == 0) appendEscaped(out, c);
    out.append(text, i, whole);
    i += whole == 0 ? 1 : whole;
  }
  out += '"';
}

std::string quotedText(std::string_view text) {
  std::string out;
  appendQuoted(out, text);
  return out;
}

bool readQuoted(std::string_view line, std::size_t& position, std::string& out) {
  out.clear();
  if (position >= line.size() || line[position] != '"') return false;
  ++position;
  while (position < line.size() && line[position] != '"') {
    const char c = line[position];
    if (c != '\\') {
      out += c;
      ++position;
    } else if (!readEscape(line, ++position, out)) {
      return false;
    }
  }
  if (position == line.size()) return false;
  ++position;
  return true;
}
