// Any bytes as a shape file, and walks over what was read of it.

#include "ate_input.h"
#include "scratch_directory.h"

namespace {

const std::string& inputPath() {
  static const ScratchDirectory directory;
  static const std::string path = directory.path("shapes.shp");
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool ready = [] {
    readParameters({"ATEFamily=other", "Pmode=ims", "ShapeFile=" + inputPath(), "TmpPrefix=."});
    return true;
  }();
  require(ready);
  writeInput(inputPath(), {reinterpret_cast<const char*>(data), size});
  if (ateInit() == 0) {
    for (const int table : {kSimpleShapes, kComplexShapes, kMuxShapes}) checkWalk(table, UNDEF);
    ateFamilySummary();
  }
  forgetErrors();
  return 0;
}
