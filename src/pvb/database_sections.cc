#include <algorithm>
#include <array>
#include <string_view>

#include "base/file_copy.h"
#include "base/platform.h"
#include "pvb/database.h"
#include "pvb/database_internal.h"
#include "pvb/label.h"
#include "pvb/message_store.h"
#include "pvb/pattern.h"
#include "pvb/pin.h"
#include "pvb/property.h"
#include "pvb/signal.h"
#include "pvb/state_vector.h"
#include "pvb/timeplate.h"

// Here, where the sections' records are whole.
PVBdatabase::PVBdatabase() = default;
PVBdatabase::~PVBdatabase() = default;
PVBdatabase::PVBdatabase(PVBdatabase&&) noexcept = default;
PVBdatabase& PVBdatabase::operator=(PVBdatabase&&) noexcept = default;

namespace {

constexpr std::array<std::string_view, 2> kPropertyFiles = {"pvb.l", "pvb.v"};
constexpr std::array<std::string_view, 1> kPinFiles = {"pvb.p"};
constexpr std::array<std::string_view, 1> kPinGroupFiles = {"pvb.pg"};
constexpr std::array<std::string_view, 1> kSignalFiles = {"pvb.s"};
constexpr std::array<std::string_view, 1> kTimePlateFiles = {"pvb.tp"};
constexpr std::array<std::string_view, 1> kSpecFiles = {"pvb.sdb"};
constexpr std::array<std::string_view, 4> kPatternFiles = {"pvb.rd", "pvb.ps", "pvb.pk", "pvb.pd"};
constexpr std::array<std::string_view, 4> kAteFiles = {"pvbate.h", "pvbate.a", "pvbate.r",
                                                       "pvbate.d"};
constexpr std::array<std::string_view, 2> kMessageFiles = {"pvb.m", "pvb.mt"};
constexpr std::array<std::string_view, 1> kScanFiles = {"pvb.st"};
constexpr std::array<std::string_view, 1> kLabelFiles = {"pvb.lb"};

// A section that is carried along whole: its files stay as they are.
int openCarried(PVBdatabase&, int) { return 0; }
int closeCarried(int, CloseMode) { return 0; }
bool neverChanged(const PVBdatabase&) { return false; }
// Only a save into another directory has something to do, and that copies the
// files of every section without a save of its own.
constexpr auto kCarriedSave = nullptr;

// The `changed` flag of a section's data, where they are loaded.
template <auto Member>
bool changedFlag(const PVBdatabase& slot) {
  return (slot.*Member) != nullptr && (slot.*Member)->changed;
}

const SectionRow kProperties = {
    kSectionProperties,
    kSectionProperties,
    kPropertyFiles,
    [](PVBdatabase& slot, int database) { return PVBpropertyOpen(database, slot.numBuffers); },
    PVBpropertySave,
    [](int database, CloseMode) { return PVBpropertyClose(database); },
    neverChanged,
};
const SectionRow kPins = {
    kSectionPins,
    kSectionPins,
    kPinFiles,
    [](PVBdatabase&, int database) { return PVBpinsOpen(database); },
    PVBpinSave,
    [](int database, CloseMode) { return PVBpinsClose(database); },
    changedFlag<&PVBdatabase::pins>,
};
const SectionRow kPinGroups = {
    0, kSectionPins, kPinGroupFiles, openCarried, kCarriedSave, closeCarried, neverChanged};
const SectionRow kSignals = {
    kSectionSignals,
    kSectionSignals,
    kSignalFiles,
    [](PVBdatabase& slot, int database) { return SignalDataCreate(database, slot.rowWidth); },
    SignalDataWrite,
    [](int database, CloseMode) { return SignalDataClose(database); },
    changedFlag<&PVBdatabase::signals>,
};
const SectionRow kTimePlates = {
    kSectionTimePlates,
    kSectionTimePlates,
    kTimePlateFiles,
    [](PVBdatabase&, int database) { return PVBtimePlateOpen(database); },
    PVBtimePlateSave,
    [](int database, CloseMode) { return PVBtimePlateClose(database); },
    changedFlag<&PVBdatabase::timePlates>,
};
const SectionRow kSpec = {kSectionSpec, kSectionSpec | kSectionTimePlates,
                          kSpecFiles,   openCarried,
                          kCarriedSave, closeCarried,
                          neverChanged};
const SectionRow kPatterns = {
    kSectionPatterns,
    kSectionPatterns,
    kPatternFiles,
    [](PVBdatabase& slot, int database) {
      return PVBpatternOpen(database, slot.rowWidth, slot.numBuffers);
    },
    PVBpatternSave,
    [](int database, CloseMode mode) {
      return PVBpatternClose(database, mode == CloseMode::unsaved);
    },
    changedFlag<&PVBdatabase::patterns>,
};
const SectionRow kAte = {kSectionAte,  kSectionAte,  kAteFiles,   openCarried,
                         kCarriedSave, closeCarried, neverChanged};
const SectionRow kMessages = {
    kSectionMessages,
    kSectionMessages,
    kMessageFiles,
    [](PVBdatabase&, int database) { return PVBmessagesOpen(database); },
    PVBmessagesSave,
    [](int database, CloseMode) { return PVBmessagesClose(database); },
    changedFlag<&PVBdatabase::messages>,
};
const SectionRow kScan = {
    kSectionScan,
    kSectionScan,
    kScanFiles,
    [](PVBdatabase&, int database) { return PVBscanOpen(database); },
    PVBscanSave,
    [](int database, CloseMode mode) { return PVBscanClose(database, mode == CloseMode::unsaved); },
    neverChanged,
};
const SectionRow kLabels = {
    kSectionLabels,
    kSectionLabels,
    kLabelFiles,
    [](PVBdatabase&, int database) { return PVBlabelsOpen(database); },
    PVBlabelsSave,
    [](int database, CloseMode) { return PVBlabelsClose(database); },
    changedFlag<&PVBdatabase::labels>,
};

constexpr std::array<const SectionRow*, 11> kLoadOrder = {
    &kProperties, &kPins, &kSignals,  &kPinGroups, &kSpec,  &kTimePlates,
    &kPatterns,   &kAte,  &kMessages, &kScan,      &kLabels};
constexpr std::array<const SectionRow*, 11> kSaveOrder = {
    &kProperties, &kPins, &kPinGroups, &kSignals, &kTimePlates, &kSpec,
    &kPatterns,   &kAte,  &kMessages,  &kScan,    &kLabels};
constexpr std::array<const SectionRow*, 11> kCloseOrder = {
    &kProperties, &kPinGroups, &kPins,     &kTimePlates, &kSpec,  &kSignals,
    &kPatterns,   &kAte,       &kMessages, &kScan,       &kLabels};

// A database older than this keeps its trees in a form that only opening converts.
constexpr std::int32_t kFirstWithNewTrees = 8;

int convertOldTrees(PVBdatabase& slot, int database, std::uint32_t mask) {
  const bool due = slot.writable && slot.version < kFirstWithNewTrees &&
                   (mask & kSectionPatterns) == 0 && PVBpatternExists(slot.path);
  if (!due) return 0;
  if (kPatterns.open(slot, database) != 0) return -2;
  return kPatterns.close(database, CloseMode::save);
}

}  // namespace

