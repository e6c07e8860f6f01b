// Any bytes as a list of signals, bound to a database with signals, a bus and a group.

#include "ate_input.h"
#include "pvb/database.h"
#include "pvb/signal.h"
#include "scratch_directory.h"

namespace {

constexpr const char* kShapes =
    "#% shape\nS\nPS\nDSD\nD\n#% simpleShape forceMap\nD S\nD DSD\n"
    "#% familyShape shapeFamily\nDSD clocks\nS data\nPS data\n";

const ScratchDirectory& directory() {
  static const ScratchDirectory scratch;
  return scratch;
}

void addSignal(int database, const char* name, std::int32_t type) {
  std::unique_ptr<PVBsignal> signal = PVBsignalNew();
  signal->name = name;
  signal->direction = INPUT;
  signal->type = type;
  if (type == MEM_BUS) {
    signal->leftIndex = 3;
    signal->rightIndex = 0;
  }
  require(PVBsignalAdd(database, std::move(signal)) >= 0);
}

int openDatabase() {
  const int database = PVBopen(directory().path("db"), true, 32, 4, kSectionSignals);
  require(database >= 0);
  for (const char* name : {"a", "b", "clk"}) addSignal(database, name, MEM_SIGNAL);
  addSignal(database, "bus", MEM_BUS);
  return database;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string list = directory().path("signals.lst");
  static const int database = [] {
    const std::string shapes = directory().path("shapes.shp");
    writeInput(shapes, kShapes);
    readParameters({"ATEFamily=other", "Pmode=ims", "ShapeFile=" + shapes, "UseSignalList=yes",
                    "SignalListFile=" + list, "TmpPrefix=."});
    return openDatabase();
  }();
  writeInput(list, {reinterpret_cast<const char*>(data), size});
  if (ateInit() == 0) {
    const bool bound = ateBindSignals(database) == 0;
    for (const PVBid id : PVBsignalInqAll(database)) {
      checkWalk(kComplexShapes, id);
      checkWalk(kSimpleShapes, id);
    }
    require(!bound || !ateNoMapping("nosuch"));
  }
  ateBindSignals(-1);
  forgetErrors();
  return 0;
}
