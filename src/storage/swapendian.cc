#include "storage/swapendian.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "base/errors.h"
#include "base/memory.h"

namespace {

// --- Layouts -------------------------------------------------------------------------

// `count` numbers of `width` bytes, one after the other; a width of 1 passes over
// bytes that stand as they are.
struct Run {
  std::uint8_t width = 0;
  std::uint16_t count = 0;
};

// What follows the fixed part.
enum class Tail : std::uint8_t {
  none,
  array,         // numbers of the first run's width, to the end
  counted,       // 32-bit numbers, as many as the number at kCountOffset says
  countedWrite,  // the same with the count still in the host's order
};
constexpr std::size_t kCountOffset = 4;
constexpr std::size_t kMaxRuns = 6;

// The entry `repeats` times, then the run `rest`, then the tail.
struct Layout {
  const char* name = nullptr;
  std::array<Run, kMaxRuns> entry = {};
  std::uint8_t repeats = 1;
  Run rest = {};
  Tail tail = Tail::none;
};

constexpr int kNodeEntries = 51;
constexpr int kLastNamedTag = typeLongLong;

// By tag; fixed by the file formats.
constexpr std::array<Layout, 43> kLayouts = {{
    {"typeNoStruct"},
    {"typePVBnode", {{{4, 6}, {2, 1}, {1, 2}, {4, 1}, {1, 2}, {2, 1}}}, kNodeEntries, {4, 2}},
    {"typeoldPVBnode1", {{{4, 257}}}},
    {"typeoldPVBnode2", {{{4, 308}}}},
    {"typeoldPVBnode3", {{{4, 5}, {2, 2}, {1, 4}}}, kNodeEntries, {4, 2}},
    {"typeoldPVBnode4", {{{4, 6}, {2, 2}, {1, 4}}}, kNodeEntries, {4, 2}},
    {"typePVBrow", {{{4, 2}, {2, 2}, {4, 10}}}},
    {"typePVBscanRun", {{{4, 4}}}},
    {"typePropList", {{{4, 1}}}},
    {"typePVBheader", {{{4, 4}}}},
    {"typePVBstatus", {{{4, 4}}}},
    {"typePVBid", {{{4, 0}}}, 1, {}, Tail::array},
    {"typeOldFileHeader", {{{4, 4}}}},
    {"typeNewFileHeader", {{{4, 4}}}},
    {"typeFreeList", {{{4, 2}}}},
    {"typeScanStateHeader", {{{4, 3}}}},
    {"typePVBwaveSet", {{{4, 6}}}},
    {"typeVPageHeader", {{{4, 1}, {1, 4}, {8, 3}, {4, 1}}}},
    {"typeoldProperty", {{{4, 3}, {2, 1}}}},
    {"typeProperty", {{{4, 3}, {2, 1}, {1, 2}, {4, 1}}}},
    {"typePVBfileOffset", {{{4, 1}}}},
    {"typeoff_t", {{{8, 0}}}, 1, {}, Tail::array},
    {nullptr, {{{8, 0}}}, 1, {}, Tail::array},
    {"typeIndexPage", {{{4, 2}, {8, 1}}}, 1, {}, Tail::counted},
    {"typeIndexPageWrite", {{{4, 2}, {8, 1}}}, 1, {}, Tail::countedWrite},
    {"typeSEFstate"},
    {"typePVBregType", {{{4, 0}}}, 1, {}, Tail::array},
    {"typePVBtgType", {{{4, 0}}}, 1, {}, Tail::array},
    {"typePVBtable", {{{4, 4}}}},
    {"typekeyHeader", {{{2, 1}, {1, 2}, {4, 10}}}},
    {"typetemplate_t", {{{2, 2}}}},
    {"typetgdata_t", {{{4, 1}, {1, 4}, {4, 1}}}},
    {"typeBool"},
    {"typeTime", {{{4, 2}}}},
    {"typeInt", {{{4, 0}}}, 1, {}, Tail::array},
    {"typeShort", {{{2, 0}}}, 1, {}, Tail::array},
    {"typeLong", {{{4, 0}}}, 1, {}, Tail::array},
    {"typeDouble", {{{8, 0}}}, 1, {}, Tail::array},
    {"typeLongLong", {{{8, 0}}}, 1, {}, Tail::array},
    {nullptr, {{{8, 0}}}, 1, {}, Tail::array},
    {nullptr, {{{4, 0}}}, 1, {}, Tail::array},
    {nullptr, {{{8, 0}}}, 1, {}, Tail::array},
    {nullptr, {{{4, 0}}}, 1, {}, Tail::array},
}};

constexpr std::size_t runSize(Run run) { return std::size_t{run.width} * run.count; }

constexpr std::size_t entrySize(const Layout& layout) {
  std::size_t size = 0;
  for (const Run& run : layout.entry) size += runSize(run);
  return size;
}

constexpr std::size_t fixedSize(const Layout& layout) {
  return entrySize(layout) * layout.repeats + runSize(layout.rest);
}

static_assert(fixedSize(kLayouts[typePVBnode]) == 51 * 36 + 8);
static_assert(fixedSize(kLayouts[typeoldPVBnode3]) == 51 * 28 + 8);
static_assert(fixedSize(kLayouts[typeoldPVBnode4]) == 51 * 32 + 8);
static_assert(fixedSize(kLayouts[typePVBrow]) == 52);
static_assert(fixedSize(kLayouts[typekeyHeader]) == 44);

// --- Reversing -----------------------------------------------------------------------

std::uint16_t reversed(std::uint16_t value) { return __builtin_bswap16(value); }
std::uint32_t reversed(std::uint32_t value) { return __builtin_bswap32(value); }
std::uint64_t reversed(std::uint64_t value) { return __builtin_bswap64(value); }

// Data may stand at any address.
template <typename Number>
void reverseNumbers(unsigned char* data, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    Number value;
    std::memcpy(&value, data + i * sizeof value, sizeof value);
    value = reversed(value);
    std::memcpy(data + i * sizeof value, &value, sizeof value);
  }
}

