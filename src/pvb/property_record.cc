#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/errors.h"
#include "pvb/property_internal.h"
#include "storage/cio.h"
#include "storage/swapendian.h"

namespace {

constexpr std::size_t kStep = 1024;  // bytes of a value looked at in one go
// The most that is taken on the word of a length before bytes have come.
constexpr std::size_t kPiece = std::size_t{1} << 16;

bool postDamage(const PropValues& values, int error) {
  errno = error;
  PBpostError("seekAndRead", 87, values.path);
  return false;
}

PropRecord fromOld(const OldPropRecord& old) {
  PropRecord record;
  record.next = old.next;
  record.key = old.key;
  record.value = old.value;
  record.valid = old.valid;
  record.length = old.length < 0 ? kUnknownLength : static_cast<std::uint32_t>(old.length);
  return record;
}

template <typename Record>
bool readAs(const PropValues& values, std::uint32_t offset, int tag, Record& out) {
  std::array<char, sizeof(Record)> bytes;
  if (!propReadBytes(values, offset, bytes)) return false;
  SwapBuffer(bytes.data(), tag, bytes.size());
  std::memcpy(&out, bytes.data(), sizeof out);
  return true;
}

// Where the value ends by its zero byte; -1 when it never does.
std::int64_t lengthToZero(const PropValues& values, std::uint32_t value) {
  std::array<char, kStep> piece;
  for (std::int64_t at = value; at < values.size;) {
    const auto size = static_cast<std::size_t>(std::min<std::int64_t>(kStep, values.size - at));
    const std::span<char> bytes(piece.data(), size);
    if (!propReadBytes(values, static_cast<std::uint64_t>(at), bytes)) return -1;
    const void* zero = std::memchr(piece.data(), 0, size);
    if (zero != nullptr) return at + (static_cast<const char*>(zero) - piece.data()) + 1 - value;
    at += static_cast<std::int64_t>(size);
  }
  postDamage(values, 0);
  return -1;
}

bool appendPieces(const PropValues& values, std::uint64_t offset, std::size_t size,
                  std::string& out) {
  out.clear();
  while (size > 0) {
    const std::size_t piece = std::min(size, kPiece);
    const std::size_t before = out.size();
    out.resize(before + piece);
    if (!propReadBytes(values, offset, std::span(out.data() + before, piece))) return false;
    offset += piece;
    size -= piece;
  }
  return true;
}

}  // namespace

int propValuesOpen(int descriptor, std::string_view path, PropValues& out) {
  out = {descriptor, 0, PBcfsize(descriptor), path};
  if (out.size < 0) return -2;
  if (out.size < kPropertyHeaderSize) return 0;
  std::array<std::uint32_t, 2> header;
  if (PBcfseek(descriptor, 0, SEEK_SET) != 0) return -2;
  if (PBcfread(descriptor, header.data(), sizeof header) != sizeof header) return -2;
  SwapBuffer(header.data(), typeInt, sizeof header);
  if (header[0] == kPropertyMagic && header[1] == kPropertyFormat) out.format = 1;
  return 0;
}

bool propWriteHeader(int descriptor) {
  std::array<std::uint32_t, 2> header = {kPropertyMagic, kPropertyFormat};
  SwapBuffer(header.data(), typeInt, sizeof header);
  return PBcfseek(descriptor, 0, SEEK_SET) == 0 &&
         PBcfwrite(descriptor, header.data(), sizeof header) == sizeof header;
}

bool propWriteRecord(int descriptor, PropRecord record) {
  SwapBuffer(&record, typeProperty, sizeof record);
  return PBcfwrite(descriptor, &record, sizeof record) == sizeof record;
}

bool propReadBytes(const PropValues& values, std::uint64_t offset, std::span<char> out) {
  const auto size = static_cast<std::uint64_t>(values.size);
  if (offset > size || out.size() > size - offset) return postDamage(values, 0);
  if (PBcfseek(values.descriptor, static_cast<std::int64_t>(offset), SEEK_SET) != 0) {
    return postDamage(values, errno);
  }
  const std::int64_t count = PBcfread(values.descriptor, out.data(), out.size());
  if (count == static_cast<std::int64_t>(out.size())) return true;
  return postDamage(values, count < 0 ? errno : 0);
}

bool propReadRecord(const PropValues& values, std::uint32_t offset, PropRecord& out) {
  if (values.format != 0) {
    if (offset < kPropertyHeaderSize) return postDamage(values, 0);
    return readAs(values, offset, typeProperty, out);
  }
  OldPropRecord old;
  if (!readAs(values, offset, typeoldProperty, old)) return false;
  out = fromOld(old);
  return true;
}

bool PropWalk::next() {
  if (failed_ || next_ == kNoRecord) return false;
  if (stepsLeft_ == 0) {
    failed_ = true;
    return postDamage(values_, 0);
  }
  --stepsLeft_;
  failed_ = !propReadRecord(values_, next_, record_);
  if (failed_) return false;
  offset_ = next_;
  next_ = record_.next == offset_ ? kNoRecord : record_.next;
  return true;
}

std::int64_t propValueLength(const PropValues& values, const PropRecord& record) {
  if (record.value == kNoRecord) return 0;
  if (record.length == kUnknownLength && values.format == 0) {
    return lengthToZero(values, record.value);
  }
  const auto end = static_cast<std::int64_t>(record.value) + record.length;
  if (record.length > 0 && end <= values.size) return record.length;
  postDamage(values, 0);
  return -1;
}

bool propReadValue(const PropValues& values, const PropRecord& record, std::string& out) {
  const std::int64_t length = propValueLength(values, record);
  if (length <= 0) return false;
  try {
    return appendPieces(values, record.value, static_cast<std::size_t>(length - 1), out);
  } catch (const std::bad_alloc&) {
    errno = 0;
    PBpostError("PVBpropInqNext", 82);
    return false;
  }
}

bool propSameValue(const PropValues& values, const PropRecord& record, std::string_view text,
                   bool& same) {
  const std::int64_t length = propValueLength(values, record);
  same = length > 0 && static_cast<std::size_t>(length - 1) == text.size();
  std::array<char, kStep> piece;
  for (std::size_t at = 0; same && at < text.size(); at += kStep) {
    const std::string_view wanted = text.substr(at, kStep);
    const std::span<char> bytes(piece.data(), wanted.size());
    if (!propReadBytes(values, record.value + at, bytes)) return false;
    same = std::string_view(bytes.data(), bytes.size()) == wanted;
  }
  return length >= 0;
}
