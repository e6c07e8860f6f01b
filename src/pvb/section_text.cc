#include "pvb/section_text.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <limits>

#include "base/errors.h"
#include "base/platform.h"
#include "base/text.h"
#include "storage/cio.h"

namespace {

constexpr std::size_t kDrainSize = std::size_t{1} << 16;
constexpr std::size_t kMaxDigits = 20;
// The longest word that any section has a use for; a longer one is no word.
constexpr std::size_t kMaxWord = std::size_t{1} << 20;

bool isDigit(int c) { return c >= '0' && c <= '9'; }
bool isSpace(int c) { return c >= 0 && PBisSpace(static_cast<char>(c)); }

// A number of `Narrow` or of its unsigned twin.
template <typename Narrow>
bool fitsEither(std::int64_t value) {
  using Signed = std::make_signed_t<Narrow>;
  using Unsigned = std::make_unsigned_t<Narrow>;
  return value >= std::numeric_limits<Signed>::min() &&
         value <= static_cast<std::int64_t>(std::numeric_limits<Unsigned>::max());
}

}  // namespace

// --- Reader --------------------------------------------------------------------------

SectionReader::~SectionReader() { close(); }

SectionOpen SectionReader::open(const std::string& path) {
  const Presence presence = presenceOf(path);
  if (presence == Presence::absent) return SectionOpen::missing;
  if (presence == Presence::unknown) return SectionOpen::failed;
  errno = 0;
  descriptor_ = PBcfopen(path, kCfRead);
  if (descriptor_ < 0) return SectionOpen::failed;
  size_ = PBcfsize(descriptor_);
  good_ = size_ >= 0;
  return good_ ? SectionOpen::opened : SectionOpen::failed;
}

bool SectionReader::close() {
  if (descriptor_ < 0) return true;
  const int result = PBcfclose(descriptor_);
  descriptor_ = -1;
  return result == 0;
}

bool SectionReader::refill() {
  const std::int64_t size = PBcfread(descriptor_, buffer_.data(), buffer_.size());
  next_ = 0;
  filled_ = size > 0 ? static_cast<std::size_t>(size) : 0;
  if (size < 0) good_ = false;
  return size > 0;
}

int SectionReader::peek() {
  if (next_ == filled_ && (descriptor_ < 0 || !refill())) return -1;
  return static_cast<unsigned char>(buffer_[next_]);
}

int SectionReader::get() {
  const int c = peek();
  if (c < 0) return c;
  ++next_;
  ++taken_;
  return c;
}

bool SectionReader::fail() {
  good_ = false;
  return false;
}

bool SectionReader::skipSpace() {
  while (isSpace(peek())) get();
  return good_ && peek() >= 0;
}

std::int64_t SectionReader::bytesLeft() const { return std::max<std::int64_t>(size_ - taken_, 0); }

bool SectionReader::word(std::string& out) {
  out.clear();
  if (!good_ || !skipSpace()) return fail();
  while (peek() >= 0 && !isSpace(peek()) && out.size() < kMaxWord) {
    out.push_back(static_cast<char>(get()));
  }
  return out.size() < kMaxWord || fail();
}

bool SectionReader::keyword(std::string_view expected) {
  std::string found;
  return word(found) && (found == expected || fail());
}

bool SectionReader::number(std::int64_t& out) {
  if (!good_ || !skipSpace()) return fail();
  std::array<char, kMaxDigits + 1> digits = {};
  std::size_t size = 0;
  if (peek() == '-' || peek() == '+') digits[size++] = static_cast<char>(get());
  while (isDigit(peek()) && size < digits.size()) digits[size++] = static_cast<char>(get());
  const char* first = digits.data() + (digits[0] == '+' ? 1 : 0);
  const char* last = digits.data() + size;
  const auto [end, error] = std::from_chars(first, last, out);
  return (error == std::errc() && end == last && !isDigit(peek())) || fail();
}

bool SectionReader::number(std::int32_t& out) {
  std::int64_t value = 0;
  if (!number(value) || !fitsEither<std::int32_t>(value)) return fail();
  out = static_cast<std::int32_t>(value);
  return true;
}

bool SectionReader::number(std::uint32_t& out) {
  std::int32_t value = 0;
  if (!number(value)) return false;
  out = static_cast<std::uint32_t>(value);
  return true;
}

