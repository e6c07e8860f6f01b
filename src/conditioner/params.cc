#include "conditioner/params.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "base/errors.h"
#include "base/param.h"
#include "base/progress.h"
#include "base/report.h"
#include "base/text.h"
#include "base/text_file.h"
#include "conditioner/messages.h"
#include "conditioner/muxify.h"
#include "conditioner/op_file.h"
#include "conditioner/run.h"
#include "timeplate/optimizer.h"
#include "timeplate/rename_settings.h"

namespace {

using Value = std::optional<std::string>;

constexpr std::string_view kFunction = "initParams";

// The values of the parameters, filled by the parameter framework.
struct Values {
  Value useOpFile, opFile, operation;
  Value sourcePVB1, start1, stop1;
  Value sourcePVB2, start2, stop2;
  Value destinationPVB, tpGenLimit, referencePVB, minPeriod, optimizeTimePlates;
  Value saveReport, reportFile, tmpPrefix, tpNamingMode;
  Value loopBlockSize, repeatKeyword, loopKeyword;
  Value tpRenameMode, tpRenameStartIndex, tpRenamePrefixStr, tpRenameSearchStr;
  Value tpRenameReplaceStr;
  Value tpOptDeleteDuplicateTps, tpOptDeleteUnusedTps, tpOptDeleteUnusedTracks;
  Value tpOptAnnotateRowsWithTp, tpOptClockShapes;
  Value muxDegree;
};

Values values;

// The order decides which two names an ambiguous prefix is told to match.
constexpr PBparam kParams[] = {
    {"UseOpFile", &values.useOpFile, false},
    {"OpFile", &values.opFile, false},
    {"Operation", &values.operation, false},
    {"SourcePVB1", &values.sourcePVB1, false},
    {"Start1", &values.start1, false},
    {"Stop1", &values.stop1, false},
    {"SourcePVB2", &values.sourcePVB2, false},
    {"Start2", &values.start2, false},
    {"Stop2", &values.stop2, false},
    {"DestinationPVB", &values.destinationPVB, false},
    {"TPGenLimit", &values.tpGenLimit, false},
    {"ReferencePVB", &values.referencePVB, false},
    {"MinPeriod", &values.minPeriod, false},
    {"OptimizeTimePlates", &values.optimizeTimePlates, false},
    {"SaveReport", &values.saveReport, false},
    {"ReportFile", &values.reportFile, false},
    {"TmpPrefix", &values.tmpPrefix, true},
    {"TpNamingMode", &values.tpNamingMode, false},
    {"LoopBlockSize", &values.loopBlockSize, false},
    {"RepeatKeyword", &values.repeatKeyword, false},
    {"LoopKeyword", &values.loopKeyword, false},
    {"TpRenameMode", &values.tpRenameMode, false},
    {"TpRenameStartIndex", &values.tpRenameStartIndex, false},
    {"TpRenamePrefixStr", &values.tpRenamePrefixStr, false},
    {"TpRenameSearchStr", &values.tpRenameSearchStr, false},
    {"TpRenameReplaceStr", &values.tpRenameReplaceStr, false},
    {"TpOptDeleteDuplicateTps", &values.tpOptDeleteDuplicateTps, false},
    {"TpOptDeleteUnusedTps", &values.tpOptDeleteUnusedTps, false},
    {"TpOptDeleteUnusedTracks", &values.tpOptDeleteUnusedTracks, false},
    {"TpOptAnnotateRowsWithTp", &values.tpOptAnnotateRowsWithTp, false},
    {"TpOptClockShapes", &values.tpOptClockShapes, false},
    {"MuxDegree", &values.muxDegree, false},
};

constexpr std::size_t kMostMuxDegreeDigits = 9;

constexpr int kReportColumns = 100;
constexpr int kReportLines = 66;

std::string textOf(const Value& value) { return value.value_or(""); }

bool isWord(const Value& value, std::string_view word) { return value && PBstrEq(*value, word); }

// An optimize flag is on unless something other than "yes" is given.
bool isOn(const Value& flag) { return PBisEmpty(flag) || PBstrEq(*flag, "yes"); }

const std::string* pointerTo(const Value& value) { return value ? &*value : nullptr; }

int refuse(ConditionerMessage message, ErrArg argument = {}) {
  errno = 0;
  PBerrPush(PBconditionerError, message, kFunction, argument);
  return -2;
}

int readMinPeriod() {
  if (PBisEmpty(values.minPeriod)) return 0;
  if (parseTIME(*values.minPeriod, run.minPeriod) == 0) return 0;
  return refuse(kInvalidTime, *values.minPeriod);
}

void openReport() {
  run.reportStream = stdout;
  if (!isWord(values.saveReport, "yes")) return;
  const std::string path = PBisEmpty(values.reportFile) ? "pvbcond.rpt" : *values.reportFile;
  run.reportFile = openStream(path, "w+");
  if (run.reportFile) run.reportStream = run.reportFile.get();
  errno = 0;  // a report that can't be opened goes to standard output
}

int startOptimizer(std::span<const char* const> arguments) {
  if (!isWord(values.optimizeTimePlates, "yes")) return 0;
  run.optimizeTimePlates = true;
  if (tpOptInit(run.reportStream, arguments)) return 0;
  PBerrPush(PBconditionerError, kOptimizerFailed);
  return -2;
}

void printPageHeading(FILE* stream) {
  PBprintHeading(stream, fmt::format("PVBConditioner    {}    page {}\n\n", PBdateText(),
                                     PBpaging.pageNumber++));
}

void startReport() {
  PBsetPage(kReportColumns, kReportLines, printPageHeading);
  printPageHeading(run.reportStream);
  const BannerIdentity identity = {kProgramTitle, kProgramVersion};
  PBprintBanner(run.reportStream, &identity, {}, "# *", "");
  PBprint(run.reportStream, "\n");
  PBsetPage(kReportColumns, kReportLines, printPageHeading);
}

// --- One operation from parameters ---------------------------------------------------

// False after queueing nothing and pushing the reason; the run then goes on to
// its normal end, with exit code 0, on purpose.
bool readMuxDegree(OpSpec& op) {
  const auto complain = [](const std::string& text) {
    PBerrPush(PBconditionerError, kText, text);
    return false;
  };
  if (PBisEmpty(values.muxDegree)) return complain("'muxDegree' parameter missing");
  const std::string& text = *values.muxDegree;
  const bool isNumber = text.size() <= kMostMuxDegreeDigits &&
                        std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
  if (!isNumber) {
    return complain(fmt::format("'muxDegree' parameter value ({}) is not a valid integer", text));
  }
  op.muxDegree = PBtextToInt(text);
  if (op.muxDegree < kMinMuxDegree || op.muxDegree > kMaxMuxDegree) {
    return complain(fmt::format("'muxDegree' parameter value ({}) is out of range [{}..{}]",
                                op.muxDegree, kMinMuxDegree, kMaxMuxDegree));
  }
  return true;
}

void readOptimizeFlags(OpSpec& op) {
  op.deleteDuplicateTps = isOn(values.tpOptDeleteDuplicateTps);
  op.deleteUnusedTps = isOn(values.tpOptDeleteUnusedTps);
  op.deleteUnusedTracks = isOn(values.tpOptDeleteUnusedTracks);
  op.annotateRowsWithTp = op.deleteDuplicateTps && isOn(values.tpOptAnnotateRowsWithTp);
  op.clockShapes = isOn(values.tpOptClockShapes);
}

void readCompression(OpSpec& op) {
  if (values.loopBlockSize) op.loopBlockSize = PBtextToInt(*values.loopBlockSize);
  if (values.repeatKeyword) op.repeatKeyword = *values.repeatKeyword;
  if (values.loopKeyword) op.loopKeyword = *values.loopKeyword;
}

// The region of a database given by parameters; null after a push. The same key
// given twice makes two regions.
PVBregion* makeParamRegion(const std::string& path, const std::string* start,
                           const std::string* stop) {
  const std::string key = regionKey(path);
  std::unique_ptr<PVBregion> region = PVBregionNew();
  if (initRegionFromParams(*region, key, path, start, stop) != 0) {
    refuse(kInvalidRegion, key);
    return nullptr;
  }
  return &run.regionTable.insert(key, std::move(region));
}

// A source that the operation can't do without.
PVBregion* makeSource(const Value& path, const Value& start, const Value& stop,
                      std::string_view parameter) {
  if (PBisEmpty(path)) {
    refuse(kNoParameter, parameter);
    return nullptr;
  }
  return makeParamRegion(*path, pointerTo(start), pointerTo(stop));
}

bool hasSecondSource(OpKind kind) {
  return kind == kOpMerge || kind == kOpConcat || kind == kOpInsert;
}

bool needsDestination(OpKind kind) {
  return kind == kOpMerge || kind == kOpConcat || kind == kOpCopy;
}

// Kinds with two operands hold their destination as the second one.
bool destinationIsSecond(OpKind kind) {
  return !hasSecondSource(kind) && kind != kOpAddCompression;
}

int makeRegions(OpSpec& op) {
  op.src1 = makeSource(values.sourcePVB1, values.start1, values.stop1, "sourcePVB1");
  if (op.src1 == nullptr) return -2;
  if (hasSecondSource(op.type)) {
    op.src2 = makeSource(values.sourcePVB2, values.start2, values.stop2, "sourcePVB2");
    if (op.src2 == nullptr) return -2;
  }
  if (PBisEmpty(values.destinationPVB)) {
    return needsDestination(op.type) ? refuse(kNoParameter, "destinationPVB") : 0;
  }
  PVBregion* destination = makeParamRegion(*values.destinationPVB, nullptr, nullptr);
  if (destination == nullptr) return -2;
  (destinationIsSecond(op.type) ? op.src2 : op.dest) = destination;
  return 0;
}

bool readRenameSettings() {
  return tpRenameSetParams(textOf(values.tpRenameMode), textOf(values.tpRenameStartIndex),
                           textOf(values.tpRenamePrefixStr), textOf(values.tpRenameSearchStr),
                           textOf(values.tpRenameReplaceStr));
}

int queueFromParams() {
  const std::string name = textOf(values.operation);
  const Operation* operation = operationOfParameter(name);
  if (name.empty() || operation == nullptr) return refuse(kInvalidOperation, name);
  OpSpec op;
  op.type = operation->kind;
  if (op.type == kOpTimeplateOptimize) readOptimizeFlags(op);
  if (op.type == kOpAddCompression) readCompression(op);
  if (op.type == kOpMuxify && !readMuxDegree(op)) return 0;
  if (makeRegions(op) != 0) return -2;
  if (op.type == kOpTimeplateRename && !readRenameSettings()) return -2;
  op.refPvb = PBisEmpty(values.referencePVB) ? *values.sourcePVB1 : *values.referencePVB;
  run.opList.push_back(std::move(op));
  return 0;
}

int queueFromFile() {
  if (PBisEmpty(values.opFile)) return refuse(kNoFileName, "PVB conditioner operation file");
  if (!PBtextFileExists(*values.opFile)) return refuse(kNoSuchFile, *values.opFile);
  const OpFileParams params = {
      textOf(values.referencePVB),       textOf(values.tpRenameMode),
      textOf(values.tpRenameStartIndex), textOf(values.tpRenamePrefixStr),
      textOf(values.tpRenameSearchStr),  textOf(values.tpRenameReplaceStr)};
  return readOperationFile(*values.opFile, params) ? 0 : -2;
}

}  // namespace

int initParams(std::span<const char* const> arguments) {
  PBcatchSignal(2, [](int) { fatalExit(); });
  if (PBcmdLine(arguments, kParams) != 0) return refuse(kCommandLine);
  run.tpGenLimit = PBisEmpty(values.tpGenLimit) ? -1 : PBtextToInt(*values.tpGenLimit);
  if (readMinPeriod() != 0) return -2;
  PBprogressEnable(false);
  openReport();
  if (startOptimizer(arguments) != 0) return -2;
  startReport();
  run.shortTpNames = isWord(values.tpNamingMode, "short");
  return isWord(values.useOpFile, "no") ? queueFromParams() : queueFromFile();
}
