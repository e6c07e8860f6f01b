#include "base/text_file.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/errors.h"
#include "base/temp_directory.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class TextFile : public testing::Test {
 protected:
  void SetUp() override { PBdiscardErrors(); }
  void TearDown() override { PBdiscardErrors(); }

  std::string writeGzip(std::string_view name, std::string_view text) {
    const std::string path = dir.path(name);
    gzFile file = gzopen(path.c_str(), "wb");
    gzwrite(file, text.data(), static_cast<unsigned>(text.size()));
    gzclose(file);
    return path;
  }

  TempDir dir;
};

// The lines up to the end or a failure, whose result is left in `last`.
std::vector<std::string> readAll(PBtextFile* file, std::int64_t& last) {
  std::vector<std::string> lines;
  std::string_view line, comment;
  while ((last = PBreadTextLine(file, line, comment)) >= 0) {
    EXPECT_EQ(last, static_cast<std::int64_t>(line.size()));
    lines.emplace_back(line);
  }
  return lines;
}

std::vector<std::string> readAll(PBtextFile* file) {
  std::int64_t last = 0;
  std::vector<std::string> lines = readAll(file, last);
  EXPECT_EQ(last, -1);
  return lines;
}

std::vector<std::string> logicalLines(std::string_view text) {
  return readAll(PBopenMemoryText(text, "memory", true).get());
}

TEST_F(TextFile, PhysicalLinesKeepEveryByte) {
  using namespace std::string_view_literals;
  constexpr auto kText = "a # b\\\n\r\n\nnul\0nul\r\nrest"sv;
  const auto expected =
      ElementsAre("a # b\\\n", "\r\n", "\n", std::string("nul\0nul\r\n", 9), "rest");
  EXPECT_THAT(readAll(PBopenMemoryText(kText, "memory", false).get()), expected);
  EXPECT_THAT(readAll(PBopenCompressedTextFile(dir.write("t", kText), "r", false, 0).get()),
              expected);
  EXPECT_THAT(readAll(PBopenMemoryText(kText.data(), -1, "memory", false).get()),
              ElementsAre("a # b\\\n", "\r\n", "\n", "nul"));
}

TEST_F(TextFile, LogicalLinesFollowTheEscapes) {
  const struct {
    const char* text;
    std::vector<std::string> lines;
  } cases[] = {
      {"a b\tc\r\n", {"a b\tc\r\n"}},
      {"a#note\nb", {"a\n", "b"}},
      {"\n \t\f\r\n# only\n  # only\n\\ \t\n\nx\n", {"x\n"}},
      {"\\#a\\\\b\\n\n", {"#a\\bn\n"}},
      {"\\#\n", {"#\n"}},
      {"a\\\nb\n", {"a b\n"}},
      {"a\\ \t\r\nb\n", {"a b\n"}},
      {"a\\ \tx\\\n y\n", {"a \tx  y\n"}},
      {"a\\\r\nb\n", {"a\r\n", "b\n"}},
      {"a\\ # b\n", {"a # b\n"}},
      {"a\\", {"a"}},
      {"a\\  ", {"a  "}},
      {"a\\\n", {"a "}},
      {"\\\n", {}},
      {"a\\\n#note\nb\n", {"a \n", "b\n"}},
      {"", {}},
  };
  for (const auto& test : cases) EXPECT_EQ(logicalLines(test.text), test.lines) << test.text;
}

TEST_F(TextFile, TellsCommentsAndLineNumbers) {
  const TextFilePtr file = PBopenMemoryText("\n# one\na\\\nb # two\nc\n", "memory", true);
  std::string_view line, comment;
  ASSERT_GT(PBreadTextLine(file.get(), line, comment), 0);
  EXPECT_EQ(line, "a b \n");
  EXPECT_EQ(comment, " two\n");
  EXPECT_EQ(PBfirstTextLineNumber(file.get()), 3);
  EXPECT_EQ(PBgetTextLineNumber(file.get()), 4);
  EXPECT_EQ(PBtextPosition(file.get()), "(memory) line 4: \"b # two\"");
  EXPECT_EQ(PBcompressedTextError(file.get(), "oops"), "(memory) line 4:\noops");
  ASSERT_GT(PBreadTextLine(file.get(), line, comment), 0);
  EXPECT_EQ(comment, "");

  const std::string text = std::string(3000, 'x') + "\r\n";
  const TextFilePtr other = PBopenMemoryText(text, "m", false);
  PBreadTextLine(other.get(), line, comment);
  EXPECT_EQ(PBtextPosition(other.get()), "(m) line 1: \"" + std::string(1023, 'x') + "\"");
  readAll(other.get());
  EXPECT_EQ(PBtextPosition(other.get()), "(m) line 1:");
}

