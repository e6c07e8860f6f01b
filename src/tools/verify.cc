#include "tools/verify.h"

#include <fmt/format.h>

#include <array>

#include "base/errors.h"
#include "base/platform.h"
#include "equations/spec_data.h"
#include "pvb/pattern.h"
#include "pvb/property.h"
#include "storage/cio.h"
#include "storage/page.h"
#include "storage/vpage.h"
#include "tools/open_database.h"
#include "tools/verify_internal.h"

namespace {

constexpr int kBuffers = 64;

struct SectionFile {
  std::uint32_t bit;
  std::string_view file;  // that stands for the section in messages
};
// In the order of loading.
constexpr std::array<SectionFile, 8> kSections = {{
    {kSectionProperties, "pvb.l"},
    {kSectionPins, "pvb.p"},
    {kSectionSignals, "pvb.s"},
    {kSectionTimePlates, "pvb.tp"},
    {kSectionPatterns, "pvb.pd"},
    {kSectionMessages, "pvb.m"},
    {kSectionScan, "pvb.st"},
    {kSectionLabels, "pvb.lb"},
}};

// Files that may be stored compressed.
constexpr std::array<std::string_view, 6> kContainers = {"pvb.pd", "pvb.pk", "pvb.l",
                                                         "pvb.v",  "pvb.rd", "pvb.tp"};
constexpr std::int64_t kHeaderSize = 36;

// Loads what can be loaded: all at once, or each section that isn't damaged.
int openWhatCan(Verification& verification) {
  const std::string& path = verification.path();
  int database = PVBopenAny(path, false, 0, kBuffers, kAllSections, false);
  if (database >= 0) return database;
  PBdiscardErrors();
  std::uint32_t good = 0;
  for (const SectionFile& section : kSections) {
    // What scan objects and labels stand on.
    const std::uint32_t below = section.bit == kSectionScan     ? kSectionSignals
                                : section.bit == kSectionLabels ? kSectionPatterns
                                                                : 0U;
    if ((good & below) != below) continue;
    database = PVBopenAny(path, false, 0, kBuffers, section.bit | below, false);
    const std::string reasons = takePostedReasons();
    if (database >= 0) {
      good |= section.bit;
      PVBcloseUnsaved(database);
    } else {
      verification.fault(kSectionFault, section.file, "", "can't be loaded: " + reasons);
    }
    PBdiscardErrors();
  }
  return good == 0 ? -1 : PVBopenAny(path, false, 0, kBuffers, good, false);
}

void verifyHeader(Verification& verification) {
  const std::string path = PVBfilePath(verification.path(), "pvb.h");
  struct stat status {};
  const bool found = platform().status(path.c_str(), status) == 0;
  if (!found || status.st_size != kHeaderSize) {
    verification.fault(kHeaderFault, "pvb.h", "",
                       fmt::format("has {} bytes instead of {}", status.st_size, kHeaderSize));
  }
  if (PVBcheckHeader(verification.path()) != 1) {
    verification.fault(kHeaderFault, "pvb.h", "", takePostedReasons());
  }
}

void verifyOpen(Verification& verification, int database, bool quiet) {
  const PVBdatabase& slot = *PVBget(database);
  if (slot.properties) verifyBlockFile(verification, "pvb.l", slot.properties->lists);
  if (slot.patterns) {
    verifyBlockFile(verification, "pvb.pd", slot.patterns->rows);
    verifyBlockFile(verification, "pvb.pk", slot.patterns->nodes);
    verifyBlockFile(verification, "pvb.rd", slot.patterns->runs);
  }
  PropertyCheck properties(verification, database);
  properties.own(slot.header.propList, "pvb.h", "");
  verifyLists(verification, database, properties);
  if (slot.patterns) verifyPatterns(verification, database, properties, quiet);
  if (slot.labels) verifyLabels(verification, database);
  const bool allOwners =
      slot.signals && slot.timePlates && slot.pins && slot.patterns && slot.properties;
  if (allOwners) properties.finish();
}

}  // namespace

// --- Telling -------------------------------------------------------------------------

void Verification::tell(Severity severity, MessageCode code, std::string_view file,
                        std::string place, std::string text) {
  Message message;
  message.severity = severity;
  message.code = code;
  message.file = file;
  message.place = std::move(place);
  message.text = std::move(text);
  sink_(message);
}

void Verification::fault(MessageCode code, std::string_view file, std::string place,
                         std::string text) {
  ++counts_.faults;
  tell(Severity::error, code, file, std::move(place), std::move(text));
}

void Verification::note(MessageCode code, std::string_view file, std::string place,
                        std::string text) {
  ++counts_.notes;
  tell(Severity::note, code, file, std::move(place), std::move(text));
}

// --- Files ---------------------------------------------------------------------------

void verifyFiles(Verification& verification) {
  for (const std::string_view name : kContainers) {
    const std::string path = PVBfilePath(verification.path(), name);
    if (presenceOf(path) == Presence::absent) continue;
    const int faults = PBcfCheck(path, [&](std::string_view text) {
      verification.fault(kContainerFault, name, "", std::string(text));
    });
    if (faults < 0) verification.fault(kFileFault, name, "", "can't be read");
  }
  const std::string vectors = PVBfilePath(verification.path(), "pvb.st");
  if (presenceOf(vectors) != Presence::absent) {
    const int faults = VPageCheck(vectors, [&](std::string_view line) {
      if (line.starts_with("INDEX OK") || line.starts_with("INDEX MISSING")) return;
      verification.fault(kPageFileFault, "pvb.st", "", std::string(line));
    });
    if (faults < 0) verification.fault(kPageFileFault, "pvb.st", "", "can't be read");
  }
  PBdiscardErrors();
}

void verifyBlockFile(Verification& verification, std::string_view name, int handle) {
  if (handle < 0) return;
  PageCheck(handle, [&](std::string_view text) {
    verification.fault(kBlockFileFault, name, "", std::string(text));
  });
  PBdiscardErrors();
}

void verifyEquations(Verification& verification) {
  if (!ssExists(verification.path()) || ssOpen(verification.path())) return;
  verification.fault(kSectionFault, kSpecFile, "", takePostedReasons());
}

// --- The whole -----------------------------------------------------------------------

VerifyCounts verifyDatabase(const std::string& path, const MessageSink& sink, bool quiet) {
  Verification verification(path, sink);
  verifyHeader(verification);
  verifyFiles(verification);
  verifyEquations(verification);
  if (PVBcheckHeader(path) == 1) {
    const int database = openWhatCan(verification);
    if (database >= 0) {
      verifyOpen(verification, database, quiet);
      PVBcloseUnsaved(database);
    }
  }
  PBdiscardErrors();
  return verification.counts();
}
