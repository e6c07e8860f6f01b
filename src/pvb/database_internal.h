#pragma once

// What the sources of the database module share: the header file, and the table of
// sections with the orders in which they are loaded, saved and closed.

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "pvb/database.h"

// Reads "pvb.h" at `path`: 1, 0 for another host, or -1 after a post.
int ReadPVBheader(const std::string& path, bool strict, PVBheader& header);
// 0, or -2 after a post; the old file stands when it fails.
int WritePVBheader(const std::string& path, const PVBheader& header);

// Whether the directory of a database is there, made if need be; errno on failure.
bool haveDirectory(const std::string& path);

// What a close has to write.
enum class CloseMode { save, unsaved };

// One section: its bit, its files, and what opens, saves and closes it.
struct SectionRow {
  std::uint32_t bit;       // marks it as loaded
  std::uint32_t openedBy;  // bits of the mask that ask for it
  std::span<const std::string_view> files;
  int (*open)(PVBdatabase& slot, int database);
  int (*save)(int database, const std::string& directory);
  int (*close)(int database, CloseMode mode);
  bool (*changed)(const PVBdatabase& slot);
};

// The sections in the order of a load, a save or a close.
using SectionOrder = std::span<const SectionRow* const>;
SectionOrder loadOrder();
SectionOrder saveOrder();
SectionOrder closeOrder();

// Loads the sections of the mask that aren't loaded yet. 0 or -2.
int loadSections(int database, std::uint32_t mask);
// Gives up a slot whose opening failed: nothing more is written.
void abandonSlot(int database);
// Closes the sections of a slot in use. 0 or -2; every one is closed.
int closeSections(PVBdatabase& slot, int database, CloseMode mode);
