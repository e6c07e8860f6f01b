#include "base/srf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <zlib.h>

#include <algorithm>

#include "base/errors.h"
#include "support/fault_platform.h"
#include "support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::string_view kNames[] = {"name", "path", "start", "stop"};
using Rows = std::vector<std::string>;

// "keyword=value;" for each item.
std::string shown(const SRFtuple& row) {
  std::string text;
  for (const SRFitem& item : row.items) {
    text.append(item.keyword).append("=").append(item.value).append(";");
  }
  return text;
}

class SrfTest : public testing::Test {
 protected:
  SrfTest() {
    SRF_resetModes();
    PBdiscardErrors();
    SRF_setKeywords(kNames);
    SRF_setNoteHook([this](std::string_view note) {
      notes += note;
      return false;
    });
  }
  ~SrfTest() override {
    SRF_resetModes();
    PBdiscardErrors();
  }

  // Collects every row that has a value.
  SRFrowHandler collect(std::uint32_t mask) {
    return {mask, [this](const SRFtuple& row, std::uint32_t) {
              rows.push_back(shown(row));
              return true;
            }};
  }
  bool parse(std::string_view text) {
    rows.clear();
    notes.clear();
    const SRFrowHandler handlers[] = {collect(1)};
    return SRF_parseBuffer(text, "text", handlers);
  }

  TempDir dir;
  Rows rows;
  std::string notes;
};

