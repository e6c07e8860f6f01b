#pragma once

// What the sources of the signal module share: look-ups that leave the status alone,
// entering and taking out records, implicit groups, columns.

#include <cstdint>
#include <memory>
#include <string_view>

#include "pvb/database.h"
#include "pvb/signal.h"

// The data of a database whose signals are loaded; otherwise null with status 1.
PVBsignalData* signalData(int database);
// Sets the status and gives `result`.
int failWith(int database, PVBstatusCode status, int result);

// Null when there is none.
PVBsignal* findById(const PVBsignalData& data, PVBid id);
PVBsignal* findByName(const PVBsignalData& data, std::string_view name);
// Whether the class of an id is one of signals and groups.
bool isSignalId(PVBid id);
inline bool isBus(const PVBsignal& signal) {
  return signal.type == MEM_BUS || signal.type == MEM_MUX_BUS;
}
inline bool isMux(const PVBsignal& signal) {
  return signal.type == MEM_MUX || signal.type == MEM_MUX_BUS;
}
// Whether the members are what the signal consists of.
inline bool isCompound(const PVBsignal& signal) {
  return isBus(signal) || signal.type == MEM_GROUP;
}

// Puts a record in both tables: it, or null when there was no memory. Id and name are
// free.
PVBsignal* enterSignal(PVBsignalData& data, std::unique_ptr<PVBsignal> signal);
// Takes a record out of both tables; ids in lists stay.
std::unique_ptr<PVBsignal> takeOut(PVBsignalData& data, PVBsignal& signal);
// To be called by every function that changes records, lists or tables.
void noteChange(PVBsignalData& data);

// The implicit groups that aren't there are made. -2 when a name of theirs belongs to
// another signal, or without memory.
int addImplicitGroups(int database);
// A scalar or multiplexed signal joins "ALL" and the groups of its direction and kind.
void joinImplicitGroups(PVBsignalData& data, const PVBsignal& signal);
void joinScanGroup(PVBsignalData& data, PVBid object);

// How many columns AllocColumns would give a new scalar of this direction.
int columnsOfDirection(std::int32_t direction);
// Makes room in the rows for `count` more columns: -2 when they can't be had.
int reserveColumns(int database, const PVBsignalData& data, int count);
// Makes `nextColumn` lie above the columns that a signal has already.
void claimColumns(PVBsignalData& data, const PVBsignal& signal);
// Makes the next index of its class lie above that of a scan object.
void claimScanIndex(PVBsignalData& data, PVBid id);
