#pragma once

// What the files of the scan runs share: a walk over the runs of a row.

#include <cstdint>

#include "pvb/scan_run.h"

// Sets a status; -2.
int scanRunFailure(int database, std::int32_t status);

// A walk over the runs of a row. It ends at the last run, and with a failure at a
// link that leads nowhere or, by counting, in a circle.
class ScanRunWalk {
 public:
  ScanRunWalk(int database, const PVBrow& row);

  // The next run; false at the end and after a failure.
  bool next();
  // Whether the walk ended, or stands, without a failure.
  bool good() const { return good_; }
  PVBid id() const { return id_; }
  const PVBscanRun& run() const { return run_; }

 private:
  int database_;
  PVBid next_;
  PVBid id_ = UNDEF;
  PVBscanRun run_{};
  std::uint32_t left_ = 0;  // runs that there can be at most
  bool good_ = true;
};