TEST_F(SrfTest, RowsAreSplitByTheRulesOfTheFormat) {
  const struct {
    std::string_view row, expected;
  } cases[] = {
      {"a b c d extra \"more\"", "name=a;path=b;start=c;stop=d;"},
      {"a", "name=a;"},
      {"a\t-  c \r", "name=a;start=c;"},
      {"a \"-\" \"\" \"b  \"", "name=a;path=-;start=;stop=b;"},
      {R"("a b"c "say \"hi\"" "x\\y\z")", R"(name=a b;path=c;start=say "hi";stop=x\y\z;)"},
      {R"(x\\y a\"b c\d \-)", R"(name=x\y;path=a\"b;start=c\d;stop=\-;)"},
      {R"(a\#b "c\#" d#e f)", "name=a#b;path=c#;start=d;"},
      {R"(a\\# rest)", R"(name=a\;)"},
      {R"(a "b # c" d)", ""},
      {"a \\  \n b\\\n c", "name=a;path=b;start=c;"},
      {"\\\n#% path", ""},
      {"   # only a comment", ""},
      {"- b", ""},
  };
  for (const auto& [row, expected] : cases) {
    parse(std::string("#% Name PATH start Stop # trailing\n# comment\n").append(row));
    EXPECT_EQ(rows, expected.empty() ? Rows() : Rows{std::string(expected)}) << row;
  }
  SRF_setRawEscapes(true);
  EXPECT_TRUE(parse("#% name path start\na\\ b \"c\\d\" \\\"e\\-\n"));
  EXPECT_THAT(rows, ElementsAre("name=a b;path=cd;start=\"e-;"));
}

TEST_F(SrfTest, EachTableCallsTheHandlersThatFitInTheirOrder) {
  Rows calls;
  const auto handler = [&](std::uint32_t mask, std::string name) {
    return SRFrowHandler{mask, [&calls, name](const SRFtuple& row, std::uint32_t matched) {
                           calls.push_back(name + std::to_string(matched) + " " + shown(row));
                           return true;
                         }};
  };
  const SRFrowHandler handlers[] = {handler(4, "first"), handler(3, "both"), handler(0, "end"),
                                    handler(1, "beyond")};
  EXPECT_TRUE(SRF_parseBuffer(
      "#% name path\na b\n- c\n#%start\n1\n#%name,\n#% path start name\np s n\n", "", handlers));
  EXPECT_THAT(notes, HasSubstr("(text_buffer) line 6: \"#%name,\""));
  EXPECT_THAT(calls, ElementsAre("both3 name=a;path=b;", "first4 start=1;",
                                 "first4 path=p;start=s;name=n;", "both3 path=p;start=s;name=n;"));
}

TEST_F(SrfTest, AFailedRowIsListedAndTheNextOnesAreStillHandled) {
  Rows handled;
  const SRFrowHandler handlers[] = {
      {1,
       [&](const SRFtuple& row, std::uint32_t) {
         handled.emplace_back(row.items[0].value);
         return row.items[0].value != "bad";
       }},
      {1, [&](const SRFtuple& row, std::uint32_t) {
         handled.push_back("second " + std::string(row.items[0].value));
         return true;
       }}};
  EXPECT_FALSE(SRF_parseBuffer("#% name\na\nbad \\\n row\r\n\"open\nz\n", "t", handlers));
  EXPECT_THAT(handled, ElementsAre("a", "second a", "bad", "z", "second z"));
  EXPECT_EQ(SRF_nextMessage(), "Could not parse line number:  4: bad   row\n");
  EXPECT_FALSE(SRF_noMoreMessages());
  EXPECT_EQ(SRF_nextMessage(), "Could not convert line to tuple:  5: \"open\n");
  EXPECT_EQ(SRF_nextMessage(), std::nullopt);
  EXPECT_TRUE(SRF_noMoreMessages());
  EXPECT_EQ(notes, "Error: Missing closing \"\n  on (t) line 5: \"\"open\"\n");
  EXPECT_EQ(SRF_errorCount(), 0);
}

TEST_F(SrfTest, BadHeadersSkipTheirTable) {
  EXPECT_TRUE(parse("#% name colour path\na red p\n- \"x y\" -\n"));
  EXPECT_THAT(rows, ElementsAre("name=a;path=p;"));
  EXPECT_EQ(notes,
            "Error: No keyword named \"colour\" -- ignoring column\n"
            "  on (text) line 1: \"#% name colour path\"\n");
  EXPECT_EQ(SRF_errorCount(), 1);

  EXPECT_FALSE(parse("#% name path NAME\n\"skipped\n#% name\nread\n"));
  EXPECT_THAT(notes, HasSubstr("Keyword \"NAME\" specified more than once -- skipping table"));
  EXPECT_THAT(rows, ElementsAre("name=read;"));

  EXPECT_FALSE(parse("#% name \"path\na\n"));
  EXPECT_THAT(rows, IsEmpty());
  EXPECT_TRUE(SRF_noMoreMessages());

  SRF_setUnknownKeywordNote(false);
  EXPECT_TRUE(parse("#% nothing known\na\n"));
  EXPECT_EQ(notes, "");
  EXPECT_EQ(SRF_errorCount(), 2);
}

TEST_F(SrfTest, DataNeedsAHeaderOrInitialAttributesAndAnEnd) {
  EXPECT_TRUE(parse("# only\n\n  \n# comments"));
  EXPECT_FALSE(parse("a b\n"));
  EXPECT_THAT(notes, HasSubstr("No attributes have been set: Is file in SRF format?"));
  EXPECT_EQ(SRF_errorCount(), 1);
  EXPECT_EQ(SRF_nextMessage(), "Could not parse line number:  1: a b\n");

  const std::string_view initial[] = {"path", "name"};
  const SRFrowHandler handlers[] = {collect(1)};
  EXPECT_TRUE(SRF_parseBuffer("p n\n", "", handlers, initial));
  EXPECT_THAT(rows, ElementsAre("path=p;name=n;"));

  EXPECT_FALSE(parse("#% name\na\nb \\\n"));
  EXPECT_THAT(rows, ElementsAre("name=a;"));
  EXPECT_EQ(PBformatError(0, 200),
            "getContinuedLine: Error 0: Unexpected EOF after line continuation");
  EXPECT_EQ(PBformatError(1, 200), "SRF_parseBuffer: Error reading file: text");
}

TEST_F(SrfTest, HooksRefuseRowsAndTablesAndStopTheParse) {
  Rows seen;
  SRF_setRowHook([](const SRFtuple& row) { return SRF_get(row, "PATH") != "no"; });
  SRF_setHeaderHook([&](std::span<const std::string_view> names) {
    seen.insert(seen.end(), names.begin(), names.end());
    return names.size() > 1;
  });
  EXPECT_FALSE(parse("#% name path\na no\nb yes\n"));
  EXPECT_THAT(rows, ElementsAre("name=b;path=yes;"));
  EXPECT_FALSE(parse("#% name\na\n#% other Name\n- b\n"));
  EXPECT_THAT(rows, ElementsAre("name=b;"));
  EXPECT_THAT(seen, ElementsAre("name", "path", "name", "other", "Name"));

  const SRFrowHandler stop = {1, [](const SRFtuple&, std::uint32_t) {
                                SRF_stopParse();
                                return true;
                              }};
  SRF_resetModes();
  SRF_setKeywords(kNames);
  rows.clear();
  const SRFrowHandler handlers[] = {stop, collect(1)};
  EXPECT_FALSE(SRF_parseBuffer("#% name\na\nb\n", "", handlers));
  EXPECT_THAT(rows, ElementsAre("name=a;"));
  EXPECT_TRUE(SRF_noMoreMessages());
  SRF_setNoteHook([](std::string_view) { return true; });
  EXPECT_FALSE(parse("#% name x\na\n"));
  EXPECT_THAT(rows, IsEmpty());
}

TEST_F(SrfTest, OneParseAtATime) {
  const std::string path = dir.write("f", "#% name\na\n");
  const SRFrowHandler handlers[] = {{1, [&](const SRFtuple&, std::uint32_t) {
                                       EXPECT_FALSE(SRF_parseFile(path, {}));
                                       EXPECT_FALSE(SRF_parseBuffer("", "", {}));
                                       return true;
                                     }}};
  EXPECT_TRUE(SRF_parseFile(path, handlers));
  EXPECT_EQ(PBformatError(0, 200), "SRF_parseFile: Can't open file: Input file already opened.");
  EXPECT_EQ(PBformatError(1, 200),
            "SRF_parseBuffer: Illegal parameter value: Recursive SRF parse of the same buffer.");
}

TEST_F(SrfTest, NotesNameTheProgramAndTheLine) {
  PBprogramName = "tool";
  const SRFrowHandler handlers[] = {{1, [](const SRFtuple&, std::uint32_t) {
                                       SRF_error("one");
                                       SRF_warning("two");
                                       SRF_information("three");
                                       SRF_note("", "four");
                                       return true;
                                     }}};
  SRF_setNoteHook({});
  testing::internal::CaptureStderr();
  SRF_parseBuffer("#% name\na\n", "t", handlers);
  PBprogramName.clear();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "tool SRF error: one\n  on (t) line 2: \"a\"\n"
            "Warning: two\n  on (t) line 2: \"a\"\n"
            "Note: three\n  on (t) line 2: \"a\"\n"
            "tool: four\n  on (t) line 2: \"a\"\n");
  SRF_error("no input");
  EXPECT_EQ(PBformatError(0, 200), "SRF_note: Error reading file: File not open");
}

TEST_F(SrfTest, VocabulariesGiveTheAttributes) {
  std::vector<std::uint32_t> attributes;
  const SRFrowHandler handlers[] = {{1, [&](const SRFtuple& row, std::uint32_t) {
                                       for (const SRFitem& item : row.items) {
                                         attributes.push_back(item.attribute);
                                       }
                                       return true;
                                     }}};
  std::vector<std::string> texts;
  for (int i = 0; i < 40; ++i) texts.push_back("k" + std::to_string(i));
  const std::vector<std::string_view> names(texts.begin(), texts.end());
  SRF_setKeywords(names);
  EXPECT_TRUE(SRF_parseBuffer("#% k0 k30 k31 k32 k39\na b c d e\n", "", handlers));
  EXPECT_THAT(attributes, ElementsAre(1, 1u << 30, 1u << 31, 1u << 31, 1u << 31));
  SRFtuple row;
  const auto set =
      std::ranges::count_if(names, [&](std::string_view name) { return SRF_set(row, name, "v"); });
  EXPECT_EQ(set, 31);
  EXPECT_TRUE(SRF_set(row, "K0", std::nullopt));
  EXPECT_EQ(SRF_get(row, "k0"), std::nullopt);
  EXPECT_FALSE(SRF_set(row, "colour", "red"));

  attributes.clear();
  const SRFkeyword pairs[] = {{"a", 1}, {"b", 6}};
  SRF_setKeywordPairs(pairs);
  SRF_setDynamicKeywords(64);
  EXPECT_TRUE(SRF_parseBuffer("#% B new A NEW\n1 2 3 4\n#% new new\n", "", handlers) == false);
  EXPECT_THAT(attributes, ElementsAre(6, 64, 1, 64));
}

TEST_F(SrfTest, FilesAreReadPlainOrCompressed) {
  const std::string path = dir.path("ops");
  gzFile compressed = gzopen((path + ".gz").c_str(), "wb");
  gzputs(compressed, "#% name\na\n\"b\n");
  gzclose(compressed);
  const SRFrowHandler handlers[] = {collect(1)};
  EXPECT_FALSE(SRF_parseFile(path, handlers));
  EXPECT_THAT(rows, ElementsAre("name=a;"));
  EXPECT_THAT(notes, HasSubstr("on (" + path + ".gz) line 3"));

  EXPECT_FALSE(SRF_parseFile(dir.path("missing"), handlers));
  EXPECT_TRUE(PBerrorHas("SRF_parseFile", 81));
  const std::string fine = dir.write("fine", "#% name\na\n");
  failEachFileCall([&](FaultPlatform&) {
    PBdiscardErrors();
    const bool read = SRF_parseFile(fine, handlers);
    EXPECT_EQ(read, PBerrorCount() == 0);
  });
}

TEST_F(SrfTest, AHugeLineIsReadInOnePiece) {
  std::string text = "#% name path\n\"";
  text.append(8 << 20, '\\').append("\" ").append((1 << 20) + 1, '"').append("\n");
  text.append(1 << 20, '-').append("\n#").append(1 << 20, '#');
  EXPECT_FALSE(parse(text));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].size(), (1 << 20) + std::string_view("name=;").size());
  EXPECT_EQ(SRF_nextMessage()->size(),
            std::string_view("Could not convert line to tuple:  2: \n").size() + 1023);
  std::string header = "#%";
  for (int i = 0; i < 1 << 20; ++i) header += " x";
  EXPECT_TRUE(parse(header));
  EXPECT_EQ(SRF_errorCount(), 1 << 20);
  EXPECT_EQ(std::ranges::count(notes, '\n'), 2000);
}

