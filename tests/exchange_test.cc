// Patterns on their way through the programs: in from STIL, through operations, out
// again and back in.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/import_world.h"
#include "support/shipped.h"

namespace {

using testing::StartsWith;

std::string contentOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class ExchangeTest : public testing::Test, protected ImportWorld {
 protected:
  ExchangeTest() : ImportWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  void importExample(const std::string& name, const std::string& file,
                     const std::vector<std::string>& options = {}) {
    expectImported(importFile(name, shippedFile("examples/first-minute/" + file), options));
  }
  void exportAs(const std::string& name, const std::string& file) {
    const ProgramResult result = runCompanion({"export", name, "-o", file, "--force"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
  }
};

TEST_F(ExchangeTest, WhatIsExportedComesBackTheSame) {
  const std::vector<std::vector<std::string>> sources = {
      {"memory.stil"},
      {"memory.stil", "--flat"},
      {"bus.stil", "--exec", "readback"},
      {"bus.stil", "--exec", "walking", "--flat"}};
  for (const std::vector<std::string>& source : sources) {
    SCOPED_TRACE(testing::PrintToString(source));
    importExample("A", source.front(), {source.begin() + 1, source.end()});
    exportAs("A", "out.stil");
    expectImported(importFile("B", "out.stil"));
    expectSame("A", "B");
  }
}

TEST_F(ExchangeTest, CompressedTextsAndStandardInputAreReadAlike) {
  const std::string path = shippedFile("examples/first-minute/memory.stil");
  importExample("A", "memory.stil");
  const std::string text = contentOf(path);
  const gzFile packed = gzopen(directory().path("memory.stil.gz").c_str(), "wb");
  ASSERT_EQ(gzwrite(packed, text.data(), static_cast<unsigned>(text.size())),
            static_cast<int>(text.size()));
  ASSERT_EQ(gzclose(packed), Z_OK);
  expectImported(importFile("B", "memory.stil.gz"));
  EXPECT_EQ(dump("B"), dump("A"));

  for (const std::string& source : {path, std::string("memory.stil.gz")}) {
    ProgramCall call;
    call.arguments = {
        "-c", std::string(PVB_BINARY) + " import - --from stil -o C --force < '" + source + "'"};
    call.directory = directory().path();
    expectImported(runProgram("/bin/sh", call));
    EXPECT_EQ(dump("C"), dump("A")) << source;
  }

  std::filesystem::resize_file(directory().path("memory.stil.gz"), 900);
  const ProgramResult cut = importFile("D", "memory.stil.gz");
  EXPECT_EQ(cut.exitCode, 2);
  EXPECT_THAT(cut.err, StartsWith("memory.stil.gz"));
  EXPECT_FALSE(exists("D"));
}

TEST_F(ExchangeTest, ImportedPatternsAreConcatenatedAndMerged) {
  importExample("M", "memory.stil", {"--flat"});
  importExample("R", "bus.stil", {"--exec", "readback", "--flat"});
  importExample("W", "bus.stil", {"--exec", "walking", "--flat"});
  expectDone(runOperations("concat R W destBus\nmerge M destBus destChip"));
  expectSame("R", "destBus", {"--b-to", "30300ns"});
  expectSame("W", "destBus", {"--b-from", "30300ns"});
  expectSame("M", "destChip", {"--common"});
  expectSame("destBus", "destChip", {"--common"});
  exportAs("destChip", "chip.stil");
  expectImported(importFile("C", "chip.stil"));
  expectSame("destChip", "C");
}

}  // namespace
