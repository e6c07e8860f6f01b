#include "conditioner/edit_target.h"

#include <fmt/printf.h>

#include <cerrno>

#include "base/errors.h"
#include "base/platform.h"
#include "base/progress.h"
#include "conditioner/copy.h"
#include "conditioner/messages.h"
#include "conditioner/operand_database.h"
#include "conditioner/region_report.h"
#include "pvb/bus.h"
#include "pvb/database.h"
#include "pvb/database_replace.h"

namespace {

// The total of a display that has no steps.
constexpr std::int64_t kWholeEdit = 100;

void warn(const EditWords& words, std::string_view which, const std::string& path) {
  report(fmt::sprintf("\nWarning!...%s op will modify %s (%s).\n", words.verb, which, path));
}

std::string pathBeside(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path + "_";
}

void copyBeside(const EditWords& words, PVBregion& src, EditTarget& target) {
  warn(words, "the source pvb", src.pvbName);
  const std::string path = pathBeside(src.pvbName);
  PVBregionInit(target.beside, path, path, TIME_ZERO, TIME_MAX);
  target.working = &target.beside;
  if (PVBreplacePrepare(src.pvbName, path) != 0) assertFail(__FILE__, __LINE__);
  if (copy(target.beside, src, true) != 0) assertFail(__FILE__, __LINE__);
}

int copySource(const EditWords& words, PVBregion& dest, PVBregion& src, EditTarget& target) {
  const bool exists = PVBexists(dest.pvbName);
  if (exists && sameDirectory(dest.pvbName, src.pvbName)) {
    copyBeside(words, src, target);
    return 0;
  }
  if (exists) warn(words, "destination pvb", dest.pvbName);
  target.working = &dest;
  if (copy(dest, src, true) == 0) return 0;
  if (exists || !words.failsWithNewCopy) assertFail(__FILE__, __LINE__);
  return -2;
}

}  // namespace

int openEditTarget(const EditWords& words, PVBregion& dest, PVBregion& src, EditTarget& target) {
  report("\n");
  report(fmt::sprintf("\nBeginning %s operation...", words.verb));
  report("\n");
  if (!PVBexists(src.pvbName)) {
    errno = 0;
    PBerrPush(PBconditionerError, kNoSuchDatabase, words.function, src.pvbName);
    return -2;
  }
  if (openSource(words.function, src) != 0) return -2;
  target.src = &src;
  if (copySource(words, dest, src, target) != 0) return -2;
  if (openDestination(words.function, *target.working, false) != 0) return -2;
  report("\n");
  PBprogressStart(kWholeEdit, fmt::sprintf("...%s signals in %s", words.doing, target.path()));
  return 0;
}

void closeEditTarget(const EditWords& words, EditTarget& target) {
  PBprogressEnd(kWholeEdit);
  report("\n");
  if (PVBbusify(target.database(), kBusAsSeen, nullptr) != 0) assertFail(__FILE__, __LINE__);
  closeOperands(words.function, *target.working, {});
  if (!target.inPlace()) return;
  if (PVBreplace(target.src->pvbName, target.path()) != 0) assertFail(__FILE__, __LINE__);
}
