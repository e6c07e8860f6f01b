#include <algorithm>

#include "pvb/state_vector_internal.h"

namespace {

constexpr std::size_t kLongestPlain = 4;    // equal bytes that are stored as they stand
constexpr std::size_t kLongestRun = 65535;  // equal bytes that one token stands for
constexpr std::size_t kMarkSize = 3;        // zero byte and 16 bits
constexpr std::size_t kTokenSize = 1 + kMarkSize;
constexpr std::size_t kValueSize = 4;
constexpr unsigned kEndLength = 0xFFFF;  // in the place of a length less one

// Calls `visit` with each byte and how often it follows itself, at most kLongestRun.
template <typename Visit>
void forEachRunOf(std::string_view bytes, Visit visit) {
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t limit = std::min(bytes.size(), at + kLongestRun);
    std::size_t end = at + 1;
    while (end < limit && bytes[end] == bytes[at]) ++end;
    visit(bytes[at], end - at);
    at = end;
  }
}

// Writes as far as there is room, and counts all.
class PackWriter {
 public:
  explicit PackWriter(std::span<char> out) : out_(out) {}

  void put(unsigned byte) {
    if (used_ < out_.size()) out_[used_] = static_cast<char>(byte);
    ++used_;
  }
  void putMark(unsigned length) {
    put(0);
    put(length & 0xFF);
    put(length >> 8);
  }
  std::size_t used() const { return used_; }

 private:
  std::span<char> out_;
  std::size_t used_ = 0;
};

unsigned byteAt(std::string_view text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

bool readValue(std::string_view text, std::uint32_t& value) {
  if (text.size() < kValueSize) return false;
  value = byteAt(text, 0) | byteAt(text, 1) << 8 | byteAt(text, 2) << 16 | byteAt(text, 3) << 24;
  return true;
}

}  // namespace

std::size_t packedStateSize(std::string_view bytes) {
  std::size_t size = kMarkSize + kValueSize;
  forEachRunOf(bytes, [&size](char, std::size_t length) {
    size += length > kLongestPlain ? kTokenSize : length;
  });
  return size;
}

std::size_t packStates(std::string_view bytes, std::uint32_t value, std::span<char> out) {
  PackWriter writer(out);
  forEachRunOf(bytes, [&writer](char byte, std::size_t length) {
    const bool token = length > kLongestPlain;
    for (std::size_t i = 0; i < (token ? 1 : length); ++i) {
      writer.put(static_cast<unsigned char>(byte));
    }
    if (token) writer.putMark(static_cast<unsigned>(length - 1));
  });
  writer.putMark(kEndLength);
  for (unsigned shift = 0; shift < 32; shift += 8) writer.put(value >> shift & 0xFF);
  return writer.used();
}

bool unpackStates(std::string_view packed, std::string& bytes, std::uint32_t& value) {
  bytes.clear();
  for (std::size_t at = 0;;) {
    const std::size_t zero = packed.find('\0', at);
    if (zero == std::string_view::npos || packed.size() - zero < kMarkSize) return false;
    const unsigned length = byteAt(packed, zero + 1) | byteAt(packed, zero + 2) << 8;
    const bool end = length == kEndLength;
    if (!end && zero == at) return false;
    const std::size_t plain = zero - at - (end ? 0 : 1);  // a token's byte stands before its mark
    const std::size_t repeated = end ? 0 : std::size_t{length} + 1;
    if (plain + repeated > kMaxVectorBytes - bytes.size()) return false;
    bytes.append(packed, at, plain);
    if (end) return readValue(packed.substr(zero + kMarkSize), value);
    bytes.append(repeated, packed[zero - 1]);
    at = zero + kMarkSize;
  }
}
