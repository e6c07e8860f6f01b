#include "pvb/state_map.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <vector>

#include "pvb/row.h"

namespace {

constexpr std::uint32_t kColumns = 300;
using States = std::vector<std::uint8_t>;

// A stretch of columns in step, or against each other: what maps of real databases
// consist of, at any parity.
struct Stretch {
  std::uint32_t from;
  std::uint32_t to;
  std::uint32_t count;
  bool backward;
};

Stretch anyStretch() {
  const auto count = *rc::gen::inRange<std::uint32_t>(1, 60);
  const auto last = kColumns - count + 1;
  return {*rc::gen::inRange<std::uint32_t>(0, last), *rc::gen::inRange<std::uint32_t>(0, last),
          count, *rc::gen::arbitrary<bool>()};
}

States anyStates() {
  return *rc::gen::container<States>(kColumns / 2, rc::gen::arbitrary<std::uint8_t>());
}

// The states are just as long as the columns: the sanitizer sees a step over their end.
RC_GTEST_PROP(StateMapLaw, CopiesAsThePairsOneAfterAnother, ()) {
  const States from = anyStates();
  States expected = anyStates();
  States copied = expected;
  StateMap map;
  const auto stretches = *rc::gen::inRange(0, 12);
  for (int i = 0; i < stretches; ++i) {
    const Stretch stretch = anyStretch();
    for (std::uint32_t k = 0; k < stretch.count; ++k) {
      const std::uint32_t source = stretch.from + (stretch.backward ? stretch.count - 1 - k : k);
      map.add(source, stretch.to + k);
      setRowCode(expected.data(), stretch.to + k, rowCode(from.data(), source));
    }
  }
  map.compile();
  map.copy(copied.data(), from.data());
  RC_ASSERT(copied == expected);
}

TEST(StateMap, CopiesNothingWithoutColumns) {
  StateMap map;
  map.compile();
  States states = {0x21};
  map.copy(states.data(), States{0x43}.data());
  EXPECT_EQ(states, States{0x21});
}

}  // namespace
