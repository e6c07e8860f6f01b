// Dump, build and dump again: nothing that a text can say gets lost, and what is
// wrong in a text is told with its place.

#include "tools/dump.h"

#include <gmock/gmock.h>
#include <rapidcheck/gtest.h>

#include "base/quote.h"
#include "support/dump_support.h"
#include "support/fault_platform.h"
#include "support/shipped.h"
#include "tools/dump_format.h"

namespace {

using testing::StartsWith;

const std::string kHead = "pvb-dump 1\ndatabase version=1501 row-width=40\n";
const std::string kGroups =
    "signal 100000 \"ALL\" type=group\nsignal 100001 \"ALLINPUT\" type=group\n"
    "signal 100002 \"ALLOUTPUT\" type=group\nsignal 100003 \"ALLBIDIR\" type=group\n"
    "signal 100004 \"ALLMUX\" type=group\nsignal 7:200000 \"ALLSCAN\" type=scan-group\n";
const std::string kPlates =
    "timeplates mode=1\ntimeplate 0 \"tp\" period=10nS\ntimeplate 5 none period=1pS\n";

std::string everything() { return shippedText("examples/database/everything.pvbt"); }

// The text's lines that the dump lacks.
std::string missingLines(const std::string& text, const std::string& dump) {
  std::string missing;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    const bool found = ("\n" + dump).find("\n" + line + "\n") != std::string::npos;
    if (!found && !line.starts_with("#")) missing += line + "\n";
    at = end + 1;
  }
  return missing;
}

struct Sample {
  const char* name;
  std::string body;
};
const Sample kSamples[] = {
    {"nothing", ""},
    {"database properties", "  prop 1 \"newest\"\n  prop 1 \"older\"\n  prop 2\n"},
    {"nameless and odd signals",
     "signals next-column=4 next-id=40\nsignal 3 none type=scalar in=2\n"
     "signal 9 \"a \\\"b\\\" \\xff\\n\" type=77 direction=9 left=1 right=65534 radix=\"\\x01\"\n"
     "  tracks 1 -1 65535\n  in-state \"low\" 3\n  in-state none none\n  out-state \"\\t\" 9:1\n" +
         kGroups},
    {"unreachable scalar with holes in the ids",
     "signals next-column=2 next-id=2000\nsignal 1999 \"z\" type=scalar direction=input in=1\n" +
         kGroups},
    {"timeplates",
     "timeplates mode=1073741826 cycle-capacity=3\n  cycle 2 none 1nS\n"
     "timeplate 7 \"x10\" period=999.999999999999999S multiplier=65535\n  slot 12\n"
     "  slot undefined\n    of none 9:1 sub:4\n  level 0pS\n    track selector=\"\\\"\"\n"
     "    event 1fS x x3 expr=\"a+b\"\n    event 2fS ,\n    selectors 1 -1\n"
     "    selector-types 1 2\n    selector-states 3 4\n  level 1nS\n"},
    {"rows of odd types",
     kPlates + "rows main base=-3\n  row\n  row \"tp\" x0 @0 |-1\n  row #5 x4000000000 @65534\n"
               "  row #77 link=12 start-time=1nS end-time=2nS\n  other type=12 |1\n"
               "  poc spacer-time=1S spacer-addresses=5\n  match \"tp\" |-----------------------"
               "----------------G\n"},
    {"loops in loops", kPlates +
                           "rows main\n  loop x2\n    loop x3 comment=\"in\\x00side\"\n    end\n"
                           "    loop x0\n      row \"tp\"\n    end x7 comment=\"other\"\n"
                           "      prop 3 \"of the end\"\n  end\n  row\n"},
    {"subroutines with holes",
     kPlates +
         "subroutine 1 \"one\"\nsubroutine 9 \"nine\" base=77\nsubroutine 10 none\nrows main\n"
         "  call \"nine\" x2\n  call #10 comment=\"c\"\nrows 1\nrows 9\n  call \"one\"\n"
         "  row \"tp\" x5\nrows 10\n  row\n"},
    {"labels",
     "rows main\n  row\n  row\nlabel \"\" row=1\nlabel \"a\" kind=4 text=\"t\"\n"
     "label \"a\" row=0 kind=end\n"},
    {"findings",
     "heading -1 \"\" \"\"\n  finding\nheading 2 \"s\" \"t\" items=1 limit=1\n  finding\n"
     "    item kind=1 number=-5 text=\"x\"\n    item\n"},
    {"pins",
     "pins next-id=2147483647\nate-pin 30 none\nate-pin 7 \"p\" node=\"12\" class=0 flags=-1\n"
     "  spare none 1\n  props\ndut-pin 7 \"p\"\ncolumn 7 number=0\n"},
    {"vectors", "vector none\nvector \"v\" value=4294967295\n  cells |XXXXXXXXXXXX0101\n"},
    {"files", "file \"pvb.pmp\"\nfile \"x.srf\"\n  data AAEC\n"},
    {"equations without sheets", "equations\nfile \"x.srf\"\n"},
    {"equations that can't be read", "file \"pvb.sdb\"\n  data c3BlYyBkYXRhAP8=\n"},
};

