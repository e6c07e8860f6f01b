#pragma once

// A region, the operand of every operation: a named stretch of time of the main
// pattern of one database. Regions are plain records; the run's RegionTable owns
// them from the reading of the parameters to the end.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/time.h"

struct PVBregion {
  std::string regionName;  // as printed in reports and messages
  // On a region that only carries the name of a signal list as operand; the
  // region then has neither name nor path.
  std::string listName;
  std::string pvbName;          // path of the database directory
  std::int32_t pvbHandle = -1;  // -1: no database is open for the region
  TIME start = TIME_ZERO;
  TIME stop = TIME_MAX;
};

std::unique_ptr<PVBregion> PVBregionNew();
void PVBregionInit(PVBregion& region, std::string_view name, std::string_view path, TIME start,
                   TIME stop);

// The regions of a run by key. A key may be given again: look-ups find the newer
// region. A region that is taken out of look-up stays alive with the table,
// since operations already queued may hold it.
class RegionTable {
 public:
  // The table owns the region; the result lives as long as the table.
  PVBregion& insert(std::string_view key, std::unique_ptr<PVBregion> region);
  // Null when no region has this key.
  PVBregion* find(std::string_view key) const;
  std::size_t size() const { return regions_.size(); }

 private:
  std::vector<std::unique_ptr<PVBregion>> regions_;
  // The newest region of each key. A table of its own and not a PBhash: keys like
  // "region000001" have few different byte sums.
  std::unordered_map<std::string, PVBregion*> newest_;
};

// The key of a path: its last component, one trailing "/" and a drive prefix
// left out. "/" and "\" separate components.
std::string regionKey(std::string_view path);

// Fills a new region from texts: null or "begin", null or "end" (any case) stand
// for the ends of time. -2 after a push (a text that is no time, a start behind
// the stop).
int initRegionFromParams(PVBregion& region, std::string_view name, std::string_view path,
                         const std::string* startText, const std::string* stopText);
