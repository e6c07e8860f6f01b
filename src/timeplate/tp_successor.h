#pragma once

// For who keeps timeplates by id while rows are generated: what the passes in between made
// of them, and how rows made for a timeplate as it was go through the one that took its
// place.

#include <cstdint>
#include <memory>
#include <span>

#include "pvb/timeplate.h"

// Of a timeplate from before the passes since tpOptimizerForgetChanges.
struct TpSuccessor {
  PVBid plate = UNDEF;
  bool alike = false;  // rows to come mean the same there with the data that they have
};
TpSuccessor tpOptimizerSuccessor(PVBid plate);
// The timeplate as it was before those passes; null when it wasn't kept, because it is as it
// was or there are too many.
std::shared_ptr<const PVBtimePlate> tpOptimizerOriginal(PVBid plate);
void tpOptimizerForgetChanges();

// How many redirections are worth the memory.
std::size_t tpRedirectLimit();

// Rows of one timeplate on their way through another. The other may not change as long as
// this is used: after a pass a new one is made.
class TpRedirect {
 public:
  TpRedirect(std::shared_ptr<const PVBtimePlate> original, PVBid plate);
  ~TpRedirect();
  TpRedirect(const TpRedirect&) = delete;
  TpRedirect& operator=(const TpRedirect&) = delete;

  const std::shared_ptr<const PVBtimePlate>& original() const { return original_; }
  // Gives a row that isn't in the row store the data with which it does the same there;
  // false when there are none.
  bool rewrite(std::span<std::uint8_t> states);

 private:
  struct Work;

  std::shared_ptr<const PVBtimePlate> original_;
  std::unique_ptr<Work> work_;
};
