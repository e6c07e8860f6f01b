#include "equations/checker_times.h"

#include "equations/time_update.h"
#include "pvb/checker.h"

namespace {

PVBtimeFault checkerFault(const TimeVariableFault& fault) {
  PVBtimeFault told;
  told.kind = fault.kind == TimeVariableFault::Kind::notPositive ? PVBtimeFault::Kind::negative
                                                                 : PVBtimeFault::Kind::undefined;
  told.timeplate = fault.timeplate;
  told.period = fault.period;
  told.track = fault.track;
  told.event = fault.event;
  return told;
}

// An expression that failed is a finding; what fails otherwise has been posted.
bool updateTimes(int database, const PVBtimeFaultSink& tell) {
  bool told = false;
  const int result = PVBtimeVariableUpdate(database, [&](const TimeVariableFault& fault) {
    told = true;
    tell(checkerFault(fault));
  });
  return result == 0 || told;
}

}  // namespace

void installCheckerTimeUpdate() { PVBcheckSetTimeUpdate(updateTimes); }