SectionOrder saveOrder() { return kSaveOrder; }
SectionOrder loadOrder() { return kLoadOrder; }
SectionOrder closeOrder() { return kCloseOrder; }

int loadSections(int database, std::uint32_t mask) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return -2;
  for (const SectionRow* row : kLoadOrder) {
    if (row == &kPatterns && convertOldTrees(*slot, database, mask) != 0) return -2;
    const bool wanted = (mask & row->openedBy) != 0;
    if (!wanted || (slot->sectionsOpen & row->bit) != 0) continue;
    if (row->open(*slot, database) != 0) return -2;
    slot->sectionsOpen |= row->bit;
  }
  return 0;
}

int closeSections(PVBdatabase& slot, int database, CloseMode mode) {
  const bool saving = mode == CloseMode::save && slot.writable;
  int result = 0;
  for (const SectionRow* row : kCloseOrder) {
    if (saving && row->changed(slot) && row->save(database, slot.path) != 0) result = -2;
    if (row->close(database, mode) != 0) result = -2;
    slot.sectionsOpen &= ~row->bit;
  }
  return result;
}

void abandonSlot(int database) {
  PVBdatabase* slot = PVBget(database);
  if (slot == nullptr) return;
  closeSections(*slot, database, CloseMode::unsaved);
  *slot = PVBdatabase();
}
