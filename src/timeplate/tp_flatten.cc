// What P stands for, and waves with the data of a row put in.

#include "pvb/timeplate.h"
#include "timeplate/pstate_store.h"
#include "timeplate/tp_reduce_internal.h"
#include "timeplate/tp_rows.h"

namespace {

// In these modes a P stands for nothing that could be told.
bool nothingIsKnown() { return tpRun.pmode <= DONT_CARE || tpRun.pmode > IMS; }

bool counts(char state) {
  switch (tpRun.pmode) {
    case LAST_FORCE:
      return state == 'D' || state == 'N' || state == 'U' || state == 'Z';
    case LAST_DRIVE:
      return state == 'D' || state == 'U';
    default:
      return true;
  }
}

}  // namespace

bool tpEveryStateCounts() { return tpRun.pmode != LAST_FORCE && tpRun.pmode != LAST_DRIVE; }

RowStart tpRowStart(const TpSignal& signal, std::int32_t row) {
  // Before its part of the cycle the pin did what another child says.
  if (signal.muxed) return {};
  return {tpPStateLetter(row, signal.index), loadPrevious(row, signal)};
}

PreviousLetter::PreviousLetter(char value, RowStart start)
    : value_(value), letter_(tpPState(value, start.pstate, start.previous)) {
  if (letter_ == 'N') letter_ = kUnknownPrevious;
}

void PreviousLetter::pass(char state) {
  if (!nothingIsKnown() && counts(state)) letter_ = tpPState(value_, state, state);
}

void tpResolve(std::string_view states, char value, RowStart start, std::string& flat) {
  PreviousLetter previous(value, start);
  flat.assign(states);
  for (char& state : flat) {
    if (state == 'P') {
      state = previous.letter();
      continue;
    }
    if (state == 'S') state = value;
    if (state == 'C') state = tpComplement(value);
    previous.pass(state);
  }
}

void tpFlattenForRow(const PVBtimePlate& plate, int track, const TpSignal& signal, const TpRow& row,
                     Wave& flat) {
  static Wave wave;
  const PVBtrack* source = tpTrack(plate, track);
  flat.states.clear();
  flat.times.clear();
  if (source == nullptr) return;
  // A signal with one column has its data there.
  const std::int32_t column = signal.inColumn >= 0 ? signal.inColumn : signal.outColumn;
  const char value = tpDataLetter(tpRowCode(row, column));
  const bool needsStart = source->stateChars.find('P') != std::string::npos;
  const RowStart start = needsStart ? tpRowStart(signal, row.row) : RowStart{};
  tpTakeWave(wave, *source);
  tpResolve(wave.states, value, start, flat.states);
  flat.times = wave.times;
}
