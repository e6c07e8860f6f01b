#include "tools/open_database.h"

#include "base/errors.h"

namespace {

constexpr int kBuffers = 16;

}  // namespace

ReadDatabase::~ReadDatabase() {
  if (handle_ >= 0) PVBcloseUnsaved(handle_);
}

bool ReadDatabase::open(const std::string& path, const MessageSink& sink) {
  if (!requireDatabase(path, sink)) return false;
  handle_ = PVBopenAny(path, false, 0, kBuffers, kAllSections, false);
  const std::string reasons = takePostedReasons();
  if (handle_ >= 0) return true;
  sink(errorMessage(kCantOpenDatabase, "the database can't be opened: " + reasons, path));
  return false;
}

bool requireDatabase(const std::string& path, const MessageSink& sink) {
  if (PVBexists(path)) return true;
  sink(errorMessage(kNoDatabase, "there is no database here", path));
  return false;
}

std::string databasePath(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}
