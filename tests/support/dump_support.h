#pragma once

// Databases built from texts and dumped again, in a directory of the test's own.

#include <string>
#include <string_view>
#include <vector>

#include "base/temp_directory.h"
#include "pvb/database.h"
#include "support/temp_dir.h"
#include "support/untouched.h"
#include "tools/build.h"
#include "tools/dump.h"
#include "tools/open_database.h"

class DumpDirectory {
 public:
  DumpDirectory() { PBsetTempDirectory(dir_.path()); }
  ~DumpDirectory() { PBsetTempDirectory(""); }

  // Whether the text makes a database; the messages are kept.
  bool build(std::string_view text, const std::string& name = "db") {
    messages_.clear();
    DumpScanner in(PBopenMemoryText(text, "text", false), "text", keep());
    return buildDatabase(in, path(name));
  }
  std::string dump(const std::string& name = "db") {
    const Untouched untouched(path(name));
    std::string text;
    ReadDatabase database;
    if (!database.open(path(name), keep())) return "can't be opened: " + firstMessage();
    TextSink out([&](std::string_view piece) {
      text += piece;
      return true;
    });
    return dumpDatabase(database.handle(), out, keep()) ? text : "failed: " + firstMessage();
  }

  std::string path(const std::string& name = "db") const { return dir_.path(name); }
  const TempDir& directory() const { return dir_; }
  const std::vector<Message>& messages() const { return messages_; }
  // "LINE:COLUMN PVB0123 text" of the first message.
  std::string firstMessage() const {
    if (messages_.empty()) return "";
    const Message& message = messages_.front();
    return std::to_string(message.line) + ":" + std::to_string(message.column) + " " +
           messageCodeText(message.code) + " " + message.text;
  }

 private:
  MessageSink keep() {
    return [this](const Message& message) { messages_.push_back(message); };
  }

  TempDir dir_;
  std::vector<Message> messages_;
};
