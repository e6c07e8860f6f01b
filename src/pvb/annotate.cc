#include "pvb/annotate.h"

#include <cerrno>

#include "base/errors.h"
#include "pvb/property.h"
#include "pvb/timeplate.h"

namespace {

constexpr std::string_view kFunction = "annotateVector";

}  // namespace

bool annotateVector(int database, PVBrow& row) {
  if (row.timeplate == kNoTimePlate) return true;
  const PVBtimePlate* plate = PVBtimePlateInqByID(database, row.timeplate);
  if (plate == nullptr) return false;
  if (row.tag != UNDEF) {
    return PVBputProp(database, row.tag, {kCommentProperty, plate->name}) == 0;
  }
  row.tag = PVBpropListNew(database);
  if (row.tag != UNDEF) return false;
  PBerrPush(PBconditionerError, kFunctionAndText, kFunction, "Can't create new property list");
  return false;
}
