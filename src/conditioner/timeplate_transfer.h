#pragma once

// Timeplates on their way into a destination: their signals and tracks are translated,
// and a plate is stored under a name that is free, as long as the limit allows. Property
// lists of plates and tracks stay behind, since they belong to the source; what is noted
// on a plate that is stored whole is up to the caller.
//
// A plate that doesn't have what it must have (a signal without a wave) ends the run
// after a line on standard error.

#include <memory>

#include "conditioner/signal_transfer.h"
#include "pvb/timeplate.h"

// A blank plate with a track for each signal of the database's "ALL" list, in its order.
std::unique_ptr<PVBtimePlate> baseTimePlate(int database);
// Fills a plate that was copied from the base with the waves of `srcPlate` for the
// signals of `table`, by src.sigIDMap. A signal that stands on several slots gets as many
// in the destination, with the selectors that choose among them. 0 or -2.
int mapTimePlateTracks(PVBtimePlate& destPlate, const PVBtimePlate& srcPlate, const PVBregion& src,
                       const SignalTable& table);
// The destination's own form of a source's plate, by clone when `extended`, else from the
// base. Null after a failure.
std::unique_ptr<PVBtimePlate> translateTimePlate(const PVBtimePlate& srcPlate,
                                                 const PVBtimePlate& base, const PVBregion& src,
                                                 const SignalTable& table, bool extended);
// Stores a plate, with a number behind its name when that is taken: the plate as stored,
// or null after a push (the limit of generated plates is reached). At the limit the
// optimizer may fold plates of a merge's destination first: the others are then not where
// they were, see tp_successor.h.
PVBtimePlate* insertTimePlate(int database, std::unique_ptr<PVBtimePlate> plate);
// Stores a plate, or finds one of the same content among those entered in the match table:
// the plate that stands for it, or null after a push.
PVBtimePlate* matchOrInsertTimePlate(int database, std::unique_ptr<PVBtimePlate> plate);
