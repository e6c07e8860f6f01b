#include "pvb/id.h"

#include <algorithm>

bool PVBidListContains(const PVBidList& list, PVBid id) {
  return std::find(list.begin(), list.end(), id) != list.end();
}

int PVBidListRemove(PVBidList& list, PVBid id) { return static_cast<int>(std::erase(list, id)); }
