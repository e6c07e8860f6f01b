#include "tools/vcd_reader.h"

#include <fmt/format.h>

#include <charconv>

#include "base/text.h"
#include "tools/vcd_reader_internal.h"

namespace {

constexpr std::uint64_t kLongestSafeStamp = 19;  // digits that fit in any case

constexpr auto byteOf(char c) { return static_cast<unsigned char>(c); }

// What a character of a value counts as; 0 for none.
constexpr std::array<char, 256> makeBits() {
  std::array<char, 256> bits{};
  for (const char c : {'0', 'l', 'L'}) bits[byteOf(c)] = '0';
  for (const char c : {'1', 'h', 'H'}) bits[byteOf(c)] = '1';
  for (const char c : {'z', 'Z'}) bits[byteOf(c)] = 'z';
  for (const char c : {'x', 'X', 'u', 'U', 'w', 'W', '-'}) bits[byteOf(c)] = 'x';
  return bits;
}
constexpr std::array<char, 256> kBits = makeBits();
constexpr std::string_view kPortStates = "DUNZduLHXTlh01?FAaBbCcf";

// What a character counts as, as a text that stays.
std::string_view bitText(char c) { return {&kBits[byteOf(c)], 1}; }

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string quoted(std::string_view text) {
  constexpr std::size_t kLongest = 40;
  return fmt::format("'{}{}'", text.substr(0, kLongest), text.size() > kLongest ? "..." : "");
}

}  // namespace

std::uint32_t VcdReader::findNet(std::string_view code) const {
  const std::size_t number = vcdCodeNumber(code);
  if (number != kNoCodeNumber) return number < shortCodes_.size() ? shortCodes_[number] : kNoNet;
  const auto found = longCodes_.find(code);
  return found != longCodes_.end() ? found->second : kNoNet;
}

// Bits and times that stand whole in the buffer are read here; `other` reads anything.
VcdEvent VcdReader::next() {
  while (!finished_ && !failed_) {
    const char* p = buffer_.data() + at_;
    while (PBisSpace(*p)) ++p;
    at_ = event_ = static_cast<std::size_t>(p - buffer_.data());
    if (kBits[byteOf(*p)] != 0) {
      std::size_t number = 0;
      const char* const end = vcdReadCode(p + 1, number);
      if (PBisSpace(*end) && number < shortCodes_.size() && shortCodes_[number] != kNoNet) {
        net_ = shortCodes_[number];
        value_ = bitText(*p);
        at_ = static_cast<std::size_t>(end - buffer_.data());
        return VcdEvent::bits;
      }
    } else if (*p == '#') {
      const char* digit = p + 1;
      std::uint64_t time = 0;
      while (isDigit(*digit)) time = time * 10 + static_cast<std::uint64_t>(*digit++ - '0');
      const auto digits = static_cast<std::size_t>(digit - p - 1);
      if (PBisSpace(*digit) && digits - 1 < kLongestSafeStamp && time >= time_) {
        time_ = time;
        at_ = static_cast<std::size_t>(digit - buffer_.data());
        return VcdEvent::time;
      }
    }
    VcdEvent event = VcdEvent::end;
    if (other(event)) return event;
  }
  return VcdEvent::end;
}

bool VcdReader::other(VcdEvent& event) {
  const Words read = words(1);
  event_ = at_;
  if (failed_) return true;
  if (read.count == 0) {
    event = finish();
    return true;
  }
  at_ = event_ = placeOf(read.word[0]);
  const char kind = read.word[0].front();
  switch (kind) {
    case '#':
      event = stamp();
      return true;
    case 'b':
    case 'B':
      event = vector();
      return true;
    case 'r':
    case 'R':
      event = text(VcdEvent::real);
      return true;
    case 's':
    case 'S':
      event = text(VcdEvent::string);
      return true;
    case 'p':
      event = ports();
      return true;
    case '$':
      return !command();
    default:
      break;
  }
  if (kBits[byteOf(kind)] != 0) {
    event = scalar();
  } else {
    fail(kVcdSyntax, "a time, a change or a command is expected");
  }
  return true;
}

VcdEvent VcdReader::finish() {
  if (inDump_) return endEarly("before the $end of a command");
  if (cut_) return endEarly("where " + source_->reason());
  finished_ = true;
  return VcdEvent::end;
}

