// Damages a sound database, one place at a time: the finding names file and place.

#include "tools/verify.h"

#include <gmock/gmock.h>

#include <functional>

#include "pvb/label.h"
#include "pvb/pattern.h"
#include "pvb/property.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "storage/cio.h"
#include "storage/page.h"
#include "storage/swapendian.h"
#include "support/database_text.h"
#include "support/dump_support.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

// With properties, a subroutine that is called, a loop and a scanned chain.
std::string soundDatabase() {
  DatabaseText text;
  text.signal("a", "input").signal("b", "output").plate("tp", "10nS", {{"a", "", ""}});
  text.signalRecords("signal 9:1 \"chain\" type=chain\n  ate-pins 1 2\n");
  text.beforeRows("vector \"v\"\n  cells |01\n");
  text.rows(
      "  row \"tp\" |1\n  loop x2\n    row \"tp\" x3\n  end\n  call \"sub\"\n"
      "  scan \"tp\" x4\n    run in 9:1 \"v\"\n");
  text.subroutine("sub", "  row \"tp\"\n").more("label \"l\" row=0\n");
  std::string lines = text.text();
  for (const char* owner : {"signals ", "signal 2"})
    lines.insert(lines.find(owner), "  prop 1 \"p\"\n");
  return lines;
}

class VerifyTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(directory_.build(soundDatabase())) << directory_.firstMessage();
  }

  // Lines "FILE PLACE CODE"; "note" in front of a note.
  std::vector<std::string> findings() {
    const Untouched untouched(directory_.path());
    std::vector<std::string> lines;
    const VerifyCounts counts = verifyDatabase(directory_.path(), [&](const Message& message) {
      std::string line = message.severity == Severity::note ? "note " : "";
      line += message.file + " " + message.place + " " + messageCodeText(message.code);
      lines.push_back(line);
    });
    EXPECT_EQ(counts.faults + counts.notes, static_cast<std::int64_t>(lines.size()));
    return lines;
  }
  // Changes the open database behind its modules' backs.
  void damage(const std::function<void(PVBdatabase& slot)>& change) {
    const int database = PVBopenAny(directory_.path(), true, 0, 16, kAllSections, false);
    ASSERT_GE(database, 0);
    change(*PVBget(database));
    ASSERT_EQ(PVBclose(database), 0);
  }
  template <typename Change>
  void damageBlock(int file, std::uint32_t block, int tag, Change change) {
    auto held = BlockHandle<std::uint8_t>::get(file, block, tag);
    ASSERT_TRUE(held);
    change(held.data());
    held.markDirty();
  }
  template <typename Change>
  void damageRow(std::uint32_t row, Change change) {
    damage([&](PVBdatabase& slot) {
      damageBlock(slot.patterns->rows, row, typePVBrow,
                  [&](std::uint8_t* data) { change(*reinterpret_cast<PVBrow*>(data)); });
    });
  }
  void damageByte(const std::string& name, std::size_t offset, char value) {
    std::string bytes = directory_.directory().read("db/" + name);
    bytes.at(offset) = value;
    directory_.directory().write("db/" + name, bytes);
  }

  DumpDirectory directory_;
};

TEST_F(VerifyTest, FindsNothingInASoundDatabase) { EXPECT_THAT(findings(), IsEmpty()); }

// Such calls stand for no time.
TEST_F(VerifyTest, TakesSubroutinesThatCallThemselves) {
  DatabaseText text = smallChip().rows("  call \"a\" x3\n  loop x2\n    call \"b\"\n  end\n");
  text.subroutine("a", "  row \"tp\"\n  call \"b\" x2\n");
  text.subroutine("b", "  row \"tp\" x7\n  call \"a\"\n");
  ASSERT_TRUE(directory_.build(text.text(), "circle")) << directory_.firstMessage();
  const VerifyCounts counts = verifyDatabase(
      directory_.path("circle"), [](const Message& message) { ADD_FAILURE() << message.text; });
  EXPECT_EQ(counts.faults, 0);
}

TEST_F(VerifyTest, FindsDamagedHeaders) {
  damageByte("pvb.h", 7, 12);
  EXPECT_THAT(findings(), Contains("pvb.h  PVB0401"));
}

