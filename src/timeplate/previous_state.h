#pragma once

// What the rows of a pattern leave each signal at, from one row to the next, by the P mode
// of the run: letters of "DNUZ", or that nothing is known.
//
//   mode 1  the last of D, N, U, Z driven           mode 3  the last state, Z if not driven
//   mode 2  the last of D, U driven                 mode 5  the same without Z
//   mode 4  as 1; within a cycle an expected state counts too, L and T as D, H and X as U
//
// Within a cycle a P stands for what was driven before it in the cycle, and in modes 1, 2
// and 4 for Z where the row's data are Z. In modes 3 and 5 nothing is known behind a row
// that expects: whether that counts is seen in different ways.

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "timeplate/tp_run.h"

inline constexpr char kUnknownLetter = '\0';
// The track leaves the signal as it was.
inline constexpr char kSameLetter = '\1';

// What a track leaves behind in a row whose data for the signal are `value`.
char tpLetterBehind(std::string_view states, char value, int pmode);

// A walk over rows in order. Plates and maps must not change meanwhile.
class PreviousStates {
 public:
  PreviousStates();

  // The letter of a signal going into the row that comes next.
  char letter(const TpSignal& signal) const {
    return letters_[static_cast<std::size_t>(signal.index)];
  }
  // Nothing is known any more.
  void forget();
  // Goes on behind a row.
  void set(const TpSignal& signal, char letter) {
    letters_[static_cast<std::size_t>(signal.index)] = letter;
  }
  // What the row leaves the signal at.
  char behind(const TpSignal& signal, const PVBtimePlate& plate, const TpRow& row);

 private:
  static constexpr std::size_t kRowCodes = 16;

  // By the letter of the data, in the order of kDataLetters.
  struct TrackEffect {
    bool known = false;
    std::array<char, 4> letter{};
  };
  struct PlateEffects {
    std::vector<TrackEffect> tracks;
    // By signal: there are input and output tracks, and a row may use both.
    std::vector<bool> mixes;
    // By signal and its code in the row; the codes that were asked for.
    std::vector<std::array<char, kRowCodes>> ofCode;
  };
  PlateEffects& effectsOf(const PVBtimePlate& plate);
  // What the row leaves the signal at, or that it leaves it.
  char effectOf(PlateEffects& effects, const TpSignal& signal, const PVBtimePlate& plate,
                const TpRow& row) const;
  char effectOfCode(PlateEffects& effects, const TpSignal& signal, const PVBtimePlate& plate,
                    const TpRow& row) const;
  char trackEffect(PlateEffects& effects, const PVBtimePlate& plate, std::int32_t track,
                   char value) const;

  std::vector<char> letters_;
  std::vector<std::unique_ptr<PlateEffects>> plates_;  // by id
};
