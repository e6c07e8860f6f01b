#include "timeplate/ate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "pvb/database.h"
#include "pvb/signal.h"
#include "support/database.h"
#include "support/optimizer_report.h"
#include "support/shipped.h"
#include "timeplate/tp_settings.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr const char* kShapes =
    "#% shape\nS\nPS\nDSD # return to zero\nD\nUSU\n"
    "#% simpleShape forceMap\nD S\nD DSD\n"
    "#% familyShape shapeFamily\nDSD clocks\nS data\nPS data\n"
    "#% signal family\nb clocks\nbus data\n"
    "#% noMapping\nb\nbus\n";

class Ate : public testing::Test {
 protected:
  ~Ate() override { ateBindSignals(-1); }

  int init(std::vector<std::string> parameters) {
    parameters.push_back("TmpPrefix=" + dir_.path());
    EXPECT_EQ(tpReadSettings(Arguments(std::move(parameters))), 0);
    return ateInit();
  }
  // With the content as the shape file.
  int read(std::string_view content, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"ATEFamily=other", "Pmode=last_force",
                               "ShapeFile=" + dir_.write("own.shp", content)});
    return init(std::move(more));
  }
  std::vector<std::string> offered(int table, PVBid signal) {
    std::vector<std::string> shapes;
    ShapeWalk walk;
    for (const Wave* shape = ateFirstShape(walk, table, signal); shape != nullptr;
         shape = ateNextShape(walk)) {
      shapes.push_back(shape->states);
    }
    EXPECT_EQ(ateNextShape(walk), nullptr);
    return shapes;
  }

  TempDir dir_;
  OptimizerReport report_;
};

// Inputs a and b, and a bus of two.
class AteSignals : public Ate {
 protected:
  AteSignals() {
    for (const char* name : {"a", "b", "bus"}) {
      auto signal = PVBsignalNew();
      signal->name = name;
      signal->direction = INPUT;
      if (signal->name == "bus") {
        signal->type = MEM_BUS;
        signal->leftIndex = 1;
        signal->rightIndex = 0;
      }
      EXPECT_GT(PVBsignalAdd(database_.handle(), std::move(signal)), 0);
    }
  }
  PVBid idOf(std::string_view name) const {
    const PVBsignal* signal = PVBsignalInqByName(database_.handle(), name);
    return signal != nullptr ? signal->id : UNDEF;
  }
  std::string forced(std::string_view states, std::string_view name) const {
    const Wave* shape = ateForcedMap(states, idOf(name));
    return shape != nullptr ? shape->states : "";
  }

  TestDatabase database_;
};

TEST_F(Ate, ShapesGoToTheirTables) {
  ASSERT_EQ(read(kShapes), 0);
  EXPECT_EQ(ateShapeCount(kSimpleShapes), 1);
  EXPECT_EQ(ateShapeCount(kComplexShapes), 4);
  EXPECT_EQ(ateShapeId(kComplexShapes, "DSD"), 2);
  EXPECT_EQ(ateShapeId(kMuxShapes, "DSD"), 2);
  EXPECT_EQ(ateShapeId(kSimpleShapes, "DSD"), -1);
  int id = 0;
  EXPECT_EQ(*ateShapeLookup(kComplexShapes, "PS", id), (Wave{"PS", {TIME_ZERO, TIME_ZERO}}));
  EXPECT_EQ(id, 1);
  EXPECT_EQ(ateShapeLookup(kComplexShapes, "SP", id), nullptr);
  EXPECT_EQ(atePmode(), LAST_FORCE);
  // Nothing of one file is left for the next.
  ASSERT_EQ(read("#% shape\nX?Z\n"), 0);
  EXPECT_EQ(ateShapeCount(kComplexShapes), 0);
  EXPECT_EQ(ateForcedMap("D", UNDEF), nullptr);
  const std::string status = report_.status();
  EXPECT_THAT(status, HasSubstr("initializing ATE info...\nATE family is: other\nreading shape "
                                "file " +
                                dir_.path("own.shp") + "...\n\tshape S read\n"));
  EXPECT_THAT(status, EndsWith("pmode is: 1\n\n"));
  EXPECT_EQ(report_.text(), "");
}

