#pragma once

// What the parts of the VCD import share: which bits of the dump become signals, and
// what becomes of their changes.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "pvb/signal.h"
#include "tools/import.h"
#include "tools/vcd_reader.h"

// A scalar: a bit of a net.
struct VcdSignal {
  std::string name;
  SignalDirection direction = INPUT;
  bool clock = false;
  std::uint32_t net = 0;
  std::uint32_t bit = 0;  // 0 for the rightmost
};

// The signals that a variable of several bits became, left one first.
struct VcdBus {
  std::string name;
  std::uint32_t first = 0;  // index of a signal
  std::uint32_t count = 0;
};

struct VcdChoice {
  std::vector<VcdSignal> signals;  // in the order of the file
  std::vector<VcdBus> buses;
};

// False after a message; reads the whole file where directions come from port states,
// and leaves the reader at its first change.
bool chooseVcdSignals(VcdReader& reader, const ImportOptions& options, VcdChoice& choice);

// Levels as codes of row data.
enum VcdLevel : std::uint8_t {
  kVcdNone = 0,
  kVcdLow = 1,
  kVcdHigh = 2,
  kVcdHighZ = 3,
  kVcdUnknown = 4
};
inline constexpr std::string_view kVcdDriven = "-DUZN";  // states, by level

VcdLevel vcdLevel(char bit);

// What a port state tells: the level that the tester drives, what the device shows
// (kVcdNone where it drives nothing), and the level of the wire.
struct VcdPortState {
  VcdLevel in = kVcdUnknown;
  VcdLevel out = kVcdNone;
  VcdLevel wire = kVcdUnknown;
};
VcdPortState vcdPortState(char state);

// Which sides drove each net in the port states of the file, as bits of VcdSides.
enum VcdSides : std::uint8_t { kVcdTester = 1, kVcdDevice = 2, kVcdAnyPort = 4 };
void noteVcdSides(std::string_view states, std::uint8_t& sides);
SignalDirection vcdDirection(std::uint8_t sides);
// "input", "output", "bidir"; empty for a net without port states.
std::string_view vcdDirectionName(std::uint8_t sides);
