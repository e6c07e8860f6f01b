// Flattening at full size: a pattern of repeated rows, loops and loops in loops is played
// out to the given count of rows. The process that does it opens the database, flattens
// the main pattern and closes; the files are packed, as they are by default.
//
//   passes_bench [ROWS]     default: 10000000 rows, 64 and 512 signals

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/temp_directory.h"
#include "pattern_load.h"
#include "pvb/flatten_rows.h"

namespace {

// Rows that a block of the source becomes: 5 rows of 4 cycles, 10 rows 4 times, 5 rows of
// 2 cycles 2 times 2 times.
constexpr std::uint32_t kBlockRows = 100;

class SourceWriter {
 public:
  SourceWriter(int database, int signals) : database_(database), states_(signals) {}

  void block() {
    literals(5, 4);
    loop(4);
    literals(10, 1);
    endLoop();
    loop(2);
    loop(2);
    literals(5, 2);
    endLoop();
    endLoop();
  }

 private:
  void insert(PVBrow& row) {
    PVBposition place;
    place.row = next_++;
    check(PVBrowInsert(database_, kMainPattern, place, BY_ROW, row) >= 0, "PVBrowInsert");
  }
  void literals(int rows, std::uint32_t count) {
    for (; rows > 0; --rows) {
      const RowHandle row(database_, PVBpatternNew(database_));
      check(static_cast<bool>(row), "PVBpatternNew");
      const std::vector<std::uint8_t>& states = states_.next();
      std::copy(states.begin(), states.end(), row->states());
      row->timeplate = 0;
      row->count = count;
      insert(*row);
    }
  }
  void loop(std::uint32_t count) {
    const RowHandle row(database_, PVBpatternNew(database_));
    check(static_cast<bool>(row), "PVBpatternNew");
    row->type = ROW_LOOP;
    row->count = count;
    insert(*row);
  }
  // The end row is there already.
  void endLoop() { ++next_; }

  int database_;
  StateSource states_;
  std::uint32_t next_ = 0;
};

void makeSource(const std::string& path, const Load& load) {
  appendPvb(path, {0, load.signals});
  const int database = openPvb(path, load, true);
  SourceWriter writer(database, load.signals);
  for (std::uint32_t rows = 0; rows < load.rows; rows += kBlockRows) writer.block();
  check(PVBclose(database) == 0, "PVBclose");
}

void flattenSource(const std::string& path) {
  const int database = PVBopenAny(path, true, 1, 4, kAllSections, false);
  check(database >= 0, "PVBopenAny");
  check(flattenRows(database, kMainPattern) == 0, "flattenRows");
  check(PVBclose(database) == 0, "PVBclose");
}

void run(const Load& load) {
  const std::string path = PBtempFileName("passes");
  std::filesystem::create_directory(path);
  measure(true, [&] { makeSource(path, load); });
  const double before = diskMegabytes(path);
  const auto start = std::chrono::steady_clock::now();
  const Measured measured = measure(true, [&] { flattenSource(path); });
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  std::printf("%9u rows %4d signals  %7.1f s  %7.1f s CPU  %9.0f rows/s  %6.1f MB peak  ",
              load.rows, load.signals, wall.count(), measured.cpuSeconds,
              load.rows / measured.cpuSeconds, measured.megabytes);
  std::printf("%.1f -> %.1f MB on disk\n", before, diskMegabytes(path));
  std::filesystem::remove_all(path);
}

}  // namespace

int main(int argc, char** argv) {
  const auto rows =
      static_cast<std::uint32_t>(argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 10000000);
  for (const int signals : {64, 512}) run({rows, signals});
  return 0;
}
