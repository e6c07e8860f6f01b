#pragma once

// A database put in the place of another one that it was made from. The new one is
// built in a directory beside the old one; then the two directories change places in one
// step, so that whoever looks finds the old database or the new one, whole, and a run
// that is killed leaves one of the two. Entries of the old directory that the new one
// doesn't have stay: files get a second name in the new directory before the exchange,
// sub-directories are moved after it.
//
// Where the file system can't exchange directories, two renames do: between them there
// is nothing under the path, and the old database is under PATH_old. Where a directory
// can't be renamed at all (it is the working directory, a mounted disk, or the other
// directory lies on another disk), the files are moved: first all of them beside the old
// ones, so that a failure leaves these whole, then each in its place. A run that is killed
// among the latter leaves a mixture, and the rest beside it with ".arriving" behind the names.
//
// Results are 0, or -2 after a post.

#include <string>

// Makes `newPath` an empty directory for the database that will replace the one at
// `path`. What a run that was killed has left there goes, or back to `path` where it
// came from.
int PVBreplacePrepare(const std::string& path, const std::string& newPath);
// Replaces the database at `path`; neither is open. `newPath` is gone afterwards.
int PVBreplace(const std::string& path, const std::string& newPath);
