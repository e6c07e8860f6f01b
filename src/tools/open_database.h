#pragma once

// Opens a database for reading, for the verbs.

#include <string>

#include "pvb/database.h"
#include "tools/message.h"

// An open database that is closed with its owner, nothing written.
class ReadDatabase {
 public:
  ReadDatabase() = default;
  ~ReadDatabase();
  ReadDatabase(const ReadDatabase&) = delete;
  ReadDatabase& operator=(const ReadDatabase&) = delete;

  // Loads all sections; false after a message.
  bool open(const std::string& path, const MessageSink& sink);
  int handle() const { return handle_; }

 private:
  int handle_ = -1;
};

// Whether there is a database; else a message.
bool requireDatabase(const std::string& path, const MessageSink& sink);
// The path without separators at its end.
std::string databasePath(std::string path);
