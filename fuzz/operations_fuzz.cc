// Operations over damaged sources, and the check of one: each run ends by itself, well or
// with a refusal, whatever bytes the databases hold, and leaves what it only reads as it was.
//
// An input is an operation in one byte, two bytes that tell it more (times of 10 ns from
// "begin", none at 0, that bound the source; or what the operation is to do), and damages of
// five bytes each: database, file, place (two bytes, low byte first, modulo the size of the
// file), and what to put there; 254 in place of the database cuts the file off at the place.
// The bits of the first byte:
//
//   15   row of kRuns
//   16   the operation works on its source itself
//   32   the second database is of the same kind as the first
//   64   short names of timeplates
//   128  both sources are one; of an operation with one source: the source is that of platesText
//
// An operation may end the process, so each runs in a child.

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/progress.h"
#include "base/temp_directory.h"
#include "conditioner/run.h"
#include "equations/checker_times.h"
#include "scratch_directory.h"
#include "timeplate/rename_settings.h"
#include "tools/build.h"
#include "tools/check.h"

namespace {

constexpr std::string_view kFirst = R"(pvb-dump 1
database version=501 row-width=32
signals next-column=5 next-id=8
signal 7:200000 "ALLSCAN" type=scan-group
  members 9:1
signal 1 "clk" type=scalar direction=input in=0
signal 9:1 "chain" type=chain
  members 5:1 5:2
  ate-pins 1 4
signal 2 "d[0]" type=scalar direction=bidir in=1 out=2 left=0 right=0
signal 3 "d[1]" type=scalar direction=input in=3 left=1 right=1
signal 4 "q" type=scalar direction=output out=4
signal 100000 "ALL" type=group
  members 1 2 3 4
signal 5:1 "cell1" type=cell
signal 5:2 "cell2" type=cell
timeplate 0 "tp1" period=30nS
  slot input
    of 1 3
  slot bidir
    of 2
  slot output
    of 4
  level 0pS
    track
    event 0pS D
    event 10nS S
    on 1 3
    track
    event 0pS S
    on 2
    track
    event 0pS X
    event 20nS Q
    on 4
timeplate 1 "tp2" period=20nS
  slot input
    of 1 2 3
  slot output
    of 4
  level 0pS
    track
    event 0pS P
    on 1 2 3
    track
    event 15nS Q
    on 4
vector "load"
  cells |01
subroutine 0 "init"
rows main
  row "tp1" |1ZX10
    prop 0 "first"
  row "tp2" |0
  row "tp1" x3 |01010
  loop x2 comment="twice"
    row "tp1" |1
    loop x3
      row "tp2" |0
    end
  end comment="twice"
  call "init" x2
  scan "tp1" x2 |1
    run in 9:1 "load"
  row "tp2" |1
rows 0
  row "tp1" |1
  row "tp2" |0
label "start" row=0
done
)";

constexpr std::string_view kSecond = R"(pvb-dump 1
database version=501 row-width=32
signals next-column=2 next-id=3
signal 1 "x" type=scalar direction=input in=0
signal 2 "y" type=scalar direction=output out=1
signal 100000 "ALL" type=group
  members 1 2
timeplate 0 "tp" period=20nS
  slot input
    of 1
  slot output
    of 2
  level 0pS
    track
    event 0pS S
    on 1
    track
    event 10nS Q
    on 2
rows main
  row "tp" |10
  row "tp" |01
  row "tp" |11
done
)";

// A timeplate of the clock, an output, bidirectional signals and others.
std::string clockPlate(int number, std::string_view name, std::string_view others) {
  return fmt::format(R"(timeplate {0} "{1}" period=10nS
  slot input
    of 1
  slot input
    of 1
  slot output
    of 2
  slot bidir
    of 3 4
  slot input
    of {2}
  level 0pS
    track selector="1"
    event 0pS P
    event 2nS U
    event 5nS D
    on 1
    track selector="2"
    event 0pS D
    on 1
    track
    event 8nS Q
    on 2
    track
    event 0pS S
    event 8nS Q
    on 3 4
    track
    event 0pS S
    on {2}
)",
                     number, name, others);
}

