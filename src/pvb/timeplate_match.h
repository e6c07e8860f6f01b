#pragma once

// The table of a destination's timeplates by content: a plate that is equal to one
// already there is not stored again. One table for the process, made anew for each
// destination; it holds pointers to plates of that destination's section and must
// not outlive them.

#include "base/time.h"
#include "pvb/timeplate.h"

// Makes the table anew; its tolerance becomes TIME_ZERO.
void matchTimePlateClear();
// Destroys it.
void matchTimePlateEnd();
// Events whose times differ by no more count as equal.
void matchTimePlateSetTolerance(TIME tolerance);
// Looks for an equal plate (period, slots with their signals and directions, waves); of
// several the one entered first. 0 with `existing` when there is one, else 1 with the
// plate entered: from then on it must stay at its address. Null gives 1.
int matchTimePlate(PVBtimePlate* plate, PVBtimePlate*& existing);
// Takes out the plate that was entered last, which couldn't be stored and may be gone.
void matchTimePlateForget();