// --- Writing -------------------------------------------------------------------------

class SrfWriterTest : public SrfTest {
 protected:
  static SRFtuple tuple(
      std::initializer_list<std::pair<std::string_view, std::string_view>> values) {
    SRFtuple row;
    for (const auto& [keyword, value] : values) SRF_set(row, keyword, value);
    return row;
  }
  void open() { ASSERT_TRUE(SRF_openSrf(dir.path("out"))); }
  std::string written() {
    EXPECT_TRUE(SRF_closeSrf());
    return dir.read("out");
  }
};

TEST_F(SrfWriterTest, ColumnsAreLaidOutByTheirFirstRow) {
  open();
  EXPECT_TRUE(SRF_comment("top\nleft out"));
  SRFtuple first = tuple({{"name", "two words"}, {"path", "12345"}, {"start", "7"}});
  first.comment = "the table";
  EXPECT_TRUE(SRF_putTpl(first));
  EXPECT_TRUE(SRF_putTpl(tuple({{"start", "-5"}, {"name", "-"}, {"path", ""}})));
  EXPECT_TRUE(SRF_putTpl(tuple({{"name", "a#\"\\"}})));
  EXPECT_TRUE(SRF_comment(std::nullopt));
  EXPECT_EQ(written(),
            "# top\n"
            "# the table\n"
            "#% name        path  start\n"
            "\"two words\"    12345     7\n"
            "\"-\"            \"\"       -5\n"
            "\n"
            "#% name\n"
            "\"a\\#\\\"\\\\\"\n"
            "\n");
}

