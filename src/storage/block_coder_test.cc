#include "storage/block_coder.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <random>

#include "base/errors.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes packed(const Bytes& in) {
  Bytes out;
  const std::int64_t size = zip(in, out);
  EXPECT_GE(size, 1);
  out.resize(static_cast<std::size_t>(std::max<std::int64_t>(size, 0)));
  return out;
}

// What comes out, with exactly `room` bytes to go to; the post's text on failure.
struct Unpacked {
  Bytes bytes;
  std::string post;
};
Unpacked unpacked(const Bytes& in, std::size_t room) {
  Unpacked result = {Bytes(room), ""};
  const std::int64_t size = unzip(in, result.bytes);
  if (size < 0) result.post = PBerrorFind("unzip", 0, false).value_or("no post");
  result.bytes.resize(static_cast<std::size_t>(std::max<std::int64_t>(size, 0)));
  PBdiscardErrors();
  return result;
}

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

Bytes repeated(std::string_view text, std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>(text[i % text.size()]);
  return bytes;
}

// --- Packing -------------------------------------------------------------------------

// The search as it is described, without tables: slow and plain.
Bytes slowlyPacked(const Bytes& in) {
  const auto hash = [&](std::size_t at) {
    return in[at] << 9 ^ in[at + 1] << 6 ^ in[at + 2] << 3 ^ in[at + 3];
  };
  Bytes out = {0};
  std::size_t control = 0;
  unsigned items = 0;
  for (std::size_t at = 0; at < in.size();) {
    std::size_t best = 0;
    std::size_t position = 0;
    int looked = 0;
    for (std::size_t from = at; at + 3 < in.size() && from-- > 0 && looked < 16 && best < 256;) {
      if (hash(from) != hash(at)) continue;
      ++looked;
      std::size_t length = 0;
      while (at + length < in.size() && in[from + length] == in[at + length]) ++length;
      if (length <= best) continue;
      best = length;
      position = from;
    }
    if (items % 8 == 0) {
      control = out.size();
      out.push_back(0);
    }
    if (best < 4) {
      out.push_back(in[at++]);
    } else {
      out[control] = static_cast<std::uint8_t>(out[control] | 1U << items % 8);
      out.push_back(static_cast<std::uint8_t>(position >> 8));
      out.push_back(static_cast<std::uint8_t>(position));
      if (best >= 16384) out.push_back(static_cast<std::uint8_t>(0x80 | best >> 14));
      if (best >= 128) out.push_back(static_cast<std::uint8_t>(0x80 | (best >> 7 & 0x7F)));
      out.push_back(static_cast<std::uint8_t>(best & 0x7F));
      at += best;
    }
    ++items;
  }
  return out;
}

TEST(BlockCoder, PacksWorkedExamples) {
  const struct {
    const char* what;
    Bytes in;
    Bytes out;
  } cases[] = {
      {"nothing", {}, {0}},
      {"literals alone, one group", bytesOf("abcdefgh"), bytesOf({"\0\0abcdefgh", 10})},
      {"a second group", bytesOf("abcdefghi"), bytesOf({"\0\0abcdefgh\0i", 12})},
      {"an overlap repeats", repeated("ab", 12), {0, 4, 'a', 'b', 0, 0, 10}},
      {"three equal bytes aren't enough", bytesOf("abcXabcY"), bytesOf({"\0\0abcXabcY", 10})},
      {"the nearest of equally long matches",
       bytesOf("abcd1abcd2abcd3"),
       {0, 0xA0, 'a', 'b', 'c', 'd', '1', 0, 0, 4, '2', 0, 5, 4, 0, '3'}},
      {"a length of two bytes", Bytes(129, 'z'), {0, 2, 'z', 0, 0, 0x81, 0}},
      {"a length of three bytes", Bytes(65536, 'z'), {0, 2, 'z', 0, 0, 0x83, 0xFF, 0x7F}},
  };
  for (const auto& row : cases) EXPECT_EQ(packed(row.in), row.out) << row.what;
  Bytes out;
  EXPECT_EQ(zip(Bytes(kZipBlockSize + 1), out), -2);
}

