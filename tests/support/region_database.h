#pragma once

// Databases with the regions that operations see them through, and the few verbs that
// tests of operations fill them with.

#include <memory>
#include <string>
#include <string_view>

#include "conditioner/region.h"
#include "pvb/signal.h"
#include "support/database.h"

struct RegionDatabase {
  explicit RegionDatabase(std::string_view name, bool extended = false) {
    PVBraiseVersion(database.handle(), extended);
    PVBregionInit(region, name, database.path(), TIME_ZERO, TIME_MAX);
    region.pvbHandle = database.handle();
  }

  int handle() const { return database.handle(); }
  PVBid add(std::string_view name, std::int32_t direction = INPUT,
            std::int32_t type = MEM_SIGNAL) const {
    std::unique_ptr<PVBsignal> signal = PVBsignalNew();
    signal->name = name;
    signal->type = type;
    signal->direction = direction;
    return PVBsignalAdd(handle(), std::move(signal));
  }
  PVBsignal& named(std::string_view name) const {
    PVBsignal* found = PVBsignalInqByName(handle(), name);
    EXPECT_NE(found, nullptr) << name;
    return *found;
  }

  TestDatabase database;
  PVBregion region;
};