TEST_F(VerifyTest, FindsDamagedRows) {
  damageRow(0, [](PVBrow& row) { row.id = 9; });
  EXPECT_THAT(findings(), Contains("pvb.pd row 0 PVB0409"));
  damageRow(0, [](PVBrow& row) {
    row.id = 0;
    row.count = 5;
  });
  EXPECT_THAT(findings(), Contains("pvb.pd row 0 PVB0410"));
  damageRow(0, [](PVBrow& row) {
    row.count = 1;
    row.timeplate = 8;
  });
  EXPECT_THAT(findings(), Contains("pvb.pd row 0 PVB0418"));
  damageRow(0, [](PVBrow& row) {
    row.timeplate = 0;
    row.tag = 77;
  });
  EXPECT_THAT(findings(), Contains("pvb.pd row 0 PVB0414"));
}

TEST_F(VerifyTest, FindsDamagedTrees) {
  damage([&](PVBdatabase& slot) {
    damageBlock(slot.patterns->nodes, static_cast<std::uint32_t>(slot.header.mainRoot), typePVBnode,
                [](std::uint8_t* node) {
                  auto* entries = reinterpret_cast<PVBnodeEntry*>(node);
                  entries[0].cycles += 1;
                  entries[3].child = entries[0].child;
                });
  });
  const auto lines = findings();
  EXPECT_THAT(lines, Contains("pvb.pd row 0 PVB0410"));
  EXPECT_THAT(lines, Contains("pvb.pd row 0 PVB0408"));
  EXPECT_THAT(lines, Contains("note pvb.pd  PVB0413"));
}

TEST_F(VerifyTest, FindsDamagedTablesAndLists) {
  damage([](PVBdatabase& slot) {
    slot.patterns->subroutines[0].sums.cycle += 5;
    slot.patterns->changed = true;
    PVBsignal probe;
    probe.id = 2;
    PVBsignal* signal = slot.signals->byId.find(probe);
    signal->outColumn = 0;
    signal->propList = slot.header.propList;
    slot.signals->changed = true;
    slot.timePlates->plates[0]->selectorLists[0].second.push_back(66);
    slot.timePlates->changed = true;
    slot.labels->labels[0] = {"l", 6, kLabelPlain, UNDEF, kNoRowNumber, {}};
    slot.labels->changed = true;
  });
  const auto lines = findings();
  EXPECT_THAT(lines, Contains("pvb.ps subroutine 0 PVB0411"));
  EXPECT_THAT(lines, Contains(HasSubstr("PVB0420")));
  EXPECT_THAT(lines, Contains(HasSubstr("PVB0414")));
  EXPECT_THAT(lines, Contains("pvb.tp timeplate 0 PVB0419"));
  EXPECT_THAT(lines, Contains("pvb.lb label \"l\" PVB0421"));
}

TEST_F(VerifyTest, FindsDamagedRunsAndProperties) {
  damage([&](PVBdatabase& slot) {
    damageBlock(slot.patterns->runs, 0, typePVBscanRun, [](std::uint8_t* run) { run[0] = 9; });
  });
  EXPECT_THAT(findings(), Contains("pvb.rd run 0 PVB0417"));
  damage([](PVBdatabase& slot) {
    PBcftruncate(slot.properties->values, PBcfsize(slot.properties->values) - 4);
  });
  EXPECT_THAT(findings(), Contains(HasSubstr("PVB0415")));
}

TEST_F(VerifyTest, FindsDamagedFiles) {
  std::string signals = directory_.directory().read("db/pvb.s");
  directory_.directory().write("db/pvb.s", signals.substr(0, signals.size() / 2));
  EXPECT_THAT(findings(), Contains("pvb.s  PVB0406"));
  directory_.directory().write("db/pvb.s", signals);
  directory_.directory().write("db/pvb.sdb", "SDB 1\n");
  EXPECT_THAT(findings(), Contains("pvb.sdb  PVB0406"));
  damageByte("pvb.st", 9, 0);
  EXPECT_THAT(findings(), Contains("pvb.st  PVB0405"));
}

}  // namespace
