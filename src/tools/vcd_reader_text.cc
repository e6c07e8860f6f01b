// The text of a dump: words in a buffer that moves over it, and where they stand.

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "tools/vcd_reader.h"

namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 18;
constexpr std::size_t kPadding = 8;  // zero bytes behind the text
constexpr std::size_t kLongestLineShown = 200;

}  // namespace

VcdReader::VcdReader(std::unique_ptr<ByteSource> source, MessageSink sink)
    : source_(std::move(source)), sink_(std::move(sink)), buffer_(kBufferSize) {}

// --- Buffer --------------------------------------------------------------------------

// Lets go of what stands before `at_`.
void VcdReader::drop() {
  const char* begin = buffer_.data();
  line_ += static_cast<std::uint64_t>(std::count(begin, begin + at_, '\n'));
  const std::size_t lastLine = std::string_view(begin, at_).rfind('\n');
  if (lastLine != std::string_view::npos) lineBegin_ = base_ + lastLine + 1;
  std::memmove(buffer_.data(), begin + at_, end_ - at_);
  base_ += at_;
  end_ -= at_;
  at_ = 0;
}

bool VcdReader::grow() {
  if (end_ + kPadding < buffer_.size()) return true;
  if (buffer_.size() > kLongestWord) {
    return failAt(at_, kVcdSyntax, fmt::format("a word is longer than {} bytes", kLongestWord));
  }
  buffer_.resize(buffer_.size() * 2);
  return true;
}

// As much text as the buffer holds behind what isn't taken yet. False after a failure.
bool VcdReader::fill() {
  drop();
  if (!grow()) return false;
  const std::size_t room = buffer_.size() - kPadding;
  while (end_ < room && !ended_) {
    const std::ptrdiff_t got = source_->read(buffer_.data() + end_, room - end_);
    cut_ = got < 0 && source_->isCut();
    if (got < 0 && !cut_) return failAt(end_, kCantRead, source_->reason());
    ended_ = got <= 0;
    end_ += static_cast<std::size_t>(std::max<std::ptrdiff_t>(got, 0));
  }
  std::memset(buffer_.data() + end_, 0, kPadding);
  return true;
}

VcdReader::Words VcdReader::words(std::size_t count) {
  while (!failed_) {
    Words read;
    const char* const end = buffer_.data() + end_;
    const char* p = buffer_.data() + at_;
    while (read.count < count) {
      while (p != end && PBisSpace(*p)) ++p;
      const char* const begin = p;
      while (p != end && !PBisSpace(*p)) ++p;
      if (p == begin) break;
      read.word[read.count++] = {begin, static_cast<std::size_t>(p - begin)};
    }
    read.cut = p == end;
    if (!read.cut || ended_) return read;
    if (!fill()) break;
  }
  return {{}, 0, true};
}

bool VcdReader::word(std::string_view& out) {
  const Words read = words(1);
  if (read.count == 0) return false;
  out = read.word[0];
  takeUpTo(out);
  return true;
}

bool VcdReader::rewind() {
  if (failed_) return false;
  if (!source_->seek(bodyOffset_)) return failAt(at_, kCantRead, source_->reason());
  at_ = end_ = event_ = 0;
  buffer_[0] = 0;
  base_ = bodyOffset_;
  line_ = bodyLine_;
  lineBegin_ = bodyLineBegin_;
  time_ = 0;
  ended_ = cut_ = inDump_ = finished_ = false;
  quiet_ = true;
  return true;
}

// --- Messages ------------------------------------------------------------------------

Message VcdReader::messageAt(std::size_t place, MessageCode code, std::string text) const {
  const std::string_view all(buffer_.data(), end_);
  place = std::min(place, end_);
  const std::string_view before = all.substr(0, place);
  const std::size_t lineEnd = before.rfind('\n');
  const bool inBuffer = lineEnd != std::string_view::npos;
  const std::size_t begin = inBuffer ? lineEnd + 1 : 0;
  Message message{Severity::error, code, std::move(text), source_->name(), 0, 0, {}, {}};
  message.line = static_cast<std::int64_t>(line_) + std::count(before.begin(), before.end(), '\n');
  message.column = 1 + (inBuffer ? place - begin : base_ + place - lineBegin_);
  const std::size_t length = std::min(all.find('\n', place), end_) - begin;
  if ((inBuffer || base_ == lineBegin_) && length <= kLongestLineShown) {
    message.sourceLine = all.substr(begin, length);
    if (message.sourceLine.ends_with('\r')) message.sourceLine.pop_back();
  }
  return message;
}

bool VcdReader::failAt(std::size_t place, MessageCode code, std::string text) {
  if (!failed_) sink_(messageAt(place, code, std::move(text)));
  failed_ = true;
  return false;
}

bool VcdReader::fail(MessageCode code, std::string text) {
  return failAt(event_, code, std::move(text));
}

void VcdReader::tell(Severity severity, MessageCode code, std::string text) {
  sink_({severity, code, std::move(text), source_->name(), 0, 0, {}, {}});
}

// What stands before the end is good.
VcdEvent VcdReader::endEarly(std::string_view what) {
  finished_ = true;
  if (failed_ || quiet_) return VcdEvent::end;
  quiet_ = true;
  Message message = messageAt(end_, kVcdEndsEarly,
                              fmt::format("the file ends {}; what stands before is taken", what));
  message.severity = Severity::warning;
  sink_(message);
  return VcdEvent::end;
}