TEST_F(Ate, AFaultEndsTheReading) {
  const std::pair<const char*, const char*> faults[] = {
      {"#% shape\n\"\"\n!\n", "bad shape in file: length 0"},
      {"#% shape\nS\nD\nD!\n", "invalid shape char in file: shape number 2"},
      {"#% shape\nDH\n", "disallowed shape char in file: H"},
      {"#% shape\nds\n", "disallowed shape char in file: d"},
      {"#% muxShape\nALL\nNONE\n", "Cannot set muxShape to NONE once it has been previously set."},
      {"#% muxShape\nS\nALL\n", "Cannot set muxShape to ALL once it has been previously set."},
      {"#% muxShape\nNONE\nS\n", "Cannot set muxShape when NONE or ALL has been specified."},
      {"#% muxShape\nSQ\n", "disallowed shape char in file: Q"},
      {"#% simpleShape forceMap\nS D\n",
       "Map pairs must be a simple shape and a complex shape <S> <D>."},
      {"#% simpleShape forceMap\nD S\n", "Missing simple shape list."},
      {"#% shape\nU\n#% simpleShape forceMap\nD S\n", "Simple Map must exist in shape list <D>."},
      {"#% shape\nD\n#% simpleShape forceMap\nD S\n", "Missing complex shape list."},
      {"#% shape\nD\nPS\n#% simpleShape forceMap\nD S\n",
       "Complex Map must exist in shape list <S>."},
      {"#% familyShape shapeFamily\nS f\n",
       "<S> must first appear as a complex shape for family <f>."},
      {"#% signal family\na f\n", "unknown family: f"},
  };
  for (const auto& [content, text] : faults) {
    const std::size_t before = report_.text().size();
    EXPECT_EQ(read(content), -2) << content;
    const std::string told = report_.text().substr(before);
    EXPECT_THAT(told, HasSubstr(": " + std::string(text) + "\n\n")) << content;
    EXPECT_THAT(told, HasSubstr(": Shape file parse error: Could not parse line number:  "));
    EXPECT_EQ(std::ranges::count(told, '\n'), 4) << told;
  }
  EXPECT_EQ(read("#% noMapping\na\n"), -2);
  EXPECT_THAT(report_.text(), HasSubstr(": no shapes in shape file\n"));
  EXPECT_EQ(read("S\n"), -2);
  EXPECT_EQ(read("#% shape\n\"S\n"), -2);
  EXPECT_EQ(read("#% shape shape\nS\n"), -2);
  EXPECT_THAT(report_.text(), HasSubstr("parse error: " + dir_.path("own.shp")));
}

TEST_F(Ate, MultiplexedSignalsHaveTheComplexShapesOrTheirOwn) {
  ASSERT_EQ(read("#% shape\nS\n#% muxShape\nDSD\nUSU\n", {"UseMuxTiming=yes"}), 0);
  EXPECT_THAT(offered(kMuxShapes, UNDEF), ElementsAre("DSD", "USU"));
  EXPECT_EQ(ateShapeId(kMuxShapes, "S"), -1);
  EXPECT_TRUE(ateUseMux());
  ASSERT_EQ(read("#% shape\nS\n", {"UseMuxTiming=yes"}), 0);
  EXPECT_THAT(offered(kMuxShapes, UNDEF), ElementsAre("S"));
  EXPECT_TRUE(ateUseMux());
  ASSERT_EQ(read("#% shape\nS\n"), 0);
  EXPECT_FALSE(ateUseMux());
  ASSERT_EQ(read("#% shape\nS\n#% muxShape\nNONE\n", {"UseMuxTiming=yes"}), 0);
  EXPECT_FALSE(ateUseMux());
}

