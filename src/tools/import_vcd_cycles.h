#pragma once

// Cuts the changes of a dump into cycles of one period and writes these as rows. In a
// cycle an input has a level when it begins and changes at offsets; its shape is chosen
// so that the levels over time come out exactly and few shapes do for all cycles:
//
//   1. Of the shapes that the signal had, the first that gives the cycle with some
//      datum, the one that was needed most often first.
//   2. Else one is made: one change is S there. A change and a change back is S and
//      then the state it comes back to (D, U, Z or N); of two changes to other levels
//      the last one is S. Among more changes, those to the last level are fixed and S
//      stands for the first other one. A clock has an event at the beginning too.
//
// An output is compared at the strobe with what it shows there. Cycles in which nothing
// becomes different are one row with a count.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/import_vcd_internal.h"
#include "tools/pattern_writer.h"

class VcdCycles {
 public:
  // The writer has the signals of `choice` already, in their order.
  VcdCycles(PatternWriter& writer, const VcdChoice& choice, std::size_t nets, std::int64_t period,
            std::int64_t strobe);
  ~VcdCycles();

  // All false: failure() tells why.
  bool advance(std::int64_t time);  // never back
  bool change(std::uint32_t net, std::string_view bits);
  bool changePorts(std::uint32_t net, std::string_view states);
  // Writes up to the cycle that the last time is in, at least one. A time where a cycle
  // begins isn't in that cycle.
  bool finish();

  const std::string& failure() const;
  std::uint64_t cycleCount() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};
