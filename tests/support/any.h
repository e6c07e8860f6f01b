#pragma once

// What the laws over generated databases share: any number and choice, and what a run must
// come to.

#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "support/operation_world.h"

inline int number(int low, int high) { return *rc::gen::inRange(low, high + 1); }

template <typename T>
T oneOf(const std::vector<T>& values) {
  return values[static_cast<std::size_t>(number(0, static_cast<int>(values.size()) - 1))];
}
inline std::string oneOf(const std::vector<std::string>& values) {
  return oneOf<std::string>(values);
}

inline void requireDone(const Outcome& outcome) {
  RC_LOG() << outcome.err << outcome.report;
  RC_ASSERT(outcome.exitCode == 0);
}
// `pvb diff` finds no difference. It works the meaning out by another way.
inline void requireSame(const OperationWorld& world, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "diff");
  const ProgramResult result = world.runCompanion(arguments);
  RC_LOG() << result.out << result.err;
  RC_ASSERT(result.exitCode == 0);
}
