#include "conditioner/debug_util.h"

#include <gtest/gtest.h>

#include <optional>

#include "base/platform.h"
#include "conditioner/run.h"
#include "support/temp_dir.h"

namespace {

// What a dump writes to the debug stream.
template <typename Dump>
std::string dumped(Dump dump) {
  const TempDir dir;
  StreamPtr stream = openStream(dir.path("dump"), "w");
  run.debugStream = stream.get();
  dump();
  run.debugStream = nullptr;
  closeStream(std::move(stream));
  return dir.read("dump");
}

TEST(DebugUtil, DumpsParameters) {
  std::optional<std::string> set = "value";
  std::optional<std::string> unset;
  const PBparam table[] = {{"OpFile", &set, false}, {"TmpPrefix", &unset, true}};
  EXPECT_EQ(dumped([&] { dumpParams(table); }),
            "\n"
            "       Parameter Name      String Value         Required?\n"
            "---------------------------------------------------------\n"
            "              OpFile      value                   no\n"
            "           TmpPrefix                              yes\n");
}

TEST(DebugUtil, DumpsSignalsWithTheMembersOfBusesAndGroups) {
  const SignalDumpRow signals[] = {{"clk", 3, 0, {9}}, {"data", 4, 1, {5, 6}}, {"x", -1, 8, {7}}};
  EXPECT_EQ(dumped([&] { dumpSignals(signals); }),
            "    sig name         id          type members\n"
            "---------------------------------------------\n"
            "         clk          3    MEM_SIGNAL \n"
            "        data          4       MEM_BUS ( 5 6 )\n"
            "           x         -1         OTHER \n");
}

TEST(DebugUtil, IsSilentWithoutAStream) {
  run.debugStream = nullptr;
  dumpParams({});
  dumpSignals({});
}

}  // namespace
