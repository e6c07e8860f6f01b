// Muxify as a user sees it: groups of cycles become rows of multiplexed signals.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/operation_world.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class MuxifyTest : public testing::Test, protected OperationWorld {
 protected:
  MuxifyTest() : OperationWorld({PVBCONDITIONER_BINARY, PVB_BINARY}) {}

  Outcome muxify(int degree, std::vector<std::string> parameters = {}) {
    parameters.insert(parameters.end(),
                      {"Operation=muxify", "SourcePVB1=A", "DestinationPVB=dest",
                       "MuxDegree=" + std::to_string(degree)});
    return runParameters(std::move(parameters));
  }
  // Muxifies a database that must be fit for it: the rows that came of it.
  std::string muxed(int degree, const DatabaseText& text) {
    build("A", text);
    expectDone(muxify(degree));
    return rowsOf("dest");
  }
};

TEST_F(MuxifyTest, Show) {
  build("A", smallChip().rows(steps("tp", {"10", "01", "11", "00", "ZX"})));
  const Outcome o = muxify(2);
  printf("%s\n%s\n%s\n", o.report.c_str(), o.err.c_str(), dump("dest").c_str());
  printf("%s\n", runCompanion({"show", "dest"}).out.c_str());
}

}  // namespace
