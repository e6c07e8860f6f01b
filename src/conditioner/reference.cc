// The reference database of a merge, after whose timeplates generated ones are named.

#include <cerrno>

#include "base/errors.h"
#include "conditioner/merge.h"
#include "conditioner/messages.h"
#include "conditioner/operand_database.h"
#include "pvb/database.h"

namespace {

// -1 while none is open. A path that is a source's too shares the source's handle.
int reference = -1;

}  // namespace

int initRefPVB(const std::string& path) {
  reference = PVBopenAny(path, false, 0, kOperandBuffers, kAllSections, false);
  if (reference >= 0) return 0;
  PBerrPush(PBconditionerError, kCannotOpen, "initRefPVB", path);
  return -2;
}

int closeRefPVB(const std::string& path) {
  if (reference < 0) {
    errno = 0;
    PBerrPush(PBconditionerError, kCannotClose, "closeRefPVB", path);
    return -2;
  }
  if (PVBclose(reference) != 0) assertFail(__FILE__, __LINE__);
  reference = -1;
  return 0;
}

std::optional<std::string> refTimePlateName(TIME time) {
  PVBposition position;
  position.time = time;
  const RowHandle row(reference, PVBpatternInqRow(reference, kMainPattern, position, BY_TIME));
  if (!row || row->timeplate == kNoTimePlate) return std::nullopt;
  const PVBtimePlate* plate = PVBtimePlateInqByID(reference, row->timeplate);
  if (plate == nullptr || !plate->name) return std::nullopt;
  return *plate->name + '_' + PBformatTIME(time);
}
