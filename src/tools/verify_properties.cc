#include <fmt/format.h>

#include "pvb/property.h"
#include "storage/cio.h"
#include "storage/page.h"
#include "storage/swapendian.h"
#include "tools/verify_internal.h"

namespace {

constexpr std::uint32_t kNoOffset = 0xFFFFFFFF;
constexpr std::int64_t kRecordSize = 20;
constexpr std::int64_t kFirstRecord = 8;

// As it stands in "pvb.v".
struct Record {
  std::uint32_t next;
  std::uint32_t key;
  std::uint32_t value;
  std::uint16_t unused;
  std::uint8_t valid;
  std::uint8_t pad;
  std::uint32_t length;
};
static_assert(sizeof(Record) == kRecordSize);

bool readRecord(int descriptor, std::uint32_t offset, Record& record) {
  if (PBcfseek(descriptor, offset, SEEK_SET) != 0) return false;
  if (PBcfread(descriptor, &record, sizeof record) != kRecordSize) return false;
  SwapBuffer(&record, typeProperty, sizeof record);
  return true;
}

// What is wrong with a record; null for nothing. Records link to older ones only,
// so a walk ends.
const char* faultOf(const Record& record, std::uint32_t offset, std::int64_t size) {
  const bool last = record.next == kNoOffset || record.next == offset;
  if (!last && record.next > offset) return "links to a later record";
  if (!last && record.next < kFirstRecord) return "links into the file's header";
  if (record.value == kNoOffset) return nullptr;
  const bool inside = record.value >= kFirstRecord &&
                      std::int64_t{record.value} + std::int64_t{record.length} <= size;
  return inside ? nullptr : "has its value outside the file";
}

}  // namespace

PropertyCheck::PropertyCheck(Verification& verification, int database)
    : verification_(verification), database_(database) {
  const PVBdatabase* slot = PVBget(database);
  if (slot == nullptr || !slot->properties) return;
  std::uint32_t blocks = 0;
  std::uint32_t capacity = 0;
  PageInfo(slot->properties->lists, blocks, capacity);
  owned_.resize(blocks);
}

void PropertyCheck::own(PVBid list, std::string_view file, const std::string& place) {
  if (list == UNDEF || PVBgetSection(database_, kSectionProperties) == nullptr) return;
  const auto block = static_cast<std::size_t>(static_cast<std::uint32_t>(list));
  if (block >= owned_.size() || !PVBpropListExists(database_, list)) {
    verification_.fault(kPropertyListFault, file, place,
                        fmt::format("property list {} doesn't exist", list));
    return;
  }
  if (owned_[block]) {
    verification_.fault(kPropertyListFault, file, place,
                        fmt::format("property list {} has another owner too", list));
    return;
  }
  owned_[block] = true;
  records(list);
}

void PropertyCheck::records(PVBid list) {
  const PVBpropertyData& data = *PVBget(database_)->properties;
  std::uint32_t offset = kNoOffset;
  {
    const auto block =
        BlockHandle<std::uint32_t>::get(data.lists, static_cast<std::uint32_t>(list), typePropList);
    if (!block) return;
    offset = *block;
  }
  const std::int64_t size = PBcfsize(data.values);
  while (offset != kNoOffset) {
    Record record;
    const bool read = offset >= kFirstRecord && offset + kRecordSize <= size &&
                      readRecord(data.values, offset, record);
    const char* what = read ? faultOf(record, offset, size) : "lies outside the file";
    if (what != nullptr) {
      verification_.fault(kPropertyRecordFault, "pvb.v", fmt::format("offset {}", offset),
                          fmt::format("the record of list {} {}", list, what));
      return;
    }
    if (record.next == offset) return;
    offset = record.next;
  }
}

void PropertyCheck::finish() {
  for (std::size_t block = 0; block < owned_.size(); ++block) {
    if (owned_[block] || !PVBpropListExists(database_, static_cast<PVBid>(block))) continue;
    verification_.note(kListWithoutOwner, "pvb.l", fmt::format("block {}", block),
                       "the property list has no owner");
  }
}
