#pragma once

// The destination of a verb that makes a database: the new one grows in a directory of
// its own beside the final one and is renamed when it is whole. What is there already
// gives way only when it may, and comes back when the new one can't take its place. A
// run that is killed leaves nothing under the final name; the directory it leaves beside
// is in nobody's way.

#include <string>

// Whether nothing stands under the final name, or a database that `force` lets go. False
// after a message.
bool mayReplace(const std::string& path, bool force);
// Removes a directory and the files in it; not those of directories in it.
bool removeDatabaseDirectory(const std::string& path);

class NewDatabase {
 public:
  explicit NewDatabase(const std::string& path);
  // Removes what hasn't been put in place.
  ~NewDatabase();
  NewDatabase(const NewDatabase&) = delete;
  NewDatabase& operator=(const NewDatabase&) = delete;

  // Whether a directory can be made there. False with errno.
  bool canBeMade() const;
  // Where it grows; nothing is there at first.
  const std::string& directory() const { return directory_; }
  // Gives it its name. False with errno: whatever stood there still does.
  bool putInPlace();

 private:
  std::string path_;
  std::string directory_;
};