TEST_F(TextFile, TakesTheGzipFileBesideAMissingName) {
  writeGzip("both.gz", "compressed\n");
  EXPECT_TRUE(PBtextFileExists(dir.path("both")));
  const std::string path = dir.path("both");
  {
    const TextFilePtr file = PBopenCompressedTextFile(path, "r", false, kTextGzip);
    ASSERT_TRUE(file);
    EXPECT_EQ(PBtextFileName(file.get()), path);
    EXPECT_EQ(PBtextOpenedName(file.get()), path + ".gz");
    EXPECT_THAT(readAll(file.get()), ElementsAre("compressed\n"));
  }
  EXPECT_FALSE(PBopenCompressedTextFile(path, "r", false, 0));
  dir.write("both", "plain\n");
  TextFilePtr file = PBopenCompressedTextFile(path, "r", false, kTextGzip);
  EXPECT_THAT(readAll(file.get()), ElementsAre("plain\n"));
  EXPECT_EQ(PBcloseCompressedTextFile(std::move(file)), 0);
  EXPECT_FALSE(PBtextFileExists(dir.path("neither")));
}

TEST_F(TextFile, EveryCutOfAGzipFileIsAnError) {
  std::string text;
  for (int i = 0; i < 400; ++i) text += std::to_string(i * 7919) + "\n";
  writeGzip("whole.gz", text);
  const std::string bytes = dir.read("whole.gz");
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    dir.write("cut.gz", bytes.substr(0, length));
    std::int64_t last = 0;
    const TextFilePtr file = PBopenCompressedTextFile(dir.path("cut"), "r", true, kTextGzip);
    readAll(file.get(), last);
    ASSERT_EQ(last, -2) << length;
    ASSERT_THAT(PBformatError(0, 3000), HasSubstr("Error reading file: " + dir.path("cut.gz")));
    PBdiscardErrors();
  }
  std::string damaged = bytes;
  damaged[bytes.size() / 2] ^= 0x55;
  dir.write("damaged.gz", damaged);
  std::int64_t last = 0;
  readAll(PBopenCompressedTextFile(dir.path("damaged.gz"), "r", true, kTextGzip).get(), last);
  EXPECT_EQ(last, -2);
}

TEST_F(TextFile, FailuresNameTheFile) {
  EXPECT_FALSE(PBopenCompressedTextFile(dir.path("none"), "r", false, kTextGzip));
  EXPECT_EQ(PBformatError(0, 3000),
            "PBopenCompressedTextFile: Can't open file: " + dir.path("none"));
  PBdiscardErrors();

  for (const int flags : {0, kTextGzip}) {
    std::int64_t last = 0;
    readAll(PBopenCompressedTextFile(dir.path(), "r", false, flags).get(), last);
    EXPECT_EQ(last, -2);
    EXPECT_EQ(PBformatError(0, 3000), "getPhysLine: Error reading file: " + dir.path());
    PBdiscardErrors();
  }

  std::string_view line, comment;
  EXPECT_EQ(PBreadTextLine(nullptr, line, comment), -2);
  EXPECT_TRUE(PBerrorHas("PBreadTextLine", 106));
}

TEST_F(TextFile, TemporaryTextGoesWithItsReader) {
  PBsetTempDirectory(dir.path());
  const std::string text = std::string(200000, 'y') + "\nlast";
  TextFilePtr file = PBopenTempText(text, false);
  ASSERT_TRUE(file);
  EXPECT_THAT(readAll(file.get()), ElementsAre(text.substr(0, 200001), "last"));
  EXPECT_EQ(PBcloseCompressedTextFile(std::move(file)), 0);
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
  PBsetTempDirectory(".");
}

}  // namespace
