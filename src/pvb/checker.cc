#include "pvb/checker.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "base/debug_token.h"
#include "base/errors.h"
#include "pvb/checker_internal.h"

namespace {

constexpr const char* kDebugToken = "checker";
constexpr std::size_t kMaxSignals = 16384;
constexpr std::int32_t kHeadingLimit = 0x7FFFFFFF;
constexpr std::uint32_t kNeededSections = kSectionProperties | kSectionPins | kSectionSignals |
                                          kSectionTimePlates | kSectionPatterns | kSectionMessages |
                                          kSectionScan;
constexpr std::string_view kRelaxedFamily = "VTMX";

// Set by the program, for all checks of the process.
struct Installed {
  PVBstateObserver observer;
  PVBtimeUpdate update;
} installed;

// The steps of a check, with the names under which they are traced.
struct Step {
  const char* name;
  bool (*run)(Check& check);
};
constexpr std::array<Step, 5> kSteps = {{
    {"signalsNotInGroupAll", signalsNotInGroupAll},
    {"checkPinUniqueness", checkPinUniqueness},
    {"groupContentsValid", groupContentsValid},
    {"checkTimePlates", checkTimePlates},
    {"checkPatterns", checkPatterns},
}};

int fail(const char* text) {
  errno = 0;
  PBpostError("PVBcheck", 0, text);
  return -2;
}
int corrupt() { return fail("corrupt data detected"); }

bool openSections(int database) {
  const PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return false;
  if ((slot->sectionsOpen & kNeededSections) == kNeededSections) return true;
  const std::string path = slot->path;
  return PVBopenAny(path, slot->writable, slot->rowWidth, slot->numBuffers, kNeededSections,
                    false) == database;
}

// The family of the database's tester stands in its timeplates: the first that has one.
bool isRelaxedFamily(int database) {
  for (const PVBid id : PVBtimePlateInqAll(database)) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(database, id);
    if (plate != nullptr && plate->family) return *plate->family == kRelaxedFamily;
  }
  return false;
}

bool implicitGroupsThere(int database) {
  const std::array<PVBid, 5> groups = {kGroupAll, kGroupAllInput, kGroupAllOutput, kGroupAllBidir,
                                       kGroupAllMux};
  return std::all_of(groups.begin(), groups.end(),
                     [&](PVBid id) { return PVBsignalInqByID(database, id) != nullptr; });
}

// False when a member of "ALL" names nothing.
bool listAll(Check& check) {
  const PVBidList members = PVBsignalInqByID(check.database, kGroupAll)->members;
  for (const PVBid id : members) {
    if (PVBsignalInqByID(check.database, id) == nullptr) return false;
  }
  for (const PVBid id : PVBsignalListToScalars(check.database, members)) {
    const PVBsignal* record = PVBsignalInqByID(check.database, id);
    if (record == nullptr) return false;
    const auto place = static_cast<std::int32_t>(check.signals.size());
    if (check.places.emplace(id, place).second) check.signals.push_back({id, record});
  }
  return true;
}

void clearFindings(Check& check) {
  PVBmessagesClear(check.database);
  *check.counts = PVBstatus();
  check.counts->timingErrors = 0;
  check.counts->timingWarnings = 0;
}

int runSteps(Check& check) {
  clearFindings(check);
  for (const Step& step : kSteps) {
    DebugPrintf(kDebugToken, "%s\n", step.name);
    if (step.run(check)) return corrupt();
  }
  return 0;
}

bool isUnchecked(const PVBstatus& counts) {
  return counts.patternErrors == -1 && counts.timingErrors == -1 && counts.patternWarnings == -1 &&
         counts.timingWarnings == -1;
}

int printStored(int database, FILE* stream) {
  const PVBstatus* counts = PVBcheckCounts(database);
  if (counts == nullptr) return corrupt();
  if (isUnchecked(*counts)) return PVBcheck(database, true, true, stream, 0);
  return PVBreportCheckMessages(database, stream);
}

// --- Recording -----------------------------------------------------------------------

std::int32_t& counterOf(Check& check, ProblemClass problemClass) {
  const bool error = problemClass == ProblemClass::error;
  if (check.phase == CheckPhase::timing) {
    return error ? check.counts->timingErrors : check.counts->timingWarnings;
  }
  return error ? check.counts->patternErrors : check.counts->patternWarnings;
}

void addOne(std::int32_t& counter) {
  if (counter < std::numeric_limits<std::int32_t>::max()) ++counter;
}

// The timeplates and tracks that are unused are few, and who asks for them needs all.
std::int32_t limitOf(const Check& check, int number) {
  const bool byRow =
      check.phase == CheckPhase::patterns && number != kUnusedTimePlate && number != kUnusedTrack;
  return byRow ? std::min(check.limit, kMostRowFindings) : check.limit;
}