TEST(Dump, ComesBackAsItWasBuilt) {
  for (const Sample& sample : kSamples) {
    SCOPED_TRACE(sample.name);
    DumpDirectory directory;
    std::string body = sample.body;
    const std::size_t zero = body.find("in\\x00side");  // a comment ends at its zero byte
    if (zero != std::string::npos) body.erase(zero + 2, 8);
    const std::string text = kHead + body + "done\n";
    ASSERT_TRUE(directory.build(text)) << directory.firstMessage();
    const std::string first = directory.dump();
    EXPECT_EQ(missingLines(text, first), "");
    ASSERT_TRUE(directory.build(first, "again")) << directory.firstMessage();
    EXPECT_EQ(directory.dump("again"), first);
  }
}

TEST(Dump, HoldsEverything) {
  DumpDirectory directory;
  const std::string text = everything();
  ASSERT_TRUE(directory.build(text)) << directory.firstMessage();
  std::string expected = text;
  const std::size_t comment = expected.find("# ");
  expected.erase(comment, expected.find('\n', comment) + 1 - comment);
  EXPECT_EQ(directory.dump(), expected);
}

// The tables keep their order only when each signal is entered at the right time.
TEST(Dump, KeepsTheOrderOfManySignals) {
  DumpDirectory directory;
  std::string text =
      "pvb-dump 1\ndatabase version=501 row-width=5\nsignals next-column=0 "
      "next-id=1\n";
  for (int i = 1; i <= 200; ++i) {
    text += "signal " + std::to_string(i * 37 % 1009) + " none type=bus\n";
  }
  ASSERT_TRUE(directory.build(text + kGroups + "done\n")) << directory.firstMessage();
  const std::string first = directory.dump();
  ASSERT_TRUE(directory.build(first, "again"));
  EXPECT_EQ(directory.dump("again"), first);
  ASSERT_TRUE(directory.build(directory.dump("again"), "third"));
  for (const char* name : {"pvb.s", "pvb.pd", "pvb.pk", "pvb.l"}) {
    EXPECT_EQ(directory.directory().read("again/" + std::string(name)),
              directory.directory().read("third/" + std::string(name)));
  }
}

struct BadText {
  std::string text;
  const char* message;  // how the first one begins
};

