#include "base/report.h"

#include <gtest/gtest.h>

#include "base/platform.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

std::time_t fixedTime() { return 1556712000; }  // 1 May 2019, 12:00 UTC

class ReportTest : public testing::Test {
 protected:
  ReportTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    resetReport();
    PBsetClock(fixedTime);
  }
  ~ReportTest() override {
    resetReport();
    PBsetClock(nullptr);
  }

  static void heading(FILE* stream) {
    PBprintHeading(stream, "page " + std::to_string(PBpaging.pageNumber++) + "\n\n");
  }

  FILE* stream() { return stream_.get(); }
  // All that was printed since the last call.
  std::string printed() {
    std::fflush(stream());
    const std::string all = directory_.read("report");
    return all.substr(std::exchange(taken_, all.size()));
  }

 private:
  TempDir directory_;
  StreamPtr stream_ = openStream(directory_.path("report"), "w");
  std::size_t taken_ = 0;
};

TEST_F(ReportTest, WrapsBeforeTheLastLineAndKeepsTheLastLineWhole) {
  PBsetPage(10, 66, heading);
  PBprint(stream(), "0123456789\n0123456789ab\n");
  EXPECT_EQ(printed(), "0123456789\n0123456789\nab\n");
  EXPECT_EQ(PBpaging.line, 15);

  PBprint(stream(), "01234");
  PBprint(stream(), "56789");  // ends in the last column
  PBprintIndented(3, stream(), "x");
  EXPECT_EQ(printed(), "0123456789\n   x");
  EXPECT_EQ(PBpaging.column, 5);

  PBprint(stream(), "a text that is longer than a line");
  PBprint(stream(), "\n");
  EXPECT_EQ(printed(), "\na text that is longer than a line\n");
}

TEST_F(ReportTest, BreaksPagesAtTheLastLineWithAFormFeed) {
  PBsetPage(100, 66, heading);
  heading(stream());
  EXPECT_EQ(printed(), "page 1\n\n");
  PBsetPage(100, 66, heading);

  PBprint(stream(), std::string(53, '\n'));
  EXPECT_EQ(printed(), std::string(53, '\n'));
  PBprint(stream(), "last\nnext\n");
  EXPECT_EQ(printed(), "last\n\fpage 2\n\nnext\n");
  EXPECT_EQ(PBpaging.line, 3);

  // A break may also come from a wrap, and from the last line's own line end.
  PBprint(stream(), std::string(62, '\n') + std::string(101, 'x') + "\n");
  EXPECT_EQ(printed(), std::string(62, '\n') + std::string(100, 'x') + "\n\fpage 3\n\nx\n");
  PBprint(stream(), std::string(62, '\n') + std::string(60, 'y'));
  PBprintIndented(2, stream(), std::string(60, 'z'));
  EXPECT_EQ(printed(), std::string(62, '\n') + std::string(60, 'y') + "\n\fpage 4\n\n  " +
                           std::string(60, 'z'));
  resetReport();
  PBsetPage(4, 1, heading);
  PBprintHeading(stream(), "abcdefghij\n");  // wraps without breaking pages
  EXPECT_EQ(printed(), "abcd\nefgh\nij\n");
}

TEST_F(ReportTest, FramesTheBannerToItsWidth) {
  const BannerIdentity identity = {"PVBConditioner Conditioner", "Version 2019.1.0"};
  EXPECT_EQ(PBprintBanner(stream(), &identity, {}, "# *", ""), 0);
  EXPECT_EQ(printed(), "# *" + std::string(69, '*') + "\n" +
                           "# * PVBConditioner Conditioner Version 2019.1.0" +
                           std::string(25, ' ') + "\n" + "# *\n" +
                           "# * Wed May  1 12:00:00 2019\n" + "# *\n" + "# *" +
                           std::string(69, '*') + "\n");

  PBsetBannerWidth(8);
  PBsetDateUpperCase(true);
  const std::vector<BannerEntry> entries = {
      {" Input", {"a", "b"}}, {" Empty", {}}, {" Out", {"c"}}};
  EXPECT_EQ(PBprintBanner(stream(), &identity, entries, "/* ", " */"), 0);
  EXPECT_EQ(printed(),
            "/* ***** */\n/*  PVBConditioner Conditioner Version 2019.1.0 */\n/*  */\n"
            "/*  WED MAY  1 12:00:00 2019 */\n/*  Input:a */\n/*  Input:b */\n/*  Out:c */\n"
            "/*  */\n/* ***** */\n");
  EXPECT_EQ(PBprintBanner(stream(), nullptr, {}, "#", "", 5), 0);
  EXPECT_EQ(printed(), "#****\n#\n#\n#****\n");
  FaultPlatform faults;
  faults.setDiskSpace(100);
  PBsetBannerWidth(200);
  EXPECT_EQ(PBprintBanner(stream(), nullptr, {}, "# *", ""), -2);
}

}  // namespace
