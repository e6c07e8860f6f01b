// Checking and optimizing a large database: what each pass costs over many rows, signals
// and timeplates. Half of the timeplates are duplicates and one in fifty has no rows. Each
// pass is a process of its own, and works in place over a database of its own.
//
//   plates_bench [ROWS [SIGNALS [TIMEPLATES [PASS]]]]     default: 1000000 256 500, all

#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/temp_directory.h"
#include "pattern_load.h"
#include "pvb/checker.h"
#include "timeplate/tp_optimize.h"

namespace {

struct Plates {
  std::uint32_t rows = 1000000;
  int signals = 256;
  int timeplates = 500;
  std::string onlyPass;
};

// Clocks on every sixteenth signal, data on the others.
void addPlate(int database, int number) {
  auto plate = PVBtimePlateNew();
  plate->name = "tp" + std::to_string(number);
  plate->period = PBlongToTIME(10000000);
  const TIME edge = PBlongToTIME(1000000 + number / 2 * 1000);
  const PVBidList signals = PVBsignalInqByID(database, kGroupAll)->members;
  for (int slot = 0; slot < static_cast<int>(signals.size()); ++slot) {
    const bool clock = slot % 16 == 0;
    PVBallocAsNecessary(*plate, slot);
    PVBallocLevelAsNecessary(*plate, 0, slot, -1, TIME_ZERO, clock ? 'P' : 'S', 1);
    if (clock) PVBallocLevelAsNecessary(*plate, 0, slot, -1, edge, 'U', 1);
    if (clock) PVBallocLevelAsNecessary(*plate, 0, slot, -1, PBaddTIME(edge, edge), 'D', 1);
    PVBtrackSetDirection(*plate, slot, INPUT);
    PVBtrackSetSignals(*plate, slot, {signals[static_cast<std::size_t>(slot)]});
  }
  check(PVBtimePlateInsert(database, std::move(plate)) >= 0, "PVBtimePlateInsert");
}

void makeDatabase(const std::string& path, const Plates& load) {
  const int database = PVBopenAny(path, true, load.signals, 16, kAllSections, false);
  check(database >= 0, "PVBopenAny");
  for (int i = 0; i < load.signals; ++i) {
    auto signal = PVBsignalNew();
    signal->name = "s" + std::to_string(i);
    signal->direction = INPUT;
    check(PVBsignalAdd(database, std::move(signal)) > 0, "PVBsignalAdd");
  }
  for (int i = 0; i < load.timeplates; ++i) addPlate(database, i);
  for (std::uint32_t i = 0; i < load.rows; ++i) {
    const RowHandle row(database, PVBpatternNew(database));
    check(static_cast<bool>(row), "PVBpatternNew");
    const auto plate = static_cast<int>(i * 7 % static_cast<std::uint32_t>(load.timeplates));
    row->timeplate = static_cast<std::uint16_t>(plate % 50 == 49 ? 0 : plate);
    for (int s = 0; s < load.signals; ++s) {
      if (s % 16 == 0) continue;
      setRowCode(row->states(), static_cast<std::uint32_t>(s),
                 1 + static_cast<int>((i >> s % 8) & 1));
    }
    PVBposition end;
    end.row = i;
    check(PVBrowInsert(database, kMainPattern, end, BY_ROW, *row) >= 0, "PVBrowInsert");
  }
  check(PVBsave(database) == 0 && PVBclose(database) == 0, "PVBsave");
}

struct Pass {
  const char* name;
  TpOptimizations wanted;
};

// The first three fields of the wishes are duplicates, timeplates and tracks; without a
// wish the pass is the check alone.
constexpr Pass kPasses[] = {
    {"check", {}},
    {"timeplates", {false, true, false, false, false}},
    {"tracks", {false, false, true, false, false}},
    {"duplicates", {true, false, false, false, false}},
    {"clocks", {false, false, false, false, true}},
    {"all-but-clocks", {true, true, true, false, false}},
    {"all", {true, true, true, false, true}},
};

void checkOnly(const std::string& path) {
  const int database = PVBopenAny(path, false, 0, 4, kAllSections, false);
  check(database >= 0, "PVBopenAny");
  check(PVBcheck(database, true, true, nullptr, INT32_MAX) == 0, "PVBcheck");
  PVBcloseUnsaved(database);
}

void carryOut(const Pass& pass, const std::string& path) {
  if (&pass == kPasses) return checkOnly(path);
  // The lines for the user, some for each timeplate, aren't what is measured.
  FILE* nowhere = std::freopen("/dev/null", "w", stderr);
  check(nowhere != nullptr, "/dev/null");
  check(tpOptimize(path, std::nullopt, pass.wanted, nowhere) == 0, "tpOptimize");
}

}  // namespace

int main(int argc, char** argv) {
  Plates load;
  if (argc > 1) load.rows = static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10));
  if (argc > 2) load.signals = std::atoi(argv[2]);
  if (argc > 3) load.timeplates = std::atoi(argv[3]);
  if (argc > 4) load.onlyPass = argv[4];
  const std::string source = PBtempFileName("plates");
  const std::string copy = source + ".copy";
  measure(true, [&] { makeDatabase(source, load); });
  std::printf("%u rows, %d signals, %d timeplates\n", load.rows, load.signals, load.timeplates);
  for (const Pass& pass : kPasses) {
    if (!load.onlyPass.empty() && load.onlyPass != pass.name) continue;
    check(PVBcopy(copy, source) == 0, "PVBcopy");
    const Measured measured = measure(true, [&] { carryOut(pass, copy); });
    std::printf("%-16s %8.2f s CPU  %9.0f rows/s  %6.1f MB peak\n", pass.name, measured.cpuSeconds,
                load.rows / measured.cpuSeconds, measured.megabytes);
    std::filesystem::remove_all(copy);
  }
  std::filesystem::remove_all(source);
  return 0;
}