// What the passes over timeplates work on: a clock with flat tracks that rows select, a
// duplicate of its timeplate, one without rows, one with an expression, columns in a list,
// parts of a multiplexed signal, pins, a bus and groups, a subroutine that nothing calls.
std::string platesText() {
  constexpr std::string_view kSignals = R"(pvb-dump 1
database version=1501 row-width=32
signals next-column=12 next-id=12
  groups 100000 100001 100002 100003 100004
signal 1 "ck" type=scalar direction=input in=0 multi-bit=1 bit-in=2 bit-out=3
  bit-tracks 2 3
signal 2 "y" type=scalar direction=output out=1
signal 3 "b" type=scalar direction=bidir in=4 out=5
signal 4 "m" type=scalar direction=bidir multi-track=1
  tracks 6 7
signal 5 "p0" type=scalar direction=input in=8
signal 6 "p1" type=scalar direction=input in=9
signal 7 "mx" type=mux direction=input
  mux-children 5 6
signal 8 "d[0]" type=scalar direction=input in=10 left=0 right=0
signal 9 "d[1]" type=scalar direction=input in=11 left=1 right=1
signal 10 "d" type=bus direction=input left=0 right=1
  members 8 9
signal 11 "g" type=group
  members 2 10
signal 100000 "ALL" type=group
  members 1 2 3 4 7 8 9
signal 100001 "ALLINPUT" type=group
  members 1 7 8 9
signal 100002 "ALLOUTPUT" type=group
  members 2
signal 100003 "ALLBIDIR" type=group
  members 3 4
signal 100004 "ALLMUX" type=group
  members 7
)";
  constexpr std::string_view kRest = R"(timeplate 2 "idle" period=20nS
  slot output
    of 11
  level 0pS
    track
    event 0pS X
    event 5nS R expr="t"
    on 11
pins next-id=2
ate-pin 1 "p" node="1"
  signals-of 1
subroutine 0 "s"
rows main
  row "tp" |-10Z10101010
    prop 0 "REPEAT"
  row "tp" |-01Z01010110
  loop x2
    row "tp again" x3 |-10Z10101010
      prop 0 "twice"
  end
  row "tp" |-01Z1010ZZ01
    prop 0 "REPEAT"
rows 0
  row "tp again" |-10Z10101010
equations
sheet "main"
  variable "t" time "7nS"
done
)";
  return fmt::format("{}{}{}{}", kSignals, clockPlate(0, "tp", "7 10"),
                     clockPlate(1, "tp again", "7 8 9"), kRest);
}

void require(bool ok) {
  if (!ok) std::abort();
}

void build(std::string_view text, const std::string& path) {
  DumpScanner in(PBopenMemoryText(text, "text", false), "text", [](const Message&) {});
  require(buildDatabase(in, path));
}

std::vector<std::filesystem::path> filesOf(const std::string& path) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(path)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string allContent(const std::string& path) {
  std::string all;
  for (const auto& file : filesOf(path)) all += file.filename().string() + contentOf(file);
  return all;
}

constexpr std::uint8_t kCut = 254;

void damage(std::span<const std::uint8_t, 5> how, const std::string& path) {
  const std::vector<std::filesystem::path> files = filesOf(path);
  const std::filesystem::path& victim = files[how[1] % files.size()];
  std::string content = contentOf(victim);
  if (content.empty()) return;
  const std::size_t place = (how[2] + std::size_t{256} * how[3]) % content.size();
  content[place] = static_cast<char>(how[4]);
  if (how[0] == kCut) content.resize(place);
  std::ofstream(victim, std::ios::binary) << content;
}

TIME bound(std::uint8_t byte, TIME none) {
  return byte == 0 ? none : PBmulTIME(PBlongToTIME(10000000), PBlongToTIME(byte));
}

// --- The operations ------------------------------------------------------------------

constexpr unsigned kMostSeconds = 30;
// Exit codes of a child that no operation has.
constexpr int kSanitizerFinding = 99;
constexpr int kUncaught = 98;

struct Bytes {
  std::uint8_t operation, first, second;

