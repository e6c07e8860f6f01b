#pragma once

// Tells how far a long pass has come: on a terminal by rewriting one line of
// standard error, without one by rewriting the status file "mvkstatus%05d" (the
// process number) in the working directory. One pass at a time; the state is one
// record inside. Nothing here fails: a status file that can't be written is
// counted, and the counts are shown at the end. The time is PBcurrentTime's.
//
// A pass is PBprogressStart, many PBprogressUpdate, PBprogressEnd.

#include <cstdint>
#include <string>
#include <string_view>

// On at the start of the process. Off, all calls do nothing.
void PBprogressEnable(bool enable);
// Looks at the clock only on every hundredth call of a pass; off at the start.
void PBprogressFastPath(bool fast);

// Begins a pass over `total` work units, below 1 when that isn't known. The
// environment variable MVKDOPROGRESS_OFF switches progress off here.
void PBprogressStart(std::int64_t total, std::string_view message);
void PBprogressAddTotal(std::int64_t amount);
// From now on the pass shows its percent without an estimate.
void PBprogressPercentOnly();
// Prints when it is time to: each second in the first minute, then each ten
// seconds, after ten minutes each minute, after an hour each five minutes; to a
// status file each two minutes.
void PBprogressUpdate(std::int64_t done);
// Whether an update would print now. With the fast path it counts as a call.
bool PBprogressDue();
// Prints "%s %ld for %ld of %ld." with the message at once.
void PBprogressText(std::int64_t a, std::int64_t b, std::int64_t c);
// Takes the line off the terminal; the next print shows it again. Without one, nothing.
void PBprogressClear();
// Prints the last line and removes the status file.
void PBprogressEnd(std::int64_t done);

// The environment variable isatty2 hands the state of the terminal to child
// processes: where standard error is no terminal, a value other than "cleared"
// makes it count as one.
void PBisatty2Set();      // "1"
void PBisatty2Inherit();  // "inheritparent"
void PBisatty2Clear();    // "cleared"
