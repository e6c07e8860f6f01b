#include "timeplate/tp_settings.h"

#include <algorithm>
#include <array>

#include "base/errors.h"
#include "base/text.h"

TpSettings tpSettings;

namespace {

using Value = std::optional<std::string>;

struct Row {
  const char* name;
  bool required;  // of a tool that makes timeplates from a wave source
};

// In the order of TpParam.
constexpr Row kRows[] = {
    {"ATEFamily", true},
    {"FailOnMisMatch", false},
    {"MuxTimingSource", false},
    {"ShapeFile", false},
    {"UseMuxTiming", false},
    {"UseTesterPmode", false},
    {"Pmode", false},
    {"WaveSource", true},
    {"DestinationPVB", false},
    {"Start", true},
    {"Stop", true},
    {"CycleTimes", true},
    {"CycleBoundaries", false},
    {"TPGenLimit", true},
    {"TmpPrefix", true},
    {"TimeTolerance", false},
    {"GroupFileName", false},
    {"Trace", false},
    {"Optimize", false},
    {"ReportFile", false},
    {"DoProgressReport", false},
    {"DoBidiMerge", false},
    {"DoTrackOptimize", false},
    {"UseShapeFamilies", false},
    {"EndOfCycleDelta", false},
    {"EdgeToEdgeDelta", false},
    {"CheckEquations", false},
    {"SeedPVB", false},
    {"KeepAllSeeds", false},
    {"UseSignalList", false},
    {"SignalListFile", false},
};
static_assert(std::size(kRows) == kTpParamCount);

constexpr int kMostTrace = 2;

// Filled by tpReadSettings; live as long as the process.
std::array<Value, kTpParamCount> values;

std::size_t place(TpParam parameter) { return static_cast<std::size_t>(parameter); }

// The program around the optimizer takes from it neither a wave source nor cycles, so
// that nothing is required here.
std::array<PBparam, kTpParamCount> embeddedTable() {
  std::array<PBparam, kTpParamCount> table{};
  for (std::size_t i = 0; i < table.size(); ++i) table[i] = {kRows[i].name, &values[i], false};
  return table;
}

int readTime(TpParam parameter, TIME& time) {
  time = TIME_ZERO;
  if (PBisEmpty(tpParam(parameter))) return 0;
  return parseTIME(*tpParam(parameter), time) == 0 ? 0
                                                   : tpRefuseParam(kIllegalParameter, parameter);
}

int readTimes() {
  if (readTime(TpParam::TimeTolerance, tpSettings.tpoTolerance) != 0) return -2;
  if (readTime(TpParam::EndOfCycleDelta, tpSettings.endOfCycleDelta) != 0) return -2;
  return readTime(TpParam::EdgeToEdgeDelta, tpSettings.edgeToEdgeDelta);
}

}  // namespace

const std::optional<std::string>& tpParam(TpParam parameter) { return values[place(parameter)]; }

bool tpParamIs(TpParam parameter, std::string_view word) {
  return PBstrEq(tpParam(parameter), word);
}

int tpRefuseParam(TpNotice level, TpParam parameter) {
  tpNotice(level, kRows[place(parameter)].name);
  return -2;
}

int tpReadSettings(ParamArguments arguments) {
  values = {};
  tpSettings = {};
  const std::array<PBparam, kTpParamCount> table = embeddedTable();
  if (PBcmdLine(arguments, table) != 0) return -2;

  const Value& trace = tpParam(TpParam::Trace);
  tpSettings.tpoTrace = std::clamp(trace ? PBtextToInt(*trace) : 0, 0, kMostTrace);
  tpSettings.tpoBidiMerge = tpParamIs(TpParam::DoBidiMerge, "yes");
  tpSettings.tpoCheckEquations = tpParamIs(TpParam::CheckEquations, "yes");
  const bool trackPassGiven = tpParam(TpParam::DoTrackOptimize).has_value();
  tpSettings.tpoTrackPassWanted = trackPassGiven && !tpParamIs(TpParam::DoTrackOptimize, "no");
  tpSettings.useMuxTiming = tpParamIs(TpParam::UseMuxTiming, "yes");
  tpSettings.useShapeFamilies = !tpParamIs(TpParam::UseShapeFamilies, "no");
  return readTimes();
}

FILE* tpReportStream() { return tpNoticeSettings.stream; }

void tpReport(std::string_view text) {
  if (tpReportStream() != nullptr) std::fwrite(text.data(), 1, text.size(), tpReportStream());
}

void tpStatus(std::string_view text) {
  FILE* stream = tpReportStream() == stdout ? stdout : stderr;
  std::fwrite(text.data(), 1, text.size(), stream);
}

void tpTrace(int level, std::string_view text) {
  if (tpTraces(level)) tpReport(text);
}
