#pragma once

// The coder of compressed files: packs a block of at most 65,536 bytes by pointing
// back at bytes that stood in the block before.
//
// Packed form: a version byte 0, then groups of a control byte and up to eight
// items, bit 0 of the control byte for the first. A group ends early, its other
// bits 0, only where the packed text ends.
//
//   BIT  ITEM
//    0   literal: the byte itself
//    1   match: u16 position in the block, most significant byte first, then the
//        length in one to three bytes of seven bits, most significant first, all
//        but the last with the top bit set; copied byte by byte in rising order,
//        so that an overlap repeats
//
// What zip writes for a block is fixed, byte for byte: the longest match among the
// nearest kMaxChain positions of equal hash, the nearest of equally long ones.
// Single-threaded: the tables are shared by all calls.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

inline constexpr std::size_t kZipBlockSize = 65536;

// Packs `in` into the first bytes of `out`, which is made large enough: how many,
// or -2 when `in` is longer than a block. A vector used again isn't reallocated.
std::int64_t zip(std::span<const std::uint8_t> in, std::vector<std::uint8_t>& out);
// Unpacks `in` into the first bytes of `out`; the rest of `out` may change too.
// How many, or -2 after a post under "unzip".
std::int64_t unzip(std::span<const std::uint8_t> in, std::span<std::uint8_t> out);

// Unpacks a block as far as it is asked for: a reader of one row wants a few bytes
// of it. Keeps the packed text, and where it stopped.
class Unzipper {
 public:
  // Takes a copy of `packed`: 0, or -2 after a post under "unzip".
  int start(std::span<const std::uint8_t> packed);
  // Goes on in `out`, the same in each call, until `wanted` bytes or more stand
  // there: how many, fewer when the packed text ends before; -2 after a post.
  std::int64_t upTo(std::size_t wanted, std::span<std::uint8_t> out);

 private:
  std::vector<std::uint8_t> packed_;
  std::size_t taken_ = 0;     // bytes of it, a whole number of groups
  std::size_t unpacked_ = 0;  // bytes that stand in the output
};