TEST_F(AteSignals, AFamilyLimitsTheShapesOfItsSignals) {
  ASSERT_EQ(read(kShapes), 0);
  EXPECT_THAT(offered(kComplexShapes, idOf("b")),
              ElementsAre("DSD", "S", "PS", "S", "PS", "DSD", "USU"));
  ASSERT_EQ(ateBindSignals(database_.handle()), 0);
  EXPECT_THAT(offered(kComplexShapes, idOf("a")),
              ElementsAre("DSD", "S", "PS", "S", "PS", "DSD", "USU"));
  EXPECT_THAT(offered(kComplexShapes, idOf("b")), ElementsAre("DSD"));
  EXPECT_THAT(offered(kComplexShapes, idOf("bus[1]")), ElementsAre("S", "PS"));
  EXPECT_THAT(offered(kMuxShapes, idOf("b")), ElementsAre("S", "PS", "DSD", "USU"));
  EXPECT_THAT(offered(kSimpleShapes, idOf("b")), ElementsAre("D"));
  EXPECT_EQ(forced("D", "a"), "S");
  EXPECT_EQ(forced("D", "b"), "DSD");
  EXPECT_EQ(forced("U", "a"), "");
  EXPECT_TRUE(ateNoMapping("b"));
  EXPECT_TRUE(ateNoMapping("bus[0]"));
  EXPECT_FALSE(ateNoMapping("a"));
  tpSettings.useShapeFamilies = false;
  EXPECT_THAT(offered(kComplexShapes, idOf("b")), ElementsAre("S", "PS", "DSD", "USU"));
  EXPECT_EQ(forced("D", "b"), "S");
}

TEST_F(AteSignals, NamesMustBeInTheDatabase) {
  const std::string list = "SignalListFile=" + dir_.write("own.lst", "#% signal family\nc data\n");
  for (const std::vector<std::string>& more :
       {std::vector<std::string>{}, {list}, {"UseSignalList=yes", list}}) {
    ASSERT_EQ(read(kShapes, more), 0);
    EXPECT_EQ(ateBindSignals(database_.handle()), more.size() == 2 ? -2 : 0);
  }
  EXPECT_THAT(report_.text(), EndsWith(": signal not in database: c\n"));
  ASSERT_EQ(read("#% shape\nS\n#% noMapping\nd\n"), 0);
  EXPECT_EQ(ateBindSignals(database_.handle()), -2);
  EXPECT_THAT(report_.text(), EndsWith(": signal not in database: d\n"));
  dir_.write("own.lst", "#% shape\nS\n#% signal family\nc nosuch\n");
  EXPECT_EQ(read(kShapes, {"UseSignalList=yes", list}), -2);
  EXPECT_THAT(report_.text(), HasSubstr(": unknown family: nosuch\n"));
  EXPECT_THAT(report_.text(), HasSubstr(": Signal file parse error: Could not parse line"));
}

TEST_F(Ate, TheSummaryCountsShapesAndRowsOfAFamily) {
  PVBtimePlate plate;
  plate.levels.resize(1);
  for (const char* states : {"S", "?PS", "PS", "DHD"}) {
    plate.levels[0].tracks.emplace_back().stateChars = states;
  }
  ASSERT_EQ(read("#% shape\nS\n"), 0);
  ateCountUse(plate, 5);
  ateFamilySummary();
  EXPECT_EQ(report_.text(), "\n\nShape Family Summary:\n\nNo Shape Families Present\n");
  ASSERT_EQ(read(kShapes), 0);
  ateCountUse(plate, 5);
  plate.levels[0].tracks.resize(1);
  ateCountUse(plate, 3);
  ateCountUse(PVBtimePlate(), 9);
  ateFamilySummary();
  const std::string border(47, '-');
  EXPECT_THAT(report_.text(), EndsWith("\n\n" + border + "\n" +
                                       "|    globalShapeFamily |         0 |        0 |\n"
                                       "|               clocks |         0 |        0 |\n"
                                       "|                 data |         2 |        8 |\n" +
                                       border + "\n"));
}

