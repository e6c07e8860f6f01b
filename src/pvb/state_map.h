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
  // `from` and `to` are states of rows that are wide enough for every column added.
  void copy(std::uint8_t* to, const std::uint8_t* from) const;

 private:
  struct Column {
    std::uint32_t from;
    std::uint32_t to;
  };
  // Whole bytes: both sides begin at an even column.
  struct Run {
    std::uint32_t from;  // bytes
    std::uint32_t to;
    std::uint32_t length;
  };
  std::vector<Column> columns_;  // what is in no run
  std::vector<Run> runs_;
};
