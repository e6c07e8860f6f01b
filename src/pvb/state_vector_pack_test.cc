#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>

#include "pvb/state_vector_internal.h"

namespace {

std::string bytes(std::initializer_list<int> values) {
  std::string result;
  for (const int value : values) result.push_back(static_cast<char>(value));
  return result;
}

std::string packed(const std::string& states, std::uint32_t value) {
  std::string out(packedStateSize(states), '?');
  EXPECT_EQ(packStates(states, value, out), out.size());
  return out;
}

struct PackCase {
  std::string states;
  std::string packed;  // without end mark and value
};

TEST(StatePack, BytesOnDisk) {
  const std::string run(70000, 0x22);
  const PackCase cases[] = {
      {"", ""},
      {bytes({0x12}), bytes({0x12})},
      {bytes({0x22, 0x22, 0x22, 0x22}), bytes({0x22, 0x22, 0x22, 0x22})},
      {bytes({0x22, 0x22, 0x22, 0x22, 0x22}), bytes({0x22, 0, 4, 0})},
      {bytes({0x11}) + std::string(300, 0x44) + bytes({0x12}),
       bytes({0x11, 0x44, 0, 0x2B, 0x01, 0x12})},
      {run.substr(0, 65535), bytes({0x22, 0, 0xFE, 0xFF})},
      {run.substr(0, 65537), bytes({0x22, 0, 0xFE, 0xFF, 0x22, 0x22})},
      {run, bytes({0x22, 0, 0xFE, 0xFF, 0x22, 0, 0x70, 0x11})},
  };
  const std::string end = bytes({0, 0xFF, 0xFF, 0x78, 0x56, 0x34, 0x12});
  for (const PackCase& row : cases) {
    EXPECT_EQ(packed(row.states, 0x12345678), row.packed + end);
    std::string states = "old";
    std::uint32_t value = 0;
    EXPECT_TRUE(unpackStates(row.packed + end, states, value));
    EXPECT_EQ(states, row.states);
    EXPECT_EQ(value, 0x12345678U);
  }
}

RC_GTEST_PROP(StatePack, UnpackingGivesBackWhatWasPacked, ()) {
  std::string states;
  const auto runs = *rc::gen::container<std::vector<std::pair<int, int>>>(
      rc::gen::pair(rc::gen::inRange(1, 256), rc::gen::element(1, 3, 4, 5, 6, 256, 65536)));
  for (const auto& [byte, length] : runs) {
    states.append(static_cast<std::size_t>(length), static_cast<char>(byte));
  }
  const auto value = *rc::gen::arbitrary<std::uint32_t>();
  const std::string form = packed(states, value);
  std::string again;
  std::uint32_t valueAgain = 0;
  RC_ASSERT(unpackStates(form, again, valueAgain));
  RC_ASSERT(again == states);
  RC_ASSERT(valueAgain == value);
  const auto cut = *rc::gen::inRange<std::size_t>(0, form.size());
  RC_ASSERT(!unpackStates(form.substr(0, cut), again, valueAgain));
}

TEST(StatePack, RefusesWhatNoVectorHas) {
  std::string states;
  std::uint32_t value = 0;
  const std::string end = bytes({0, 0xFF, 0xFF, 0, 0, 0, 0});
  EXPECT_FALSE(unpackStates(bytes({0, 4, 0}) + end, states, value)) << "token without a byte";
  EXPECT_FALSE(unpackStates(bytes({0x11, 0, 4, 0, 0, 9, 0}) + end, states, value));

  std::string longest;  // 8 MiB in tokens of 65535 bytes
  for (int i = 0; i < 128; ++i) longest += bytes({0x11, 0, 0xFE, 0xFF});
  longest += bytes({0x11, 0, 0x7F, 0});
  EXPECT_TRUE(unpackStates(longest + end, states, value));
  EXPECT_EQ(states.size(), kMaxVectorBytes);
  EXPECT_FALSE(unpackStates(longest + bytes({0x11}) + end, states, value));
  EXPECT_FALSE(unpackStates(longest + longest + end, states, value));
  EXPECT_LE(states.size(), kMaxVectorBytes);
}

}  // namespace
