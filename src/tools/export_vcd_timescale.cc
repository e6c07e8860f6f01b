#include <algorithm>
#include <array>
#include <numeric>

#include "pvb/database.h"
#include "pvb/pattern.h"
#include "tools/export_vcd_internal.h"
#include "tools/flat_walk.h"

namespace {

constexpr std::array<VcdTimescale, 9> kTimescales = {{{100000000, "100 ns"},
                                                      {10000000, "10 ns"},
                                                      {1000000, "1 ns"},
                                                      {100000, "100 ps"},
                                                      {10000, "10 ps"},
                                                      {1000, "1 ps"},
                                                      {100, "100 fs"},
                                                      {10, "10 fs"},
                                                      {1, "1 fs"}}};
constexpr VcdTimescale kUsualTimescale = kTimescales[2];

// The greatest time of which all periods, events and spacers are multiples.
std::int64_t commonTime(int database) {
  std::int64_t common = 0;
  const auto take = [&](TIME time) { common = std::gcd(common, femtoseconds(time)); };
  for (const auto& plate : PVBget(database)->timePlates->plates) {
    if (plate == nullptr) continue;
    take(plate->period);
    if (plate->levels.empty()) continue;
    for (const PVBtrack& track : plate->levels.front().tracks) {
      for (const TIME time : track.eventTimes) take(time);
    }
  }
  const auto& subroutines = PVBget(database)->patterns->subroutines;
  for (int pattern = kMainPattern; pattern < static_cast<int>(subroutines.size()); ++pattern) {
    if (pattern >= 0 && subroutines[static_cast<std::size_t>(pattern)].root == kNoNode) continue;
    PatternWalk walk(database, pattern);
    while (walk.next()) {
      if (walk.entry().type == ROW_SPACER) take(walk.entry().time);
    }
  }
  return common;
}

}  // namespace

VcdTimescale vcdTimescale(int database, std::int64_t other) {
  const std::int64_t common = std::gcd(commonTime(database), other);
  if (common == 0) return kUsualTimescale;
  return *std::ranges::find_if(kTimescales, [common](const VcdTimescale& scale) {
    return common % scale.femtoseconds == 0;
  });
}
