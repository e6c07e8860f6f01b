#pragma once

// For each row the state that each signal holds going into it: a temporary file of
// records of one size, a nibble a signal, low one first, by the signal's index, as an
// index into "DUNZHLXT?" from 1 on, 0 for no entry.
//
// A file that can't be made, read or written ends the program.

#include <cstdint>
#include <span>

// For records of `signalCount` signals (signalCount / 2 + 2 bytes each).
bool tpPStateOpen(int signalCount, const char* fileName);
// The record of a row, all 0 past the last one written. Good until the next call.
std::span<const std::uint8_t> tpPStateGet(std::int32_t row);
void tpPStatePut(std::int32_t row, std::span<const std::uint8_t> record);
void tpPStateClose();
// The letter of a signal going into a row, 'N' when there is no entry, and for a row of
// which nothing is known (tpRowEntered): what the first row is seeded with is what the
// tester is taken to hold, which no row has driven.
char tpPStateLetter(std::int32_t row, int signalIndex);
