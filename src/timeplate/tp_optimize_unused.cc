// Deleting what no row uses.

#include <fmt/printf.h>

#include "base/time.h"
#include "pvb/signal.h"
#include "timeplate/tp_optimize_internal.h"

namespace {

// --- Track descriptions --------------------------------------------------------------

const char* directionWord(int direction) {
  switch (direction) {
    case INPUT:
      return "input";
    case OUTPUT:
      return "output";
    case BIDIR:
      return "bidir";
    default:
      return "undef";
  }
}

void appendJoined(std::string& text, std::string_view part, bool& first) {
  if (!first) text += ", ";
  first = false;
  text += part;
}

std::string signalNames(int database, const PVBidList& signals) {
  std::string text;
  bool first = true;
  for (const PVBid id : signals) {
    const PVBsignal* signal = PVBsignalInqByID(database, id);
    if (signal != nullptr && signal->name) appendJoined(text, *signal->name, first);
  }
  return text;
}

std::string edges(const PVBtrack& wave) {
  std::string text;
  bool first = true;
  for (std::size_t i = 0; i < tpEdgeCount(wave); ++i) {
    appendJoined(text, PBformatTIME(wave.eventTimes[i]) + ":" + wave.stateChars[i], first);
  }
  return text;
}

// "a, b := input[0pS:D, 5nS:U]".
std::string describeTrack(int database, const PVBtimePlate& plate, int track) {
  const PVBtrack* wave = tpFirstWave(plate, track);
  return signalNames(database, PVBtrackSignals(plate, track)) +
         " := " + directionWord(PVBtrackDirection(plate, track)) + "[" +
         (wave != nullptr ? edges(*wave) : std::string()) + "]";
}

// --- Tracks --------------------------------------------------------------------------

void reportTracks(const TpOptimization& work) {
  std::fputs(
      "\nUNUSED TRACKS REPORT\n\n"
      "TP NAME                 TRACK DELETED\n"
      "======================  ======================\n",
      work.report);
  for (const auto& [id, track] : work.tpUnusedTracks) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(work.database, id);
    if (plate == nullptr) continue;
    fmt::fprintf(work.report, "%-22s  %s\n", tpName(*plate),
                 describeTrack(work.database, *plate, track - 1));
  }
  std::fputc('\n', work.report);
}

}  // namespace

void tpDeleteUnusedTracks(TpOptimization& work) {
  if (work.tpUnusedTracks.empty()) {
    std::fputs("Deleting unused tracks...none found.\n", stderr);
    std::fputs("INFORMATIVE: No unused tracks found\n", work.report);
    return;
  }
  fmt::fprintf(stderr, "Deleting %lu unused tracks...\n", work.tpUnusedTracks.size());
  reportTracks(work);
  // The highest first: the numbers of those that are still to go stay right.
  const auto& index = work.tpUnusedTrackIndex;
  for (auto entry = index.rbegin(); entry != index.rend(); ++entry) {
    PVBtimePlate* plate = PVBtimePlateInqByID(work.database, entry->second);
    if (plate == nullptr || !PVBtimePlateDeleteTrack(*plate, entry->first - 1))
      tpEndAbnormally(work);
  }
}

// --- Timeplates ----------------------------------------------------------------------

void tpDeleteUnusedTimeplates(TpOptimization& work) {
  if (work.tpUnusedTimeplates.empty()) {
    std::fputs("Deleting unused timeplates...none found.\n", stderr);
    std::fputs("INFORMATIVE: No unused timeplates found\n", work.report);
    return;
  }
  fmt::fprintf(stderr, "Deleting %lu unused timeplates...\n", work.tpUnusedTimeplates.size());
  std::fputs("\nUNUSED TIMEPLATES (deleted)\n===========================\n", work.report);
  for (const PVBid id : work.tpUnusedTimeplates) {
    const PVBtimePlate* plate = PVBtimePlateInqByID(work.database, id);
    if (plate != nullptr) fmt::fprintf(work.report, "%s\n", tpName(*plate));
  }
  std::fputc('\n', work.report);
  for (const PVBid id : work.tpUnusedTimeplates) PVBtimePlateDelete(work.database, id);
}
