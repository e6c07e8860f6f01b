#pragma once

// The cache of the row store: rows in the order of their use, over a file of records. A
// row leaves the cache for the file when another needs its place, and is written then if
// it was changed since it was read or isn't in the file yet.

#include <cstdint>
#include <deque>
#include <vector>

#include "timeplate/record_file.h"
#include "timeplate/tp_run.h"

struct RowCacheCounts {
  std::int64_t hits = 0;
  std::int64_t misses = 0;  // rows that had to make room for another
};

class RowCache {
 public:
  // Holds at most `limit` rows of `dataSize` bytes.
  void open(std::size_t dataSize, int limit, const char* fileName);
  void close();
  bool isOpen() const { return file_.isOpen(); }
  // One above the highest row that was put.
  std::int32_t count() const { return count_; }
  const RowCacheCounts& counts() const { return counts_; }

  TpRow* get(std::int32_t row);
  void put(std::int32_t row, const TpRow& record);
  void touch(std::int32_t row);

 private:
  // By index in `entries_`; kNone for none.
  using Link = std::int32_t;
  static constexpr Link kNone = -1;
  struct Entry {
    TpRow record;
    Link before = kNone;  // in the order of use
    Link after = kNone;
    Link chain = kNone;    // the next one of its bucket
    bool changed = false;  // or not in the file yet
  };

  Entry& at(Link link) { return entries_[static_cast<std::size_t>(link)]; }
  Link& bucketOf(std::int32_t row) {
    return buckets_[static_cast<std::uint32_t>(row) % buckets_.size()];
  }
  Link find(std::int32_t row);
  void unlink(Link link);
  void append(Link link);
  void enter(Link link, std::int32_t row);
  void leave(Link link);
  void spreadOut();
  // An entry that is in neither queue nor table.
  Link makeRoom();
  void writeBack(Entry& entry);
  // The record of a row in `scratch_`; false when the file has none.
  bool readRecord(std::int32_t row);

  RecordFile file_;
  std::size_t dataSize_ = 0;
  std::size_t limit_ = 0;
  std::int32_t count_ = 0;
  std::deque<Entry> entries_;  // which stay where they are
  std::vector<Link> buckets_;
  Link head_ = kNone;  // not used for longest
  Link tail_ = kNone;
  RowCacheCounts counts_;
  std::vector<std::uint8_t> scratch_;  // a record of the file
  std::vector<std::uint8_t> read_;     // the data of one that was read
};
