// States, codes of the row data, P modes and tester families: tables and look-ups.

#include <array>

#include "base/text.h"
#include "pvb/timeplate.h"

namespace {

enum Level : int { kLow, kHigh, kUnknown, kHiZ, kSample, kComplement, kPrevious };
enum Direction : int { kExpect, kForce, kUnknownDirection, kMonitor, kFeedback };
constexpr int kNoState = -1;

struct State {
  char character;
  Direction direction;
  Level level;
  const char* text;
};

constexpr std::array<State, 32> kStates = {{
    {',', kExpect, kPrevious, "expect previous pattern"},
    {'.', kForce, kPrevious, "force previous pattern"},
    {'0', kUnknownDirection, kLow, "unknown direction low"},
    {'1', kUnknownDirection, kHigh, "unknown direction high"},
    {'?', kUnknownDirection, kUnknown, "unknown direction unknown level"},
    {'F', kUnknownDirection, kHiZ, "unknown direction hi-Z"},
    {'L', kExpect, kLow, "expect low"},
    {'H', kExpect, kHigh, "expect high"},
    {'X', kExpect, kUnknown, "expect unknown level"},
    {'T', kExpect, kHiZ, "expect hi-Z"},
    {'Q', kExpect, kSample, "expect sample"},
    {'R', kExpect, kComplement, "expect complement"},
    {'D', kForce, kLow, "force low"},
    {'U', kForce, kHigh, "force high"},
    {'N', kForce, kUnknown, "force unknown level"},
    {'Z', kForce, kHiZ, "force hi-Z"},
    {'S', kForce, kSample, "force sample"},
    {'C', kForce, kComplement, "force complement"},
    {'P', kForce, kPrevious, "force previous"},
    {'d', kMonitor, kLow, "monitor low"},
    {'u', kMonitor, kHigh, "monitor high"},
    {'n', kMonitor, kUnknown, "monitor unknown level"},
    {'z', kMonitor, kHiZ, "monitor hi-Z"},
    {'s', kMonitor, kSample, "monitor sample"},
    {'c', kMonitor, kComplement, "monitor complement"},
    {'p', kMonitor, kPrevious, "monitor previous"},
    {'l', kFeedback, kLow, "feedback low"},
    {'h', kFeedback, kHigh, "feedback high"},
    {'x', kFeedback, kUnknown, "feedback unknown level"},
    {'t', kFeedback, kHiZ, "feedback hi-Z"},
    {'q', kFeedback, kSample, "feedback sample"},
    {'r', kFeedback, kComplement, "feedback complement"},
}};

// From character to place in kStates.
constexpr std::array<int, 256> kStateIndex = [] {
  std::array<int, 256> index{};
  index.fill(kNoState);
  for (std::size_t i = 0; i < kStates.size(); ++i) {
    index[static_cast<unsigned char>(kStates[i].character)] = static_cast<int>(i);
  }
  return index;
}();

const State* findState(char state) {
  const int index = kStateIndex[static_cast<unsigned char>(state)];
  return index >= 0 ? &kStates[static_cast<std::size_t>(index)] : nullptr;
}

// Code c of the row data is character c; the first five are the plain ones.
constexpr std::string_view kCodes = "-01ZX?!*.";
constexpr std::size_t kPlainCodes = 5;

char codeCharacter(int code, std::size_t codes) {
  return code >= 0 && static_cast<std::size_t>(code) < codes
             ? kCodes[static_cast<std::size_t>(code)]
             : '?';
}

struct NamedMode {
  std::string_view name;
  std::int32_t mode;
};

constexpr std::array<NamedMode, 6> kModes = {{
    {"DONT_CARE", DONT_CARE},
    {"LAST_FORCE", LAST_FORCE},
    {"LAST_DRIVE", LAST_DRIVE},
    {"FORCE_OR_Z", FORCE_OR_Z},
    {"ADVANTEST", ADVANTEST},
    {"IMS", IMS},
}};

constexpr std::array<NamedMode, 26> kFamilies = {{
    {"advantest", ADVANTEST},       {"v93000", FORCE_OR_Z},
    {"agilent93000", FORCE_OR_Z},   {"agilent93000ait", FORCE_OR_Z},
    {"hp83000", FORCE_OR_Z},        {"its9000", FORCE_OR_Z},
    {"l200", FORCE_OR_Z},           {"ims", IMS},
    {"vista", LAST_DRIVE},          {"duo", LAST_DRIVE},
    {"quartet100", LAST_DRIVE},     {"a500", LAST_FORCE},
    {"a580", LAST_FORCE},           {"ando", LAST_FORCE},
    {"catalyst", LAST_FORCE},       {"j750", LAST_FORCE},
    {"j921", LAST_FORCE},           {"j971", LAST_FORCE},
    {"j973", LAST_FORCE},           {"sc212", LAST_FORCE},
    {"t6600", LAST_FORCE},          {"t6682", LAST_FORCE},
    {"j941_j967_j983", LAST_FORCE}, {"teradyne", LAST_FORCE},
    {"trillium", LAST_FORCE},       {"z8000", LAST_FORCE},
}};

template <std::size_t Size>
int findMode(const std::array<NamedMode, Size>& table, std::string_view name, std::int32_t& mode) {
  for (const NamedMode& row : table) {
    if (!PBstrEq(row.name, name)) continue;
    mode = row.mode;
    return 0;
  }
  return -2;
}

}  // namespace

const char* PVBstateText(char state) {
  const State* found = findState(state);
  return found != nullptr ? found->text : "ILLEGAL_SEF_STATE";
}

bool PVBstateValid(char state) { return findState(state) != nullptr; }

int PVBstateDirection(char state) {
  const State* found = findState(state);
  if (found == nullptr) return -1;
  switch (found->direction) {
    case kExpect:
      return 1;
    case kForce:
      return 0;
    default:
      return -1;
  }
}

int PVBstateLevel(char state) {
  const State* found = findState(state);
  return found != nullptr ? found->level : -1;
}

char PVBcodeCharacter(int code) { return codeCharacter(code, kCodes.size()); }

char PVBplainCodeCharacter(int code) { return codeCharacter(code, kPlainCodes); }

int PVBcharacterCode(char character) {
  const std::size_t code = kCodes.find(character);
  return code != std::string_view::npos ? static_cast<int>(code) : -1;
}

int PVBfamilyToMode(std::int32_t& mode, std::string_view family) {
  return findMode(kFamilies, family, mode);
}

int PVBmodeFromName(std::int32_t& mode, std::string_view text) {
  mode = LAST_FORCE;
  if (text.starts_with("P_") || text.starts_with("p_")) text.remove_prefix(2);
  return findMode(kModes, text, mode);
}