  bool inPlace() const { return (operation & 16) != 0; }
  bool sameKind() const { return (operation & 32) != 0; }
  bool shortNames() const { return (operation & 64) != 0; }
  bool oneSource() const { return (operation & 128) != 0; }
};

struct Fields {
  OpSpec& op;
  Bytes how;
  PVBregion* first;
  PVBregion* second;
  PVBregion* dest;  // null in place
};

void bounds(const Fields& to) {
  const TIME start = bound(to.how.first, TIME_ZERO);
  const TIME stop = bound(to.how.second, TIME_MAX);
  to.first->start = start;
  to.first->stop = PBcmpTIME(start, stop) <= 0 ? stop : TIME_MAX;
}

void twoSources(const Fields& to) {
  bounds(to);
  to.op.src1 = to.first;
  to.op.src2 = to.how.oneSource() ? to.first : to.second;
}
void copyFields(const Fields& to) {
  bounds(to);
  to.op.src1 = to.first;
  to.op.src2 = to.dest;
}
void pass(const Fields& to) {
  to.op.src1 = to.first;
  to.op.src2 = to.dest;
}
void compression(const Fields& to) {
  to.op.src1 = to.first;
  to.op.dest = to.dest;
  to.op.loopBlockSize = to.how.first % 8;
  if (to.how.second % 2 == 0) to.op.repeatKeyword = "REPEAT";
  if (to.how.second % 4 < 2) to.op.loopKeyword = "twice";
}
void optimization(const Fields& to) {
  pass(to);
  to.op.deleteDuplicateTps = (to.how.first & 1) == 0;
  to.op.deleteUnusedTps = (to.how.first & 2) == 0;
  to.op.deleteUnusedTracks = (to.how.first & 4) == 0;
  to.op.clockShapes = (to.how.first & 8) == 0;
  to.op.annotateRowsWithTp = (to.how.first & 16) == 0;
}
void newNames(const Fields& to) {
  pass(to);
  const bool numbers = to.how.first % 2 == 0;
  require(numbers ? tpRenameSetParams("AUTO_INDEX", "8", "n", "", "")
                  : tpRenameSetParams("STRING_REPLACE", "", "", "tp", "q"));
}
void folding(const Fields& to) {
  pass(to);
  to.op.muxDegree = 2 + to.how.first % 4;
}
void edit(const Fields& to) {
  static PVBregion list;
  list.listName = "list";
  to.op.src1 = to.first;
  to.op.src2 = &list;
  to.op.dest = to.dest != nullptr ? to.dest : to.first;
}
void addition(const Fields& to) {
  edit(to);
  run.lists.trackListTable.select("wave");
  run.lists.trackListTable.append({"[0ns:P,5ns:S]"});
  run.lists.addListTable.select("list");
  run.lists.addListTable.append({"new", "in", "wave", "1"});
  run.lists.addListTable.append({"bus[0:3]", "bi", "", ""});
  run.lists.addListTable.append({"clk", "out", "wave", "X"});
}
void cutting(const Fields& to) {
  edit(to);
  run.lists.cutListTable.select("list");
  for (const char* name : {"clk", "ck", "d[0:1]", "q", "m"}) run.lists.cutListTable.append({name});
}
void renaming(const Fields& to) {
  edit(to);
  run.lists.sigListTable.select("list");
  run.lists.sigListTable.append({"clk", "clock"});
  run.lists.sigListTable.append({"d[0:1]", "e[0:1]"});
  run.lists.sigListTable.append({"y", "b"});
}

struct RunRow {
  OpKind kind;
  void (*fill)(const Fields& fields);
  // Ends the process where the checker names what isn't there.
  bool mayAbort = false;
};
// kOpNone is the check.
constexpr RunRow kRuns[16] = {
    {kOpCopy, copyFields},
    {kOpConcat, twoSources},
    {kOpInsert, twoSources},
    {kOpMerge, twoSources},
    {kOpFlatten, pass},
    {kOpAddCompression, compression},
    {kOpAnnotateVectors, pass},
    {kOpTimeplateOptimize, optimization, true},
    {kOpTimeplateRename, newNames},
    {kOpMuxify, folding},
    {kOpAdd, addition},
    {kOpCut, cutting},
    {kOpRename, renaming},
    {kOpNone, nullptr},
    {kOpFlatten, pass},
    {kOpTimeplateOptimize, optimization, true},
};

