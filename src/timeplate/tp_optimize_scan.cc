// What the checker finds unused, read back from the lines that it prints.

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <random>
#include <string_view>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/platform.h"
#include "pvb/checker.h"
#include "timeplate/tp_optimize_internal.h"

// --- States --------------------------------------------------------------------------

namespace {

constexpr std::int32_t kStates = 32;  // that a word has bits for; a row state has 4 bits

}  // namespace

void TpTrackStates::record(PVBid timeplate, int track, std::int32_t state) {
  if (timeplate < 0 || track < 0 || state < 0 || state >= kStates) return;
  const auto plate = static_cast<std::size_t>(timeplate);
  const auto place = static_cast<std::size_t>(track);
  if (plate >= byPlate_.size()) byPlate_.resize(plate + 1);
  std::vector<std::uint32_t>& tracks = byPlate_[plate];
  if (place >= tracks.size()) tracks.resize(place + 1);
  tracks[place] |= 1U << state;
}

std::uint32_t TpTrackStates::of(PVBid timeplate, int track) const {
  if (timeplate < 0 || track < 0) return 0;
  const auto plate = static_cast<std::size_t>(timeplate);
  const auto place = static_cast<std::size_t>(track);
  return plate < byPlate_.size() && place < byPlate_[plate].size() ? byPlate_[plate][place] : 0;
}

namespace {

// --- The checker's lines -------------------------------------------------------------

std::string randomName() {
  static constexpr std::string_view kCharacters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  static std::random_device random;
  std::uniform_int_distribution<std::size_t> any(0, kCharacters.size() - 1);
  std::string name = "pvbconditioner";
  for (int i = 0; i < 6; ++i) name += kCharacters[any(random)];
  return name;
}

// An empty file of its own in the current directory; no path when there can be none.
TempFile makeScratchFile() {
  constexpr int kTries = 26;
  for (int i = 0; i < kTries; ++i) {
    const std::string name = randomName();
    const int descriptor = platform().open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    if (descriptor >= 0) {
      TempFile file(name);
      return platform().close(descriptor) == 0 ? std::move(file) : TempFile();
    }
    if (errno != EEXIST) break;
  }
  return {};
}

// Without its findings complete nothing may be deleted.
bool writeFindings(int database, const std::string& path) {
  StreamPtr stream = openStream(path, "w");
  if (!stream) return false;
  const bool checked = PVBcheck(database, true, true, stream.get(), INT32_MAX) == 0;
  return closeStream(std::move(stream)) == 0 && checked;
}

// A line without its end; false at the end of the file.
bool readLine(FILE* stream, std::string& line) {
  std::array<char, 1024> piece;
  line.clear();
  while (std::fgets(piece.data(), static_cast<int>(piece.size()), stream) != nullptr) {
    line += piece.data();
    if (!line.empty() && line.back() == '\n') {
      line.pop_back();
      return true;
    }
  }
  return !line.empty();
}

// Takes `text` off the front of a line.
bool take(std::string_view& line, std::string_view text) {
  if (!line.starts_with(text)) return false;
  line.remove_prefix(text.size());
  return true;
}

std::optional<std::int32_t> takeNumber(std::string_view& line) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number);
  if (error != std::errc()) return std::nullopt;
  line.remove_prefix(static_cast<std::size_t>(end - line.data()));
  return number;
}

// The timeplate whose name stands in front of the closing words. A name may hold blanks.
PVBid timeplateNamed(TpOptimization& work, std::string_view words) {
  constexpr std::string_view kEnd = " is unused";
  if (!words.ends_with(kEnd)) tpEndAbnormally(work);
  words.remove_suffix(kEnd.size());
  const PVBtimePlate* plate = PVBtimePlateInqByName(work.database, words);
  if (plate == nullptr) tpEndAbnormally(work);
  return plate->id;
}

void noteUnusedTrack(TpOptimization& work, std::int32_t track, std::string_view words) {
  constexpr std::string_view kBeforeName = ") in timeplate ";
  const std::size_t place = words.find(kBeforeName);
  if (place == std::string_view::npos) tpEndAbnormally(work);
  const PVBid plate = timeplateNamed(work, words.substr(place + kBeforeName.size()));
  work.tpUnusedTrackIndex.emplace(track, plate);
  work.tpUnusedTracks.emplace_back(plate, track);
}

// "slot 2 (signal a, input) in timeplate tp is unused", "timeplate tp is unused".
void readFinding(TpOptimization& work, std::string_view line) {
  if (!take(line, "warning: ")) return;
  if (take(line, "slot ")) {
    if (const auto track = takeNumber(line)) noteUnusedTrack(work, *track, line);
  } else if (take(line, "timeplate ")) {
    work.tpUnusedTimeplates.push_back(timeplateNamed(work, line));
  }
}

bool readFindings(TpOptimization& work, const std::string& path) {
  const StreamPtr stream = openStream(path, "r");
  if (!stream) return false;
  std::string line;
  while (readLine(stream.get(), line)) readFinding(work, line);
  return std::ferror(stream.get()) == 0;
}

}  // namespace

bool tpScanForUnused(TpOptimization& work) {
  work.tpUnusedTracks.clear();
  work.tpUnusedTimeplates.clear();
  work.tpUnusedTrackIndex.clear();
  work.findings = makeScratchFile();
  const std::string path = work.findings.path();
  const bool known =
      !path.empty() && writeFindings(work.database, path) && readFindings(work, path);
  work.findings = {};
  if (known) return true;
  PBerrPush(PBconditionerError, kFunctionAndText, "tpScanForUnused",
            "Checking the database for unused timeplates failed");
  return false;
}
