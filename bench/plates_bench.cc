// Optimizing a large database: what each pass costs over many rows, signals and
// timeplates. Half of the timeplates are duplicates and one in fifty has no rows. Each
// pass runs in place over a database of its own.
//
//   plates_bench [ROWS [SIGNALS [TIMEPLATES]]]     default: 1000000 256 500

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/errors.h"
#include "pvb/checker.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/signal.h"
#include "timeplate/tp_optimize.h"

namespace {

struct Load {
  std::uint32_t rows = 1000000;
  int signals = 256;
  int timeplates = 500;
};

void check(bool ok, const char* what) {
  if (ok) return;
  PBflushErrors();
  PBerrPrint(stderr);
  std::fprintf(stderr, "%s failed\n", what);
  std::_Exit(1);
}

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

void makeDatabase(const std::string& path, const Load& load) {
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

// The first three fields of the wishes are duplicates, timeplates and tracks.
constexpr Pass kPasses[] = {
    {"unused timeplates", {false, true, false, false, false}},
    {"unused tracks", {false, false, true, false, false}},
    {"duplicates", {true, false, false, false, false}},
    {"clock shapes", {false, false, false, false, true}},
    {"everything", {true, true, true, false, true}},
};

double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double checkOnly(const std::string& path) {
  const int database = PVBopenAny(path, false, 0, 4, kAllSections, false);
  check(database >= 0, "PVBopenAny");
  const double seconds = secondsOf(
      [&] { check(PVBcheck(database, true, true, nullptr, INT32_MAX) == 0, "PVBcheck"); });
  PVBcloseUnsaved(database);
  return seconds;
}

}  // namespace

int main(int argc, char** argv) {
  Load load;
  if (argc > 1) load.rows = static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10));
  if (argc > 2) load.signals = std::atoi(argv[2]);
  if (argc > 3) load.timeplates = std::atoi(argv[3]);
  const std::string source = "plates_bench." + std::to_string(::getpid());
  const std::string copy = source + ".copy";
  makeDatabase(source, load);
  std::printf("%u rows, %d signals, %d timeplates\n", load.rows, load.signals, load.timeplates);
  std::printf("%-20s %8.2f s\n", "the check alone", checkOnly(source));
  FILE* nowhere = std::fopen("/dev/null", "w");
  check(nowhere != nullptr, "/dev/null");
  for (const Pass& pass : kPasses) {
    check(PVBcopy(copy, source) == 0, "PVBcopy");
    const double seconds = secondsOf(
        [&] { check(tpOptimize(copy, std::nullopt, pass.wanted, nowhere) == 0, "tpOptimize"); });
    std::printf("%-20s %8.2f s\n", pass.name, seconds);
    std::filesystem::remove_all(copy);
  }
  std::fclose(nowhere);
  std::filesystem::remove_all(source);
}
