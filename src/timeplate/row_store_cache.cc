#include <algorithm>
#include <cstring>

#include "timeplate/row_store_internal.h"

namespace {

constexpr std::size_t kBuckets = 16385;
// Rows a bucket, from which on the buckets are doubled; only a queue longer than usual
// comes there.
constexpr std::size_t kLongChain = 8;
constexpr std::size_t kFieldSize = 4;
constexpr std::uint32_t kFiller = 0xFFFFFFFF;

void setField(std::vector<std::uint8_t>& record, std::uint32_t value) {
  std::memcpy(record.data(), &value, kFieldSize);
}

std::uint32_t fieldOf(const std::vector<std::uint8_t>& record) {
  std::uint32_t value = 0;
  std::memcpy(&value, record.data(), kFieldSize);
  return value;
}

}  // namespace

void RowCache::open(std::size_t dataSize, int limit, const char* fileName) {
  close();
  file_.open(kFieldSize + dataSize, fileName);
  dataSize_ = dataSize;
  limit_ = static_cast<std::size_t>(std::max(limit, 1));
  buckets_.assign(kBuckets, kNone);
  scratch_.resize(kFieldSize + dataSize);
}

void RowCache::close() {
  file_.close();
  entries_ = {};
  buckets_ = {};
  scratch_ = {};
  head_ = tail_ = kNone;
  count_ = 0;
  counts_ = {};
}

// --- Queue and table -----------------------------------------------------------------

RowCache::Link RowCache::find(std::int32_t row) {
  Link link = bucketOf(row);
  while (link != kNone && at(link).record.row != row) link = at(link).chain;
  return link;
}

void RowCache::unlink(Link link) {
  const Entry& entry = at(link);
  (entry.before != kNone ? at(entry.before).after : head_) = entry.after;
  (entry.after != kNone ? at(entry.after).before : tail_) = entry.before;
}

void RowCache::append(Link link) {
  Entry& entry = at(link);
  entry.before = tail_;
  entry.after = kNone;
  (tail_ != kNone ? at(tail_).after : head_) = link;
  tail_ = link;
}

void RowCache::enter(Link link, std::int32_t row) {
  Entry& entry = at(link);
  entry.record.row = row;
  Link& bucket = bucketOf(row);
  entry.chain = bucket;
  bucket = link;
  append(link);
}

void RowCache::leave(Link link) {
  Link* place = &bucketOf(at(link).record.row);
  while (*place != link) place = &at(*place).chain;
  *place = at(link).chain;
  unlink(link);
}

void RowCache::spreadOut() {
  buckets_.assign(buckets_.size() * 2, kNone);
  for (Link link = head_; link != kNone; link = at(link).after) {
    Link& bucket = bucketOf(at(link).record.row);
    at(link).chain = bucket;
    bucket = link;
  }
}

RowCache::Link RowCache::makeRoom() {
  if (entries_.size() < limit_) {
    if (entries_.size() >= kLongChain * buckets_.size()) spreadOut();
    entries_.emplace_back().record.data.resize(dataSize_);
    return static_cast<Link>(entries_.size()) - 1;
  }
  const Link oldest = head_;
  leave(oldest);
  if (at(oldest).changed) writeBack(at(oldest));
  ++counts_.misses;
  return oldest;
}

// --- Records -------------------------------------------------------------------------

void RowCache::writeBack(Entry& entry) {
  TpRow& record = entry.record;
  record.data.resize(dataSize_);
  std::copy_n(record.data.begin(), dataSize_, scratch_.begin() + kFieldSize);
  setField(scratch_, kFiller);
  while (file_.count() < record.row) file_.write(file_.count(), scratch_);
  setField(scratch_, record.timeplate);
  file_.write(record.row, scratch_);
}

bool RowCache::readRecord(std::int32_t row) {
  return file_.read(row, scratch_) && fieldOf(scratch_) != kFiller;
}

TpRow* RowCache::get(std::int32_t row) {
  if (row < 0 || row >= count_) return nullptr;
  if (const Link known = find(row); known != kNone) {
    ++counts_.hits;
    unlink(known);
    append(known);
    return &at(known).record;
  }
  if (!readRecord(row)) return nullptr;
  // Making room may write a record through the scratch.
  const auto timeplate = static_cast<std::uint16_t>(fieldOf(scratch_));
  read_.assign(scratch_.begin() + kFieldSize, scratch_.end());
  const Link link = makeRoom();
  Entry& entry = at(link);
  entry.record.timeplate = timeplate;
  std::swap(entry.record.data, read_);
  entry.changed = false;
  enter(link, row);
  return &entry.record;
}

void RowCache::put(std::int32_t row, const TpRow& record) {
  if (row < 0 || !isOpen()) return;
  Link link = find(row);
  if (link != kNone) {
    ++counts_.hits;
    unlink(link);
    append(link);
  } else {
    link = makeRoom();
    enter(link, row);
  }
  Entry& entry = at(link);
  entry.record.timeplate = record.timeplate;
  if (&record != &entry.record) entry.record.data.assign(record.data.begin(), record.data.end());
  entry.record.data.resize(dataSize_);
  entry.changed = true;
  count_ = std::max(count_, row + 1);
}

void RowCache::touch(std::int32_t row) {
  if (!isOpen() || row < 0) return;
  if (const Link link = find(row); link != kNone) at(link).changed = true;
}
