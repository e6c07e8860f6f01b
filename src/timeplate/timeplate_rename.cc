#include "timeplate/timeplate_rename.h"

#include <fmt/printf.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "pvb/annotate.h"
#include "pvb/database.h"
#include "pvb/property.h"
#include "pvb/timeplate.h"
#include "timeplate/rename_settings.h"
#include "timeplate/working_database.h"

namespace {

constexpr std::string_view kFunction = "timeplateRename";
constexpr int kFreeText = 2;  // row of tpRenameError

int fail(std::string_view text) {
  PBerrPush(PBconditionerError, kFunctionAndText, kFunction, text);
  return -2;
}

// --- New names -----------------------------------------------------------------------

// Digits of the highest index that a run over `count` timeplates gives.
int indexWidth(std::int64_t startIndex, std::size_t count) {
  std::int64_t highest = startIndex + static_cast<std::int64_t>(count) - 1;
  int width = 1;
  while (highest >= 10) {
    highest /= 10;
    ++width;
  }
  return width;
}

// One run over the timeplates of a database.
class Renaming {
 public:
  Renaming(int database, FILE* report) : database_(database), report_(report) {}

  bool run() {
    const PVBidList ids = PVBtimePlateInqAll(database_);
    index_ = tpRenameSettings.tpRenameStartIndex;
    width_ = indexWidth(index_, ids.size());
    printHead();
    for (const PVBid id : ids) {
      if (!renamePlate(id)) return false;
    }
    if (!keepOldNames()) return false;
    std::fputc('\n', report_);
    return true;
  }

 private:
  void printHead() {
    constexpr const char* kLine = "------------------------------";
    std::fputs("\nTIMEPLATE RENAME REPORT\n\n", report_);
    printLine("OLD TIMEPLATE NAME", "NEW TIMEPLATE NAME");
    printLine(kLine, kLine);
  }
  void printLine(std::string_view before, std::string_view after) {
    fmt::fprintf(report_, "%-30s  %s\n", before, after);
  }

  // Pushed and, for whom only the report is kept, told there too.
  bool refuse(const std::string& text) {
    errno = 0;
    PBerrPush(tpRenameError, kFreeText, text);
    if (report_ != stdout) fmt::fprintf(report_, "Error: %s\n", text);
    return false;
  }

  bool renamePlate(PVBid id) {
    PVBtimePlate* plate = PVBtimePlateInqByID(database_, id);
    if (plate == nullptr) {
      errno = 0;
      PBerrPush(tpRenameError, kFreeText, "PVBtimePlateInqByID() failed");
      return false;
    }
    const std::string before = plate->name.value_or("");
    if (tpRenameSettings.tpRenameMode == TpRenameMode::autoIndex) {
      return giveName(*plate, before, nextIndexedName());
    }
    const std::size_t place = before.find(tpRenameSettings.tpRenameSearchStr);
    if (place == std::string::npos) return true;
    std::string after = before;
    after.replace(place, tpRenameSettings.tpRenameSearchStr.size(),
                  tpRenameSettings.tpRenameReplaceStr);
    if (after.empty()) {
      return refuse(fmt::sprintf(
          "String replacement for timeplate '%s' would result in empty name.", before));
    }
    return giveName(*plate, before, after);
  }

  std::string nextIndexedName() {
    return fmt::sprintf("%s%0*d", tpRenameSettings.tpRenamePrefix, width_, index_++);
  }

  // Names of timeplates whose turn is still to come are taken, as is the plate's own.
  bool giveName(PVBtimePlate& plate, const std::string& before, const std::string& after) {
    if (PVBtimePlateInqByName(database_, after) != nullptr) {
      return refuse(fmt::sprintf(
          "String replacement of timeplate name '%s'\n       would result in name '%s' which "
          "already exists.",
          before, after));
    }
    printLine(before, after);
    oldNames_.emplace_back(plate.id, before);
    return PVBtimePlateRename(database_, plate.id, after) == 0;
  }

  // At the end, since comments go to the disk at once: a clash leaves none behind.
  bool keepOldNames() {
    return std::ranges::all_of(oldNames_, [this](const auto& entry) {
      PVBtimePlate* plate = PVBtimePlateInqByID(database_, entry.first);
      return plate != nullptr && keepName(*plate, entry.second);
    });
  }
  bool keepName(PVBtimePlate& plate, const std::string& name) {
    if (plate.firstRow == UNDEF) plate.firstRow = PVBpropListNew(database_);
    if (plate.firstRow == UNDEF) return false;
    const std::string text = fmt::sprintf("PREVIOUS NAME '%s'", name);
    return PVBputProp(database_, plate.firstRow, {kCommentProperty, text}) == 0;
  }

  int database_;
  FILE* report_;
  std::int64_t index_ = 0;
  int width_ = 1;
  std::vector<std::pair<PVBid, std::string>> oldNames_;
};

bool tpRenameAll(int database, FILE* report) { return Renaming(database, report).run(); }

int saveAndClose(int database, WorkingDatabase& target) {
  errno = 0;
  if (PVBsave(database) != 0) return fail("PVBsave() failed");
  return target.close() == 0 ? 0 : fail("PVBclose() failed");
}

// Nothing of what was renamed so far may reach the disk.
int closeUnsaved(int database) {
  if (PVBcloseUnsaved(database) != 0) fail("PVBclose() failed");
  return -2;
}

}  // namespace

int timeplateRename(const std::optional<std::string>& source,
                    const std::optional<std::string>& destination, FILE* report) {
  errno = 0;
  if (!source) {
    fail("src region is NULL");
    return 0;
  }
  WorkingDatabase target;
  const int database = target.open(kFunction, *source, destination, report);
  if (database < 0) return -2;
  return tpRenameAll(database, report) ? saveAndClose(database, target) : closeUnsaved(database);
}
