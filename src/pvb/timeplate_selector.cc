// Track selector characters: picking a free one, encoding one, and the selector
// entries of a wave.

#include <algorithm>
#include <array>

#include "pvb/timeplate.h"

namespace {

constexpr int kFree = -1;
constexpr std::size_t kNarrowCharacters = 62;  // letters and digits
constexpr std::size_t kWideCharacters = 256;

// The characters that suit a row state, and the first of all while a plate has no
// tables. Row 0 is for the states without a class of their own; its characters serve
// signals without direction.
struct SelectorClass {
  std::string_view preferred;
  char first;
};
constexpr std::array<SelectorClass, 5> kClasses = {{
    {"23456789ACEFGJKMPQRSVWYacefgjkmpqrsvwyBbDdIiHhLlOoNnTtUuXxZz01", '2'},
    {"0LlDd", '0'},
    {"1HhUu", '1'},
    {"ZzTt", 'Z'},
    {"XxNn", 'X'},
}};

// By direction: input, output, bidirectional.
constexpr std::array<std::string_view, 3> kAlphabets = {
    "iI23456789ACEFGJKMPQRSVWYacefgjkmpqrsvwyBbDdHhLlOoNnTtUuXxZz01"
    "!#%()+,./:;=>?@[]^_{|}~$&'\"*\\`-",
    "oO23456789ACEFGJKMPQRSVWYacefgjkmpqrsvwyBbDdIiHhLlNnTtUuXxZz01"
    "!#%()+,./:;=>?@[]^_{|}~$&'\"*\\`-",
    "bB23456789ACEFGJKMPQRSVWYacefgjkmpqrsvwyDdIiHhLlOoNnTtUuXxZz01"
    "!#%()+,./:;=>?@[]^_{|}~$&'\"*\\`-",
};

constexpr std::string_view kEncoding =
    "0123456789ACEFGJKMPQRSVWYacefgjkmpqrsvwyBbDdIiHhLlOoNnTtUuXxZz"
    "!#%()+,./:;=>?@[]^_{|}~$&'\"*\\`-";
constexpr double kEncodings = kEncoding.size();

// A slot without a table has all characters free.
char firstFree(const std::optional<PVBselectorTable>& table, std::string_view characters) {
  for (const char c : characters) {
    if (!table || (*table)[static_cast<unsigned char>(c)] == kFree) return c;
  }
  return 0;
}

// Types and states of a wave's entries that a row state can select.
constexpr std::int32_t kRowEntry = 1;
constexpr std::array<std::int32_t, 5> kRowStates = {1, 2, 4, 3, 0};

std::size_t entryCount(const PVBtrack& wave) {
  const auto& [characters, types, states] = wave.selectorLists;
  return std::min({characters.size(), types.size(), states.size()});
}

}  // namespace

char PVBtrackSelectorPick(const PVBtimePlate& plate, int slot, int direction, int state,
                          bool narrow) {
  const bool hasClass = state >= 1 && state <= 4;
  const SelectorClass& suited = kClasses[hasClass ? static_cast<std::size_t>(state) : 0];
  if (plate.selectorTables.empty()) return suited.first;
  if (slot < 0 || static_cast<std::size_t>(slot) >= plate.selectorTables.size()) return 0;

  const auto& table = plate.selectorTables[static_cast<std::size_t>(slot)];
  if (hasClass) {
    if (const char found = firstFree(table, suited.preferred)) return found;
  }
  const std::string_view alphabet = direction >= 0 && direction <= 2
                                        ? kAlphabets[static_cast<std::size_t>(direction)]
                                        : kClasses[0].preferred;
  return firstFree(table, alphabet.substr(0, narrow ? kNarrowCharacters : kWideCharacters));
}

char PVBtrackSelectorEncode(const std::uint8_t* digits, int count) {
  double value = 0;
  double weight = 1;
  for (int i = 0; i < count && value < kEncodings; ++i) {
    if (digits[i] != 0) value += digits[i] * weight;
    weight *= 3;
  }
  return value < kEncodings ? kEncoding[static_cast<std::size_t>(value)] : '-';
}

std::string PVBwaveSelectors(const PVBtrack& wave) {
  const auto& [characters, types, states] = wave.selectorLists;
  const std::size_t entries = entryCount(wave);
  std::string text;
  for (const std::int32_t state : kRowStates) {
    for (std::size_t i = 0; i < entries; ++i) {
      if (types[i] == kRowEntry && states[i] == state) {
        text.push_back(static_cast<char>(characters[i]));
      }
    }
  }
  return text;
}

void PVBwaveSetSelector(PVBtrack& wave, char selector, std::int32_t type, std::int32_t state) {
  auto& [characters, types, states] = wave.selectorLists;
  const auto value = static_cast<unsigned char>(selector);
  const std::size_t entries = entryCount(wave);
  for (std::size_t i = 0; i < entries; ++i) {
    if (types[i] != type || states[i] != state) continue;
    characters[i] = value;
    return;
  }
  for (PVBintList& list : wave.selectorLists) list.resize(entries);
  characters.push_back(value);
  types.push_back(type);
  states.push_back(state);
}
