#pragma once

// Which blocks are on the free list, as a bit a block, for finding the neighbours
// of a block without walking. A helper of the free list: the list in the file is
// what counts, and what is found here is tested against it.

#include <cstddef>
#include <cstdint>
#include <vector>

// Memory: an eighth of a byte a block, up to the highest one inserted.
class FreeIndex {
 public:
  void insert(std::uint32_t block);
  void erase(std::uint32_t block);
  // The nearest free block below or above; kNoBlock for none.
  std::uint32_t below(std::uint32_t block) const;
  std::uint32_t above(std::uint32_t block) const;

 private:
  using Bits = std::vector<std::uint64_t>;
  static std::size_t lastSet(const Bits& bits, std::size_t end);
  static std::size_t firstSet(const Bits& bits, std::size_t begin);

  Bits blocks_;  // a bit a block
  Bits words_;   // a bit a word of blocks_ that isn't 0
};
