#pragma once

// What add, cut and rename share: the choice of the working database, and its end. They
// work on a copy of the source: the destination, or, when that is the source itself, a
// database beside it whose name is the source's with "_" behind it and which takes the
// source's place at the end.

#include <string>
#include <string_view>

#include "conditioner/region.h"

// How the operations differ.
struct EditWords {
  std::string_view function;  // names the operation in messages
  std::string_view verb;      // "add"
  std::string_view doing;     // "adding"
  // Whether a failed copy to a destination that wasn't there is a failure of the
  // operation. All others are failed checks.
  bool failsWithNewCopy;
};

struct EditTarget {
  PVBregion beside;              // of an edit in place
  PVBregion* working = nullptr;  // `beside` or the destination
  const PVBregion* src = nullptr;

  bool inPlace() const { return working == &beside; }
  int database() const { return working->pvbHandle; }
  const std::string& path() const { return working->pvbName; }
};

// Announces the operation, copies the source, opens the copy for change and starts the
// progress. The regions must outlive `target`. 0, or -2 after a push.
int openEditTarget(const EditWords& words, PVBregion& dest, PVBregion& src, EditTarget& target);
// Ends the progress, forms buses, saves and closes the working database, and puts it in
// the source's place. A failure ends the run.
void closeEditTarget(const EditWords& words, EditTarget& target);
