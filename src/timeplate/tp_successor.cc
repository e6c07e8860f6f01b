#include "timeplate/tp_successor.h"

#include <algorithm>

#include "timeplate/tp_rewrite_internal.h"
#include "timeplate/tp_run.h"

namespace {

// Signals of all redirections together; half a kilobyte each at worst.
constexpr std::size_t kMostSignals = std::size_t{1} << 18;
constexpr std::size_t kFewest = 16;

// No row of the store, so that nothing is known of the states before it.
constexpr std::int32_t kNoRow = -1;

}  // namespace

std::size_t tpRedirectLimit() {
  return std::max(kFewest, kMostSignals / std::max<std::size_t>(tpRun.signals.size(), 1));
}

struct TpRedirect::Work {
  Work(const PVBtimePlate& original, const PVBtimePlate& after)
      : owner(PVBtimePlateCopy(original)), changes(*owner, after, 0, false) {
    owner->id = after.id;
    PVBtimePlateRebuildMaps(*owner);
    row.row = kNoRow;
    row.timeplate = static_cast<std::uint16_t>(after.id);
  }

  std::unique_ptr<PVBtimePlate> owner;
  RowChanges changes;
  TpRow row;
};

TpRedirect::TpRedirect(std::shared_ptr<const PVBtimePlate> original, PVBid plate)
    : original_(std::move(original)) {
  const PVBtimePlate* after = PVBtimePlateInqByID(tpRun.database, plate);
  if (after != nullptr) work_ = std::make_unique<Work>(*original_, *after);
}

TpRedirect::~TpRedirect() = default;

bool TpRedirect::rewrite(std::span<std::uint8_t> states) {
  if (work_ == nullptr) return false;
  TpRow& row = work_->row;
  row.data.assign(states.begin(), states.end());
  if (work_->changes.forbiddenIn(row) != nullptr) return false;
  for (const ShownBy way : {ShownBy::waves, ShownBy::rows}) work_->changes.rewrite(row, way);
  std::copy(row.data.begin(), row.data.end(), states.begin());
  return true;
}
