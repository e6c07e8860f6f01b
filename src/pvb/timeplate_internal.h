#pragma once

// What the timeplate sources share.

#include <cstdint>
#include <memory>

#include "pvb/section_text.h"
#include "pvb/timeplate.h"

// Highest version of "pvb.tp" by data model: it is the one written, and files beyond
// it aren't read.
inline constexpr int kClassicPlateFile = 8;
inline constexpr int kExtendedPlateFile = 10;
inline constexpr std::int32_t kMaxLevels = 65535;  // of a plate, a count of 16 bits

// Reads a whole file; false at the first fault, with the plates before it entered.
// tpFirstFree is left alone.
bool tpReadFile(SectionReader& reader, PVBtimePlateData& data, int highestVersion);
// False when a plate holds what no reader would take.
bool tpWriteFile(SectionWriter& writer, const PVBtimePlateData& data, int version);

// Enters a plate under its id, with its maps built. False, with the plate dropped,
// when the id is out of range or either id or name is in use. tpFirstFree is left alone.
bool tpEnter(PVBtimePlateData& data, std::unique_ptr<PVBtimePlate> plate);
