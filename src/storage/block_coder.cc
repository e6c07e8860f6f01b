#include "storage/block_coder.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "base/errors.h"

namespace {

constexpr std::uint8_t kVersion = 0;
constexpr std::size_t kVersionSize = 1;
constexpr std::size_t kMinMatch = 4;
constexpr std::size_t kMaxLengthBytes = 3;
constexpr unsigned kItemsPerGroup = 8;
constexpr std::size_t kRow = 32;  // bytes compared or copied at a time

// --- Packing -------------------------------------------------------------------------

constexpr std::size_t kHeadEntries = 131072;   // what the hash reaches: 17 bits
constexpr std::uint16_t kNoPosition = 0xFFFF;  // too near the end of a block to have a hash

// Every position of the block in hand that has a hash. `head` is needed only while
// they are entered: the last position of each hash. `chain` has, for each position,
// the one before it with the same hash.
struct Tables {
  std::array<std::uint16_t, kHeadEntries> head;
  std::array<std::uint16_t, kZipBlockSize> chain;
};
Tables tables;

struct Limits {
  std::size_t maxChain;   // positions looked at for a match
  std::size_t goodMatch;  // a match this long ends the search
};

// Only a number above 0 counts.
std::size_t limitFromEnvironment(const char* name, std::size_t standard) {
  const char* text = std::getenv(name);
  if (text == nullptr) return standard;
  std::int64_t value = 0;
  std::from_chars(text, text + std::strlen(text), value);
  return value > 0 ? static_cast<std::size_t>(value) : standard;
}

const Limits& limits() {
  static const Limits read = {limitFromEnvironment("MVK_MAX_CHAIN", 16),
                              limitFromEnvironment("MVK_GOOD_MATCH", 256)};
  return read;
}

// Of four bytes: their low 16 bits and the 17th apart, so that a compiler can do
// many at once.
std::uint32_t hashAt(const std::uint8_t* at) {
  const auto low = static_cast<std::uint16_t>(at[0] << 9 ^ at[1] << 6 ^ at[2] << 3 ^ at[3]);
  return low | static_cast<std::uint32_t>(at[0] >> 7) << 16;
}

constexpr std::size_t kHashBatch = 64;

void enterBatch(const std::uint8_t* in, std::size_t first) {
  std::array<std::uint32_t, kHashBatch> hashes;
  for (std::size_t i = 0; i < kHashBatch; ++i) hashes[i] = hashAt(in + first + i);
  std::uint16_t* chain = &tables.chain[first];
  auto position = static_cast<std::uint16_t>(first);
  const auto enter = [&](std::size_t i) {
    std::uint16_t& head = tables.head[hashes[i]];
    chain[i] = head;
    head = position++;
  };
  for (std::size_t i = 0; i < kHashBatch; i += 4) {
    enter(i);
    enter(i + 1);
    enter(i + 2);
    enter(i + 3);
  }
}

// All of them before the first search, since a search from a position starts at
// its place in the chain, whatever comes after it: one even loop is far faster
// than stopping it for every match.
void enterPositions(const std::uint8_t* in, std::size_t count) {
  tables.head.fill(kNoPosition);
  std::size_t at = 0;
  for (; count - at >= kHashBatch; at += kHashBatch) enterBatch(in, at);
  for (; at < count; ++at) {
    std::uint16_t& head = tables.head[hashAt(in + at)];
    tables.chain[at] = head;
    head = static_cast<std::uint16_t>(at);
  }
}

// Bit n tells whether the bytes n of both rows are equal.
std::uint32_t equalMask(const std::uint8_t* a, const std::uint8_t* b) {
#ifdef __SSE2__
  const auto half = [&](std::size_t at) {
    const __m128i left = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + at));
    const __m128i right = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + at));
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(left, right)));
  };
  return half(0) | half(kRow / 2) << (kRow / 2);
#else
  std::uint32_t mask = 0;
  for (std::size_t i = 0; i < kRow; ++i) mask |= static_cast<std::uint32_t>(a[i] == b[i]) << i;
  return mask;
#endif
}

// How many bytes are equal from `a` and `b` on, at most `limit`.
std::size_t equalBytes(const std::uint8_t* a, const std::uint8_t* b, std::size_t limit) {
  std::size_t count = 0;
  for (; count + kRow <= limit; count += kRow) {
    const int equal = std::countr_one(equalMask(a + count, b + count));
    if (equal < static_cast<int>(kRow)) return count + static_cast<std::size_t>(equal);
  }
  while (count < limit && a[count] == b[count]) ++count;
  return count;
}

