#include "base/expand.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>

#include "base/temp_directory.h"
#include "support/temp_dir.h"

namespace {

class Expand : public testing::Test {
 protected:
  void SetUp() override {
    PBresetExpansion();
    setenv("MVK_ENV_VARIABLES_ON", "", 1);
    setenv("PX_FILE", "/data/run.v1/pat.tar.gz", 1);
    setenv("PX_REF", "${PX_FILE}$PX_FILE", 1);
    setenv("PX_DOS", "C:\\tmp\\a.b\\x.c", 1);
    setenv("PX_EMPTY", "", 1);
    setenv("PX}", "brace", 1);
  }
  void TearDown() override {
    for (const char* name : {"MVK_ENV_VARIABLES_ON", "MVK_SWALLOWED_EXT", "PX_FILE", "PX_REF",
                             "PX_DOS", "PX_EMPTY", "PX}"}) {
      unsetenv(name);
    }
    PBresetExpansion();
  }

  static std::string expanded(std::string value) {
    PBexpandValue(value);
    return value;
  }
};

struct Case {
  const char* text;
  const char* result;
};

TEST_F(Expand, Variables) {
  const Case cases[] = {
      {"plain text", "plain text"},
      {"a$PX_EMPTY-$PX_FILE.x", "a-/data/run.v1/pat.tar.gz.x"},
      {"${PX_FILE}/y", "/data/run.v1/pat.tar.gz/y"},
      {"$PX_REF", "${PX_FILE}$PX_FILE"},
      {"%PX_EMPTY%%PX_DOS%", "C:\\tmp\\a.b\\x.c"},
      {"%PX_REF%", "/data/run.v1/pat.tar.gz/data/run.v1/pat.tar.gz"},
      {"%PX_NONE%PX_DOS%", "%PX_NONEC:\\tmp\\a.b\\x.c"},
      {"%%", "%%"},
      {"$PX_NONE ${PX_NONE} $ $$ $- ${}$", "$PX_NONE ${PX_NONE} $ $$ $- ${}$"},
      {"${PX\\}}", "brace"},
      {"${PX_FILE\\}", "${PX_FILE\\}"},
      // A variable inside a name is no variable's name; two deep it is malformed.
      {"${A${PX_EMPTY}}$PX_EMPTY.", "${A${PX_EMPTY}}."},
      {"${ext(${A${PX_FILE}})}-$PX_EMPTY", "${ext(${A${PX_FILE}})}-"},
      {"${f()}", "${f()}"},
  };
  for (const Case& test : cases) EXPECT_EQ(expanded(test.text), test.result) << test.text;
}

TEST_F(Expand, Functions) {
  const Case cases[] = {
      {"${ext($PX_FILE)}", "tar.gz"},
      {"${EXT (a.VCD.Z)}", "VCD.Z"},
      {"${ext(a.b/c)}.", "."},
      {"${ext(x.gz)}", "gz"},
      {"${noext($PX_FILE)}", "/data/run.v1/pat"},
      {"${noext(/)}${noext(C:\\)}", "/C:\\"},
      {"${noext(/a/.gz)}", "/a"},
      {"${suffix($PX_FILE)}", "gz"},
      {"${basename($PX_FILE, ?)}", "pat"},
      {"${basename(/x/a.b.c.d,*)}", "a"},
      {"${basename(/x/y.c,.c)}", "y"},
      {"${basename(/x/y.c, \t.h)}", "y.c"},
      {"${basename(/x/.c,.c)}", ".c"},
      {"${notdir($PX_DOS)}", "x.c"},
      {"${dir($PX_DOS)}", "C:\\tmp\\a.b"},
      {"${dir(C:\\x)}${dir(/x)}${dir(/)}", "C:\\//"},
      {"${other(text)}", "text"},
      {"${notdir(${dir(${dir($PX_FILE)})})}", "."},
      {"${dir(${dir(/a/b/c)}/${notdir(/x/y)})}", "/a/b"},
      {"x${notdir(a/$PX_NONE)}y", "x$PX_NONEy"},
  };
  for (const Case& test : cases) EXPECT_EQ(expanded(test.text), test.result) << test.text;
  setenv("MVK_SWALLOWED_EXT", "zip/bz2", 1);
  EXPECT_EQ(expanded("${ext(a.vcd.bz2)} ${ext(a.tar.gz)}"), "vcd.bz2 gz");
  setenv("MVK_SWALLOWED_EXT", "", 1);
  EXPECT_EQ(expanded("${ext(a.vcd.bz2)}"), "bz2");
}

TEST_F(Expand, ActsOnlyWhenInForce) {
  const std::string text = "$PX_DOS%PX_DOS%";
  unsetenv("MVK_ENV_VARIABLES_ON");
  EXPECT_EQ(expanded(text), text);
  setenv("MVK_ENV_VARIABLES_ON", "1", 1);
  EXPECT_EQ(expanded(text), text) << "looked up once";
  PBswitchExpansionOn();
  EXPECT_NE(expanded(text), text);
  PBswitchExpansionOff();
  EXPECT_EQ(expanded(text), text) << "off wins";
  PBendExpansionOff();
  EXPECT_NE(expanded(text), text);
}

TEST_F(Expand, HostileTextsTakeLinearTimeAndBoundedMemory) {
  const std::string long64K(64 * 1024, 'v');
  setenv("PX_FILE", long64K.c_str(), 1);
  constexpr std::size_t kCount = 100'000;
  const auto start = std::chrono::steady_clock::now();
  for (const char* piece :
       {"${a(", "${", "$PX_FILE ", "%PX_FILE%", "%", "$", "${f(x)}", "\\", "${a}("}) {
    std::string text;
    for (std::size_t i = 0; i < kCount; ++i) text += piece;
    EXPECT_LE(expanded(text).size(), text.size() + 2 * kMaxExpansionBytes) << piece;
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST_F(Expand, TemporaryDirectoryIsExpandedCutAndLocked) {
  PBsetTempDirectory("%PX_DOS%\\");
  EXPECT_EQ(PBtempDirectory(), "C:\\tmp\\a.b\\x.c");
  PBlockTempDirectory();
  PBsetTempDirectory("/elsewhere");
  EXPECT_EQ(PBtempDirectory(), "C:\\tmp\\a.b\\x.c");
  PBunlockTempDirectory();
  PBsetTempDirectory("/");
  EXPECT_EQ(PBtempDirectory(), "/");
  PBsetTempDirectory("/tmp/" + std::string(300, 'd'));
  EXPECT_EQ(PBtempDirectory().size(), 255u);
  PBsetTempDirectory("");
  EXPECT_EQ(PBtempDirectory(), ".");
  EXPECT_NE(PBtempFileName("mvk"), PBtempFileName("mvk"));
}

// Processes that follow each other closely have ids that do so too.
TEST(TempDirectory, ProcessesNeverGetTheSameName) {
  constexpr int kNames = 500;
  const auto names = [] {
    std::string all;
    for (int i = 0; i < kNames; ++i) all += PBtempFileName("mvk") + '\n';
    return all;
  };
  const TempDir dir;
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    dir.write("theirs", names());
    _exit(0);
  }
  const std::string ours = names();
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
  std::istringstream theirs(dir.read("theirs"));
  std::string name;
  int count = 0;
  for (; std::getline(theirs, name); ++count) {
    EXPECT_EQ(ours.find(name + '\n'), std::string::npos) << name;
  }
  EXPECT_EQ(count, kNames);
}

}  // namespace