TEST_F(Ate, ParametersChooseTheFileAndThePMode) {
  const std::string file = "ShapeFile=" + dir_.write("own.shp", kShapes);
  const struct {
    std::vector<std::string> parameters;
    std::string fault;
    int pmode;
  } cases[] = {
      {{}, "missing parameter: ATEFamily\n", -1},
      {{"ATEFamily="}, "missing parameter: ATEFamily\n", -1},
      {{"ATEFamily=other"}, "missing parameter: ShapeFile\n", -1},
      {{"ATEFamily=Other", "ShapeFile=none"}, "failed to find: none\n", -1},
      {{"ATEFamily=J750", file}, "failed to find: /ate/j750/j750.shp\n", -1},
      {{"ATEFamily=other", file}, "missing parameter: Pmode\n", -1},
      {{"ATEFamily=other", file, "Pmode=p"}, "illegal parameter value: Pmode\n", -1},
      {{"ATEFamily=other", file, "Pmode=P_IMS", "UseTesterPmode=yes"}, "", IMS},
      {{"ATEFamily=other", file, "Pmode=ims", "UseSignalList=yes"},
       "missing parameter: SignalListFile\n",
       -1},
      {{"ATEFamily=other", file, "Pmode=ims", "UseSignalList=yes", "SignalListFile=no.lst"},
       "failed to find: no.lst\n",
       -1},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(init(each.parameters), each.pmode >= 0 ? 0 : -2);
    EXPECT_THAT(report_.text(), EndsWith(each.fault));
    EXPECT_EQ(atePmode(), each.pmode);
  }
}

TEST_F(Ate, TheShapeFilesThatComeWithTheSystemAreRead) {
  int families = 0;
  for (const auto& entry : std::filesystem::directory_iterator(shippedFile("data/ate"))) {
    const std::string family = entry.path().filename().string();
    std::int32_t mode = -1;
    EXPECT_EQ(PVBfamilyToMode(mode, family), 0) << family;
    const std::string file = (entry.path() / (family + ".shp")).string();
    EXPECT_EQ(init({"ATEFamily=other", "Pmode=ims", "ShapeFile=" + file}), 0) << family;
    EXPECT_GT(ateShapeCount(kComplexShapes), 15) << family;
    ++families;
  }
  EXPECT_EQ(families, 26);
  EXPECT_EQ(report_.text(), "");
}

TEST_F(Ate, SettingsAreThoseOfTheArguments) {
  ASSERT_EQ(tpReadSettings(Arguments({"Operation=merge"})), 0);
  EXPECT_FALSE(tpSettings.tpoTrackPassWanted || tpSettings.tpoBidiMerge ||
               tpSettings.tpoCheckEquations || tpSettings.useMuxTiming || tpTraces(1));
  EXPECT_TRUE(tpSettings.useShapeFamilies);
  ASSERT_EQ(tpReadSettings(
                Arguments({"Trace=7", "DoBidi=YES", "DoTrackOptimize=x", "TimeTolerance=2ps",
                           "EndOfCycleDelta=1ns", "EdgeToEdgeDelta=3ps", "UseShapeFamilies=No"})),
            0);
  EXPECT_EQ(tpSettings.tpoTrace, 2);
  EXPECT_TRUE(tpSettings.tpoBidiMerge && tpSettings.tpoTrackPassWanted);
  EXPECT_FALSE(tpSettings.useShapeFamilies);
  EXPECT_EQ(tpSettings.tpoTolerance, PBlongToTIME(2000));
  EXPECT_EQ(tpSettings.endOfCycleDelta, PBlongToTIME(1000000));
  EXPECT_EQ(tpSettings.edgeToEdgeDelta, PBlongToTIME(3000));
  for (const std::string name : {"TimeTolerance", "EndOfCycleDelta", "EdgeToEdgeDelta"}) {
    EXPECT_EQ(tpReadSettings(Arguments({name + "=5"})), -2);
    EXPECT_THAT(report_.text(), EndsWith(": illegal parameter value: " + name + "\n"));
  }
  EXPECT_EQ(tpReadSettings(Arguments({"Do=1"})), -2);
}

}  // namespace
