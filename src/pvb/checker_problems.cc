// The problems, and the texts of what their findings name.

#include <fmt/format.h>

#include <array>

#include "pvb/checker_internal.h"
#include "pvb/pattern.h"
#include "pvb/signal.h"

namespace {

constexpr ProblemClass kError = ProblemClass::error;
constexpr ProblemClass kWarning = ProblemClass::warning;

// By number. The texts are read by programs: their misspellings are kept on purpose.
constexpr std::array<PVBproblem, kProblemCount> kProblems = {{
    {kWarning, "unnecessary output",
     "signal @4 has unnecessary output pattern data in pattern row @2 in @1"},  // 0
    {kWarning, "unnecessary input",
     "signal @4 has unnecessary input pattern data in pattern row @2 in @1"},  // 1
    {kWarning, "unnecessary data",
     "signal @4 has unnecessary input and output pattern data in pattern row @2 in @1"},  // 2
    {kWarning, "unnecessary data",
     "signal @4 has unnecessary pattern data in column @3, pattern row @2 in @1"},  // 3
    {kError, "missing input",
     "signal @4 is missing input pattern data in pattern row @2 in @1"},  // 4
    {kError, "missing output",
     "signal @4 is missing output pattern data in pattern row @2 in @1"},  // 5
    {kError, "missing data",
     "signal @4 is missing input and output pattern data in pattern row @2 in @1"},  // 6
    {kError, "missing data",
     "signal @4 is missing pattern data in column @3, in pattern row @2 in @1"},  // 7
    {kError, "missing track selector",
     "signal @3 is missing a track selector in pattern row @2 in @1, timing is ambiguous"},  // 8
    {kWarning, "data in wrong column",
     "signal @4 may have data in the wrong column in pattern row @2 in @1: expecting output "
     "pattern data but found input pattern data (X or Z)"},  // 9
    {kWarning, "data in wrong column",
     "signal @4 may have data in the wrong column in pattern row @2 in @1: expecting input pattern "
     "data but found output pattern data (X or Z)"},  // 10
    {kError, "slot has bad column",
     "signal @4 in slot @2 of timeplate @1 does not have pattern column @3"},  // 11
    {kError, "bus contention",
     "signal @4 has possible bus contention in pattern row @2 in @1: both input and output pattern "
     "data appear, but separate tracks are used"},                                        // 12
    {kError, "extra slot for signal", "signal @3 is in too many slots in timeplate @1"},  // 13
    {kError, "duplicate track selector",
     "signal @3 is associated with track selector '@2' more than once in timeplate @1"},     // 14
    {kWarning, "no patterns", "there are no pattern rows in @1"},                            // 15
    {kError, "signal needs input slot", "signal @2 needs an input slot in timeplate @1"},    // 16
    {kError, "signal needs output slot", "signal @2 needs an output slot in timeplate @1"},  // 17
    {kError, "bidir signal needs slot",
     "bidirectional signal @2 needs a slot in timeplate @1"},                            // 18
    {kError, "signal needs slot", "signal @2 needs a slot in timeplate @1"},             // 19
    {kError, "no timeplate for row", "pattern row @2 in @1 has no timeplate assigned"},  // 20
    {kWarning, "no timeplates", "there are no timeplates in the database"},              // 21
    {
        kWarning, "P not first event",
        "there is a P state in slot @2 (signal @3, @4) in timeplate @1 that is not the first "
        "state"},                                                                // 22
    {kError, "signal in wrong group", "signal @2 does not belong in group @1"},  // 23
    {kError, "signal not in ALL", "signal @1 is not in group ALL"},              // 24
    {kError, "signal not in ALLBIDIR", "signal @1 is not in group ALLBIDIR"},    // 25
    {kError, "signal not in ALLINPUT", "signal @1 is not in group ALLINPUT"},    // 26
    {kError, "signal not in ALLOUTPUT", "signal @1 is not in group ALLOUTPUT"},  // 27
    {kError, "slot: no signals/states",
     "slot @2 in timeplate @1 has no signals and no states"},                                 // 28
    {kError, "slot has no signals", "slot @2 in timeplate @1 has no signals"},                // 29
    {kError, "slot has no states", "slot @2 (signal @3, @4) in timeplate @1 has no states"},  // 30
    {kError, "wrong direction state",
     "slot @2 (signal @3, @4) in timeplate @1 has an incorrect direction state"},  // 31
    {kError, "wrong slot for signal",
     "slot @2 (signal @4, @5) in timeplate @1 is the wrong direction for signal @3"},    // 32
    {kError, "mixed direction bus", "direction of bus @1 is different from member @2"},  // 33
    {kWarning, "redundant times in slot",
     "redundant times in slot @2 (signal @3, @4) in timplate @1"},  // 34
    {kError, "decreasing times in slot",
     "times out of order in slot @2 (signal @3, @4) in timeplate @1"},  // 35
    {kWarning, "unused subroutine", "subroutine @1 is unused"},         // 36
    {kError, "group member invalid class",
     "member of group @1 (@2) is in wrong type of group"},  // 37
    {kError, "scan run type not defined",
     "pattern row @2 in @1 has scan run with undefined type"},  // 38
    {kError, "missing scan chain",
     "pattern row @2 in @1 has scan run with nonexistent scan chain"},  // 39
    {kError, "missing state vector",
     "pattern row @2 in @1 has scan run with nonexistent state vector"},  // 40
    {kError, "wrong scan run type",
     "scan run in pattern row @2 in @1 has type conflict with chain edge signal(s)"},         // 41
    {kError, "missing sample", "signal @4 is missing sample state in pattern row @2 in @1"},  // 42
    {kError, "empty scan pattern row", "pattern row @2 in @1 has no scan runs"},              // 43
    {kWarning, "conflicting scan runs", "pattern row @2 in @1 has conflicting scan runs"},    // 44
    {kError, "unused sample",
     "signal @4 has sample state but is not used in scan pattern row @2 in @1"},      // 45
    {kWarning, "duplicate atename", "signal @1 and signal @2 have same atename"},     // 46
    {kWarning, "unused timeplate", "timeplate @1 is unused"},                         // 47
    {kWarning, "unused track", "slot @1 (signal @2, @3) in timeplate @4 is unused"},  // 48
    {kError, "data in wrong column",
     "signal @4 has data in the wrong column in pattern row @2 in @1: expecting output pattern "
     "data but found input pattern data (0 or 1)"},  // 49
    {kError, "data in wrong column",
     "signal @4 has data in the wrong column in pattern row @2 in @1: expecting input pattern data "
     "but found output pattern data (0 or 1)"},  // 50
    {kWarning, "X value in input Scan chain",
     "scan cell @3 in scan chain @4 referenced in scan pattern row @2 in @1 contains an X pattern "
     "character"},  // 51
    {kError, "equation period not positive",
     "timeplate @1 has period variable that evalutes to negative TIME"},  // 52
    {kError, "period variable not defined",
     "timeplate @1 has period variable that is undefined"},  // 53
    {kError, "equation event is not positive",
     "event number @1 in track number @2 of timeplate @3 has variable that evaluates to negative "
     "TIME"},  // 54
    {
        kError, "equation event is not increasing",
        "event number @1 in track number @2 of timeplate @3 is not greater than previous event "
        "time"},  // 55
    {kError, "equation event is not defined",
     "event number @1 in track number @2 of timeplate @3 has undefined variable"},  // 56
    {kError, "tg equation event is not positive",
     "event number @1 in timing generator @2 has variable that evaluates to negative TIME"},  // 57
    {kError, "tg variable is not defined",
     "event number @1 in timing generator @2 has undefined variable"},  // 58
    {kError, "tg rep period is not positive",
     "repeat period in timing generator @2 has variable that evalutes to negative TIME"},  // 59
    {kError, "tg rep period variable is not defined",
     "repeat period in timing generator @2 has undefined variable"},  // 60
    {kError, "unknown PVBid", "unknown PVBid of @1@2"},               // 61
}};

std::string nameOr(const std::optional<std::string>& name, std::int64_t number) {
  return name && !name->empty() ? *name : fmt::format("#{}", number);
}

std::string objectName(int database, PVBid id) {
  const PVBsignal* object = PVBobjectInqByID(database, id);
  return object != nullptr ? nameOr(object->name, id) : fmt::format("#{}", id);
}

std::string timePlateName(int database, PVBid id) {
  const PVBtimePlate* plate = PVBtimePlateInqByID(database, id);
  return plate != nullptr ? nameOr(plate->name, id) : fmt::format("#{}", id);
}

std::string patternName(int database, int pattern) {
  if (pattern == kMainPattern) return "main pattern";
  const std::string_view name = PVBsubroutineName(database, pattern);
  return name.empty() ? fmt::format("#{}", pattern) : std::string(name);
}

std::string itemText(int database, const PVBmessageItem& item) {
  const auto id = static_cast<PVBid>(item.number);
  switch (item.kind) {
    case noItem:
      return "";
    case tpItem:
      return timePlateName(database, id);
    case subrItem:
      return patternName(database, id);
    case sigItem:
      return objectName(database, id);
    case stringItem:
      return item.text.value_or("");
    default:
      return fmt::format("{}", item.number);
  }
}

}  // namespace

const PVBproblem* PVBproblemByNumber(std::int32_t number) {
  const bool known = number >= 0 && number < kProblemCount;
  return known ? &kProblems[static_cast<std::size_t>(number)] : nullptr;
}

std::string PVBfindingText(int database, const PVBmessageHeading& heading,
                           const std::vector<PVBmessageItem>& items) {
  std::string out;
  const std::string& text = heading.text;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool place =
        text[i] == '@' && i + 1 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '5';
    if (!place) {
      out += text[i];
      continue;
    }
    const auto item = static_cast<std::size_t>(text[++i] - '1');
    if (item < items.size()) out += itemText(database, items[item]);
  }
  return out;
}
