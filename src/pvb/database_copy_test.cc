#include "pvb/database_copy.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "base/errors.h"
#include "base/platform.h"
#include "pvb/database.h"
#include "pvb/database_internal.h"
#include "support/temp_dir.h"

namespace {

class DatabaseCopyTest : public testing::Test {
 protected:
  DatabaseCopyTest() {
    std::filesystem::create_directory(from());
    std::filesystem::create_directory(to());
  }
  ~DatabaseCopyTest() override { PBerrClear(); }

  std::string from() const { return dir_.path("from"); }
  std::string to() const { return dir_.path("to"); }
  static void writeHeader(const std::string& path, int root, int width, PVBid list, int errors) {
    PVBheader header;
    header.mainRoot = root;
    header.rowWidth = width;
    header.propList = list;
    header.counts.patternErrors = errors;
    ASSERT_EQ(WritePVBheader(PVBfilePath(path, "pvb.h"), header), 0);
  }
  PVBheader adopted() const {
    EXPECT_EQ(PVBadoptHeader(to(), from()), 0);
    PVBheader header;
    EXPECT_EQ(ReadPVBheader(PVBfilePath(to(), "pvb.h"), false, header), 1);
    return header;
  }

  TempDir dir_;
};

TEST_F(DatabaseCopyTest, AHeaderIsTakenWholeWhereItsWordsFit) {
  writeHeader(to(), 0, 64, -1, -1);
  writeHeader(from(), 0, 20, -1, 5);  // rows may be wider than the header says
  adopted();
  EXPECT_EQ(dir_.read("to/pvb.h"), dir_.read("from/pvb.h"));
}

TEST_F(DatabaseCopyTest, WordsThatPointIntoOtherFilesStayTheDestinations) {
  writeHeader(to(), 0, 32, 3, -1);
  writeHeader(from(), 7, 64, -1, 5);
  const PVBheader header = adopted();
  EXPECT_EQ(header.mainRoot, 0);
  EXPECT_EQ(header.rowWidth, 32);
  EXPECT_EQ(header.propList, 3);
  EXPECT_EQ(header.counts.patternErrors, 5);
}

TEST_F(DatabaseCopyTest, AWholeCopyReplacesTheDestinationButNeverItself) {
  writeHeader(from(), 0, 32, -1, 0);
  writeHeader(to(), 9, 64, -1, 0);
  dir_.write("to/pvb.pg", "old");
  const StreamPtr report = openStream(dir_.path("report"), "w");
  EXPECT_TRUE(copySrcToDstPVB(from(), to(), report.get()));
  EXPECT_EQ(dir_.read("to/pvb.h"), dir_.read("from/pvb.h"));
  EXPECT_FALSE(std::filesystem::exists(dir_.path("to/pvb.pg")));

  std::filesystem::create_directory_symlink(from(), dir_.path("link"));
  EXPECT_FALSE(copySrcToDstPVB(from(), dir_.path("link"), report.get()));
  EXPECT_EQ(PBerrCount(), 1);
  EXPECT_TRUE(std::filesystem::exists(dir_.path("from/pvb.h")));
}

}  // namespace
