// Operations over damaged sources: each run ends by itself, well or with a refusal,
// whatever bytes the databases hold, and leaves what it reads as it was.
//
// An input is an operation in one byte, its bounds in two (times of 10 ns from "begin",
// none at 0), and damages of five bytes each: database, file, place (two bytes, low
// byte first, modulo the size of the file), and what to put there; 254 in place of the
// database cuts the file off at the place. An operation may end the process, so each
// runs in a child.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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
#include "scratch_directory.h"
#include "tools/build.h"

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

constexpr unsigned kMostSeconds = 30;
constexpr OpKind kKinds[] = {kOpCopy, kOpConcat, kOpInsert, kOpMerge};

// The child: one operation, as a run would carry it out.
[[noreturn]] void carryOut(const ScratchDirectory& scratch, std::span<const std::uint8_t, 3> how) {
  // Before any handler of the fuzzer's own, which takes each exit for a fault.
  std::atexit([] { _exit(1); });
  std::signal(SIGALRM, SIG_DFL);
  alarm(kMostSeconds);
  PBprogressEnable(false);
  run.reportStream = stdout;
  run.shortTpNames = (how[0] & 64) != 0;
  const auto region = [&](const std::string& name, TIME start, TIME stop) -> PVBregion* {
    auto made = PVBregionNew();
    PVBregionInit(*made, name, scratch.path(name), start, stop);
    return &run.regionTable.insert(name, std::move(made));
  };
  const TIME start = bound(how[1], TIME_ZERO);
  const TIME stop = bound(how[2], TIME_MAX);
  OpSpec op;
  op.type = kKinds[how[0] % std::size(kKinds)];
  const bool same = (how[0] & 128) != 0;
  op.src1 = region("first", start, PBcmpTIME(start, stop) <= 0 ? stop : TIME_MAX);
  op.dest = region("dest", TIME_ZERO, TIME_MAX);
  op.src2 = same ? op.src1 : region("second", TIME_ZERO, TIME_MAX);
  if (op.type == kOpCopy) op.src2 = op.dest;
  op.refPvb = scratch.path("first");
  run.currentOperation = op.type;
  operations()[static_cast<std::size_t>(op.type)].handler(op, run.regionTable);
  _exit(0);
}

}  // namespace

extern "C" const char* __asan_default_options() { return "abort_on_error=1:detect_leaks=0"; }
extern "C" const char* __ubsan_default_options() { return "abort_on_error=1"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static ScratchDirectory scratch;
  if (size < 3) return 0;
  scratch.clear();
  PBsetTempDirectory(scratch.path("tmp"));
  const std::string first = scratch.path("first");
  const std::string second = scratch.path("second");
  build(kFirst, first);
  build((data[0] & 32) != 0 ? kFirst : kSecond, second);
  for (std::size_t at = 3; at + 5 <= size && at < 60; at += 5) {
    const std::span<const std::uint8_t, 5> how(data + at, 5);
    damage(how, how[0] % 2 == 0 ? first : second);
  }
  const std::string before = allContent(first) + allContent(second);
  const pid_t child = fork();
  require(child >= 0);
  if (child == 0) carryOut(scratch, std::span<const std::uint8_t, 3>(data, 3));
  int status = 0;
  // The fuzzer's own timer interrupts the wait.
  while (waitpid(child, &status, 0) != child) require(errno == EINTR);
  require(WIFEXITED(status));
  require(before == allContent(first) + allContent(second));
  return 0;
}
