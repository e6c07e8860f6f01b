// Edits in place that are killed, or fail, at any file call: the source is the old or the
// new database, and what is left doesn't stop the next run.

#include "conditioner/edit_target.h"

#include <filesystem>
#include <vector>

#include "conditioner/add.h"
#include "conditioner/cut.h"
#include "conditioner/rename.h"
#include "conditioner/run.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "support/in_place.h"

namespace {

namespace fs = std::filesystem;

// A file system that can't do all: an exchange fails with `kExchangeError`, and so does,
// where there are none, a second name for a file.
template <int kExchangeError, bool kHasLinks>
class PoorPlatform : public FaultPlatform {
 public:
  int exchange(const char*, const char*) override {
    errno = kExchangeError;
    return -1;
  }
  int link(const char* from, const char* to) override {
    if (kHasLinks) return FaultPlatform::link(from, to);
    errno = EPERM;
    return -1;
  }
};
using NoExchange = PoorPlatform<EINVAL, true>;
using NoExchangeNoLinks = PoorPlatform<EINVAL, false>;
using MountedDisk = PoorPlatform<EBUSY, true>;
using MountedDiskNoLinks = PoorPlatform<EBUSY, false>;

constexpr const char* kBefore = "old other ";

class EditInPlace : public InPlaceTest {
 protected:
  EditInPlace() {
    buildSource(dir_.path("whole"));
    run.lists.addListTable.select("list");
    run.lists.addListTable.append({"more", "in", "", ""});
    run.lists.cutListTable.select("list");
    run.lists.cutListTable.append({"other"});
    run.lists.sigListTable.select("list");
    run.lists.sigListTable.append({"old", "new"});
    listCarrier_.listName = "list";
  }
  ~EditInPlace() override { run.lists = {}; }

  // The results are the names of the signals. What is done already is refused by the lists.
  template <typename Edit>
  InPlaceOperation operation(const Edit& edit, const char* result) const {
    return {[this, edit] {
              PVBregion source;
              PVBregionInit(source, "A", path(), TIME_ZERO, TIME_MAX);
              return edit(source, source, listCarrier_);
            },
            result};
  }

  static void buildSource(const std::string& path) {
    const int db = PVBopenAny(path, true, 0, 8, kAllSections, false);
    auto plate = PVBtimePlateNew();
    plate->name = "tp";
    plate->period = {10, 0};
    for (const char* name : {"old", "other"}) {
      auto signal = PVBsignalNew();
      signal->name = name;
      signal->direction = INPUT;
      const int slot = PVBslotCount(*plate);
      PVBallocAsNecessary(*plate, slot);
      PVBlistInsert(*plate, slot, PVBsignalAdd(db, std::move(signal)));
      PVBallocLevelAsNecessary(*plate, 0, slot, -1, TIME_ZERO, 'S', 1);
      PVBtrackSetDirection(*plate, slot, INPUT);
    }
    PVBtimePlateInsert(db, std::move(plate));
    RowHandle row(db, PVBpatternNew(db));
    row->timeplate = 0;
    PVBposition position;
    ASSERT_GE(PVBrowInsert(db, kMainPattern, position, BY_ROW, *row), 0);
    row.reset();
    ASSERT_EQ(PVBsave(db), 0);
    ASSERT_EQ(PVBclose(db), 0);
  }

  // The names of the database's signals; empty when anything is wrong.
  std::string content(const std::string& database) const override {
    const int db = PVBopenAny(database, false, 0, 8, kAllSections, false);
    if (db < 0) return "";
    PVBposition sums;
    const PVBtimePlate* plate = PVBtimePlateInqByID(db, 0);
    bool sound = PVBpatternInqSize(db, kMainPattern, sums) == 0 && sums.row == 1;
    std::string names;
    const PVBidList all = PVBsignalInqByID(db, kGroupAll)->members;
    for (const PVBid id : all) names += PVBsignalInqByID(db, id)->name.value_or("") + " ";
    sound = sound && plate != nullptr && PVBslotCount(*plate) == static_cast<int>(all.size());
    PVBcloseUnsaved(db);
    return sound ? names : "";
  }

  template <typename SomePlatform>
  void expectDoneOn() {
    restore();
    expectDone<SomePlatform>(rename_);
  }

  PVBregion listCarrier_;
  const InPlaceOperation rename_ = operation(renameSignal, "new other ");
  const std::vector<InPlaceOperation> edits_ = {operation(adds, "old other more "),
                                                operation(cut, "old "), rename_};
};

TEST_F(EditInPlace, KilledAnywhereTheSourceIsOldOrNew) {
  for (const InPlaceOperation& edit : edits_) expectOldOrNewAtEveryCall(edit);
}

TEST_F(EditInPlace, KilledOrFailingTheNextRunSucceeds) {
  for (const InPlaceOperation& edit : edits_) {
    seen_.clear();
    atFileCalls(4, [&](int n) { return endsAt(edit, n, true); });
    EXPECT_THAT(seen_, testing::UnorderedElementsAre(edit.result, kBefore));
  }
  // How they go on when a call fails is the same for all.
  atFileCalls(1, [&](int n) { return endsAt(rename_, n, false); });
}

TEST_F(EditInPlace, WithoutExchangeTheOldOneIsRenamedFirst) {
  atFileCalls(1, [&](int n) {
    SCOPED_TRACE(n);
    restore();
    if (runInChild<NoExchange>(rename_, n) == 0) return true;
    seen_.insert(content(fs::exists(path()) ? path() : dir_.path("A_old")));
    return false;
  });
  EXPECT_THAT(seen_, testing::UnorderedElementsAre(rename_.result, kBefore));
  expectDoneOn<NoExchange>();
  expectDoneOn<NoExchangeNoLinks>();
}

TEST_F(EditInPlace, OfADirectoryThatStaysWhereItIsTheFilesAreMoved) {
  expectDoneOn<MountedDisk>();
  expectDoneOn<MountedDiskNoLinks>();
  atFileCalls(1, [&](int n) { return endsAt<MountedDisk>(rename_, n, false); });
  EXPECT_THAT(seen_, testing::UnorderedElementsAre(rename_.result, kBefore));
}

}  // namespace
