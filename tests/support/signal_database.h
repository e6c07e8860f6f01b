#pragma once

// A database in a directory of its own with its signal section alone, so that tests of
// signals need none of the other sections. A fixture: TEST_F, or a member of one.

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/signal.h"
#include "support/temp_dir.h"

inline constexpr int kTestRowWidth = 32;

class SignalDatabase : public testing::Test {
 protected:
  SignalDatabase() { restart(kClassicVersion); }
  ~SignalDatabase() override {
    drop();
    PBdiscardErrors();
  }

  // Begins again with an empty database of this version.
  void restart(std::int32_t version) {
    drop();
    dir_ = std::make_unique<TempDir>();
    db = PVBopenAny(dir_->path(), true, kTestRowWidth, 4, 0, version >= kExtendedVersion);
    EXPECT_EQ(SignalDataCreate(db, kTestRowWidth), 0);
  }
  // False when the signals can't be read.
  bool reload() {
    SignalDataClose(db);
    return SignalDataCreate(db, kTestRowWidth) == 0;
  }
  // Puts a file in place and reads it.
  bool load(std::string_view file) {
    dir_->write("pvb.s", file);
    return reload();
  }
  // The file that a save leaves.
  std::string saved() {
    PVBsignalRenumber(db);
    EXPECT_EQ(SignalDataWrite(db, ""), 0);
    return dir_->read("pvb.s");
  }

  PVBsignalData& data() const { return *PVBget(db)->signals; }
  std::int32_t status() const {
    const char* text = nullptr;
    return PVBinqStatus(db, text);
  }
  const PVBidList& membersOf(PVBid group) const { return PVBobjectInqByID(db, group)->members; }
  PVBsignal& named(std::string_view name) const {
    PVBsignal* found = PVBsignalInqByName(db, name);
    EXPECT_NE(found, nullptr) << name;
    return *found;
  }

  static std::unique_ptr<PVBsignal> make(std::string_view name, std::int32_t direction = INPUT,
                                         std::int32_t type = MEM_SIGNAL) {
    std::unique_ptr<PVBsignal> signal = PVBsignalNew();
    signal->name = name;
    signal->type = type;
    signal->direction = direction;
    return signal;
  }
  static std::unique_ptr<PVBsignal> makeBus(std::string_view name, int left, int right,
                                            std::int32_t direction = INPUT,
                                            std::int32_t type = MEM_BUS) {
    std::unique_ptr<PVBsignal> bus = make(name, direction, type);
    bus->leftIndex = static_cast<std::uint16_t>(left);
    bus->rightIndex = static_cast<std::uint16_t>(right);
    return bus;
  }
  PVBid add(std::string_view name, std::int32_t direction = INPUT,
            std::int32_t type = MEM_SIGNAL) const {
    return PVBsignalAdd(db, make(name, direction, type));
  }

  int db = -1;

 private:
  void drop() {
    if (PVBget(db) == nullptr) return;
    SignalDataClose(db);
    *PVBget(db) = PVBdatabase();
  }

  std::unique_ptr<TempDir> dir_;

 protected:
  const TempDir& directory() const { return *dir_; }
};
