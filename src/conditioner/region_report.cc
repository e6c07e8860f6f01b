#include "conditioner/region_report.h"

#include <fmt/printf.h>

#include <string>

#include "base/report.h"
#include "conditioner/run.h"

namespace {

// What is longer than its column pushes the others to the right.
constexpr const char* kRegionFormat = "\n%-20s  %-20s  %-10s  %-10s";

}  // namespace

void printRegionHead() {
  fmt::fprintf(run.reportStream, kRegionFormat, "Region Name", "PVB Path", "Start", "Stop");
  fmt::fprintf(run.reportStream, kRegionFormat, "-----------", "--------", "-----", "----");
}

void printRegionLine(const PVBregion& region) {
  const std::string start = region.start == TIME_ZERO ? "begin" : PBformatTIME(region.start);
  const std::string stop = region.stop == TIME_MAX ? "end" : PBformatTIME(region.stop);
  fmt::fprintf(run.reportStream, kRegionFormat, region.regionName, region.pvbName, start, stop);
}

void report(std::string_view text) { PBprint(run.reportStream, text); }