const RunRow& runOf(Bytes how) { return kRuns[how.operation % 16]; }
bool hasOneSource(Bytes how) { return runOf(how).fill != twoSources; }
// What works in place has no other destination; some operations must have one.
bool worksInPlace(Bytes how) {
  const OpKind kind = runOf(how).kind;
  return how.inPlace() && kind != kOpNone && kind != kOpCopy && kind != kOpMuxify &&
         hasOneSource(how);
}

void operate(const ScratchDirectory& scratch, Bytes how) {
  const auto region = [&](const std::string& name) {
    auto made = PVBregionNew();
    PVBregionInit(*made, name, scratch.path(name), TIME_ZERO, TIME_MAX);
    return &run.regionTable.insert(name, std::move(made));
  };
  OpSpec op;
  op.type = runOf(how).kind;
  PVBregion* dest = worksInPlace(how) ? nullptr : region("dest");
  op.dest = dest;
  op.refPvb = scratch.path("first");
  runOf(how).fill({op, how, region("first"), region("second"), dest});
  run.currentOperation = op.type;
  operations()[static_cast<std::size_t>(op.type)].handler(op, run.regionTable);
}

// The child: one operation, as a run would carry it out.
[[noreturn]] void carryOut(const ScratchDirectory& scratch, Bytes how) {
  // Before any handler of the fuzzer's own, which takes each exit for a fault.
  std::atexit([] { _exit(1); });
  std::set_terminate([] { _exit(kUncaught); });
  std::signal(SIGALRM, SIG_DFL);
  std::signal(SIGABRT, SIG_DFL);
  alarm(kMostSeconds);
  std::filesystem::current_path(scratch.path("tmp"));
  PBprogressEnable(false);
  installCheckerTimeUpdate();
  run.reportStream = stdout;
  run.shortTpNames = how.shortNames();
  if (runOf(how).kind == kOpNone) {
    const std::vector<std::string> arguments = {scratch.path("first"), "--full"};
    runCheck(arguments);
  } else {
    operate(scratch, how);
  }
  _exit(0);
}

bool endedWell(int status, Bytes how) {
  if (WIFSIGNALED(status)) return WTERMSIG(status) == SIGABRT && runOf(how).mayAbort;
  return WIFEXITED(status) && WEXITSTATUS(status) != kSanitizerFinding &&
         WEXITSTATUS(status) != kUncaught;
}

}  // namespace

// Not by a signal, for which the optimizer's own end would be taken.
extern "C" const char* __asan_default_options() {
  return "abort_on_error=0:exitcode=99:detect_leaks=0";
}
extern "C" const char* __ubsan_default_options() {
  return "halt_on_error=1:abort_on_error=0:exitcode=99";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static ScratchDirectory scratch;
  if (size < 3) return 0;
  const Bytes how = {data[0], data[1], data[2]};
  scratch.clear();
  PBsetTempDirectory(scratch.path("tmp"));
  const std::string first = scratch.path("first");
  const std::string second = scratch.path("second");
  build(hasOneSource(how) && how.oneSource() ? platesText() : std::string(kFirst), first);
  build(how.sameKind() ? kFirst : kSecond, second);
  for (std::size_t at = 3; at + 5 <= size && at < 60; at += 5) {
    const std::span<const std::uint8_t, 5> change(data + at, 5);
    damage(change, change[0] % 2 == 0 ? first : second);
  }
  const auto content = [&] {
    return (worksInPlace(how) ? std::string() : allContent(first)) + allContent(second);
  };
  const std::string before = content();
  const pid_t child = fork();
  require(child >= 0);
  if (child == 0) carryOut(scratch, how);
  int status = 0;
  // The fuzzer's own timer interrupts the wait.
  while (waitpid(child, &status, 0) != child) require(errno == EINTR);
  require(endedWell(status, how));
  require(before == content());
  return 0;
}
