#pragma once

// Timeplate periods and events that come from an expression, brought up to date from
// the equation data of their database.
//
// An event has its expression beside its time. The period of a timeplate comes from the
// variable "NAME.period", NAME being the timeplate's name, where there is one: of a
// timeplate "tp1", "tp1.period". Both see the variables of the selected sheet, with its
// selected set, and then those of the other sheets (expression.h). In an event's
// expression "period" is the period of its own timeplate, unless a variable is named so.
// Expressions of events are stored without blanks, and so are the names in them.

#include <functional>
#include <string>

#include "pvb/timeplate.h"

// An expression that gave no time. Indices count from 0.
struct TimeVariableFault {
  enum class Kind {
    undefined,    // it can't be evaluated
    notPositive,  // an event below zero, a period of zero or below
    notStored,    // a period that the rows' sums can't follow
  };
  Kind kind = Kind::undefined;
  PVBid timeplate = UNDEF;
  bool period = false;  // else the event
  int level = 0;
  int track = 0;
  int event = 0;
  std::string reason;
};
// `timeplate "tp1", track 2, event 1: column 3: ...`, counted from 1.
std::string timeVariableFaultText(int database, const TimeVariableFault& fault);

// Evaluates the expressions of every event of the open database's timeplates and the
// variables of their periods in the selected set of the selected sheet, and stores the
// times. 0; -2 when an expression failed, with a post for each, which leaves its time
// as it was. Marks the timeplates as changed when a time did change; after a changed
// period, which needs the pattern section, the sums of the rows are computed again.
int PVBtimeVariableUpdate(int database);
// The same with each failure told to `tell` in place of a post. What fails for other
// reasons than an expression still posts.
int PVBtimeVariableUpdate(int database,
                          const std::function<void(const TimeVariableFault& fault)>& tell);
