#include "tools/byte_source.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "base/file_copy.h"
#include "base/platform.h"
#include "base/temp_directory.h"

namespace {

constexpr std::string_view kStandardInput = "-";
constexpr std::size_t kPieceBytes = std::size_t{64} << 10;

// Says why the system refused, and leaves no errno behind.
std::string systemReason() {
  const int error = std::exchange(errno, 0);
  return error != 0 ? std::strerror(error) : "it was refused";
}

class Descriptor {
 public:
  ~Descriptor() { close(); }
  Descriptor() = default;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  bool open() const { return fd_ >= 0; }
  // `owned`: closes it at the end.
  void take(int fd, bool owned) {
    close();
    fd_ = fd;
    owned_ = owned;
  }

 private:
  // Only for reading, or of a file that goes with it: nothing can be lost.
  void close() {
    const int kept = errno;
    if (owned_ && fd_ >= 0) platform().close(fd_);
    errno = kept;
  }

  int fd_ = -1;
  bool owned_ = false;
};

// --- Bytes as they are on disk -------------------------------------------------------

// A file that can be read at any place, or a pipe. What was read of a pipe is kept: its
// first bytes, by which gzip is known, or all of them, in a temporary file that has no
// name any more.
class RawInput {
 public:
  bool open(const std::string& path, bool rewindable, std::string& reason);
  // As those of ByteSource.
  std::ptrdiff_t read(char* to, std::size_t size, std::string& reason);
  bool seek(std::uint64_t offset, std::string& reason);
  std::int64_t size() const { return seekable_ ? size_ : -1; }
  std::uint64_t at() const { return at_; }
  bool isGzip() const { return isGzip_; }

 private:
  bool findEnd();
  bool openCopy(std::string& reason);
  bool readHead(std::string& reason);
  std::ptrdiff_t readPipe(char* to, std::size_t size, std::string& reason);
  bool keep(const char* bytes, std::size_t size, std::string& reason);

  static constexpr std::array<char, 2> kGzipMark = {'\x1f', '\x8b'};

  Descriptor input_;
  bool seekable_ = false;
  off_t begin_ = 0;  // where standard input stood
  std::int64_t size_ = 0;
  bool isGzip_ = false;
  std::uint64_t at_ = 0;

