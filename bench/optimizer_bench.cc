// Folding the timeplates of a large merge: what the optimizer costs over many timeplates,
// rows and signals, and where. The database is what a merge leaves: each timeplate is a
// pair of timings of the two sources, which drive half of the signals each. A timing has
// data, fixed states or pulses on a signal, and pulses at one of a few places: timings that
// pulse at the same place can be folded, others can't.
//
//   optimizer_bench [ROWS [SIGNALS [TIMEPLATES [PLACES]]]]
//
// Default: 1000000 256, 250 to 2000, 4. With more places of pulses fewer timeplates fold.

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "pattern_load.h"
#include "timeplate/optimizer.h"
#include "timeplate/row_lists.h"
#include "timeplate/tp_rewrite.h"

namespace {

struct Merge {
  std::uint32_t rows = 1000000;
  int signals = 256;
  int timeplates = 0;
  int places = 4;  // of pulses, for each source
};

constexpr int kRunOfRows = 12;   // rows that use one timeplate in a row
constexpr int kPulsedEvery = 8;  // signals
constexpr const char* kShapes = "#% shape\n  S\n  DSD\n  SD\n  USU\n  PS\n  SC\n";

// --- The database --------------------------------------------------------------------

// Anything that looks like chance and is the same every time.
unsigned mix(unsigned a, unsigned b) {
  std::uint64_t value = (std::uint64_t{a} << 32 | b) * 0x9E3779B97F4A7C15U;
  value ^= value >> 31;
  return static_cast<unsigned>(value * 0xBF58476D1CE4E5B9U >> 40);
}

struct Shape {
  const char* states;
  int code;  // of a row's data; 0: as the row has it
};
constexpr Shape kLevels[] = {{"S", 0}, {"S", 0}, {"D", 1}, {"U", 2}};
constexpr Shape kPulses[] = {{"DSD", 0}, {"DUD", 2}, {"D", 1}, {"DSD", 0}};

const Shape& shapeOf(const Merge& merge, int signal, int timing) {
  const auto variant = static_cast<unsigned>(timing / merge.places);
  const unsigned choice = mix(static_cast<unsigned>(signal), variant) % 4;
  return signal % kPulsedEvery == 0 ? kPulses[choice] : kLevels[choice];
}

// The timings of the two sources that a timeplate is made of.
int timingOf(const Merge& merge, int plate, int signal) {
  const int side = static_cast<int>(std::ceil(std::sqrt(merge.timeplates)));
  return signal < merge.signals / 2 ? plate % side : plate / side;
}

void addTimePlate(int database, const Merge& merge, int number) {
  auto plate = PVBtimePlateNew();
  plate->name = "tp" + std::to_string(number);
  plate->period = PBlongToTIME(static_cast<std::int32_t>(kPeriodFs));
  const PVBidList signals = PVBsignalInqByID(database, kGroupAll)->members;
  for (int slot = 0; slot < merge.signals; ++slot) {
    const int timing = timingOf(merge, number, slot);
    const std::int32_t place = 4000000 / merge.places * (1 + timing % merge.places);
    const std::string_view states = shapeOf(merge, slot, timing).states;
    PVBallocAsNecessary(*plate, slot);
    for (std::size_t edge = 0; edge < states.size(); ++edge) {
      const TIME time = PBlongToTIME(static_cast<std::int32_t>(edge) * place);
      PVBallocLevelAsNecessary(*plate, 0, slot, -1, time, states[edge], 1);
    }
    PVBtrackSetDirection(*plate, slot, INPUT);
    PVBtrackSetSignals(*plate, slot, {signals[static_cast<std::size_t>(slot)]});
  }
  check(PVBtimePlateInsert(database, std::move(plate)) == number, "PVBtimePlateInsert");
}

void addRow(int database, const Merge& merge, std::uint32_t number) {
  const RowHandle row(database, PVBpatternNew(database));
  check(static_cast<bool>(row), "PVBpatternNew");
  const auto plate =
      static_cast<int>(mix(number / kRunOfRows, 1) % static_cast<unsigned>(merge.timeplates));
  row->timeplate = static_cast<std::uint16_t>(plate);
  for (int signal = 0; signal < merge.signals; ++signal) {
    const Shape& shape = shapeOf(merge, signal, timingOf(merge, plate, signal));
    const auto data = static_cast<int>(1 + (number >> signal % 8) % 2);
    setRowCode(row->states(), static_cast<std::uint32_t>(signal),
               shape.code == 0 ? data : shape.code);
  }
  PVBposition end;
  end.row = number;
  check(PVBrowInsert(database, kMainPattern, end, BY_ROW, *row) >= 0, "PVBrowInsert");
}

void makeMerge(const std::string& path, const Merge& merge) {
  const int database = openPvb(path, {merge.rows, merge.signals}, true);
  for (int i = 0; i < merge.signals; ++i) {
    auto signal = PVBsignalNew();
    signal->name = "s" + std::to_string(i);
    signal->direction = INPUT;
    check(PVBsignalAdd(database, std::move(signal)) > 0, "PVBsignalAdd");
  }
  for (int i = 0; i < merge.timeplates; ++i) addTimePlate(database, merge, i);
  for (std::uint32_t i = 0; i < merge.rows; ++i) addRow(database, merge, i);
  check(PVBclose(database) == 0, "PVBclose");
}

// --- The passes ----------------------------------------------------------------------

// Of this process, user and system.
double cpuSeconds() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double secondsOf(const std::function<void()>& work) {
  const double start = cpuSeconds();
  work();
  return cpuSeconds() - start;
}

double peakMegabytes() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

// As a merge does it: shapes, a pass over all pairs, and the last one, which writes back.
void optimize(const std::string& path, const Merge& merge) {
  FILE* report = std::fopen("/dev/null", "w");
  check(report != nullptr && std::freopen("/dev/null", "w", stderr) != nullptr, "/dev/null");
  const std::string shapes = "ShapeFile=" + path + ".shp";
  const std::vector<const char*> arguments = {"ATEFamily=other", "Pmode=last_force", shapes.c_str(),
                                              "TmpPrefix=."};
  check(tpOptInit(report, arguments), "tpOptInit");
  const int database = openPvb(path, {merge.rows, merge.signals}, true);
  tpOptimizerSetDatabase(database);
  const double load =
      secondsOf([] { check(tpOptimizerBegin() == 0 && tpCheckShapes(), "tpCheckShapes"); });
  int left = 0;
  const double pairs = secondsOf([&] { left = tpOptimizeGenerated(false); });
  check(left > 0, "tpOptimizeGenerated");
  const MemoCounts memo = tpMemoCounts();
  const double finish = secondsOf([] { check(tpOptimizeGenerated(true) > 0, "the last pass"); });
  const double save = secondsOf([&] { check(PVBclose(database) == 0, "PVBclose"); });
  const double all = load + pairs + finish;
  std::printf("%10d %6d %8.2f %8.2f %8.2f %8.2f %6.0f%% %6.0f%% %10.0f %8.1f\n", merge.timeplates,
              left, load, pairs, finish, save, 100 * pairs / all,
              memo.asked == 0
                  ? 0.0
                  : 100 * static_cast<double>(memo.known) / static_cast<double>(memo.asked),
              merge.rows / all, peakMegabytes());
  std::fflush(stdout);
}

void run(const Merge& merge) {
  const std::string path = "optimizer_bench." + std::to_string(::getpid());
  std::ofstream(path + ".shp") << kShapes;
  measure(true, [&] { makeMerge(path, merge); });
  measure(true, [&] { optimize(path, merge); });
  std::filesystem::remove_all(path);
  std::filesystem::remove(path + ".shp");
}

}  // namespace

int main(int argc, char** argv) {
  Merge merge;
  if (argc > 1) merge.rows = static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10));
  if (argc > 2) merge.signals = std::atoi(argv[2]);
  if (argc > 4) merge.places = std::clamp(std::atoi(argv[4]), 1, 1000);
  std::vector<int> counts = {250, 500, 1000, 2000};
  if (argc > 3) counts = {std::max(1, std::atoi(argv[3]))};
  std::printf("%u rows, %d signals; CPU seconds of each part\n", merge.rows, merge.signals);
  std::printf("%10s %6s %8s %8s %8s %8s %7s %7s %10s %8s\n", "timeplates", "left", "load", "pairs",
              "finish", "save", "pairs", "memo", "rows/s", "MB");
  for (const int count : counts) {
    merge.timeplates = count;
    run(merge);
  }
}
