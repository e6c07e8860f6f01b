#include "timeplate/rename_settings.h"

#include <algorithm>

#include "base/errors.h"
#include "base/text.h"

TpRenameSettings tpRenameSettings;

namespace {

enum Message { kUnknownMode = 0, kEmptyValue = 1, kFreeText = 2 };

constexpr std::size_t kMostIndexDigits = 9;

bool isIndex(std::string_view text) {
  return text.size() <= kMostIndexDigits &&
         std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

bool refuse(Message message, std::string_view argument) {
  PBerrPush(tpRenameError, message, argument);
  return false;
}

bool setAutoIndex(std::string_view startIndex, std::string_view prefix) {
  tpRenameSettings.tpRenameMode = TpRenameMode::autoIndex;
  if (prefix.empty()) return refuse(kEmptyValue, "tpRenamePrefix");
  // The slot in this text stays as it is: the message carries it on purpose.
  if (!isIndex(startIndex)) {
    return refuse(kFreeText, "tpRenameStartIndex (%s) is not a valid integer");
  }
  tpRenameSettings.tpRenamePrefix = prefix;
  tpRenameSettings.tpRenameStartIndex = PBtextToInt(startIndex);
  return true;
}

bool setStringReplace(std::string_view search, std::string_view replace) {
  tpRenameSettings.tpRenameMode = TpRenameMode::stringReplace;
  if (search.empty()) return refuse(kEmptyValue, "tpRenameSearchStr");
  tpRenameSettings.tpRenameSearchStr = search;
  tpRenameSettings.tpRenameReplaceStr = replace;
  return true;
}

}  // namespace

bool tpRenameSetParams(std::string_view mode, std::string_view startIndex, std::string_view prefix,
                       std::string_view search, std::string_view replace) {
  if (PBstrEq(mode, "AUTO_INDEX")) return setAutoIndex(startIndex, prefix);
  if (PBstrEq(mode, "STRING_REPLACE")) return setStringReplace(search, replace);
  return refuse(kUnknownMode, mode);
}