  Descriptor copy_;
  std::array<char, kGzipMark.size()> head_{};  // of a pipe without a copy
  std::uint64_t kept_ = 0;                     // bytes of a pipe that can be read again
};

bool RawInput::open(const std::string& path, bool rewindable, std::string& reason) {
  const bool standard = path == kStandardInput;
  input_.take(standard ? STDIN_FILENO : platform().open(path.c_str(), O_RDONLY, 0), !standard);
  if (!input_.open()) {
    reason = systemReason();
    return false;
  }
  seekable_ = findEnd();
  if (!seekable_ && rewindable && !openCopy(reason)) return false;
  return readHead(reason);
}

// False for a pipe, which has no place and no end.
bool RawInput::findEnd() {
  begin_ = platform().seek(input_.get(), 0, SEEK_CUR);
  const off_t end = begin_ < 0 ? -1 : platform().seek(input_.get(), 0, SEEK_END);
  if (end >= 0) {
    // It is read at places of our own, and left as it was found.
    platform().seek(input_.get(), begin_, SEEK_SET);
    size_ = std::max<off_t>(end - begin_, 0);
  }
  errno = 0;
  return end >= 0;
}

bool RawInput::openCopy(std::string& reason) {
  std::string path;
  const int fd = PBcreateTempFile("pvbin", path);
  if (fd < 0) {
    reason = "no temporary file can be made: " + systemReason();
    return false;
  }
  copy_.take(fd, true);
  TempFile(path).remove();
  return true;
}

bool RawInput::readHead(std::string& reason) {
  std::array<char, kGzipMark.size()> head{};
  std::size_t got = 0;
  while (got < head.size()) {
    const std::ptrdiff_t more = read(head.data() + got, head.size() - got, reason);
    if (more < 0) return false;
    if (more == 0) break;
    got += static_cast<std::size_t>(more);
  }
  isGzip_ = got == head.size() && head == kGzipMark;
  head_ = head;
  if (!seekable_ && !copy_.open()) kept_ = got;
  at_ = 0;
  return true;
}

std::ptrdiff_t RawInput::read(char* to, std::size_t size, std::string& reason) {
  if (!seekable_ && at_ >= kept_) return readPipe(to, size, reason);
  ssize_t got = 0;
  if (seekable_) {
    got = platform().readAt(input_.get(), to, size, begin_ + static_cast<off_t>(at_));
  } else {
    size = static_cast<std::size_t>(std::min<std::uint64_t>(size, kept_ - at_));
    if (copy_.open()) {
      got = platform().readAt(copy_.get(), to, size, static_cast<off_t>(at_));
    } else {
      got = static_cast<ssize_t>(size);
      std::copy_n(head_.data() + at_, size, to);
    }
  }
  if (got < 0) reason = systemReason();
  if (got > 0) at_ += static_cast<std::uint64_t>(got);
  return got;
}

std::ptrdiff_t RawInput::readPipe(char* to, std::size_t size, std::string& reason) {
  const ssize_t got = platform().read(input_.get(), to, size);
  if (got < 0) reason = systemReason();
  if (got <= 0) return got;
  const auto bytes = static_cast<std::size_t>(got);
  if (copy_.open() && !keep(to, bytes, reason)) return -1;
  at_ += bytes;
  return got;
}

bool RawInput::keep(const char* bytes, std::size_t size, std::string& reason) {
  while (size > 0) {
    const ssize_t written = platform().writeAt(copy_.get(), bytes, size, static_cast<off_t>(kept_));
    if (written <= 0) {
      reason = "what was read can't be kept in a temporary file: " + systemReason();
      return false;
    }
    bytes += written;
    size -= static_cast<std::size_t>(written);
    kept_ += static_cast<std::uint64_t>(written);
  }
  return true;
}

bool RawInput::seek(std::uint64_t offset, std::string& reason) {
  if (!seekable_ && offset > kept_ && offset != at_) {
    reason = "a pipe can't be read at any place";
    return false;
  }
  if (!seekable_ && offset < at_ && at_ > kept_) {
    reason = "a pipe can't be read twice";
    return false;
  }
  at_ = offset;
  return true;
}

// --- Texts ---------------------------------------------------------------------------

class FileSource : public ByteSource {
 public:
  FileSource(std::unique_ptr<RawInput> input, std::string name) : input_(std::move(input)) {
    name_ = std::move(name);
  }
  std::ptrdiff_t read(char* to, std::size_t size) override {
    if (failed_) return -1;
    const std::ptrdiff_t got = input_->read(to, size, reason_);
    failed_ = got < 0;
    return got;
  }
  bool seek(std::uint64_t offset) override { return !failed_ && input_->seek(offset, reason_); }
  std::int64_t size() const override { return input_->size(); }
  std::int64_t consumed() const override { return static_cast<std::int64_t>(input_->at()); }

 private:
  std::unique_ptr<RawInput> input_;
  bool failed_ = false;
};

// One or more members, each a text; the texts follow each other.
class GzipSource : public ByteSource {
 public:
  GzipSource(std::unique_ptr<RawInput> input, std::string name)
      : input_(std::move(input)), packed_(kPieceBytes) {
    name_ = std::move(name);
  }
  ~GzipSource() override {
    if (begun_) inflateEnd(&stream_);
  }
  GzipSource(const GzipSource&) = delete;
  GzipSource& operator=(const GzipSource&) = delete;

  std::ptrdiff_t read(char* to, std::size_t size) override;
  bool seek(std::uint64_t offset) override;
  std::int64_t size() const override { return input_->size(); }
  std::int64_t consumed() const override {
    return static_cast<std::int64_t>(input_->at()) - stream_.avail_in;
  }

 private:
  bool begin();
  bool rewind();
  bool refill();
  bool unpack();
  bool fail(std::string reason) {
    reason_ = std::move(reason);
    failed_ = true;
    return false;
  }