TEST(Build, TellsWhatIsWrongAndWhere) {
  const std::string rows = kHead + kPlates + "rows main\n";
  const BadText kTexts[] = {
      {"", "0:0 PVB0201"},
      {"hello\n", "0:0 PVB0201"},
      {"pvb-dump 2\n", "1:1 PVB0202"},
      {"pvb-dump 1\nsignals\n", "0:0 PVB0313"},
      {"pvb-dump 1\ndatabase version=700 row-width=4\n", "2:1 PVB0313"},
      {"pvb-dump 1\ndatabase version=501 row-width=0\n", "2:1 PVB0313"},
      {kHead, "0:0 PVB0210"},
      {kHead + "sgnal 1 none\n", "3:1 PVB0203 'sgnal' is no keyword, did you mean 'signal'?"},
      {kHead + "  members 1\n", "3:3 PVB0204"},
      {kHead + "signal 1 \"a\" typ=bus\n",
       "3:14 PVB0208 'typ' is no attribute here, did you "
       "mean 'type'?"},
      {kHead + "signal 1 \"a\" type=buss\n", "3:19 PVB0205"},
      {kHead + "signal 1 \"a\n", "3:12 PVB0207"},
      {kHead + "signal 1 \"a\\q\"\n", "3:13 PVB0207"},
      {kHead + "signal 1x \"a\"\n", "3:8 PVB0213"},
      {kHead + "signal 1 \"a\" in=65536\n", "3:17 PVB0206"},
      {kHead + "signal 1 \"a\" type=bus 7\n", "3:23 PVB0209"},
      {kHead + "signal 1 none\nsignal 1 none\ndone\n", "0:0 PVB0301"},
      {kHead + "timeplates mode=1\nsignal 1 none\n", "4:1 PVB0204"},
      {kHead + "timeplate 0 \"a\" period=10\n", "3:24 PVB0212"},
      {kHead + "timeplate 0 \"a\"\ntimeplate 1 \"a\"\ndone\n", "0:0 PVB0302"},
      {kHead + "  row\n", "3:3 PVB0204"},
      {rows + "  row \"tq\"\n", "7:7 PVB0303"},
      {rows + "  row |01y\n", "7:8 PVB0211"},
      {rows + "  row |" + std::string(41, '1') + "\n", "7:8 PVB0306"},
      {rows + "  end\n", "7:3 PVB0307"},
      {rows + "  loop\nrows main\n", "8:1 PVB0307"},
      {rows + "  call \"x\"\n", "7:8 PVB0305"},
      {rows + "  run in 9:1 #1\n", "7:3 PVB0204"},
      {rows + "  scan\n  run in 9:1 \"v\"\n", "8:14 PVB0315"},
      {kHead + "vector \"v\"\nrows main\n  scan\n  run in 9:1 \"v\"\n", "6:3 PVB0309"},
      {kHead + "vector \"v\"\n  cells |--\ndone\n", "0:0 PVB0308"},
      {kHead + "rows 3\n", "3:6 PVB0305"},
      {kHead + "label \"l\" row=7\n", "3:1 PVB0314"},
      {kHead + "file \"../x.srf\"\n", "3:6 PVB0215"},
      {kHead + "file \"x.srf\"\n  data AAE\n", "4:8 PVB0214"},
      {kHead + "sheet \"s\"\n", "3:1 PVB0204"},
      {kHead + "equations\nsheet \"s\"\n  variable \"v\" tim \"1\"\n", "5:19 PVB0316"},
      {kHead + "equations\n  data AAEC\n", "4:3 PVB0204"},
      {kHead + "equations\nfile \"pvb.sdb\"\n", "4:6 PVB0215"},
      {kHead + "file \"pvb.sdb\"\nequations\n", "4:1 PVB0316"},
      {kHead + "done now\n", "3:6 PVB0209"},
  };
  for (const BadText& bad : kTexts) {
    SCOPED_TRACE(bad.text);
    DumpDirectory directory;
    EXPECT_FALSE(directory.build(bad.text));
    EXPECT_THAT(directory.firstMessage(), StartsWith(bad.message));
    EXPECT_EQ(directory.messages().size(), 1U);
    EXPECT_EQ(PVBinqByPath(directory.path()), -1);
  }
}

// A build either says why it failed or made the whole database; a dump likewise.
TEST(Build, FailsWithAMessageOrMakesTheWholeDatabase) {
  std::string whole;
  {
    DumpDirectory directory;
    ASSERT_TRUE(directory.build(everything()));
    whole = directory.dump();
  }
  testing::internal::CaptureStderr();  // closing prints why it failed
  for (int n = 1, failed = 1; failed != 0; n += n < 300 ? 1 : 37) {
    DumpDirectory directory;
    bool built = false;
    {
      FaultPlatform faults;
      faults.failFileCall(n);
      built = directory.build(everything());
      failed = faults.failed();
    }
    EXPECT_EQ(directory.messages().empty(), built) << n;
    EXPECT_EQ(PVBinqByPath(directory.path()), -1) << n;
    if (built) {
      EXPECT_EQ(directory.dump(), whole) << n;
      FaultPlatform faults;
      faults.failFileCall(n);
      const std::string again = directory.dump();
      EXPECT_TRUE(again == whole || !directory.messages().empty()) << n;
    }
  }
  testing::internal::GetCapturedStderr();
}

RC_GTEST_PROP(Quote, GivesAnyBytesBack, (std::string text)) {
  const std::string line = quotedText(text);
  std::size_t position = 0;
  std::string back;
  RC_ASSERT(readQuoted(line, position, back) && position == line.size() && back == text);
  for (const char c : line) RC_ASSERT(static_cast<unsigned char>(c) >= ' ');
}

RC_GTEST_PROP(Base64, GivesAnyBytesBack, (std::string bytes)) {
  std::string text;
  std::string back;
  appendBase64(text, bytes);
  RC_ASSERT(decodeBase64(text, back) && back == bytes);
}

RC_GTEST_PROP(Ids, AreReadAsTheyAreWritten, (std::int32_t id)) {
  std::string text;
  appendId(text, id);
  PVBid back = 0;
  // The first word of a line is its keyword, so the id stands behind one.
  const std::string line = "id " + text;
  DumpScanner reader(PBopenMemoryText(line, "text", false), "text", [](const Message&) {});
  RC_ASSERT(reader.nextLine() && reader.id(back) && back == id);
}

}  // namespace