TEST_F(SrfWriterTest, ChosenColumnsStayUntilTheSetChanges) {
  open();
  const SRFtuple row = tuple({{"name", "a"}, {"path", "b"}});
  EXPECT_TRUE(SRF_putRd(1, row));
  EXPECT_TRUE(SRF_putTpl(row));
  const std::string_view order[] = {"stop", "name"};
  EXPECT_TRUE(SRF_putTplOrdered(row, order));
  EXPECT_TRUE(SRF_putTplOrdered(tuple({{"stop", "9"}}), order));
  EXPECT_TRUE(SRF_putTpl(tuple({{"name", "c"}, {"stop", "d"}})));
  EXPECT_EQ(written(),
            "#% name\na      \n\n#% stop name\n-       a   \n      9 -   \nd       c   \n");
}

TEST_F(SrfWriterTest, WhatCannotBeWrittenLeavesNothingBehind) {
  open();
  EXPECT_FALSE(SRF_openSrf(dir.path("second")));
  EXPECT_FALSE(SRF_putTpl(tuple({{"name", "a\nb"}})));
  const std::string longest = std::string(1021, 'x') + "\"";
  const std::string tooLong = longest + "x";
  EXPECT_FALSE(SRF_putTpl(tuple({{"name", tooLong}})));
  EXPECT_TRUE(PBerrorHas("SRF_putString", 0));
  EXPECT_TRUE(SRF_putTpl(tuple({{"name", longest}})));
  EXPECT_EQ(written().size(), (3 + 1022 + 1) + (1 + 1023 + 1 + 1u));

  EXPECT_FALSE(SRF_closeSrf());
  EXPECT_FALSE(SRF_comment("x"));
  EXPECT_TRUE(PBerrorHas("SRF_closeSrf", 85));
  EXPECT_TRUE(PBerrorHas("SRF_comment", 85));
  FaultPlatform faults;
  faults.setDiskSpace(10);
  open();
  EXPECT_TRUE(SRF_putTpl(tuple({{"name", "a long enough value"}})));
  EXPECT_FALSE(SRF_closeSrf());
  EXPECT_TRUE(PBerrorHas("SRF_closeSrf", 78));
  EXPECT_FALSE(SRF_openSrf(dir.path("no/such/place")));
}

