#include "pvb/pin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "base/errors.h"
#include "pvb/property.h"
#include "pvb/signal.h"
#include "support/database.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kSections = kSectionProperties | kSectionPins | kSectionSignals;

class Pins : public ::testing::Test {
 protected:
  ~Pins() override { PBdiscardErrors(); }

  int id() const { return db.handle(); }
  bool lay(const std::string& text) {
    if (db.handle() >= 0) db.close();
    PBdiscardErrors();
    db.directory().write("db/pvb.p", text);
    return db.open();
  }
  PVBid insertAte(const std::optional<std::string>& name, const std::optional<std::string>& node) {
    auto pin = PVBpinNew();
    pin->name = name;
    pin->node = node;
    return PVBatePinInsert(id(), std::move(pin));
  }

  TestDatabase db{32, 16, kSections};
};

// A pin, another of the other kind and a column, all tied together; signal 7.
const std::string kFile =
    "PINS 2\n9\n"
    "ATE\n3\n2\n-1\n5\n2\nA1\n4\n 12 \n1\n4\n1\n7\n1\n6\n0\n3\na b\n"
    "DUT\n4\n-1\n-1\n0\n0\n0\n1\n3\n0\n0\n2\n8\n-1\n0\n"
    "COL\n6\n-1\n255\n1\n3\n0\n0\n";

TEST_F(Pins, FileKeepsEveryFieldByteForByte) {
  ASSERT_TRUE(lay(kFile));
  const PVBpin* pin = PVBatePinInqByName(id(), "A1");
  ASSERT_NE(pin, nullptr);
  EXPECT_EQ(pin, PVBatePinInqByID(id(), 3));
  EXPECT_EQ(pin, PVBatePinInqByNode(id(), " 12 "));
  EXPECT_EQ(pin->number, 12);
  EXPECT_EQ(pin->flags, 5);
  EXPECT_EQ(pin->description, "a b");
  const PVBpin* other = PVBdutPinFirst(id());
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->name, std::nullopt);
  EXPECT_THAT(other->spare, ElementsAre(8, -1));
  EXPECT_EQ(PVBdutPinNext(id()), nullptr);
  EXPECT_EQ(db.slot().pins->atePinCount, 1);
  EXPECT_EQ(PVBpinSave(id(), ""), 0);
  EXPECT_EQ(db.directory().read("db/pvb.p"), kFile);
}

TEST_F(Pins, OlderVersionsAreRead) {
  ASSERT_TRUE(lay("PINS 0\n2\nATE\n1\n4\n-1\n1\nA\n0\n0\n0\n0\n0\n"));
  EXPECT_EQ(PVBatePinInqByName(id(), "A")->pinClass, 4);
  ASSERT_TRUE(lay("PINS 1\n2\nDUT\n1\n4\n-1\n6\n1\nA\n0\n0\n0\n0\n0\n"));
  EXPECT_EQ(PVBdutPinInqByName(id(), "A")->flags, 6);
  EXPECT_EQ(PVBdutPinInqByName(id(), "A")->description, std::nullopt);
}

TEST_F(Pins, BadFilesAreRefused) {
  for (const std::string text :
       {"", "PINS", "PINS 3\n1\n", "PIN 2\n1\n", "PINS 2\n", "PINS 2\n1\nX\n",
        "PINS 2\n1\nCOL\n1\n1\n256\n0\n0\n0\n", "PINS 2\n1\nCOL\n1\n1\n0\n999999999\n"}) {
    EXPECT_FALSE(lay(text)) << text;
    EXPECT_TRUE(PBerrorHas("pinDataRead", 87) || PBerrorHas("getPin", 87)) << text;
  }
  for (std::size_t size = 0; size < kFile.size(); ++size) {
    if (!lay(kFile.substr(0, size))) continue;
    const auto& pins = *db.slot().pins;
    EXPECT_LT(pins.atePins.count() + pins.dutPins.count() + pins.columns.count(), 4);
  }
  ASSERT_TRUE(lay("PINS 2\n1\n"));
}

