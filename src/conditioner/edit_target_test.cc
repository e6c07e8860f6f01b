// Edits in place that are killed, or fail, at any file call: the source is the old or the
// new database, and what is left doesn't stop the next run.

#include "conditioner/edit_target.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "base/errors.h"
#include "base/platform.h"
#include "base/progress.h"
#include "base/temp_directory.h"
#include "conditioner/add.h"
#include "conditioner/cut.h"
#include "conditioner/rename.h"
#include "conditioner/run.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

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

struct Edit {
  int (*run)(PVBregion& dest, PVBregion& src, const PVBregion& listCarrier);
  const char* result;  // names of the signals
};
constexpr Edit kEdits[] = {{adds, "old other more "}, {cut, "old "}, {renameSignal, "new other "}};
constexpr Edit kRename = kEdits[2];
constexpr const char* kBefore = "old other ";

// Exit codes of an edit.
constexpr int kFailed = 2;
constexpr int kTolerated = 3;  // done, though a call failed
constexpr int kCrashed = 255;

class EditInPlace : public testing::Test {
 protected:
  EditInPlace() {
    fs::create_directory(dir_.path("tmp"));
    PBsetTempDirectory(dir_.path("tmp"));
    PBprogressEnable(false);
    buildSource(dir_.path("whole"));
    dir_.write("whole/notes.txt", "mine");
    fs::create_directory(dir_.path("whole/waves"));
    dir_.write("whole/waves/one", "wave");
    run.lists.addListTable.select("list");
    run.lists.addListTable.append({"more", "in", "", ""});
    run.lists.cutListTable.select("list");
    run.lists.cutListTable.append({"other"});
    run.lists.sigListTable.select("list");
    run.lists.sigListTable.append({"old", "new"});
    listCarrier_.listName = "list";
  }
  ~EditInPlace() override {
    PBprogressEnable(true);
    PBsetTempDirectory("");
    run.lists = {};
    PBdiscardErrors();
    PBerrClear();
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

  void restoreSource() const {
    for (const char* name : {"A", "A_", "A_old"}) fs::remove_all(dir_.path(name));
    fs::copy(dir_.path("whole"), path(), fs::copy_options::recursive);
  }
  std::string path() const { return dir_.path("A"); }

  // The edit in a process of its own that dies at its n-th file call, or where that call
  // fails, 0 for never: its exit code.
  template <typename SomePlatform>
  int edit(const Edit& edit, int n, bool dies = true) {
    const pid_t child = fork();
    if (child == 0) {
      if (std::freopen("/dev/null", "w", stderr) == nullptr) ::_exit(kCrashed);
      run.reportFile = openStream("/dev/null", "w");
      run.reportStream = run.reportFile.get();
      SomePlatform faults;
      if (n > 0 && dies) faults.dieAtFileCall(n);
      if (n > 0 && !dies) faults.failFileCall(n);
      PVBregion source;
      PVBregionInit(source, "A", path(), TIME_ZERO, TIME_MAX);
      const int result = edit.run(source, source, listCarrier_);
      ::_exit(result != 0 ? kFailed : faults.failed() ? kTolerated : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kCrashed;
  }

  // The names of the database's signals; empty when anything is wrong.
  std::string content(const std::string& database) const {
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
  void expectOthersKept() const {
    EXPECT_EQ(dir_.read("A/notes.txt"), "mine");
    EXPECT_EQ(dir_.read("A/waves/one"), "wave");
    EXPECT_FALSE(fs::exists(dir_.path("A_")));
    EXPECT_FALSE(fs::exists(dir_.path("A_old")));
  }
  template <typename SomePlatform>
  void expectDoneOn() {
    restoreSource();
    EXPECT_EQ(edit<SomePlatform>(kRename, 0), 0);
    EXPECT_EQ(content(path()), kRename.result);
    expectOthersKept();
  }

  TempDir dir_;
  PVBregion listCarrier_;
};

// The file calls before the source is touched are many, and one much like the other.
constexpr int kStride = 37;
constexpr int kLastCalls = 60;
constexpr int kNextRunEvery = 5;  // of all calls

// Calls the function with every file call of an edit, or with samples and all of the last.
template <typename Function>
void atFileCalls(bool all, const Function& endsAt) {
  int n = 1;
  while (!endsAt(n)) n += all ? 1 : kStride;
  if (all) return;
  for (n -= kLastCalls; !endsAt(n); ++n) {
  }
}

TEST_F(EditInPlace, KilledOrFailingAnywhereTheSourceIsOldOrNewAndTheNextRunSucceeds) {
  for (const Edit& each : kEdits) {
    for (const bool dies : {true, false}) {
      // How they go on when a call fails is the same for all.
      const bool isRename = each.run == kRename.run;
      if (!dies && !isRename) continue;
      std::set<std::string> seen;
      atFileCalls(dies && isRename, [&](int n) {
        SCOPED_TRACE(testing::Message() << each.result << n << " dies: " << dies);
        restoreSource();
        const int code = edit<FaultPlatform>(each, n, dies);
        if (code == 0) return true;
        EXPECT_TRUE(dies ? code == FaultPlatform::kDeathCode : code != kCrashed) << code;
        const std::string now = content(path());
        EXPECT_TRUE(code != kTolerated || now == each.result);
        seen.insert(now);
        EXPECT_EQ(dir_.read("A/notes.txt"), "mine");
        if (dies && isRename && n % kNextRunEvery != 0) return false;
        // What is done already is refused by the lists, not by what the last run left.
        EXPECT_EQ(edit<FaultPlatform>(each, 0), 0);
        EXPECT_EQ(content(path()), each.result);
        expectOthersKept();
        return false;
      });
      EXPECT_THAT(seen, testing::UnorderedElementsAre(each.result, kBefore));
    }
  }
}

TEST_F(EditInPlace, WithoutExchangeTheOldOneIsRenamedFirst) {
  std::set<std::string> seen;
  atFileCalls(false, [&](int n) {
    SCOPED_TRACE(n);
    restoreSource();
    if (edit<NoExchange>(kRename, n) == 0) return true;
    seen.insert(content(fs::exists(path()) ? path() : dir_.path("A_old")));
    return false;
  });
  EXPECT_THAT(seen, testing::UnorderedElementsAre(kRename.result, kBefore));
  expectDoneOn<NoExchange>();
  expectDoneOn<NoExchangeNoLinks>();
}

TEST_F(EditInPlace, OfADirectoryThatStaysWhereItIsTheFilesAreMoved) {
  expectDoneOn<MountedDisk>();
  expectDoneOn<MountedDiskNoLinks>();
  std::set<std::string> seen;
  atFileCalls(false, [&](int n) {
    SCOPED_TRACE(n);
    restoreSource();
    const int code = edit<MountedDisk>(kRename, n, false);
    if (code == 0) return true;
    EXPECT_NE(code, kCrashed);
    const std::string now = content(path());
    EXPECT_TRUE(code != kTolerated || now == kRename.result);
    seen.insert(now);
    return false;
  });
  EXPECT_THAT(seen, testing::UnorderedElementsAre(kRename.result, kBefore));
}

}  // namespace
