#include "timeplate/record_file.h"

#include <fcntl.h>

#include <algorithm>

#include "base/errors.h"
#include "base/platform.h"
#include "base/temp_directory.h"

namespace {

constexpr std::string_view kPrefix = "TPFRC";
constexpr std::size_t kPendingBytes = 64UL * 1024;

// Levels of tpNotice.
constexpr int kOpenFailed = 3;
constexpr int kReadFailed = 5;
constexpr int kWriteFailed = 6;

[[noreturn]] void endProgram(int level, const std::string& path, int line) {
  tpNotice(level, path);
  assertFail(__FILE__, line);
}

}  // namespace

void RecordFile::open(std::size_t recordSize, const char* fileName) {
  close();
  if (fileName == nullptr) {
    descriptor_ = PBcreateTempFile(kPrefix, path_);
    if (descriptor_ >= 0) temporary_ = TempFile(path_);
  } else {
    path_ = fileName;
    descriptor_ = platform().open(fileName, O_RDWR | O_CREAT | O_TRUNC, 0600);
  }
  if (descriptor_ < 0) endProgram(kOpenFailed, path_, __LINE__);
  recordSize_ = recordSize;
  pending_.reserve(std::max(kPendingBytes, recordSize));
}

void RecordFile::close() {
  if (isOpen() && temporary_.path().empty()) flush();
  drop();
}

void RecordFile::drop() {
  if (!isOpen()) return;
  platform().close(descriptor_);
  descriptor_ = -1;
  temporary_ = TempFile();
  count_ = 0;
  pending_ = {};
}

off_t RecordFile::offsetOf(std::int64_t index) const {
  return static_cast<off_t>(index) * static_cast<off_t>(recordSize_);
}

std::int64_t RecordFile::pendingCount() const {
  return static_cast<std::int64_t>(pending_.size() / recordSize_);
}

void RecordFile::flush() {
  std::size_t done = 0;
  while (done < pending_.size()) {
    const ssize_t written =
        platform().writeAt(descriptor_, pending_.data() + done, pending_.size() - done,
                           offsetOf(firstPending_) + static_cast<off_t>(done));
    if (written <= 0) endProgram(kWriteFailed, path_, __LINE__);
    done += static_cast<std::size_t>(written);
  }
  pending_.clear();
}

void RecordFile::write(std::int64_t index, std::span<const std::uint8_t> record) {
  if (index < 0 || index > count_ || record.size() != recordSize_) assertFail(__FILE__, __LINE__);
  const bool follows = index == firstPending_ + pendingCount();
  if (!follows || pending_.size() + recordSize_ > kPendingBytes) flush();
  if (pending_.empty()) firstPending_ = index;
  pending_.insert(pending_.end(), record.begin(), record.end());
  count_ = std::max(count_, index + 1);
}

bool RecordFile::read(std::int64_t index, std::span<std::uint8_t> record) {
  if (index < 0 || index >= count_ || record.size() != recordSize_) return false;
  if (index >= firstPending_ && index < firstPending_ + pendingCount()) {
    const auto offset = static_cast<std::size_t>(index - firstPending_) * recordSize_;
    std::copy_n(pending_.begin() + static_cast<std::ptrdiff_t>(offset), recordSize_,
                record.begin());
    return true;
  }
  std::size_t done = 0;
  while (done < record.size()) {
    const ssize_t got = platform().readAt(descriptor_, record.data() + done, record.size() - done,
                                          offsetOf(index) + static_cast<off_t>(done));
    if (got <= 0) endProgram(kReadFailed, path_, __LINE__);
    done += static_cast<std::size_t>(got);
  }
  return true;
}
