#include "tools/open_database.h"

#include <fmt/format.h>

#include "base/errors.h"

namespace {

constexpr int kBuffers = 16;

void tell(const MessageSink& sink, MessageCode code, const std::string& path, std::string text) {
  Message message;
  message.code = code;
  message.file = path;
  message.text = std::move(text);
  sink(message);
}

}  // namespace

ReadDatabase::~ReadDatabase() {
  if (handle_ >= 0) PVBcloseUnsaved(handle_);
}

bool ReadDatabase::open(const std::string& path, const MessageSink& sink) {
  if (!requireDatabase(path, sink)) return false;
  handle_ = PVBopenAny(path, false, 0, kBuffers, kAllSections, false);
  const std::string reasons = takePostedReasons();
  if (handle_ >= 0) return true;
  tell(sink, kCantOpenDatabase, path, fmt::format("the database can't be opened: {}", reasons));
  return false;
}

bool requireDatabase(const std::string& path, const MessageSink& sink) {
  if (PVBexists(path)) return true;
  tell(sink, kNoDatabase, path, "there is no database here");
  return false;
}

std::string databasePath(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}