void reverseRun(unsigned char* data, int width, std::size_t count) {
  if (width == 2) reverseNumbers<std::uint16_t>(data, count);
  if (width == 4) reverseNumbers<std::uint32_t>(data, count);
  if (width == 8) reverseNumbers<std::uint64_t>(data, count);
}

// A run with all its numbers there; how it is done is settled when compiling.
template <int tag, std::size_t index>
unsigned char* swapWholeRun(unsigned char* data) {
  constexpr Run run = kLayouts[tag].entry[index];
  reverseRun(data, run.width, run.count);
  return data + runSize(run);
}

template <int tag, std::size_t... index>
unsigned char* swapWholeEntry(unsigned char* data, std::index_sequence<index...>) {
  ((data = swapWholeRun<tag, index>(data)), ...);
  return data;
}

template <int tag>
void swapWhole(unsigned char* data) {
  constexpr const Layout& layout = kLayouts[tag];
  for (int i = 0; i < layout.repeats; ++i) {
    data = swapWholeEntry<tag>(data, std::make_index_sequence<kMaxRuns>());
  }
  reverseRun(data, layout.rest.width, layout.rest.count);
}

// Takes the numbers of a run that lie within what is left.
void swapRunWithin(unsigned char*& data, std::size_t& left, Run run) {
  if (run.count == 0) return;
  reverseRun(data, run.width, std::min<std::size_t>(run.count, left / run.width));
  const std::size_t size = std::min(left, runSize(run));
  data += size;
  left -= size;
}

void swapWithin(unsigned char* data, const Layout& layout, std::size_t length) {
  for (int i = 0; i < layout.repeats && length > 0; ++i) {
    for (const Run& run : layout.entry) swapRunWithin(data, length, run);
  }
  swapRunWithin(data, length, layout.rest);
}

std::uint32_t loadCount(const unsigned char* data) {
  std::uint32_t count = 0;
  std::memcpy(&count, data + kCountOffset, sizeof count);
  return count;
}

template <int tag>
void swapByTag(unsigned char* data, std::size_t length) {
  constexpr const Layout& layout = kLayouts[tag];
  constexpr std::size_t fixed = fixedSize(layout);
  if constexpr (layout.tail == Tail::array) {
    reverseRun(data, layout.entry[0].width, length / layout.entry[0].width);
  } else if (length < fixed) {
    swapWithin(data, layout, length);
  } else if constexpr (layout.tail == Tail::none) {
    swapWhole<tag>(data);
  } else {
    const std::uint32_t before = loadCount(data);
    swapWhole<tag>(data);
    const std::size_t count = layout.tail == Tail::counted ? loadCount(data) : before;
    reverseRun(data + fixed, 4, std::min(count, (length - fixed) / 4));
  }
}

using SwapFn = void (*)(unsigned char* data, std::size_t length);

template <std::size_t... tag>
constexpr std::array<SwapFn, sizeof...(tag)> swapTable(std::index_sequence<tag...>) {
  return {&swapByTag<static_cast<int>(tag)>...};
}

constexpr auto kSwaps = swapTable(std::make_index_sequence<kLayouts.size()>());

}  // namespace

int SwapBuffer(void* data, int tag, std::size_t length) {
  if (data == nullptr) return 0;
  if (tag > 0 && static_cast<std::size_t>(tag) < kSwaps.size()) {
    kSwaps[static_cast<std::size_t>(tag)](static_cast<unsigned char*>(data), length);
  }
  return 1;
}

int SwapTagForWrite(int tag) { return tag == typeIndexPage ? int{typeIndexPageWrite} : tag; }

int SwapWrite(const void* data, std::size_t length, int tag, FILE* stream) {
  if (length == 0) return 1;
  if (data == nullptr) return 0;
  const PBblock copy(PBmalloc(length));
  std::memcpy(copy.get(), data, length);
  SwapBuffer(copy.get(), SwapTagForWrite(tag), length);
  return std::fwrite(copy.get(), 1, length, stream) == length ? 1 : 0;
}

int SwapRead(void* data, std::size_t length, std::size_t count, FILE* stream, int tag) {
  if (length == 0 || count == 0) return 1;
  if (data == nullptr || std::fread(data, length, count, stream) != count) return 0;
  auto* item = static_cast<unsigned char*>(data);
  for (std::size_t i = 0; i < count; ++i, item += length) SwapBuffer(item, tag, length);
  return 1;
}

void SwapValue(void* data, int width) {
  if (width != 1 && width != 2 && width != 4 && width != 8) assertFail(__FILE__, __LINE__);
  reverseRun(static_cast<unsigned char*>(data), width, 1);
}

const char* SwapTagName(int tag) {
  const bool named = tag >= 0 && tag <= kLastNamedTag;
  const char* name = named ? kLayouts[static_cast<std::size_t>(tag)].name : nullptr;
  return name != nullptr ? name : "unknownType";
}