TEST_F(Pins, NumberIsThatOfAPlainNode) {
  const std::map<const char*, std::int32_t> cases = {
      {" 12 ", 12},       {"12a", -1}, {"", -1}, {"  ", -1}, {"+3", -1}, {"2147483647", 2147483647},
      {"2147483648", -1}, {"007", 7}};
  for (const auto& [node, number] : cases) {
    EXPECT_EQ(PVBatePinInqByID(id(), insertAte(std::nullopt, node))->number, number) << node;
  }
  const PVBid unnamed = insertAte(std::nullopt, std::nullopt);
  EXPECT_EQ(PVBatePinInqByID(id(), unnamed)->number, -1);
  EXPECT_EQ(PVBatePinInqByName(id(), ""), nullptr);
}

TEST_F(Pins, IdsGoRoundAndStepOverThoseInUse) {
  db.slot().pins->nextID = 0x7FFFFFFE;
  EXPECT_EQ(insertAte("a", {}), 0x7FFFFFFE);
  EXPECT_EQ(insertAte("b", {}), 1);
  db.slot().pins->nextID = 0x7FFFFFFF;
  EXPECT_EQ(insertAte("c", {}), 2);
  db.slot().pins->nextID = -7;
  EXPECT_EQ(insertAte("d", {}), 3);
  // The other kinds have ids of their own.
  db.slot().pins->nextID = 1;
  EXPECT_EQ(PVBcolumnInsert(id(), PVBcolumnNew()), 1);
  auto taken = PVBpinNew();
  taken->id = 2;
  EXPECT_EQ(PVBpinInsertAs(id(), PinKind::ate, std::move(taken)), UNDEF);
}

TEST_F(Pins, DeletingTakesEveryReferenceAway) {
  auto made = PVBsignalNew();
  made->name = "CLK";
  const PVBid signalId = PVBsignalAdd(id(), std::move(made));
  const PVBid ate = insertAte("A", "1");
  const PVBid dut = PVBdutPinInsert(id(), PVBpinNew());
  auto newColumn = PVBcolumnNew();
  newColumn->number = 5;
  const PVBid columnId = PVBcolumnInsert(id(), std::move(newColumn));
  PVBsignal* signal = PVBsignalInqByID(id(), signalId);
  PVBpin* pin = PVBatePinInqByID(id(), ate);
  PVBpin* other = PVBdutPinInqByID(id(), dut);
  PVBcolumn* column = PVBcolumnInqByNumber(id(), 5);
  ASSERT_EQ(column->id, columnId);
  signal->lists3 = {ate, 77};
  signal->lists5 = {columnId};
  pin->signals = column->signals = {signalId, 9999};
  pin->linkedPins = {dut, ate, 9999};
  other->linkedPins = {ate};
  pin->columns = other->columns = {columnId};
  column->atePins = {ate, ate};
  column->dutPins = {dut};
  const PVBid properties = pin->propList = PVBpropListNew(id());
  db.slot().signals->changed = false;

  EXPECT_EQ(PVBatePinDelete(id(), ate), 0);
  EXPECT_THAT(signal->lists3, ElementsAre(77));
  EXPECT_TRUE(db.slot().signals->changed);
  EXPECT_THAT(other->linkedPins, IsEmpty());
  EXPECT_THAT(column->atePins, IsEmpty());
  EXPECT_FALSE(PVBpropListExists(id(), properties));
  EXPECT_EQ(PVBatePinInqByName(id(), "A"), nullptr);
  EXPECT_EQ(PVBatePinInqByNode(id(), "1"), nullptr);
  EXPECT_EQ(db.slot().pins->atePinCount, 0);

  EXPECT_EQ(PVBcolumnDelete(id(), columnId), 0);
  EXPECT_THAT(signal->lists5, IsEmpty());
  EXPECT_THAT(other->columns, IsEmpty());
  EXPECT_EQ(PVBcolumnInqByNumber(id(), 5), nullptr);
  EXPECT_EQ(PVBatePinDelete(id(), 12345), 0);
}

TEST_F(Pins, SignalsThatTheSaveLeavesOutAreNotWritten) {
  ASSERT_TRUE(lay("PINS 2\n2\nCOL\n1\n1\n0\n0\n0\n3\n7\n8\n9\n"));
  db.slot().signals->unused = {8};
  EXPECT_EQ(PVBpinSave(id(), ""), 0);
  EXPECT_EQ(db.directory().read("db/pvb.p"), "PINS 2\n2\nCOL\n1\n1\n0\n0\n0\n2\n7\n9\n");
}

}  // namespace
