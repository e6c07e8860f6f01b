#include "base/progress.h"

#include <fmt/printf.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <limits>

#include "base/platform.h"
#include "base/report.h"

namespace {

enum class FinishState { running, percentOnly, finished };

constexpr int kCallsPerLook = 100;
constexpr std::size_t kLongestLine = 79;
constexpr double kHighestPercent = 99.99;
constexpr const char* kTerminalVariable = "isatty2";

// All of the module's state; times in seconds. PBprogressStart sets what belongs
// to a pass.
struct ProgressState {
  bool enabled = true;
  std::int64_t total = 0;
  std::string message;
  std::time_t startTime = 0;
  std::time_t lastPrintTime = 0;
  std::size_t lastLineLength = 0;
  bool toFile = false;
  bool looked = false;  // at the clock since the start
  std::string statusPath;
  FinishState finishState = FinishState::running;
  int writesTried = 0;
  int writesDone = 0;
  int skipCounter = 0;
  bool fastPath = false;
};
ProgressState progress;

// --- When to print -------------------------------------------------------------------

struct CadenceRow {
  std::time_t upTo;     // seconds since the start
  std::time_t minimum;  // seconds between two prints
};
constexpr std::array<CadenceRow, 4> kTerminalCadence = {
    {{60, 1}, {600, 10}, {3600, 60}, {std::numeric_limits<std::time_t>::max(), 300}}};
constexpr std::time_t kFileMinimum = 120;
// The first look at the clock counts as this long after a print.
constexpr std::time_t kFileHeadStart = 115;

std::time_t minimumBetweenPrints(std::time_t sinceStart) {
  if (progress.toFile) return kFileMinimum;
  const auto row = std::find_if(kTerminalCadence.begin(), kTerminalCadence.end(),
                                [&](const CadenceRow& r) { return sinceStart <= r.upTo; });
  return row->minimum;
}

bool skippedByFastPath() {
  if (!progress.fastPath) return false;
  if (++progress.skipCounter < kCallsPerLook) return true;
  progress.skipCounter = 0;
  return false;
}

bool due() {
  if (!progress.enabled || skippedByFastPath()) return false;
  const std::time_t now = PBcurrentTime();
  if (progress.toFile && !progress.looked) progress.lastPrintTime = now - kFileHeadStart;
  progress.looked = true;
  return now - progress.lastPrintTime >= minimumBetweenPrints(now - progress.startTime);
}

// --- The line ------------------------------------------------------------------------

std::string remainingText(double seconds) {
  if (seconds < 60) return fmt::sprintf("%d seconds", static_cast<std::int64_t>(seconds));
  if (seconds < 3600) return fmt::sprintf("%.2g minutes", seconds / 60);
  if (seconds < 86400) return fmt::sprintf("%.2f hours", seconds / 3600);
  return fmt::sprintf("%.2f days", seconds / 86400);
}

std::string estimate(std::int64_t done) {
  if (done > progress.total) return {};
  const double units = static_cast<double>(std::max<std::int64_t>(done, 1));
  const double elapsed = static_cast<double>(PBcurrentTime() - progress.startTime);
  const double remaining = elapsed * (static_cast<double>(progress.total) - units) / units;
  std::string text = remainingText(remaining);
  if (text.starts_with("1 ")) text.pop_back();
  return text;
}

std::string lineText(std::int64_t done) {
  const std::string& message = progress.message;
  if (progress.total < 1) return fmt::sprintf("%s %d.", message, done);
  if (progress.finishState == FinishState::finished) {
    return fmt::sprintf("%s %s complete.", message, "100%");
  }
  const double percent = std::min(
      static_cast<double>(done) * 100 / static_cast<double>(progress.total), kHighestPercent);
  if (progress.finishState == FinishState::percentOnly) {
    return fmt::sprintf("%s %.2f%% complete.", message, percent);
  }
  const std::string left = estimate(done);
  std::string line = fmt::sprintf("%s %.2f%% complete.  %s = %s", message, percent,
                                  "Estimated time remaining", left);
  if (line.size() > kLongestLine) line = fmt::sprintf("%s %.2f%% (%s)", message, percent, left);
  return line;
}

// --- Output --------------------------------------------------------------------------

void rewriteTerminalLine(const std::string& line) {
  const std::size_t covered = std::max(progress.lastLineLength, line.size()) - line.size();
  fmt::fprintf(stderr, "\r%s%s", line, std::string(covered, ' '));
  std::fflush(stderr);
  progress.lastLineLength = line.size();
}

// A file that was cut off by a full disk is taken away rather than left to be read.
void rewriteStatusFile(const std::string& line) {
  ++progress.writesTried;
  StreamPtr stream = openStream(progress.statusPath, "w");
  if (stream) {
    fmt::fprintf(stream.get(), "%s\n%s\n", line, PBdateText());
    if (closeStream(std::move(stream)) == 0) {
      ++progress.writesDone;
    } else {
      platform().remove(progress.statusPath.c_str());
    }
  }
  errno = 0;
}

void print(const std::string& line) {
  progress.lastPrintTime = PBcurrentTime();
  if (progress.toFile) {
    rewriteStatusFile(line);
  } else {
    rewriteTerminalLine(line);
  }
}

void removeStatusFile() {
  if (progress.writesDone < progress.writesTried) {
    fmt::fprintf(stderr, "Status file write succeeded %d times out of %d attempts\n",
                 progress.writesDone, progress.writesTried);
  }
  if (progress.writesDone > 0) platform().remove(progress.statusPath.c_str());
  errno = 0;
}

bool countsAsTerminal() {
  const bool terminal = ::isatty(STDERR_FILENO) == 1;
  errno = 0;
  if (terminal) return true;
  const char* handedOn = std::getenv(kTerminalVariable);
  return handedOn != nullptr && std::string_view(handedOn) != "cleared";
}

void setTerminalVariable(const char* value) { ::setenv(kTerminalVariable, value, 1); }

void beginPass(std::int64_t total, std::string_view message) {
  progress.total = total;
  progress.message = message;
  progress.startTime = progress.lastPrintTime = PBcurrentTime();
  progress.lastLineLength = 0;
  progress.looked = false;
  progress.finishState = FinishState::running;
  progress.writesTried = progress.writesDone = 0;
  progress.skipCounter = kCallsPerLook + 1;  // the first call looks at the clock
  progress.statusPath = fmt::sprintf("mvkstatus%05d", ::getpid());
  progress.toFile = !countsAsTerminal();
}

}  // namespace

