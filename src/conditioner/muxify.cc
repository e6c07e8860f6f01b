#include "conditioner/muxify.h"

#include <fmt/printf.h>

#include <cerrno>
#include <cstdlib>

#include "base/errors.h"
#include "base/platform.h"
#include "conditioner/messages.h"
#include "conditioner/muxify_internal.h"
#include "conditioner/operand_database.h"
#include "conditioner/region_report.h"
#include "pvb/database.h"

namespace {

constexpr std::string_view kFunction = "muxify()";

int closeOperand(PVBregion& region) {
  if (PVBregionClose(&region) == 0) return 0;
  PBerrPush(PBconditionerError, kCannotClose, kFunction, region.pvbName);
  return -2;
}

int openMuxSource(PVBregion& src) {
  if (PVBexists(src.pvbName)) return openSource(kFunction, src);
  errno = 0;
  PBerrPush(PBconditionerError, kNoSuchDatabase, kFunction, src.pvbName);
  return -2;
}

// Deletes what is there and makes a new database. What can't be deleted, or is the
// source, must not be mixed with the new one.
int makeDestination(const PVBregion& src, PVBregion& dest) {
  if (sameDirectory(dest.pvbName, src.pvbName)) {
    errno = 0;
    PBerrPush(PBconditionerError, kSameDatabase, kFunction, dest.pvbName, src.pvbName);
    return -2;
  }
  PVBdeleteAll(dest.pvbName);
  if (PVBhasFiles(dest.pvbName)) {
    PBerrPush(PBconditionerError, kDeleteFailed, kFunction, dest.pvbName);
    return -2;
  }
  errno = 0;
  return openDestination(kFunction, dest, false);
}

int dumpOnly(PVBregion& src) {
  dumpTimeplates(src.pvbHandle);
  return closeOperand(src);
}

bool fold(int src, int dest, int degree) {
  Muxify mux;
  mux.src = src;
  mux.dest = dest;
  mux.degree = degree;
  // What the state P of the source's tracks means.
  PVBsetPmode(dest, PVBpmode(src));
  if (!createSignalList(mux)) return muxifyFails(kFunction, "createSignalList() failed");
  if (!muxifySignals(mux)) return muxifyFails(kFunction, "muxifySignals() failed");
  if (!muxifyPattern(mux)) return muxifyFails(kFunction, "muxifyPattern() failed");
  return true;
}

}  // namespace

bool muxifyFails(std::string_view function, std::string_view text) {
  errno = 0;
  PBerrPush(PBconditionerError, kFunctionAndText, function, text);
  return false;
}

bool muxifyRefuses(std::string_view text) {
  errno = 0;
  PBerrPush(PBconditionerError, kError, text);
  return false;
}

int muxify(PVBregion& src, PVBregion& dest, int degree) {
  if (degree < kMinMuxDegree || degree > kMaxMuxDegree) assertFail(__FILE__, __LINE__);
  report(fmt::sprintf("Beginning muxify operation (degree = %d)...\n", degree));
  if (openMuxSource(src) != 0) return -2;
  if (std::getenv("DUMP_TPS") != nullptr) return dumpOnly(src);
  if (makeDestination(src, dest) != 0) {
    PVBregionClose(&src);
    return -2;
  }
  const bool folded = fold(src.pvbHandle, dest.pvbHandle, degree);
  const int sourceClosed = closeOperand(src);
  if (closeOperand(dest) != 0 || sourceClosed != 0) return -2;
  report(fmt::sprintf("Muxify operation completed %s.\n", folded ? "successfully" : "with errors"));
  return 0;
}
