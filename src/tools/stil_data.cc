#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "tools/stil_reader.h"
#include "tools/stil_statement.h"

namespace {

using Kind = StilTokenKind;

bool isDigitOf(int radix, char c) {
  if (c >= '0' && c <= '9') return true;
  return radix == 16 && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'));
}

}  // namespace

bool StilDataReader::read(StilData& data) {
  data.characters.clear();
  data.coded.clear();
  size_ = 0;
  repeat_ = 1;
  coded_ = false;
  behindBase_ = false;
  while (!cursor_.is(Kind::stop)) {
    if (!cursor_.isName()) {
      return cursor_.expected(data.characters.empty() ? "data" : "data or ';'");
    }
    if (!piece(data, cursor_.token().text)) return false;
    behindBase_ = false;
    cursor_.next();
  }
  if (coded_ && !endCoded(data)) return false;
  if (repeat_ != 1) return cursor_.expected("data behind \\r");
  if (data.characters.empty() && data.coded.empty()) return cursor_.expected("data");
  cursor_.next();
  return !cursor_.failed();
}

// Data between white space: runs of characters with escapes before and between them.
bool StilDataReader::piece(StilData& data, std::string_view text) {
  while (!text.empty()) {
    const std::size_t size = std::min(text.find('\\'), text.size());
    if (size == 0) {
      if (!escape(data, text)) return false;
      continue;
    }
    if (!run(data, text.substr(0, size))) return false;
    text.remove_prefix(size);
  }
  return true;
}

// \rN repeats the run that follows; \h and \d begin digits, \w characters.
bool StilDataReader::escape(StilData& data, std::string_view& text) {
  const char letter = text.size() > 1 ? text[1] : '\0';
  text.remove_prefix(std::min<std::size_t>(text.size(), 2));
  if (letter == 'r') return beginRepeat(text);
  if (letter != 'w' && letter != 'h' && letter != 'd') {
    return cursor_.fail(kStilUnsupported,
                        fmt::format("data with \\{} can't be read; \\r, \\h, \\d and \\w can",
                                    std::string_view(&letter, letter == '\0' ? 0 : 1)));
  }
  if (coded_ && !endCoded(data)) return false;
  coded_ = letter != 'w';
  behindBase_ = coded_;
  if (coded_) data.coded.push_back({data.characters.size(), letter == 'h' ? 16 : 10, {}, {}});
  return true;
}

bool StilDataReader::beginRepeat(std::string_view& text) {
  std::uint64_t count = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error == std::errc::invalid_argument) return cursor_.expected("a number behind \\r");
  if (error != std::errc() || count > kMostStilData) {
    return cursor_.fail(kStilTooLong,
                        fmt::format("data are repeated more than {} times", kMostStilData));
  }
  text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
  repeat_ = count;
  return true;
}

bool StilDataReader::run(StilData& data, std::string_view text) {
  const std::uint64_t repeat = repeat_;
  // Characters right behind \h are those of a base where digits follow them.
  if (behindBase_ && repeat == 1) {
    behindBase_ = false;
    data.coded.back().characters = text;
    return true;
  }
  repeat_ = 1;
  if (!coded_) return add(data.characters, text, repeat);
  const int radix = data.coded.back().radix;
  if (!std::all_of(text.begin(), text.end(), [=](char c) { return isDigitOf(radix, c); })) {
    return cursor_.expected(radix == 16 ? "a hexadecimal number" : "a decimal number");
  }
  return add(data.coded.back().digits, text, repeat);
}

// Without digits behind them, what stands behind \h was the digits.
bool StilDataReader::endCoded(StilData& data) {
  StilCoded& coded = data.coded.back();
  if (coded.digits.empty()) {
    const std::string digits = std::move(coded.characters);
    coded.characters.clear();
    if (digits.empty()) return cursor_.expected("digits");
    if (!run(data, digits)) return false;
  }
  coded_ = false;
  return true;
}

bool StilDataReader::add(std::string& to, std::string_view text, std::uint64_t times) {
  if (times > 0 && text.size() > (kMostStilData - size_) / times) {
    return cursor_.fail(
        kStilTooLong,
        fmt::format("the data of one assignment are more than {} characters", kMostStilData));
  }
  size_ += text.size() * times;
  if (text.size() == 1) {
    to.append(times, text.front());
  } else {
    for (std::uint64_t i = 0; i < times; ++i) to.append(text);
  }
  return true;
}
