#pragma once

// Parameters, settings and report of the timeplate optimizer, which is a tool of its
// own inside the program: it reads its table of parameters from the arguments that the
// program was called with.
//
// A status line goes to standard error, or to standard output when the report goes
// there. Everything here lives as long as the process; tpReadSettings fills it anew.

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "base/param.h"
#include "base/time.h"

// The tool's parameters in the order of its table.
enum class TpParam {
  ATEFamily,
  FailOnMisMatch,
  MuxTimingSource,
  ShapeFile,
  UseMuxTiming,
  UseTesterPmode,
  Pmode,
  WaveSource,
  DestinationPVB,
  Start,
  Stop,
  CycleTimes,
  CycleBoundaries,
  TPGenLimit,
  TmpPrefix,
  TimeTolerance,
  GroupFileName,
  Trace,
  Optimize,
  ReportFile,
  DoProgressReport,
  DoBidiMerge,
  DoTrackOptimize,
  UseShapeFamilies,
  EndOfCycleDelta,
  EdgeToEdgeDelta,
  CheckEquations,
  SeedPVB,
  KeepAllSeeds,
  UseSignalList,
  SignalListFile,
};
inline constexpr int kTpParamCount = 31;

struct TpSettings {
  int tpoTrace = 0;                 // 0 nothing, 1 pairs, 2 everything
  bool tpoBidiMerge = false;        // a bidirectional track may meet an absent one
  bool tpoCheckEquations = false;   // families and expressions of edges must agree
  bool tpoTrackPassWanted = false;  // the track reduction pass
  TIME tpoTolerance;                // of equal times; zero: exact
  bool tpoOptimizeOnly = false;     // an existing database: outputs are compared too
  bool useMuxTiming = false;
  bool useShapeFamilies = true;
  TIME endOfCycleDelta;  // what must lie between an edge and the cycle's end
  TIME edgeToEdgeDelta;  // what must lie between two edges
};
extern TpSettings tpSettings;

// The value as it was given; none when it wasn't, or before tpReadSettings.
const std::optional<std::string>& tpParam(TpParam parameter);
bool tpParamIs(TpParam parameter, std::string_view word);  // in any case

// Reads the parameters and fills tpSettings (but tpoOptimizeOnly). The table of
// parameters is read in the form that the program around the optimizer was called with,
// and holds other names than that program's: what is short for one of the program's own may
// be short for several here, and then fails. -2 after a notice for a value that can't be
// read, and after a post where the arguments can't.
int tpReadSettings(ParamArguments arguments);

// Levels of tpNotice that the optimizer uses.
enum TpNotice : int {
  kNoticeText = 0,
  kFileNotFound = 2,
  kMissingParameter = 7,
  kIllegalParameter = 8,
};
// A notice with the parameter's name; -2.
int tpRefuseParam(TpNotice level, TpParam parameter);

// Where the report goes (not owned), tpNoticeSettings.stream.
FILE* tpReportStream();
// `text` stands as it is, line ends included.
void tpReport(std::string_view text);
void tpStatus(std::string_view text);
// A report line when the trace level is at least `level`. Who builds `text` at cost
// asks tpTraces first.
void tpTrace(int level, std::string_view text);
inline bool tpTraces(int level) { return tpSettings.tpoTrace >= level; }
