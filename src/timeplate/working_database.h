#pragma once

// The database that a pass over a whole database works on: the source, changed through a copy
// beside it (working_copy.h), or a destination that the source is copied over first. Whatever
// ends the record before it is closed leaves the source as it was.

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "timeplate/working_copy.h"

class WorkingDatabase {
 public:
  // Copies the source over the destination, if there is one, telling `report`, and opens what
  // is to be changed: its slot, or -1 after a push under the function's name (the source
  // doesn't exist, a copy or the opening fails).
  int open(std::string_view function, const std::string& source,
           const std::optional<std::string>& destination, FILE* report);
  // Once more, after closing: the same.
  int openAgain(std::string_view function);
  // Closes it, saving what wasn't yet, and puts it in its place: 0, or -2 after a post, with
  // the copy gone.
  int close();
  // Closes the copy unsaved and deletes it; a destination stays as it is.
  void discard();

  // Of the database itself, for messages.
  const std::string& path() const { return target_->path(); }

 private:
  int database_ = -1;
  std::optional<WorkingCopy> target_;
};
