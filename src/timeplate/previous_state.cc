#include "timeplate/previous_state.h"

#include <algorithm>

#include "timeplate/wave.h"

namespace {

constexpr std::string_view kDataLetters = "DUZN";

// Its place in kDataLetters: asked for each row and signal.
std::size_t placeOfLetter(char value) {
  switch (value) {
    case 'D':
      return 0;
    case 'U':
      return 1;
    case 'Z':
      return 2;
    default:
      return 3;
  }
}

// No letter, nor what stands for one.
constexpr char kNotAsked = '\2';

// Whether the code of one column is all that a row says of the signal.
bool isTold(const TpSignal& signal) {
  return !signal.selects && signal.inColumn >= 0 && signal.outColumn < 0;
}

bool isLevel(char state) { return state == 'D' || state == 'U' || state == 'N' || state == 'Z'; }

bool dataDecide(int pmode) {
  return pmode == LAST_FORCE || pmode == LAST_DRIVE || pmode == ADVANTEST;
}

// Whether a state counts as what went before, within a cycle and behind it.
bool countsWithin(int pmode, char state) {
  if (pmode == LAST_FORCE) return isLevel(state);
  if (pmode == LAST_DRIVE) return state == 'D' || state == 'U';
  return state != '?';
}
bool countsBehind(int pmode, char state) {
  return countsWithin(pmode, state) &&
         (pmode != ADVANTEST || isLevel(state) || state == kUnknownLetter);
}

// What P is behind a state that counts: in modes 1 and 2 only levels do.
char letterAfter(int pmode, char state) {
  if (state == kUnknownLetter) return state;
  if (pmode != ADVANTEST) return isLevel(state) ? state : 'Z';
  switch (state) {
    case 'T':
    case 'L':
      return 'D';
    case 'H':
    case 'X':
      return 'U';
    case 'Q':
    case 'R':
      return kUnknownLetter;
    default:
      return isLevel(state) ? state : 'Z';
  }
}

// With data for both or none a row uses the output track beside the input track.
bool usesBoth(const TpSignal& signal, const TpRow& row) {
  return (tpRowCode(row, signal.inColumn) != 0) == (tpRowCode(row, signal.outColumn) != 0);
}

char shown(char state, char value) {
  if (state == 'S') return value;
  return state == 'C' ? tpComplement(value) : state;
}

}  // namespace

char tpLetterBehind(std::string_view states, char value, int pmode) {
  if (pmode < LAST_FORCE || pmode > IMS) return kUnknownLetter;
  char within = kSameLetter;
  char behind = kSameLetter;
  for (const char edge : states) {
    char state = shown(edge, value);
    if (state == 'P') {
      state = dataDecide(pmode) && value == 'Z' ? 'Z' : within;
      if (state == kSameLetter) continue;
    }
    if (!countsWithin(pmode, state)) continue;
    within = letterAfter(pmode, state);
    if (countsBehind(pmode, state)) behind = within;
  }
  return behind;
}

PreviousStates::PreviousStates() : letters_(tpRun.signals.size(), kUnknownLetter) {}

void PreviousStates::forget() { std::ranges::fill(letters_, kUnknownLetter); }

PreviousStates::PlateEffects& PreviousStates::effectsOf(const PVBtimePlate& plate) {
  const auto id = static_cast<std::size_t>(std::max(plate.id, 0));
  if (id >= plates_.size()) plates_.resize(id + 1);
  std::unique_ptr<PlateEffects>& place = plates_[id];
  if (place != nullptr) return *place;
  place = std::make_unique<PlateEffects>();
  if (!plate.levels.empty()) place->tracks.resize(plate.levels.front().tracks.size());
  place->mixes.resize(tpRun.signals.size());
  place->ofCode.resize(tpRun.signals.size());
  for (auto& letters : place->ofCode) letters.fill(kNotAsked);
  for (const TpSignal& signal : tpRun.signals) {
    const SignalTracks* tracks = PVBsignalTracks(plate, signal.id);
    place->mixes[static_cast<std::size_t>(signal.index)] =
        tracks != nullptr && tracks->track[OUTPUT] != kNoTrack &&
        tracks->track[INPUT] != kNoTrack && tracks->track[INPUT] != tracks->track[OUTPUT];
  }
  return *place;
}

char PreviousStates::trackEffect(PlateEffects& effects, const PVBtimePlate& plate,
                                 std::int32_t track, char value) const {
  const auto place = static_cast<std::size_t>(track);
  if (track < 0 || place >= effects.tracks.size()) return kSameLetter;
  TrackEffect& effect = effects.tracks[place];
  if (!effect.known) {
    const std::string& states = plate.levels.front().tracks[place].stateChars;
    for (std::size_t i = 0; i < kDataLetters.size(); ++i) {
      effect.letter[i] = tpLetterBehind(states, kDataLetters[i], tpRun.pmode);
    }
    effect.known = true;
  }
  return effect.letter[placeOfLetter(value)];
}

char PreviousStates::behind(const TpSignal& signal, const PVBtimePlate& plate, const TpRow& row) {
  PlateEffects& effects = effectsOf(plate);
  const char effect = isTold(signal) ? effectOfCode(effects, signal, plate, row)
                                     : effectOf(effects, signal, plate, row);
  return effect == kSameLetter ? letter(signal) : effect;
}

char PreviousStates::effectOfCode(PlateEffects& effects, const TpSignal& signal,
                                  const PVBtimePlate& plate, const TpRow& row) const {
  const auto code = static_cast<std::size_t>(tpRowCode(row, signal.inColumn));
  char& effect = effects.ofCode[static_cast<std::size_t>(signal.index)][code % kRowCodes];
  if (effect == kNotAsked) effect = effectOf(effects, signal, plate, row);
  return effect;
}

char PreviousStates::effectOf(PlateEffects& effects, const TpSignal& signal,
                              const PVBtimePlate& plate, const TpRow& row) const {
  int direction = kUndefinedDirection;
  const std::int32_t track = tpRowTrack(signal, plate, row, direction);
  if (track == kNoTrack) return kSameLetter;
  const bool unclear = !dataDecide(tpRun.pmode);
  const bool mixes = effects.mixes[static_cast<std::size_t>(signal.index)];
  if (unclear && mixes && direction == INPUT && usesBoth(signal, row)) return kUnknownLetter;
  const char effect = trackEffect(effects, plate, track, tpRowLetter(signal, row));
  return unclear && direction == OUTPUT && effect != kSameLetter ? kUnknownLetter : effect;
}
