#include "conditioner/row_transfer.h"

#include <gmock/gmock.h>

#include "pvb/property.h"
#include "support/region_database.h"

using testing::ElementsAre;
using Properties = std::vector<std::pair<std::int32_t, std::string>>;

namespace {

RowHandle newRow(const RegionDatabase& in) { return {in.handle(), PVBpatternNew(in.handle())}; }

Properties propertiesOf(const RegionDatabase& in, const PVBrow& row) {
  Properties read;
  const PVBproperty* next = PVBpropInqFirst(in.handle(), row.tag);
  for (; next != nullptr; next = PVBpropInqNext(in.handle())) {
    read.emplace_back(next->key, next->value.value_or("none"));
  }
  return read;
}

// `newest` first.
void give(const RegionDatabase& in, PVBrow& row, const Properties& newest) {
  row.tag = PVBpropListNew(in.handle());
  for (auto at = newest.rbegin(); at != newest.rend(); ++at) {
    PVBputProp(in.handle(), row.tag, {at->first, at->second});
  }
}

}  // namespace

TEST(RowTransferBits, CharactersGoByHalves) {
  RegionDatabase src("src", true);
  RegionDatabase dest("dest", true);
  struct Case {
    std::int32_t in, out;  // of the source, where 'A' (0x41) stands at 4 and 5
    std::int32_t toIn;     // toOut is 9
    int atIn, behind, atOut;
  };
  const Case cases[] = {
      {4, 5, 6, 1, 4, 4},    // the high half lands in the neighbour too
      {4, 5, 7, 1, 0, 4},    // not from an odd column
      {4, -1, 6, 1, 0, 0},   // no high half
      {-1, 5, 6, 13, 2, 2},  // not known: '-'
      {4, 99, 6, 1, 0, 0},   // a column that the rows don't have
  };
  const PVBid id = src.add("c");
  dest.add("c");
  for (const Case& c : cases) {
    PVBsignal& from = *PVBsignalInqByID(src.handle(), id);
    from.bitIn = c.in;
    from.bitOut = c.out;
    dest.named("c").bitIn = c.toIn;
    dest.named("c").bitOut = 9;
    const RowHandle source = newRow(src);
    const RowHandle copy = newRow(dest);
    source->states()[2] = 0x41;
    copyRowStates(*copy, *source,
                  buildScalarPairs(signalTableOf(src.region), src.region, dest.region));
    const auto at = [&](std::int32_t column) {
      return rowCode(copy->states(), static_cast<std::uint32_t>(column));
    };
    EXPECT_THAT((std::vector<int>{at(c.toIn), at(c.toIn + 1), at(9)}),
                ElementsAre(c.atIn, c.behind, c.atOut))
        << c.in << " " << c.out << " " << c.toIn;
  }
}

TEST(RowTransferBits, ColumnsOfAListGoOneByOne) {
  RegionDatabase src("src", true);
  RegionDatabase dest("dest", true);
  dest.add("other");
  for (const RegionDatabase* in : {&src, &dest}) {
    in->add("c");
    ASSERT_EQ(PVBsignalAllocBits(in->handle(), in->named("c"), 3), 0);
  }
  const RowHandle source = newRow(src);
  const RowHandle copy = newRow(dest);
  const auto column = [](const RegionDatabase& in, std::size_t bit) {
    return static_cast<std::uint32_t>(in.named("c").bitTracks.at(bit));
  };
  for (int bit : {0, 1, 2}) setRowCode(source->states(), column(src, std::size_t(bit)), bit + 1);
  copyRowStates(*copy, *source,
                buildScalarPairs(signalTableOf(src.region), src.region, dest.region));
  for (int bit : {0, 1, 2})
    EXPECT_EQ(rowCode(copy->states(), column(dest, std::size_t(bit))), bit + 1);
}

TEST(RowProperties, EmptyListsAreNotCarriedAndLongOnesAreWhole) {
  RegionDatabase src("src");
  RegionDatabase dest("dest");
  const RowHandle source = newRow(src);
  const RowHandle copy = newRow(dest);
  give(src, *source, {});
  copyRowProperties(*copy, *source, dest.handle(), src.handle());
  EXPECT_EQ(copy->tag, UNDEF);
  Properties many;
  for (int i = 0; i < 3000; ++i) many.emplace_back(i, std::to_string(i));
  give(src, *source, many);
  copyRowProperties(*copy, *source, dest.handle(), src.handle());
  const Properties read = propertiesOf(dest, *copy);
  ASSERT_EQ(read.size(), 3000U);
  EXPECT_EQ(read.front(), (Properties::value_type{2999, "0"}));
}
