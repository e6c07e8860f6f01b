#pragma once

// A database that is changed where it is, without harm to it on the way: the work is done in
// a copy beside it, PATH.working, that takes its place in one step when it is closed. So a
// run that is killed leaves the database as it was, or as it was last closed; the copy that
// it may leave too goes with the next run. What isn't put in place goes when the record does.
//
// Where there can be nothing beside it (its directory is read-only), or it is the working
// directory, which a shell stands in, the database itself is opened.

#include <string>
#include <string_view>

class WorkingCopy {
 public:
  // Without `beside` the database itself is opened: it was made for this work.
  WorkingCopy(std::string path, bool beside) : path_(std::move(path)), beside_(beside) {}
  ~WorkingCopy() { discard(); }
  WorkingCopy(const WorkingCopy&) = delete;
  WorkingCopy& operator=(const WorkingCopy&) = delete;

  // Makes the copy and opens it, one that is still open is given again: its slot, or -1 after
  // a push under the function's name.
  int open(std::string_view function);
  // Puts the copy, closed by now, in place. 0, or -2 after a post.
  int putInPlace();
  // Closes the copy unsaved and deletes it. What was posted of its files names those of the
  // database.
  void discard();

  const std::string& path() const { return path_; }

 private:
  bool makeCopy();

  std::string path_;
  std::string copy_;  // empty: there is none
  bool beside_;
};
