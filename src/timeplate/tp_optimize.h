#pragma once

// Takes timing out of a database that it doesn't need: simplifies clock shapes, deletes
// the tracks and timeplates that no row uses, and folds timeplates that do the same into
// one, whose id all rows then have. What is used is what the checker says.
//
// The work is done on the database where it is, or on a destination that it is copied over
// first. With clock shapes the database is saved and closed in the middle: a run that fails or
// is killed leaves it as it was before, as it was then (clocks are simplified, nothing is
// deleted), or as it is to be, and sound in each case; see working_copy.h. A checker that names a
// timeplate which isn't there ends the process abnormally: nothing that it said can then be
// trusted.

#include <cstdio>
#include <optional>
#include <string>

struct TpOptimizations {
  bool deleteDuplicates = false;
  bool deleteUnusedTps = false;
  bool deleteUnusedTracks = false;
  bool annotateRows = false;  // rows get the name of their timeplate as a comment
  bool clockShapes = false;
};

// `source` and `destination` are the paths of databases; no source is a failure, no
// destination isn't. What is done is told to `report` and, shorter, to standard error.
// 0, or -2 after a push; 0 as well when the result can't be saved at the end.
int tpOptimize(const std::optional<std::string>& source,
               const std::optional<std::string>& destination, const TpOptimizations& wanted,
               FILE* report);
