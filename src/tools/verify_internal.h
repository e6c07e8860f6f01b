#pragma once

// The parts of the verification. Each looks at the files of one matter in a
// database that is open for reading.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "pvb/database.h"
#include "tools/verify.h"

class Verification {
 public:
  Verification(std::string path, const MessageSink& sink) : path_(std::move(path)), sink_(sink) {}

  const std::string& path() const { return path_; }
  const VerifyCounts& counts() const { return counts_; }
  // `file` is the name within the directory; `place` may be empty.
  void fault(MessageCode code, std::string_view file, std::string place, std::string text);
  void note(MessageCode code, std::string_view file, std::string place, std::string text);

 private:
  void tell(Severity severity, MessageCode code, std::string_view file, std::string place,
            std::string text);

  std::string path_;
  const MessageSink& sink_;
  VerifyCounts counts_;
};

// What is counted while the owners of property lists are met.
class PropertyCheck {
 public:
  PropertyCheck(Verification& verification, int database);
  // A record names a list: it must be there, whole, and no one else's.
  void own(PVBid list, std::string_view file, const std::string& place);
  // Tells lists that no one named.
  void finish();

 private:
  void records(PVBid list);

  Verification& verification_;
  int database_;
  std::vector<bool> owned_;
};

// Header, containers and page files, before anything is opened.
void verifyFiles(Verification& verification);
// Whether the equation data can be read.
void verifyEquations(Verification& verification);
// Header and free list of a block file; null handle for what isn't open.
void verifyBlockFile(Verification& verification, std::string_view name, int handle);
// Signals, timeplates and pins: lists, columns.
void verifyLists(Verification& verification, int database, PropertyCheck& properties);
// Patterns: trees, rows, runs.
void verifyPatterns(Verification& verification, int database, PropertyCheck& properties,
                    bool quiet);
void verifyLabels(Verification& verification, int database);
