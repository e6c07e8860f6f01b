#pragma once

// What the sources of the property module share: the records of "pvb.v", their
// reading, and the walk over a list.
//
// Nothing in either file is trusted: a walk takes no more steps than the file can
// hold records, and offsets and lengths are held against the file's size. What
// doesn't fit is posted with code 87 under "seekAndRead" by who meets it.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "storage/page.h"

struct PVBdatabase;
struct PVBpropertyData;

inline constexpr std::uint32_t kPropertyMagic = 0xAAFAF0AF;
inline constexpr std::uint32_t kPropertyFormat = 1;
inline constexpr std::uint32_t kPropertyHeaderSize = 8;
inline constexpr std::uint32_t kListBlockSize = 8;
inline constexpr std::uint32_t kNoRecord = 0xFFFFFFFF;
// Of a value, in an old record whose length had no room.
inline constexpr std::uint32_t kUnknownLength = 0xFFFFFFFF;

// A list block and the records in the host's byte order.
struct PropList {
  std::uint32_t head = kNoRecord;
  std::uint8_t inUse = 0;
  std::uint8_t unused[3] = {};
};
static_assert(sizeof(PropList) == kListBlockSize);

struct PropRecord {
  std::uint32_t next = kNoRecord;
  std::int32_t key = 0;
  std::uint32_t value = kNoRecord;
  std::uint16_t zero = 0;
  std::uint8_t valid = 1;
  std::uint8_t unused = 0;
  std::uint32_t length = 0;
};
static_assert(sizeof(PropRecord) == 20 && offsetof(PropRecord, valid) == 14);

struct OldPropRecord {
  std::uint32_t next;
  std::int32_t key;
  std::uint32_t value;
  std::int16_t length;
  std::uint8_t valid;
  std::uint8_t unused;
};
static_assert(sizeof(OldPropRecord) == 16 && offsetof(OldPropRecord, valid) == 14);

using ListHandle = BlockHandle<PropList>;

// An open "pvb.v" as a walk sees it. The path is looked at, not owned.
struct PropValues {
  int descriptor = -1;
  std::int32_t format = 1;
  std::int64_t size = 0;  // bytes
  std::string_view path;

  std::uint32_t recordSize() const {
    return format == 0 ? sizeof(OldPropRecord) : sizeof(PropRecord);
  }
  std::uint64_t mostRecords() const { return static_cast<std::uint64_t>(size) / recordSize(); }
};

// The values behind an open descriptor with their format; 0, or -2 when they can't
// be read.
int propValuesOpen(int descriptor, std::string_view path, PropValues& out);
// Before a write: exchanges values that must stay as they are for a private copy, under
// the same descriptor. 0, or -2 with errno set and nothing changed.
int propOwnValues(PVBpropertyData& data);
bool propWriteHeader(int descriptor);
// A record as it stands on disk, from where the descriptor is.
bool propWriteRecord(int descriptor, PropRecord record);

// The records of a list, newest first, dead ones included.
class PropWalk {
 public:
  PropWalk(const PropValues& values, std::uint32_t head)
      : values_(values), next_(head), stepsLeft_(values.mostRecords()) {}

  // False at the end and, after a post, where the file is damaged.
  bool next();
  bool failed() const { return failed_; }
  const PropRecord& record() const { return record_; }
  std::uint32_t offset() const { return offset_; }
  const PropValues& values() const { return values_; }

 private:
  PropValues values_;
  PropRecord record_;
  std::uint32_t offset_ = kNoRecord;
  std::uint32_t next_;
  std::uint64_t stepsLeft_;
  bool failed_ = false;
};

bool propReadRecord(const PropValues& values, std::uint32_t offset, PropRecord& out);
// Bytes of the value with its final zero; -1 after a post when the value doesn't lie
// in the file. 0 for a record without one.
std::int64_t propValueLength(const PropValues& values, const PropRecord& record);
bool propReadBytes(const PropValues& values, std::uint64_t offset, std::span<char> out);
// The value without its final zero.
bool propReadValue(const PropValues& values, const PropRecord& record, std::string& out);
bool propSameValue(const PropValues& values, const PropRecord& record, std::string_view text,
                   bool& same);

// The walk of PVBpropInqNext ends when its database is closed.
void propForgetWalk(int database);

// stripGarbage on two files of any name; the new ones are made at `newValues` and
// beside `lists`.
int propStrip(const std::string& lists, const std::string& values, const std::string& newValues);
