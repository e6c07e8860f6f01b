#pragma once

// The directory for temporary files: one choice for the process, "." until it
// is set. A choice that was locked stays until the lock is released; who has the
// last word (the environment or a parameter) is decided by who locks.

#include <string>
#include <string_view>

// Expands "%NAME%" references, keeps at most 255 characters and drops one
// trailing separator, except that of a root. An empty text stands for ".".
// Without effect while the choice is locked.
void PBsetTempDirectory(std::string_view directory);
void PBlockTempDirectory();
void PBunlockTempDirectory();
// Good until the next change of the choice.
const std::string& PBtempDirectory();

// A path in the temporary directory, `prefix` and a number of five digits or
// more ("mvk00042"), that was not there at the moment of the call and that this
// process gets once only.
std::string PBtempFileName(std::string_view prefix);
// Creates a file under such a name, of which no one else can have the same, and
// opens it for reading and writing: the descriptor, or -1 with errno set.
int PBcreateTempFile(std::string_view prefix, std::string& path);
