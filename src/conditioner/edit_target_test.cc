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

// An exchange that the file system refuses.
class OldPlatform : public FaultPlatform {
 public:
  int exchange(const char*, const char*) override {
    errno = EINVAL;
    return -1;
  }
};

// Exit codes of an edit.
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
    auto signal = PVBsignalNew();
    signal->name = "old";
    signal->direction = INPUT;
    const PVBid id = PVBsignalAdd(db, std::move(signal));
    auto plate = PVBtimePlateNew();
    plate->name = "tp";
    plate->period = {10, 0};
    PVBallocAsNecessary(*plate, 0);
    PVBlistInsert(*plate, 0, id);
    PVBallocLevelAsNecessary(*plate, 0, 0, -1, TIME_ZERO, 'S', 1);
    PVBtrackSetDirection(*plate, 0, INPUT);
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
  int edit(int n, bool dies = true) {
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
      const int result = renameSignal(source, source, listCarrier_);
      ::_exit(result != 0 ? 2 : faults.failed() ? kTolerated : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kCrashed;
  }

  // The name of the database's signal; empty when anything else is wrong.
  std::string content(const std::string& database) const {
    const int db = PVBopenAny(database, false, 0, 8, kAllSections, false);
    if (db < 0) return "";
    PVBposition sums;
    const PVBsignal* signal = PVBsignalInqByID(db, 1);
    const bool sound = PVBpatternInqSize(db, kMainPattern, sums) == 0 && sums.row == 1 &&
                       PVBtimePlateCount(db) == 1 && signal != nullptr && signal->name;
    const std::string name = sound ? *signal->name : "";
    PVBcloseUnsaved(db);
    return name;
  }
  void expectEdited() const {
    EXPECT_EQ(content(path()), "new");
    EXPECT_EQ(dir_.read("A/notes.txt"), "mine");
    EXPECT_EQ(dir_.read("A/waves/one"), "wave");
    EXPECT_FALSE(fs::exists(dir_.path("A_")));
  }

  TempDir dir_;
  PVBregion listCarrier_;
};

// The file calls before the source is touched are many, and one much like the other.
constexpr int kStride = 23;
constexpr int kLastCalls = 60;

// Calls the function with samples of the file calls of an edit and with all of the last.
template <typename Function>
void atFileCalls(const Function& endsAt) {
  int n = 1;
  while (!endsAt(n)) n += kStride;
  for (n -= kLastCalls; !endsAt(n); ++n) {
  }
}

TEST_F(EditInPlace, KilledOrFailingAnywhereTheSourceIsOldOrNewAndTheNextRunSucceeds) {
  for (const bool dies : {true, false}) {
    std::set<std::string> seen;
    atFileCalls([&](int n) {
      SCOPED_TRACE(testing::Message() << n << " dies: " << dies);
      restoreSource();
      const int code = edit<FaultPlatform>(n, dies);
      if (code == 0) return true;
      EXPECT_TRUE(dies ? code == FaultPlatform::kDeathCode : code != kCrashed) << code;
      const std::string now = content(path());
      EXPECT_TRUE(code != kTolerated || now == "new");
      seen.insert(now);
      EXPECT_EQ(dir_.read("A/notes.txt"), "mine");
      EXPECT_EQ(edit<FaultPlatform>(0), 0);
      expectEdited();
      return false;
    });
    EXPECT_THAT(seen, testing::ElementsAre("new", "old"));
  }
}

TEST_F(EditInPlace, WithoutExchangeTheOldOneIsRenamedFirst) {
  std::set<std::string> seen;
  atFileCalls([&](int n) {
    SCOPED_TRACE(n);
    restoreSource();
    if (edit<OldPlatform>(n) == 0) return true;
    seen.insert(content(fs::exists(path()) ? path() : dir_.path("A_old")));
    return false;
  });
  expectEdited();
  EXPECT_THAT(seen, testing::ElementsAre("new", "old"));
}

}  // namespace