bool SectionReader::number(std::int16_t& out) {
  std::int64_t value = 0;
  if (!number(value) || !fitsEither<std::int16_t>(value)) return fail();
  out = static_cast<std::int16_t>(value);
  return true;
}

bool SectionReader::number(std::uint16_t& out) {
  std::int16_t value = 0;
  if (!number(value)) return false;
  out = static_cast<std::uint16_t>(value);
  return true;
}

bool SectionReader::character(char& out) {
  if (!good_ || !skipSpace()) return fail();
  out = static_cast<char>(get());
  return true;
}

bool SectionReader::lineEnd() {
  if (!good_) return false;
  while (isSpace(peek()) && peek() != '\n') get();
  return get() == '\n' || fail();
}

bool SectionReader::time(TIME& out) {
  std::string text;
  if (!word(text)) return false;
  return parseWholeTIME(text, out) || fail();
}

bool SectionReader::characters(std::string& out, std::size_t count) {
  out.clear();
  if (!good_ || static_cast<std::int64_t>(count) > bytesLeft()) return fail();
  out.reserve(count);
  while (out.size() < count && peek() >= 0) out.push_back(static_cast<char>(get()));
  return out.size() == count || fail();
}

bool SectionReader::countedText(std::optional<std::string>& out) {
  out.reset();
  std::int32_t length = 0;
  if (!number(length) || length < 0 || !lineEnd()) return fail();
  if (length == 0) return true;
  return characters(out.emplace(), static_cast<std::size_t>(length)) && lineEnd();
}

bool SectionReader::count(std::int32_t& out, std::size_t bytesEach) {
  if (!number(out) || out < 0) return fail();
  return out <= bytesLeft() / static_cast<std::int64_t>(bytesEach) + 1 || fail();
}

bool SectionReader::idList(PVBidList& out) { return intList(out); }

bool SectionReader::intList(PVBintList& out) {
  out.clear();
  std::int32_t size = 0;
  if (!count(size, 2)) return false;
  out.resize(static_cast<std::size_t>(size));
  return std::all_of(out.begin(), out.end(), [&](std::int32_t& value) { return number(value); });
}

bool SectionReader::atEnd() { return !skipSpace() && good_; }

bool SectionReader::atExactEnd() { return peek() < 0 && good_; }

// --- Writer --------------------------------------------------------------------------

SectionWriter::~SectionWriter() {
  if (descriptor_ >= 0) PBcfclose(descriptor_);
}

bool SectionWriter::open(const std::string& path, Storage storage) {
  path_ = path;
  const std::string fresh = path + ".new";
  descriptor_ =
      storage == Storage::compressed ? PBcfopen(fresh, kCfNew) : PBcfopenPlain(fresh, kCfNew);
  if (descriptor_ < 0) return false;
  file_ = TempFile(fresh);
  return true;
}

void SectionWriter::drain() {
  const auto size = static_cast<std::int64_t>(pending_.size());
  if (good_ && PBcfwrite(descriptor_, pending_.data(), pending_.size()) != size) {
    good_ = false;
    error_ = errno;
  }
  pending_.clear();
}

void SectionWriter::text(std::string_view text) {
  pending_.append(text);
  if (pending_.size() >= kDrainSize) drain();
}

void SectionWriter::number(std::int64_t value) {
  std::array<char, kMaxDigits + 1> digits;
  const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
  text({digits.data(), result.ptr});
}

void SectionWriter::line(std::int64_t value) {
  number(value);
  text("\n");
}

void SectionWriter::countedText(const std::optional<std::string>& value) {
  const std::string_view content = value ? std::string_view(*value) : std::string_view();
  line(static_cast<std::int64_t>(content.size()));
  if (content.empty()) return;
  text(content);
  text("\n");
}

void SectionWriter::idList(const PVBidList& list) { intList(list); }

void SectionWriter::intList(const PVBintList& list) {
  line(static_cast<std::int64_t>(list.size()));
  for (const std::int32_t value : list) line(value);
}

bool SectionWriter::commit() {
  if (descriptor_ < 0) return false;
  drain();
  const int closed = PBcfclose(descriptor_);
  descriptor_ = -1;
  if (good_ && closed != 0) error_ = errno;
  good_ = good_ && closed == 0;
  if (good_ && platform().rename(file_.path().c_str(), path_.c_str()) == 0) {
    file_.release();
    return true;
  }
  if (!good_) errno = error_;
  return false;
}
