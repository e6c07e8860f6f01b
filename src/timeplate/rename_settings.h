#pragma once

// What a timeplate rename does, as the parameters say. The settings are
// process-wide: fixed when the parameters or an operation file row are read, and
// used when the rename runs.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

enum class TpRenameMode { autoIndex = 0, stringReplace = 1 };

struct TpRenameSettings {
  TpRenameMode tpRenameMode = TpRenameMode::autoIndex;
  std::string tpRenamePrefix;
  std::int32_t tpRenameStartIndex = 0;
  std::string tpRenameSearchStr;
  std::string tpRenameReplaceStr;  // empty: the found text is deleted
};
extern TpRenameSettings tpRenameSettings;

// Takes over the raw texts of the five parameters. False after pushing a row of
// tpRenameError when they can't be used.
bool tpRenameSetParams(std::string_view mode, std::string_view startIndex, std::string_view prefix,
                       std::string_view search, std::string_view replace);