// Bytes with few values repeat much; a seed of its own for each kind of data.
Bytes someBytes(std::size_t size, unsigned values, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random() % values);
  return bytes;
}

// Rows that differ from the one before in a few places.
Bytes someRows(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes row = someBytes(1 + random() % 400, 3, seed);
  Bytes bytes;
  while (bytes.size() < size) {
    for (auto n = random() % 5; n > 0; --n) {
      row[random() % row.size()] = static_cast<std::uint8_t>(random());
    }
    bytes.insert(bytes.end(), row.begin(), row.end());
  }
  bytes.resize(size);
  return bytes;
}

RC_GTEST_PROP(BlockCoder, FindsWhatTheSlowSearchFindsAndComesBack, (unsigned seed)) {
  const auto size = *rc::gen::inRange<std::size_t>(0, 4000);
  const auto values = *rc::gen::element(1U, 2U, 3U, 20U, 256U);
  for (const Bytes& in : {someBytes(size, values, seed), someRows(size, seed)}) {
    const Bytes out = packed(in);
    RC_ASSERT(out == slowlyPacked(in));
    RC_ASSERT(unpacked(out, in.size()).bytes == in);
  }
  const Bytes block = someRows(kZipBlockSize, seed);
  RC_ASSERT(unpacked(packed(block), block.size()).bytes == block);
}

// --- Unpacking -----------------------------------------------------------------------

TEST(BlockCoder, OverlapsRepeatAtEveryDistance) {
  for (std::uint8_t distance = 1; distance < 70; ++distance) {
    Bytes in = {0};
    Bytes expected;
    for (std::uint8_t i = 0; i < distance; ++i) {
      if (i % 8 == 0) in.push_back(0);
      in.push_back(i);
      expected.push_back(i);
    }
    if (distance % 8 == 0) in.push_back(0);
    const std::size_t control = in.size() - 1 - distance % 8;
    in[control] = static_cast<std::uint8_t>(1U << distance % 8);
    in.insert(in.end(), {0, 0, 0x81, 0x05});
    for (std::size_t i = 0; i < 133; ++i) expected.push_back(expected[i]);
    EXPECT_EQ(unpacked(in, expected.size()).bytes, expected);       // to the last byte
    EXPECT_EQ(unpacked(in, expected.size() + 64).bytes, expected);  // with room to spare
    EXPECT_EQ(unpacked(in, expected.size() - 1).post, "Error decoding");
  }
}

TEST(BlockCoder, RefusesWhatCannotBe) {
  const struct {
    const char* what;
    Bytes in;
    const char* post;
  } cases[] = {
      {"nothing", {}, "Error decoding"},
      {"a newer version", {1, 0, 'a'}, "Zip version too new"},
      {"the newest version", {127, 0, 'a'}, "Zip version too new"},
      {"a match first", {0, 1, 0, 0, 4}, "Error decoding"},
      {"a match with itself", {0, 2, 'a', 0, 1, 4}, "Error decoding"},
      {"a position without its end", {0, 2, 'a', 0}, "Error decoding"},
      {"no length", {0, 2, 'a', 0, 0}, "Error decoding"},
      {"a length without its end", {0, 2, 'a', 0, 0, 0x81}, "Error decoding"},
      {"a length of four bytes", {0, 2, 'a', 0, 0, 0x80, 0x80, 0x80, 1}, "Error decoding"},
      {"a match past the room", {0, 2, 'a', 0, 0, 16}, "Error decoding"},
      {"literals past the room", bytesOf({"\0\0abcdefgh\0abcdefgh\0a", 21}), "Error decoding"},
  };
  for (const auto& row : cases) EXPECT_EQ(unpacked(row.in, 16).post, row.post) << row.what;
  EXPECT_EQ(unpacked({0x80, 0, 'a'}, 16).bytes, bytesOf("a"));  // below 0 as a signed byte
}

}  // namespace
