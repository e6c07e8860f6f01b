#include "tools/import_vcd_internal.h"

namespace {

struct PortRow {
  char state;
  VcdPortState meaning;
  std::uint8_t sides;
};
constexpr std::uint8_t kBoth = kVcdTester | kVcdDevice;
// A tester that drives nothing leaves the wire at high impedance; where both drive
// against each other the device's side can't be told.
constexpr std::array kPortRows = {
    PortRow{'D', {kVcdLow, kVcdNone, kVcdLow}, kVcdTester},
    PortRow{'U', {kVcdHigh, kVcdNone, kVcdHigh}, kVcdTester},
    PortRow{'N', {kVcdUnknown, kVcdNone, kVcdUnknown}, kVcdTester},
    PortRow{'Z', {kVcdHighZ, kVcdNone, kVcdHighZ}, kVcdTester},
    PortRow{'d', {kVcdLow, kVcdNone, kVcdLow}, kVcdTester},
    PortRow{'u', {kVcdHigh, kVcdNone, kVcdHigh}, kVcdTester},
    PortRow{'L', {kVcdHighZ, kVcdLow, kVcdLow}, kVcdDevice},
    PortRow{'H', {kVcdHighZ, kVcdHigh, kVcdHigh}, kVcdDevice},
    PortRow{'X', {kVcdHighZ, kVcdUnknown, kVcdUnknown}, kVcdDevice},
    PortRow{'T', {kVcdHighZ, kVcdHighZ, kVcdHighZ}, kVcdDevice},
    PortRow{'l', {kVcdHighZ, kVcdLow, kVcdLow}, kVcdDevice},
    PortRow{'h', {kVcdHighZ, kVcdHigh, kVcdHigh}, kVcdDevice},
    PortRow{'0', {kVcdLow, kVcdLow, kVcdLow}, kBoth},
    PortRow{'1', {kVcdHigh, kVcdHigh, kVcdHigh}, kBoth},
    PortRow{'?', {kVcdUnknown, kVcdUnknown, kVcdUnknown}, kBoth},
    PortRow{'A', {kVcdLow, kVcdUnknown, kVcdUnknown}, kBoth},
    PortRow{'a', {kVcdLow, kVcdUnknown, kVcdUnknown}, kBoth},
    PortRow{'B', {kVcdHigh, kVcdUnknown, kVcdUnknown}, kBoth},
    PortRow{'b', {kVcdHigh, kVcdUnknown, kVcdUnknown}, kBoth},
    PortRow{'C', {kVcdUnknown, kVcdUnknown, kVcdUnknown}, kBoth},
    PortRow{'c', {kVcdUnknown, kVcdUnknown, kVcdUnknown}, kBoth},
    PortRow{'f', {kVcdHighZ, kVcdHighZ, kVcdHighZ}, 0},
    PortRow{'F', {kVcdHighZ, kVcdNone, kVcdHighZ}, 0},
};

const PortRow& portRow(char state) {
  for (const PortRow& row : kPortRows) {
    if (row.state == state) return row;
  }
  return kPortRows.back();
}

}  // namespace

VcdLevel vcdLevel(char bit) {
  switch (bit) {
    case '0':
      return kVcdLow;
    case '1':
      return kVcdHigh;
    case 'z':
      return kVcdHighZ;
    default:
      return kVcdUnknown;
  }
}

VcdPortState vcdPortState(char state) { return portRow(state).meaning; }

void noteVcdSides(std::string_view states, std::uint8_t& sides) {
  sides |= kVcdAnyPort;
  for (const char state : states) sides |= portRow(state).sides;
}

SignalDirection vcdDirection(std::uint8_t sides) {
  if ((sides & kBoth) == kBoth) return BIDIR;
  return (sides & kVcdDevice) != 0 ? OUTPUT : INPUT;
}

std::string_view vcdDirectionName(std::uint8_t sides) {
  if (sides == 0) return {};
  switch (vcdDirection(sides)) {
    case OUTPUT:
      return "output";
    case BIDIR:
      return "bidir";
    default:
      return "input";
  }
}
