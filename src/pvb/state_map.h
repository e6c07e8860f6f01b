#pragma once

// Which columns of the rows of one database go to which columns of another's,
// compiled into runs of bytes, so that a row's states are copied without looking at
// signals.

#include <cstdint>
#include <vector>

class StateMap {
 public:
  // The code of column `from` goes to column `to`.
  void add(std::uint32_t from, std::uint32_t to);
  // Puts the columns added so far in runs. Called once, before the first copy. A later
  // pair for the same destination column holds.
  void compile();
  // `from` and `to` are states of two rows that are wide enough for every column added.
  void copy(std::uint8_t* to, const std::uint8_t* from) const;

 private:
  struct Column {
    std::uint32_t from;
    std::uint32_t to;
  };
  // Whole bytes of the destination: it begins at an even column.
  struct Run {
    std::uint32_t from;  // bytes
    std::uint32_t to;
    std::uint32_t length;
  };
  // Two columns from anywhere that make up a byte.
  struct Byte {
    std::uint32_t low;  // columns
    std::uint32_t high;
    std::uint32_t to;  // byte
  };
  void cut(const Column& first, std::uint32_t count, std::vector<Column>& rest);
  void pairUp(const std::vector<Column>& columns);

  std::vector<Column> columns_;  // before compile all, after it what is in nothing below
  std::vector<Run> runs_;        // the source begins at an even column too
  std::vector<Run> shifted_;     // the source begins in the high half of its first byte
  std::vector<Byte> bytes_;
};