std::uint32_t fourBytes(const std::uint8_t* at) {
  std::uint32_t word = 0;
  std::memcpy(&word, at, sizeof word);
  return word;
}

struct Match {
  std::size_t position;
  std::size_t length;  // below kMinMatch: none
};

class Packer {
 public:
  Packer(std::span<const std::uint8_t> in, std::uint8_t* out)
      : in_(in.data()),
        size_(in.size()),
        hashed_(in.size() < kMinMatch ? 0 : in.size() - kMinMatch + 1),
        out_(out),
        limits_(limits()) {}

  // Where the packed text ends.
  std::uint8_t* pack() {
    *out_++ = kVersion;
    enterPositions(in_, hashed_);
    std::size_t at = 0;
    while (at < hashed_) {
      const Match match = longestMatch(at);
      if (match.length < kMinMatch) {
        literal(in_[at++]);
      } else {
        put(match);
        at += match.length;
      }
    }
    while (at < size_) literal(in_[at++]);
    endGroup();
    return out_;
  }

 private:
  // A position can only lead to a longer match when the four bytes at the end of
  // what must be equal are: most fail there.
  Match longestMatch(std::size_t at) const {
    const std::uint8_t* here = in_ + at;
    const std::uint32_t start = fourBytes(here);
    const std::size_t limit = size_ - at;
    Match best = {0, kMinMatch - 1};
    std::uint32_t end = start;
    std::size_t candidate = tables.chain[at];
    for (std::size_t left = limits_.maxChain; left > 0 && candidate != kNoPosition; --left) {
      const std::size_t position = candidate;
      const std::uint8_t* there = in_ + position;
      candidate = tables.chain[position];
      if (fourBytes(there + best.length - (kMinMatch - 1)) != end) [[likely]]
        continue;
      if (fourBytes(there) != start) continue;
      const std::size_t length = equalBytes(there, here, limit);
      if (length <= best.length) continue;
      best = {position, length};
      if (length >= limits_.goodMatch || length == limit) break;
      end = fourBytes(here + length - (kMinMatch - 1));
    }
    return best;
  }

  void nextItem(bool match) {
    if (bit_ == kItemsPerGroup) {
      endGroup();
      control_ = out_++;
      bits_ = 0;
      bit_ = 0;
    }
    bits_ |= static_cast<unsigned>(match) << bit_++;
  }
  void endGroup() {
    if (control_ != nullptr) *control_ = static_cast<std::uint8_t>(bits_);
  }

  void literal(std::uint8_t byte) {
    nextItem(false);
    *out_++ = byte;
  }

  void put(const Match& match) {
    nextItem(true);
    *out_++ = static_cast<std::uint8_t>(match.position >> 8);
    *out_++ = static_cast<std::uint8_t>(match.position);
    if (match.length >> 14 != 0) *out_++ = static_cast<std::uint8_t>(0x80 | (match.length >> 14));
    if (match.length >> 7 != 0) {
      *out_++ = static_cast<std::uint8_t>(0x80 | ((match.length >> 7) & 0x7F));
    }
    *out_++ = static_cast<std::uint8_t>(match.length & 0x7F);
  }

  const std::uint8_t* in_;
  std::size_t size_;
  std::size_t hashed_;  // positions that have a hash: those with four bytes left
  std::uint8_t* out_;
  Limits limits_;
  std::uint8_t* control_ = nullptr;  // where the control byte of the group goes
  unsigned bits_ = 0;
  unsigned bit_ = kItemsPerGroup;
};

// A block of literals alone.
constexpr std::size_t packedBound(std::size_t size) {
  return 1 + size + (size + kItemsPerGroup - 1) / kItemsPerGroup;
}

// --- Unpacking -----------------------------------------------------------------------

// Copies within the output as if byte by byte in rising order. `room`: bytes that
// may be written from `to` on, at least `length`.
void copyMatch(std::uint8_t* to, const std::uint8_t* from, std::size_t length, std::size_t room) {
  const auto distance = static_cast<std::size_t>(to - from);
  if (distance >= kRow && room >= length + kRow) {
    std::size_t done = 0;
    do {
      std::memcpy(to + done, from + done, kRow);
      done += kRow;
    } while (done < length);
    return;
  }
  if (distance == 1) {
    std::memset(to, *from, length);
    return;
  }
  // What stands from `from` on repeats with the distance: it doubles each time.
  std::size_t done = 0;
  while (done < length) {
    const std::size_t count = std::min(distance + done, length - done);
    std::memcpy(to + done, from, count);
    done += count;
  }
}