// A value of any bytes but those that a row can't hold; what reading changes,
// white space at its end, is left out.
rc::Gen<std::string> anyValue() {
  const auto byte = rc::gen::oneOf(
      rc::gen::elementOf(std::string("\\\"#- \t\r\v%")), rc::gen::inRange('a', 'z'),
      rc::gen::map(rc::gen::inRange(1, 256), [](int c) { return static_cast<char>(c); }));
  return rc::gen::map(rc::gen::container<std::string>(byte), [](std::string value) {
    std::erase(value, '\n');
    value.resize(std::min<std::size_t>(value.size(), 400));
    value.erase(value.find_last_not_of(" \t\n\v\f\r") + 1);
    return value;
  });
}

RC_GTEST_FIXTURE_PROP(SrfWriterTest, WrittenTuplesComeBack, ()) {
  using Row = std::vector<std::string>;
  std::vector<Row> expected;
  for (const std::size_t count :
       *rc::gen::container<std::vector<std::size_t>>(rc::gen::inRange(1, 5))) {
    Row& row = expected.emplace_back();
    while (row.size() < count) row.push_back(*anyValue());
  }
  open();
  for (const Row& row : expected) {
    SRFtuple out;
    for (std::size_t i = 0; i < row.size(); ++i) RC_ASSERT(SRF_set(out, kNames[i], row[i]));
    RC_ASSERT(SRF_putTpl(out));
  }
  RC_ASSERT(SRF_closeSrf());

  std::vector<Row> read;
  const SRFrowHandler each{1, [&](const SRFtuple& in, std::uint32_t) {
                             Row& row = read.emplace_back();
                             for (const SRFitem& item : in.items) row.emplace_back(item.value);
                             return true;
                           }};
  RC_ASSERT(SRF_parseFile(dir.path("out"), {&each, 1}));
  RC_ASSERT(read == expected);
}

}  // namespace
