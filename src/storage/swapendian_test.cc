#include "storage/swapendian.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "base/errors.h"
#include "base/platform.h"
#include "support/temp_dir.h"

namespace {

using Bytes = std::vector<unsigned char>;

// 0, 1, 2 ...: after a swap each place shows where its byte came from.
Bytes counting(std::size_t size) {
  Bytes bytes(size);
  std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
  return bytes;
}

Bytes swapped(Bytes bytes, int tag) {
  EXPECT_EQ(SwapBuffer(bytes.data(), tag, bytes.size()), 1);
  return bytes;
}

// counting() with the numbers of these widths reversed; a negative one passes
// over bytes.
Bytes reversedByWidths(std::size_t size, const std::vector<int>& widths) {
  Bytes bytes = counting(size);
  auto at = bytes.begin();
  for (const int width : widths) {
    if (width > 0) std::reverse(at, at + width);
    at += std::abs(width);
  }
  return bytes;
}

std::vector<int> repeated(int times, const std::vector<int>& widths) {
  std::vector<int> all;
  for (int i = 0; i < times; ++i) all.insert(all.end(), widths.begin(), widths.end());
  return all;
}

std::vector<int> operator+(std::vector<int> a, const std::vector<int>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(SwapEndian, ReversesTheNumbersOfEachLayout) {
  const std::pair<int, std::vector<int>> cases[] = {
      {typePVBnode, repeated(51, {4, 4, 4, 4, 4, 4, 2, -2, 4, -2, 2}) + repeated(2, {4})},
      {typeoldPVBnode1, repeated(257, {4})},
      {typeoldPVBnode2, repeated(308, {4})},
      {typeoldPVBnode3, repeated(51, {4, 4, 4, 4, 4, 2, 2, -4}) + repeated(2, {4})},
      {typeoldPVBnode4, repeated(51, {4, 4, 4, 4, 4, 4, 2, 2, -4}) + repeated(2, {4})},
      {typePVBrow, {4, 4, 2, 2, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4}},
      {typePropList, {4}},
      {typeFreeList, {4, 4}},
      {typePVBwaveSet, repeated(6, {4})},
      {typeVPageHeader, {4, -4, 8, 8, 8, 4}},
      {typeoldProperty, {4, 4, 4, 2}},
      {typeProperty, {4, 4, 4, 2, -2, 4}},
      {typekeyHeader, std::vector<int>{2, -2} + repeated(10, {4})},
      {typetemplate_t, {2, 2}},
      {typetgdata_t, {4, -4, 4}},
      {typeShort, repeated(1000, {2})},
      {typePVBid, repeated(500, {4})},
      {typeoff_t, repeated(250, {8})},
      {22, repeated(250, {8})},
      {typeNoStruct, {}},
      {43, {}},
      {-1, {}},
  };
  for (const auto& [tag, widths] : cases) {
    EXPECT_EQ(swapped(counting(2000), tag), reversedByWidths(2000, widths)) << tag;
  }
  EXPECT_EQ(SwapBuffer(nullptr, typePVBrow, 52), 0);
}

TEST(SwapEndian, LeavesWhatLiesPastTheLength) {
  const Bytes whole = counting(96);
  for (int tag = 0; tag <= 43; ++tag) {
    for (std::size_t length = 0; length <= 80; ++length) {
      Bytes bytes = whole;
      SwapBuffer(bytes.data(), tag, length);
      const auto end = static_cast<std::ptrdiff_t>(length);
      ASSERT_TRUE(std::equal(bytes.begin() + end, bytes.end(), whole.begin() + end)) << tag;
    }
  }
}

// The count says how many numbers follow, but no more than there are.
TEST(SwapEndian, ReversesAsManyNumbersAsTheIndexPageCounts) {
  const std::vector<int> head = {4, 4, 8};
  for (const std::uint32_t count : {0U, 1U, 3U, 4U, 0xFFFFFFFFU}) {
    Bytes disk = counting(30);  // room for three, and two bytes
    for (std::size_t i = 0; i < 4; ++i)
      disk[4 + i] = static_cast<unsigned char>(count >> (24 - 8 * i));
    const Bytes host = swapped(disk, typeIndexPage);
    Bytes expected =
        reversedByWidths(30, head + repeated(static_cast<int>(std::min(count, 3U)), {4}));
    for (std::size_t i = 0; i < 4; ++i)
      expected[4 + i] = static_cast<unsigned char>(count >> (8 * i));
    EXPECT_EQ(host, expected) << count;
    EXPECT_EQ(swapped(host, typeIndexPageWrite), disk) << count;
  }
  for (std::size_t length = 1; length < 16; ++length) {
    EXPECT_EQ(swapped(swapped(counting(length), typeIndexPage), typeIndexPageWrite),
              counting(length));
  }
}

TEST(SwapEndian, WritesASwappedCopyAndReadsItBack) {
  const TempDir dir;
  const std::uint32_t page[] = {1, 2, 3, 4, 5, 6};  // an index page of two numbers
  {
    StreamPtr stream = openStream(dir.path("f"), "w");
    EXPECT_EQ(SwapWrite(page, sizeof page, typeIndexPage, stream.get()), 1);
    EXPECT_EQ(SwapWrite(page, 0, typeInt, stream.get()), 1);
    EXPECT_EQ(closeStream(std::move(stream)), 0);
  }
  EXPECT_EQ(page[1], 2U);
  const unsigned char expected[] = {0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 4,
                                    0, 0, 0, 3, 0, 0, 0, 5, 0, 0, 0, 6};
  EXPECT_EQ(dir.read("f"), std::string(reinterpret_cast<const char*>(expected), sizeof expected));
  StreamPtr stream = openStream(dir.path("f"), "r");
  std::uint32_t read[6] = {};
  EXPECT_EQ(SwapRead(read, 12, 1, stream.get(), typeInt), 1);
  EXPECT_EQ(read[2], 4U);
  EXPECT_EQ(SwapRead(read, 6, 2, stream.get(), typetemplate_t), 1);
  EXPECT_EQ(SwapRead(read, 4, 1, stream.get(), typeInt), 0);
}

TEST(SwapEndian, ReversesOneValueAndNamesTags) {
  std::uint64_t value = 0x0102030405060708;
  SwapValue(&value, 1);
  SwapValue(&value, 2);
  EXPECT_EQ(value, 0x0102030405060807U);
  SwapValue(&value, 8);
  EXPECT_EQ(value, 0x0708060504030201U);
  EXPECT_EXIT(SwapValue(&value, 3), ::testing::ExitedWithCode(1), "");
  EXPECT_STREQ(SwapTagName(typePVBnode), "typePVBnode");
  EXPECT_STREQ(SwapTagName(22), "unknownType");
  EXPECT_STREQ(SwapTagName(-1), "unknownType");
}

}  // namespace
