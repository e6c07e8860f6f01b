#include "storage/page_free_index.h"

#include <bit>

#include "storage/page.h"

namespace {

constexpr std::size_t kWordBits = 64;
constexpr std::size_t kNone = static_cast<std::size_t>(-1);
constexpr std::uint64_t kAll = ~std::uint64_t{0};

std::uint64_t bitOf(std::size_t place) { return std::uint64_t{1} << (place % kWordBits); }

void setBit(std::vector<std::uint64_t>& bits, std::size_t place) {
  if (place / kWordBits >= bits.size()) bits.resize(place / kWordBits + 1);
  bits[place / kWordBits] |= bitOf(place);
}

std::uint32_t asBlock(std::size_t place) {
  return place != kNone ? static_cast<std::uint32_t>(place) : kNoBlock;
}

}  // namespace

void FreeIndex::insert(std::uint32_t block) {
  setBit(blocks_, block);
  setBit(words_, block / kWordBits);
}

void FreeIndex::erase(std::uint32_t block) {
  const std::size_t word = block / kWordBits;
  if (word >= blocks_.size()) return;
  blocks_[word] &= ~bitOf(block);
  if (blocks_[word] == 0) words_[word / kWordBits] &= ~bitOf(word);
}

// The highest bit below `end`.
std::size_t FreeIndex::lastSet(const Bits& bits, std::size_t end) {
  std::size_t word = end / kWordBits;
  std::uint64_t value = word < bits.size() ? bits[word] & (bitOf(end) - 1) : 0;
  if (word > bits.size()) word = bits.size();
  while (value == 0 && word > 0) value = bits[--word];
  if (value == 0) return kNone;
  return word * kWordBits + static_cast<std::size_t>(std::bit_width(value)) - 1;
}

// The lowest bit from `begin` on.
std::size_t FreeIndex::firstSet(const Bits& bits, std::size_t begin) {
  std::size_t word = begin / kWordBits;
  if (word >= bits.size()) return kNone;
  std::uint64_t value = bits[word] & (kAll << (begin % kWordBits));
  while (value == 0 && ++word < bits.size()) value = bits[word];
  if (value == 0) return kNone;
  return word * kWordBits + static_cast<std::size_t>(std::countr_zero(value));
}

// First in the block's own word, then in the nearest word that isn't 0.
std::uint32_t FreeIndex::below(std::uint32_t block) const {
  const std::size_t word = block / kWordBits;
  if (word < blocks_.size()) {
    if ((blocks_[word] & (bitOf(block) - 1)) != 0) return asBlock(lastSet(blocks_, block));
  }
  const std::size_t before = lastSet(words_, word);
  return before != kNone ? asBlock(lastSet(blocks_, (before + 1) * kWordBits)) : kNoBlock;
}

std::uint32_t FreeIndex::above(std::uint32_t block) const {
  const std::size_t next = std::size_t{block} + 1;
  const std::size_t word = next / kWordBits;
  if (word >= blocks_.size()) return kNoBlock;
  if ((blocks_[word] & (kAll << (next % kWordBits))) != 0) return asBlock(firstSet(blocks_, next));
  const std::size_t after = firstSet(words_, word + 1);
  return after != kNone ? asBlock(firstSet(blocks_, after * kWordBits)) : kNoBlock;
}