VcdEvent VcdReader::stamp() {
  const Words read = words(1);
  const std::string_view digits = read.word[0].substr(1);
  std::uint64_t time = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), time);
  const bool whole = end == digits.data() + digits.size();
  if (read.cut && (digits.empty() || time < time_)) return endEarly("in the middle of a time");
  if (error == std::errc::result_out_of_range) {
    fail(kVcdBadTime, "the time is too great");
  } else if (error != std::errc() || !whole) {
    fail(kVcdBadTime,
         fmt::format("{} is no time: a whole number is expected", quoted(read.word[0])));
  } else if (time < time_) {
    fail(kVcdBadTime, fmt::format("the time goes back from #{} to #{}", time_, time));
  }
  if (failed_) return VcdEvent::end;
  time_ = time;
  takeUpTo(read.word[0]);
  return VcdEvent::time;
}

// The net that the last of the words names.
bool VcdReader::takeCode(const Words& read) {
  const std::string_view code = read.word[read.count - 1];
  net_ = findNet(code);
  takeUpTo(code);
  if (net_ != kNoNet) return true;
  if (!read.cut) {
    return failAt(placeOf(code), kVcdUnknownCode,
                  fmt::format("no variable has the code {}", quoted(code)));
  }
  endEarly("in the middle of a change");
  return false;
}

VcdEvent VcdReader::scalar() {
  Words read = words(1);
  const char bit = read.word[0].front();
  read.word[0].remove_prefix(1);
  if (read.word[0].empty()) {
    if (read.cut) return endEarly("in the middle of a change");
    failAt(event_ + 1, kVcdSyntax, "the code of a variable is expected right behind the value");
    return VcdEvent::end;
  }
  if (!takeCode(read)) return VcdEvent::end;
  value_ = bitText(bit);
  return VcdEvent::bits;
}

bool VcdReader::normalBits(std::string_view bits) {
  value_ = bits;
  bool normal = true;
  for (const char c : bits) {
    const char bit = kBits[byteOf(c)];
    if (bit == 0)
      return failAt(placeOf(bits), kVcdSyntax, fmt::format("{} aren't bits", quoted(bits)));
    normal = normal && bit == c;
  }
  if (normal) return true;
  normal_.assign(bits);
  for (char& c : normal_) c = kBits[byteOf(c)];
  value_ = normal_;
  return true;
}

VcdEvent VcdReader::vector() {
  const Words read = words(2);
  if (failed_) return VcdEvent::end;
  if (read.count < 2) return endEarly("in the middle of a change");
  const std::string_view bits = read.word[0].substr(1);
  if (bits.empty()) {
    fail(kVcdSyntax, "bits are expected behind the 'b'");
    return VcdEvent::end;
  }
  return normalBits(bits) && takeCode(read) ? VcdEvent::bits : VcdEvent::end;
}

VcdEvent VcdReader::text(VcdEvent kind) {
  const Words read = words(2);
  if (failed_) return VcdEvent::end;
  if (read.count < 2) return endEarly("in the middle of a change");
  value_ = read.word[0].substr(1);
  return takeCode(read) ? kind : VcdEvent::end;
}

VcdEvent VcdReader::ports() {
  const Words read = words(4);
  if (failed_) return VcdEvent::end;
  if (read.count < 4) return endEarly("in the middle of a change");
  value_ = read.word[0].substr(1);
  if (value_.find_first_not_of(kPortStates) != std::string_view::npos) {
    fail(kVcdSyntax, fmt::format("{} aren't states of ports", quoted(value_)));
    return VcdEvent::end;
  }
  if (!takeCode(read)) return VcdEvent::end;
  if (value_.size() == header_.netWidths[net_]) return VcdEvent::ports;
  fail(kVcdSyntax,
       fmt::format("{} states for a port of {} bits", value_.size(), header_.netWidths[net_]));
  return VcdEvent::end;
}

// False after a failure.
bool VcdReader::command() {
  std::string_view name;
  word(name);
  if (name == "$end") {
    inDump_ = false;
  } else if (name.starts_with("$dump")) {
    inDump_ = true;
  } else if (name == "$var" || name == "$scope" || name == "$upscope") {
    return fail(kVcdSyntax, fmt::format("{} stands behind $enddefinitions", name));
  } else if (name != "$vcdclose") {
    if (!skipCommand()) endEarly("before the $end of a command");
  }
  return true;
}