class Unpacker {
 public:
  // Goes on where `taken` bytes of the packed text have given `unpacked` bytes.
  Unpacker(std::span<const std::uint8_t> in, std::size_t taken, std::span<std::uint8_t> out,
           std::size_t unpacked)
      : inBegin_(in.data()),
        in_(in.data() + taken),
        inEnd_(in.data() + in.size()),
        begin_(out.data()),
        out_(out.data() + unpacked),
        outEnd_(out.data() + out.size()) {}

  // Until `wanted` bytes stand in the output or the text ends. false: an item that
  // can't be.
  bool unpack(std::size_t wanted) {
    while (in_ != inEnd_ && size() < wanted) {
      if (!group(*in_++)) return false;
    }
    return true;
  }
  std::size_t taken() const { return static_cast<std::size_t>(in_ - inBegin_); }
  std::size_t size() const { return static_cast<std::size_t>(out_ - begin_); }

 private:
  // Items are left as long as there is a bit above the lowest.
  bool group(unsigned control) {
    unsigned items = control | (1U << kItemsPerGroup);
    while (items != 1 && in_ != inEnd_) {
      const int count = std::countr_zero(items);
      if (!literals(static_cast<std::size_t>(count))) return false;
      items >>= count;
      if (items == 1 || in_ == inEnd_) break;
      if (!match()) return false;
      items >>= 1;
    }
    return true;
  }

  bool literals(std::size_t count) {
    if (inLeft() >= kItemsPerGroup && room() >= kItemsPerGroup) {
      std::memcpy(out_, in_, kItemsPerGroup);
    } else {
      count = std::min(count, inLeft());
      if (count > room()) return false;
      if (count > 0) std::memcpy(out_, in_, count);
    }
    in_ += count;
    out_ += count;
    return true;
  }

  bool match() {
    if (inLeft() < 3) return false;
    const std::size_t position = static_cast<std::size_t>(in_[0]) << 8 | in_[1];
    in_ += 2;
    std::size_t length = 0;
    std::size_t lengthBytes = 0;
    std::uint8_t byte = 0;
    do {
      if (in_ == inEnd_ || ++lengthBytes > kMaxLengthBytes) return false;
      byte = *in_++;
      length = length << 7 | (byte & 0x7F);
    } while (byte >= 0x80);
    const auto written = static_cast<std::size_t>(out_ - begin_);
    if (position >= written || length > room()) return false;
    copyMatch(out_, begin_ + position, length, room());
    out_ += length;
    return true;
  }

  std::size_t inLeft() const { return static_cast<std::size_t>(inEnd_ - in_); }
  std::size_t room() const { return static_cast<std::size_t>(outEnd_ - out_); }

  const std::uint8_t* inBegin_;
  const std::uint8_t* in_;
  const std::uint8_t* inEnd_;
  std::uint8_t* begin_;
  std::uint8_t* out_;
  std::uint8_t* outEnd_;
};

std::int64_t refuse(ErrArg text) {
  errno = 0;
  PBpostError("unzip", 0, text);
  return -2;
}

int refuseVersion(std::span<const std::uint8_t> packed) {
  if (packed.empty()) return static_cast<int>(refuse("Error decoding"));
  const bool known = static_cast<std::int8_t>(packed.front()) <= kVersion;
  return known ? 0 : static_cast<int>(refuse("Zip version too new"));
}

}  // namespace

std::int64_t zip(std::span<const std::uint8_t> in, std::vector<std::uint8_t>& out) {
  if (in.size() > kZipBlockSize) return -2;
  if (out.size() < packedBound(in.size())) out.resize(packedBound(in.size()));
  return Packer(in, out.data()).pack() - out.data();
}

std::int64_t unzip(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) {
  if (refuseVersion(in) != 0) return -2;
  Unpacker unpacker(in, kVersionSize, out, 0);
  // One byte more than fits: what would pass the output is to be seen.
  if (!unpacker.unpack(out.size() + 1)) return refuse("Error decoding");
  return static_cast<std::int64_t>(unpacker.size());
}

int Unzipper::start(std::span<const std::uint8_t> packed) {
  if (refuseVersion(packed) != 0) return -2;
  packed_.assign(packed.begin(), packed.end());
  taken_ = kVersionSize;
  unpacked_ = 0;
  return 0;
}

std::int64_t Unzipper::upTo(std::size_t wanted, std::span<std::uint8_t> out) {
  if (unpacked_ >= wanted) return static_cast<std::int64_t>(unpacked_);
  Unpacker unpacker(packed_, taken_, out, unpacked_);
  if (!unpacker.unpack(wanted)) return refuse("Error decoding");
  taken_ = unpacker.taken();
  unpacked_ = unpacker.size();
  return static_cast<std::int64_t>(unpacked_);
}