bool record(Check& check, int number, std::initializer_list<PVBmessageItem> items) {
  const PVBproblem& problem = *PVBproblemByNumber(number);
  addOne(counterOf(check, problem.problemClass));
  std::int32_t& count = check.found[static_cast<std::size_t>(number)];
  addOne(count);
  const auto itemCount = static_cast<std::int32_t>(items.size());
  if (count == 1 && PVBmessageHeadingAdd(check.database, number, problem.shortName, problem.text,
                                         itemCount, kHeadingLimit) != 0) {
    return true;
  }
  if (count > limitOf(check, number)) return false;
  return PVBmessageAddTo(check.database, number, items) != 0;
}

// A count of the summary with its words.
std::string countLine(std::int32_t count, const char* what, const char* where) {
  const std::string number = count < 0    ? "unknown number of"
                             : count == 0 ? "no"
                                          : std::to_string(count);
  return fmt::format("{} {}{} in {}\n", number, what, count == 1 ? "" : "s", where);
}

}  // namespace

bool prob0(Check& check, int number) { return record(check, number, {}); }
bool prob1(Check& check, int number, PVBmessageItem a) {
  return record(check, number, {std::move(a)});
}
bool prob2(Check& check, int number, PVBmessageItem a, PVBmessageItem b) {
  return record(check, number, {std::move(a), std::move(b)});
}
bool prob3(Check& check, int number, PVBmessageItem a, PVBmessageItem b, PVBmessageItem c) {
  return record(check, number, {std::move(a), std::move(b), std::move(c)});
}
bool prob4(Check& check, int number, PVBmessageItem a, PVBmessageItem b, PVBmessageItem c,
           PVBmessageItem d) {
  return record(check, number, {std::move(a), std::move(b), std::move(c), std::move(d)});
}
bool prob5(Check& check, int number, PVBmessageItem a, PVBmessageItem b, PVBmessageItem c,
           PVBmessageItem d, PVBmessageItem e) {
  return record(check, number,
                {std::move(a), std::move(b), std::move(c), std::move(d), std::move(e)});
}

std::string directionWord(int direction) {
  static constexpr std::array<const char*, 3> kWords = {"input", "output", "bidirectional"};
  return direction >= 0 && direction < 3 ? kWords[static_cast<std::size_t>(direction)]
                                         : "undefined";
}

void PVBcheckSetStateObserver(PVBstateObserver observer) {
  installed.observer = std::move(observer);
}
void PVBcheckSetTimeUpdate(PVBtimeUpdate update) { installed.update = std::move(update); }
const PVBstateObserver& stateObserver() { return installed.observer; }
const PVBtimeUpdate& timeUpdate() { return installed.update; }

int PVBcheck(int database, bool recheck, bool fullPVBcheck, FILE* stream, std::int32_t limit) {
  Check check;
  check.database = database;
  check.full = fullPVBcheck;
  check.limit = limit;
  if (!openSections(database)) return corrupt();
  check.mayHaveIdleData = check.mayHaveOtherLevels = isRelaxedFamily(database);
  check.counts = PVBcheckCounts(database);
  if (check.counts == nullptr || !implicitGroupsThere(database)) return corrupt();
  const bool listed = listAll(check);
  if (check.signals.size() > kMaxSignals) return fail("too many signals");
  if (!listed) return corrupt();
  if (recheck) {
    if (const int result = runSteps(check); result != 0) return result;
  } else {
    DebugPrintf(kDebugToken, "already checked, dumping annotations from previous check\n");
  }
  return stream != nullptr ? printStored(database, stream) : 0;
}

int PVBreportCheckMessages(int database, FILE* stream) {
  FILE* out = stream != nullptr ? stream : stderr;
  if (PVBgetSection(database, kSectionMessages) == nullptr) return -2;
  for (const PVBmessageHeading& heading : PVBmessages(database)) {
    const PVBproblem* problem = PVBproblemByNumber(heading.number);
    const bool error = problem == nullptr || problem->problemClass == ProblemClass::error;
    for (const auto& items : heading.findings) {
      const std::string line = fmt::format("{}: {}\n", error ? "error" : "warning",
                                           PVBfindingText(database, heading, items));
      if (std::fwrite(line.data(), 1, line.size(), out) != line.size()) return -2;
    }
  }
  return 0;
}

const char* checkerSummary(int database) {
  static std::string summary;
  const PVBstatus* stored = PVBcheckCounts(database);
  const PVBstatus counts = stored != nullptr ? *stored : PVBstatus();
  if (PVBisClean(database)) {
    summary = "no errors or warnings\n";
  } else if (counts.timingErrors == -1) {
    summary = "PVBCHECKER utility has not been run\n";
  } else {
    summary = countLine(counts.timingErrors, "error", "timing") +
              countLine(counts.timingWarnings, "warning", "timing") +
              countLine(counts.patternErrors, "error", "patterns") +
              countLine(counts.patternWarnings, "warning", "patterns");
  }
  return summary.c_str();
}
