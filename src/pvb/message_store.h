#pragma once

// The findings of a database check, kept with the database: headings in "pvb.m"
// and their items in "pvb.mt", both text (layout in message_store.cc). A database
// without the files has no findings. Failures are posted with the codes of files:
// 81 open, 85 write, 87 bad format.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pvb/id.h"

// One item of a finding: its kind (a number of the checker's) and what it names,
// as a number and, for texts, a text.
struct PVBmessageItem {
  std::int32_t kind = 0;
  std::int64_t number = 0;
  std::optional<std::string> text;
};

struct PVBmessageHeading {
  std::int32_t number = 0;  // of the problem
  std::string shortName;
  std::string text;
  std::int32_t itemCount = 0;  // items that each finding carries
  std::int32_t limit = 0;
  std::vector<std::vector<PVBmessageItem>> findings;
};

struct PVBmessageData {
  std::vector<PVBmessageHeading> headings;  // in order of storing
  bool changed = false;
};

int PVBmessagesOpen(int database);
int PVBmessagesSave(int database, const std::string& directory);
int PVBmessagesClose(int database);

void PVBmessagesClear(int database);
// Makes a new heading the current one.
int PVBmessageHeadingAdd(int database, std::int32_t number, std::string_view shortName,
                         std::string_view text, std::int32_t itemCount, std::int32_t limit);
// Adds a finding to the current heading; one beyond its limit is dropped.
int PVBmessageAdd(int database, std::vector<PVBmessageItem> items);
// Adds to the heading of a problem's number.
int PVBmessageAddTo(int database, std::int32_t number, std::vector<PVBmessageItem> items);
const std::vector<PVBmessageHeading>& PVBmessages(int database);