  std::unique_ptr<RawInput> input_;
  std::vector<char> packed_;
  z_stream stream_{};
  bool begun_ = false;
  bool failed_ = false;
  bool ended_ = false;        // of all members
  bool between_ = false;      // a member ended, no byte of the next one was seen
  bool laterMember_ = false;  // the member at hand isn't the first one
  bool inputEnded_ = false;
  std::uint64_t at_ = 0;  // in the text
};

bool GzipSource::begin() {
  constexpr int kGzipOnly = 16;
  if (!begun_ && inflateInit2(&stream_, kGzipOnly + MAX_WBITS) != Z_OK) {
    return fail("no memory to unpack it");
  }
  begun_ = true;
  return true;
}

// Sees to it that there is something to unpack; at the end of the input there isn't.
bool GzipSource::refill() {
  if (stream_.avail_in > 0 || inputEnded_) return true;
  const std::ptrdiff_t got = input_->read(packed_.data(), packed_.size(), reason_);
  if (got < 0) return fail(reason_);
  inputEnded_ = got == 0;
  stream_.next_in = reinterpret_cast<Bytef*>(packed_.data());
  stream_.avail_in = static_cast<uInt>(got);
  return true;
}

// A step of the unpacking, which may give no byte.
bool GzipSource::unpack() {
  constexpr uLong kMarkBytes = 2;
  if (!refill()) return false;
  if (between_ && stream_.avail_in == 0) {
    ended_ = true;
    return true;
  }
  if (between_) {
    inflateReset(&stream_);
    between_ = false;
    laterMember_ = true;
  }
  const bool cut = stream_.avail_in == 0;
  const int code = inflate(&stream_, Z_NO_FLUSH);
  if (code == Z_STREAM_END) {
    between_ = true;
    return true;
  }
  if (code == Z_MEM_ERROR) return fail("no memory to unpack it");
  const bool damaged = code != Z_OK && code != Z_BUF_ERROR;
  if (laterMember_ && (damaged || cut) && stream_.total_in <= kMarkBytes) {
    return fail("there is something else behind the gzip data");
  }
  if (damaged) {
    return fail(std::string("the gzip data is damaged: ") +
                (stream_.msg != nullptr ? stream_.msg : "wrong format"));
  }
  if (!cut || stream_.avail_out == 0) return true;
  cut_ = true;
  return fail("the gzip data is cut off");
}

std::ptrdiff_t GzipSource::read(char* to, std::size_t size) {
  if (failed_ || !begin()) return -1;
  const std::size_t most = std::min<std::size_t>(size, std::size_t{1} << 30);
  stream_.next_out = reinterpret_cast<Bytef*>(to);
  stream_.avail_out = static_cast<uInt>(most);
  while (stream_.avail_out == most && !ended_ && unpack()) {
  }
  const std::size_t got = most - stream_.avail_out;
  at_ += got;
  // What was unpacked in front of a damage comes first.
  return got == 0 && failed_ ? -1 : static_cast<std::ptrdiff_t>(got);
}

bool GzipSource::rewind() {
  if (!input_->seek(0, reason_)) return false;
  if (begun_) inflateReset(&stream_);
  stream_.avail_in = 0;
  at_ = 0;
  ended_ = between_ = laterMember_ = inputEnded_ = false;
  return true;
}

bool GzipSource::seek(std::uint64_t offset) {
  if (failed_ && (!cut_ || offset >= at_)) return false;
  failed_ = cut_ = false;
  if (offset < at_ && !rewind()) return false;
  std::vector<char> passed(offset > at_ ? kPieceBytes : 0);
  while (at_ < offset) {
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(kPieceBytes, offset - at_));
    const std::ptrdiff_t got = read(passed.data(), size);
    if (got < 0) return false;
    if (got == 0) return fail("it has become shorter");
  }
  return true;
}

class TextSource : public ByteSource {
 public:
  TextSource(std::string_view text, std::string name) : text_(text) { name_ = std::move(name); }
  std::ptrdiff_t read(char* to, std::size_t size) override {
    const std::size_t got = text_.copy(to, size, at_);
    at_ += got;
    return static_cast<std::ptrdiff_t>(got);
  }
  bool seek(std::uint64_t offset) override {
    at_ = static_cast<std::size_t>(std::min<std::uint64_t>(offset, text_.size()));
    return true;
  }
  std::int64_t size() const override { return static_cast<std::int64_t>(text_.size()); }
  std::int64_t consumed() const override { return static_cast<std::int64_t>(at_); }

 private:
  std::string_view text_;
  std::size_t at_ = 0;
};

}  // namespace

std::unique_ptr<ByteSource> ByteSource::open(const std::string& path, bool rewindable,
                                             std::string& reason) {
  auto input = std::make_unique<RawInput>();
  if (!input->open(path, rewindable, reason)) return nullptr;
  std::string name = path == kStandardInput ? "<stdin>" : path;
  if (input->isGzip()) return std::make_unique<GzipSource>(std::move(input), std::move(name));
  return std::make_unique<FileSource>(std::move(input), std::move(name));
}

std::unique_ptr<ByteSource> openByteText(std::string_view text, std::string name) {
  return std::make_unique<TextSource>(text, std::move(name));
}
