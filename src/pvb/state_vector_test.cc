#include "pvb/state_vector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdlib>
#include <map>

#include "base/errors.h"
#include "pvb/signal.h"
#include "pvb/state_vector_internal.h"
#include "support/database.h"

namespace {

constexpr std::uint32_t kSections = kSectionSignals | kSectionScan;

// How many vectors are cached by the databases opened meanwhile.
class CacheSetting {
 public:
  explicit CacheSetting(const char* value) { setenv("MVK_NUM_STATES_BUFFERED", value, 1); }
  ~CacheSetting() { unsetenv("MVK_NUM_STATES_BUFFERED"); }
};

std::int32_t takeStatus(int database) {
  const char* text = nullptr;
  const std::int32_t status = PVBinqStatus(database, text);
  PVBclearStatus(database);
  return status;
}

std::string bytes(std::initializer_list<int> values) {
  std::string result;
  for (const int value : values) result.push_back(static_cast<char>(value));
  return result;
}

// The bytes of a page of the closed database's "pvb.st".
std::string pageOf(const TestDatabase& database, std::uint32_t page) {
  const VPageFilePtr file = VPageOpen(database.path() + "/pvb.st", 3);
  const void* data = file ? VPageGet(*file, page) : nullptr;
  if (data == nullptr) return "no page";
  std::string result(static_cast<const char*>(data),
                     static_cast<std::size_t>(VPageSize(*file, page)));
  VPageRelease(*file, page);
  return result;
}

void setPage(const TestDatabase& database, std::uint32_t page, const std::string& content) {
  VPageFilePtr file = VPageOpen(database.path() + "/pvb.st", 3);
  ASSERT_TRUE(file);
  void* data = VPageResize(*file, page, content.size());
  ASSERT_TRUE(data);
  content.copy(static_cast<char*>(data), content.size());
  VPageDirty(*file, page, false);
  VPageRelease(*file, page);
  ASSERT_EQ(VPageClose(std::move(file)), 0);
}

// Vectors 3 to 6: "a", one without a name, "b" and "c"; 4 is deleted.
void makeFour(int database) {
  const PVBid first = PVBstateVectorNew(database, "a");
  EXPECT_EQ(first, PVBidMake(kClassStateVector, 3));
  const PVBid second = PVBstateVectorNew(database, "");
  PVBstateVectorNew(database, "b");
  PVBstateVectorNew(database, "c");
  EXPECT_EQ(PVBstateVectorSet(database, first, 10, 1), 0);
  EXPECT_EQ(PVBstateVectorSet(database, first, 11, 2), 0);
  EXPECT_EQ(PVBstateVectorSetValue(database, first, 0x01020304), 0);
  EXPECT_EQ(PVBstateVectorDelete(database, second), 0);
}

TEST(StateVector, PagesOnDisk) {
  TestDatabase database(32, 16, kSections);
  makeFour(database.handle());
  EXPECT_FALSE(database.files().contains("pvb.st")) << "before a save";
  database.close();
  EXPECT_EQ(pageOf(database, 0),
            bytes({0xAF, 0xAF, 0x0F, 0x0F, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 0}));
  EXPECT_EQ(pageOf(database, 1),
            bytes({0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0, 0, 5, 0, 0, 0, 2}));
  EXPECT_EQ(pageOf(database, 2), std::string("a\0b\0c\0", 6));
  EXPECT_EQ(pageOf(database, 3), bytes({'a', 0, 0x44, 0, 4, 0, 0x21, 0, 0xFF, 0xFF, 4, 3, 2, 1}));
  EXPECT_EQ(pageOf(database, 4), "no page");
  EXPECT_EQ(pageOf(database, 6), bytes({'c', 0, 0, 0xFF, 0xFF, 0, 0, 0, 0}));
}

TEST(StateVector, CallsTellWhatIsWrong) {
  TestDatabase database(32, 16, kSections);
  const int handle = database.handle();
  EXPECT_EQ(PVBstateVectorGet(handle, PVBidMake(kClassStateVector, 3), 0), kVectorFailure);
  EXPECT_EQ(takeStatus(handle), kStatusNotInUse);
  const PVBid vector = PVBstateVectorNew(handle, "v");
  EXPECT_EQ(PVBstateVectorNew(handle, "v"), -1);
  EXPECT_EQ(takeStatus(handle), kStatusNameTaken);
  EXPECT_EQ(PVBstateVectorByName(handle, "w"), UNDEF);
  EXPECT_EQ(takeStatus(handle), kStatusNoSuchName);
  for (const int code : {0, 5}) EXPECT_EQ(PVBstateVectorSet(handle, vector, 0, code), -2);
  EXPECT_EQ(takeStatus(handle), kStatusBadVectorValue);
  for (const std::string_view cells : {std::string_view("\0", 1), std::string_view("\x51")}) {
    EXPECT_EQ(PVBstateVectorSetBytes(handle, vector, cells), -2);
    EXPECT_EQ(takeStatus(handle), kStatusBadVectorValue);
  }
  EXPECT_EQ(PVBstateVectorSet(handle, vector, 0x1000000, 1), -2);
  EXPECT_EQ(takeStatus(handle), kStatusOutOfBounds);
  // The file's own page, and one that isn't there.
  for (const PVBid id : {PVBidMake(kClassStateVector, 0), PVBidMake(kClassStateVector, 9)}) {
    EXPECT_EQ(PVBstateVectorBytes(handle, id), nullptr);
    EXPECT_EQ(PVBstateVectorDelete(handle, id), -2);
    EXPECT_EQ(takeStatus(handle), kStatusNotInUse);
  }
  EXPECT_EQ(PVBstateVectorDelete(handle, 7), -2);
  EXPECT_EQ(takeStatus(handle), kStatusWrongClass);
  EXPECT_EQ(PVBscanOpen(handle + 1), -2);
}

// --- Against a model -----------------------------------------------------------------

struct ModelVector {
  std::string name;
  std::map<std::uint32_t, int> cells;
  std::uint32_t value = 0;
};
using Model = std::map<PVBid, ModelVector>;

void checkAgainst(int database, const Model& model) {
  PVBid id = PVBstateVectorNext(database, UNDEF);
  for (const auto& [known, vector] : model) {
    RC_ASSERT(id == known);
    RC_ASSERT(PVBstateVectorName(database, id) == vector.name);
    if (!vector.name.empty()) RC_ASSERT(PVBstateVectorByName(database, vector.name) == id);
    RC_ASSERT(PVBstateVectorValue(database, id) == vector.value);
    for (const auto& [cell, code] : vector.cells) {
      RC_ASSERT(PVBstateVectorGet(database, id, cell) == code);
      RC_ASSERT(PVBstateVectorGet(database, id, cell + 1) ==
                (vector.cells.contains(cell + 1) ? vector.cells.at(cell + 1) : 4));
    }
    id = PVBstateVectorNext(database, id);
  }
  RC_ASSERT(id == UNDEF);
}

void makeVector(int database, Model& model) {
  const std::string name = *rc::gen::element<std::string>("", "a", "b", "c", "XXXX long");
  const PVBid id = PVBstateVectorNew(database, name);
  const bool taken = !name.empty() && std::any_of(model.begin(), model.end(), [&](const auto& row) {
    return row.second.name == name;
  });
  RC_ASSERT((id == -1) == taken);
  if (!taken) model[id].name = name;
}

void stepBoth(TestDatabase& database, Model& model) {
  const int step = *rc::gen::inRange(0, 20);
  if (step < 2 || model.empty()) return makeVector(database.handle(), model);
  const auto entry =
      std::next(model.begin(), *rc::gen::inRange<int>(0, static_cast<int>(model.size())));
  const PVBid id = entry->first;
  if (step == 2) {
    RC_ASSERT(PVBstateVectorDelete(database.handle(), id) == 0);
    model.erase(entry);
  } else if (step == 3) {
    *rc::gen::arbitrary<bool>() ? database.reopen() : RC_ASSERT(PVBsave(database.handle()) == 0);
  } else if (step == 4) {
    entry->second.value = *rc::gen::arbitrary<std::uint32_t>();
    RC_ASSERT(PVBstateVectorSetValue(database.handle(), id, entry->second.value) == 0);
  } else {
    const auto cell = *rc::gen::inRange<std::uint32_t>(0, step < 18 ? 30 : 5000);
    const int code = *rc::gen::inRange(1, 5);
    RC_ASSERT(PVBstateVectorSet(database.handle(), id, cell, code) == 0);
    entry->second.cells[cell] = code;
  }
}

RC_GTEST_PROP(StateVector, VectorsStayWhatTheyWereMade, ()) {
  const CacheSetting setting(*rc::gen::element("0", "1", "2", "64"));
  TestDatabase database(32, 16, kSections);
  Model model;
  const int steps = *rc::gen::inRange(0, 60);
  for (int i = 0; i < steps; ++i) stepBoth(database, model);
  checkAgainst(database.handle(), model);
  database.reopen();
  checkAgainst(database.handle(), model);
}

// --- Lifetime ------------------------------------------------------------------------

TEST(StateVector, CacheSizeIsDigitsOnly) {
  const std::pair<const char*, std::size_t> cases[] = {
      {"", 0}, {"0", 0}, {"7", 7}, {"99999999999999999999999", 0x7FFFFFFF}};
  for (const auto& [text, size] : cases) {
    const CacheSetting setting(text);
    TestDatabase database(32, 16, kSections);
    EXPECT_EQ(database.slot().scan->numVectors, size) << text;
  }
  testing::internal::CaptureStderr();
  for (const char* text : {"-1", "7x"}) {
    const CacheSetting setting(text);
    TestDatabase database(32, 16, kSections);
    EXPECT_EQ(database.slot().scan->numVectors, 64U) << text;
    EXPECT_EQ(takeStatus(database.handle()), kStatusBufferVariable);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Environment variable, MVK_NUM_STATES_BUFFERED, must be a positive integer.\n"
            "Current setting is ignored.\n");
}

TEST(StateVector, UnsavedCloseKeepsWhatWasSaved) {
  const CacheSetting setting("0");  // so that every change reaches its page
  TestDatabase database(32, 16, kSections);
  makeFour(database.handle());
  database.reopen();
  const auto before = database.files();
  EXPECT_EQ(PVBstateVectorSet(database.handle(), PVBidMake(kClassStateVector, 3), 2, 1), 0);
  PVBstateVectorNew(database.handle(), "lost");
  EXPECT_EQ(PVBstateVectorDelete(database.handle(), PVBidMake(kClassStateVector, 5)), 0);
  EXPECT_EQ(PVBcloseUnsaved(database.handle()), 0);
  EXPECT_EQ(database.files(), before);
  EXPECT_EQ(database.temporaryFiles(), 0U);
}

TEST(StateVector, NamesBehindTheVectorsAreReadFromThem) {
  TestDatabase database(32, 16, kSections);
  makeFour(database.handle());
  database.close();
  setPage(database, 0, bytes({0xAF, 0xAF, 0x0F, 0x0F, 0, 0, 0, 1, 0, 0, 0, 9, 0, 0, 0, 1}));
  setPage(database, 1, bytes({0, 0, 0, 0}));
  setPage(database, 6, std::string("a\0\0\xFF\xFF\0\0\0\0", 9));  // taken by a lower one
  ASSERT_TRUE(database.open());
  EXPECT_EQ(PVBstateVectorByName(database.handle(), "b"), PVBidMake(kClassStateVector, 5));
  EXPECT_EQ(PVBstateVectorByName(database.handle(), "a"), PVBidMake(kClassStateVector, 3));
  EXPECT_EQ(PVBstateVectorBytes(database.handle(), PVBidMake(kClassStateVector, 6)), nullptr);
  EXPECT_EQ(PVBsave(database.handle()), 0);
  database.close();
  EXPECT_EQ(pageOf(database, 0),
            bytes({0xAF, 0xAF, 0x0F, 0x0F, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0}));
  EXPECT_EQ(pageOf(database, 2), std::string("a\0b\0", 4));
}

// --- Damage --------------------------------------------------------------------------

TEST(StateVector, DamagedTablesAreRefused) {
  const std::pair<std::uint32_t, std::string> cases[] = {
      {0, "short"},
      {0, bytes({0xAF, 0xAF, 0x0F, 0x0E, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 0})},
      {0, bytes({0xAF, 0xAF, 0x0F, 0x0F, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0})},
      {0, bytes({0xAF, 0xAF, 0x0F, 0x0F, 0, 0, 0, 1, 0, 0, 0, 4, 0, 0, 0, 0})},
      {1, bytes({0, 0})},
      {1, bytes({0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 3, 0, 0, 0, 1})},
      {1, bytes({0, 0, 0, 1, 0, 0, 0, 3, 0xFF, 0xFF, 0xFF, 0xFF})},
      {1, bytes({0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 2})},
      {1, bytes({0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 5, 0, 0, 0, 2})},
      {1, bytes({0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 2, 0, 0, 0, 5, 0, 0, 0, 1})},
      {2, std::string("a\0b\0c", 5)},
      {2, std::string("a\0a\0c\0", 6)},
      {2, std::string("\0b\0c\0", 5)},
  };
  for (const auto& [page, content] : cases) {
    TestDatabase database(32, 16, kSections);
    makeFour(database.handle());
    database.close();
    setPage(database, page, content);
    EXPECT_FALSE(database.open()) << page << " " << testing::PrintToString(content);
    EXPECT_TRUE(PBerrorHas("PVBscanOpen", 87));
    PBdiscardErrors();
  }
}

TEST(StateVector, DamagedVectorsFailAlone) {
  const std::string cases[] = {
      "no end",                                          // of the name
      std::string("b\0\x11\0\xFF\xFF\0\0\0\0", 10),      // another's name
      std::string("\0\x11\0\xFF\xFF\0\0\0\0", 9),        // none
      std::string("a\0\x11\0\xFF\xFF\0\0\0", 9),         // value cut
      std::string("a\0\0\x04\0\0\xFF\xFF\0\0\0\0", 12),  // token without a byte
  };
  for (const std::string& content : cases) {
    TestDatabase database(32, 16, kSections);
    makeFour(database.handle());
    database.close();
    setPage(database, 3, content);
    ASSERT_TRUE(database.open());
    EXPECT_EQ(PVBstateVectorGet(database.handle(), PVBidMake(kClassStateVector, 3), 0), 6);
    EXPECT_EQ(takeStatus(database.handle()), kStatusInternal);
    EXPECT_EQ(PVBstateVectorGet(database.handle(), PVBidMake(kClassStateVector, 5), 0), 4);
  }
}

// --- Texts ---------------------------------------------------------------------------

TEST(StateVector, BusValuesAsText) {
  TestDatabase database(32, 16, kSections);
  const int handle = database.handle();
  auto chain = PVBsignalNew();
  chain->name = "chain";
  chain->type = kScanChainType;
  for (std::uint32_t i = 1; i <= 6; ++i) chain->members.push_back(PVBidMake(kClassScanCell, i));
  const PVBid id = PVBscanObjectInsert(handle, std::move(chain));
  const PVBid vector = PVBstateVectorNew(handle, "v");

  std::string text;
  EXPECT_EQ(PVBstateVectorFormat(handle, vector, id, 2, text), 0);
  EXPECT_EQ(text, "X");
  EXPECT_EQ(PVBstateVectorParse(handle, vector, id, "43"), 0);
  const char* const texts[] = {"101011", "53", "43", "2B"};
  for (int radix = 0; radix < 4; ++radix) {
    EXPECT_EQ(PVBstateVectorFormat(handle, vector, id, radix, text), 0);
    EXPECT_EQ(text, texts[radix]);
  }
  EXPECT_EQ(PVBstateVectorGet(handle, vector, 1), 2) << "the first cell is the highest bit";
  EXPECT_EQ(PVBstateVectorSet(handle, vector, 3, 4), 0);
  EXPECT_EQ(PVBstateVectorFormat(handle, vector, id, 2, text), 0);
  EXPECT_EQ(text, "?");
  EXPECT_EQ(PVBstateVectorParse(handle, vector, id, "x"), 0);
  EXPECT_EQ(PVBstateVectorGet(handle, vector, 1), 4);

  for (const char* bad : {"", "4A", "-1", "XX"}) {
    EXPECT_EQ(PVBstateVectorParse(handle, vector, id, bad), -2) << bad;
    EXPECT_EQ(takeStatus(handle), kStatusBadRadix) << bad;
  }
  EXPECT_EQ(PVBstateVectorParse(handle, vector, id, "64"), -2);
  EXPECT_EQ(takeStatus(handle), kStatusBadLength);
  EXPECT_EQ(PVBstateVectorFormat(handle, vector, id, 4, text), -2);
  PVBobjectInqByID(handle, id)->members.resize(33, PVBidMake(kClassScanCell, 1));
  EXPECT_EQ(PVBstateVectorFormat(handle, vector, id, 2, text), -2);
  EXPECT_EQ(takeStatus(handle), kStatusBadRadix);
}

TEST(StateVector, LongRunsInNamesAreWrittenShort) {
  const std::pair<std::string, std::string> cases[] = {
      {"XXXXX", "XXXXX"},        {"XXXXXX", "X<6>"},         {"XXXXXa", "X<5>a"},
      {"aXXXXX", "aX<5>"},       {"XXXXaXXXX", "XXXXaXXXX"}, {"XXXXX0XXXXXXX", "X<5>0X<7>"},
      {"aXXXXXXXb", "aXXXXXXXb"}};
  for (const auto& [name, expected] : cases) {
    std::string text = name;
    PVBscanNameCompress(text);
    EXPECT_EQ(text, expected);
  }
  setenv("USE_ALLSCAN", "", 1);
  testing::internal::CaptureStderr();
  for (int i = 0; i < 2; ++i) {
    std::string text = "XXXXXX";
    PVBscanNameCompress(text);
    EXPECT_EQ(text, "XXXXXX");
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "INFORMATIVE: Scan state compression disabled, using ALLSCAN.\n");
  unsetenv("USE_ALLSCAN");
}

}  // namespace
