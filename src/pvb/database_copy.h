#pragma once

// Whole databases duplicated by their files. Nothing here opens a database: what is
// open under one of the paths is closed by the caller first.

#include <cstdio>
#include <string>

// Makes `destPath` a copy of `srcPath` in all its files and tells `reportStream`; a
// database that stands there is deleted first. False after a message: the two are one
// directory, the old database can't be deleted, or a file can't be copied.
bool copySrcToDstPVB(const std::string& srcPath, const std::string& destPath, FILE* reportStream);

// Gives a database the header file of another one whose rows it holds. It becomes the
// other's byte for byte as long as the words that point into files (main root, row
// width, property list) are right for the files beside it; else these words stay what
// they are. 0, or -2 (a file can't be read or written): the old header stands.
int PVBadoptHeader(const std::string& toPath, const std::string& fromPath);