void PBprogressEnable(bool enable) { progress.enabled = enable; }
void PBprogressFastPath(bool fast) { progress.fastPath = fast; }

void PBprogressStart(std::int64_t total, std::string_view message) {
  if (std::getenv("MVKDOPROGRESS_OFF") != nullptr) progress.enabled = false;
  if (!progress.enabled) return;
  std::fflush(stdout);
  std::fflush(stderr);
  beginPass(total, message);
}

void PBprogressAddTotal(std::int64_t amount) { progress.total += amount; }
void PBprogressPercentOnly() { progress.finishState = FinishState::percentOnly; }

void PBprogressUpdate(std::int64_t done) {
  if (due()) print(lineText(done));
}

bool PBprogressDue() { return due(); }

void PBprogressText(std::int64_t a, std::int64_t b, std::int64_t c) {
  if (progress.enabled) {
    print(fmt::sprintf("%s %d for %d of %d.", progress.message, a, b, c));
  }
}

void PBprogressClear() {
  if (!progress.enabled || progress.toFile || progress.lastLineLength == 0) return;
  fmt::fprintf(stderr, "\r%s\r", std::string(progress.lastLineLength, ' '));
  std::fflush(stderr);
  progress.lastLineLength = 0;
}

void PBprogressEnd(std::int64_t done) {
  if (!progress.enabled) return;
  progress.finishState = FinishState::finished;
  print(lineText(done));
  if (progress.toFile) removeStatusFile();
}

void PBisatty2Set() { setTerminalVariable("1"); }
void PBisatty2Inherit() { setTerminalVariable("inheritparent"); }
void PBisatty2Clear() { setTerminalVariable("cleared"); }
