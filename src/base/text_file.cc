#include "base/text_file.h"

#include <fcntl.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "base/errors.h"
#include "base/platform.h"
#include "base/temp_directory.h"
#include "base/text_file_internal.h"

namespace {

constexpr std::size_t kPieceBytes = 64 * 1024;
constexpr std::size_t kMaxShownLine = 1023;
constexpr const char* kNotOpened = "file not opened by textio package";

// --- Sources -------------------------------------------------------------------------

// Where the bytes of a file come from.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Bytes read, 0 at the end, -1 with `reason` or errno telling why.
  virtual std::int64_t read(char* buffer, std::size_t size, std::string& reason) = 0;
  // 0, or -1. Called once, before the destructor.
  virtual int close() = 0;
};

class PlainSource : public ByteSource {
 public:
  explicit PlainSource(int descriptor) : descriptor_(descriptor) {}
  std::int64_t read(char* buffer, std::size_t size, std::string& /*reason*/) override {
    return platform().read(descriptor_, buffer, size);
  }
  int close() override { return platform().close(descriptor_); }

 private:
  int descriptor_;
};

// A temporary copy, which goes with its reader.
class TemporarySource : public PlainSource {
 public:
  TemporarySource(int descriptor, std::string path)
      : PlainSource(descriptor), path_(std::move(path)) {}
  int close() override {
    const int closed = PlainSource::close();
    const int removed = platform().remove(path_.c_str());
    return closed == 0 && removed == 0 ? 0 : -1;
  }

 private:
  std::string path_;
};

// Plain text is handed through as it is. `mustBeCompressed`: the file's name says
// that it is gzip data, so a file too short to tell is a cut one.
class GzipSource : public ByteSource {
 public:
  GzipSource(gzFile handle, bool mustBeCompressed)
      : handle_(handle), mustBeCompressed_(mustBeCompressed) {}

  std::int64_t read(char* buffer, std::size_t size, std::string& reason) override {
    const int got = gzread(handle_, buffer, static_cast<unsigned>(size));
    if (got > 0) {
      total_ += got;
      return got;
    }
    return stoppedByFault(reason) || cutBeforeItsMark(reason) ? -1 : 0;
  }

  // An unfinished gzip stream was told when it was read.
  int close() override { return gzclose_r(handle_) == Z_ERRNO ? -1 : 0; }

 private:
  // zlib's text has its own name of the file and ": " in front.
  bool stoppedByFault(std::string& reason) {
    int code = Z_OK;
    const std::string_view text = gzerror(handle_, &code);
    if (code == Z_OK || code == Z_STREAM_END) return false;
    if (code == Z_ERRNO) return true;
    const std::size_t colon = text.find(": ");
    reason = colon == std::string_view::npos ? text : text.substr(colon + 2);
    errno = 0;
    return true;
  }

  bool cutBeforeItsMark(std::string& reason) const {
    constexpr std::int64_t kMarkBytes = 2;
    if (!mustBeCompressed_ || total_ >= kMarkBytes || gzdirect(handle_) == 0) return false;
    reason = "unexpected end of file";
    errno = 0;
    return true;
  }

  gzFile handle_;
  bool mustBeCompressed_;
  std::int64_t total_ = 0;
};

// --- Lines ---------------------------------------------------------------------------

std::string_view withoutLineEnd(std::string_view line) {
  line = line.substr(0, line.find('\n'));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

constexpr std::int64_t kEnd = -1;
constexpr std::int64_t kFailed = -2;

}  // namespace

// --- The reader ----------------------------------------------------------------------

// Bytes wait in `window_`, which is a part of `buffer_` or, for a memory text
// without a source, the caller's text. All buffers are kept from line to line.
class PBtextFile {
 public:
  PBtextFile(std::string name, std::string openedName, bool escapes)
      : name_(std::move(name)), openedName_(std::move(openedName)), escapes_(escapes) {}
  PBtextFile(const PBtextFile&) = delete;
  PBtextFile& operator=(const PBtextFile&) = delete;
  ~PBtextFile() {
    if (close() != 0) errno = 0;
  }

  void readFrom(std::unique_ptr<ByteSource> source) {
    source_ = std::move(source);
    buffer_.resize(kPieceBytes);
  }
  void readFrom(std::string_view text) { window_ = text; }

  std::int64_t read(std::string_view& line, std::string_view& comment) {
    return escapes_ ? readLogical(line, comment) : readPhysical(line, comment);
  }

  int close() {
    if (!source_) return 0;
    return std::exchange(source_, nullptr)->close();
  }

  const std::string& name() const { return name_; }
  const std::string& openedName() const { return openedName_; }
  std::int64_t lineNumber() const { return lineNumber_; }
  std::int64_t firstLineNumber() const { return firstLineNumber_; }
  std::string_view physicalLine() const { return physical_; }

 private:
  std::int64_t readPhysical(std::string_view& line, std::string_view& comment) {
    const std::int64_t length = nextPhysical();
    if (length < 0) return length;
    firstLineNumber_ = lineNumber_;
    line = physical_;
    comment = {};
    return length;
  }

  std::int64_t readLogical(std::string_view& line, std::string_view& comment) {
    do {
      logical_.clear();
      const std::int64_t length = gatherLogical();
      if (length < 0) return length;
    } while (!logical_.hasContent());
    line = logical_.text();
    comment = logical_.comment();
    return static_cast<std::int64_t>(line.size());
  }

  std::int64_t gatherLogical() {
    std::int64_t length = nextPhysical();
    firstLineNumber_ = lineNumber_;
    while (length >= 0 && logical_.add(physical_)) {
      length = nextPhysical();
      // A join with nothing behind it ends the line.
      if (length == kEnd) return 0;
    }
    return length;
  }

  // Leaves the next physical line with its line end in physical_: its length,
  // kEnd or kFailed.
  std::int64_t nextPhysical() {
    if (!takeLine()) {
      physical_ = {};
      const std::int64_t result = source_ ? assembleLine() : takeRest();
      if (result < 0) return result;
    }
    ++lineNumber_;
    return static_cast<std::int64_t>(physical_.size());
  }

  bool takeLine() {
    const std::size_t end = window_.find('\n');
    if (end == std::string_view::npos) return false;
    physical_ = window_.substr(0, end + 1);
    window_.remove_prefix(end + 1);
    return true;
  }

  std::int64_t takeRest() {
    if (window_.empty()) return kEnd;
    physical_ = std::exchange(window_, {});
    return 0;
  }

  // The line goes past the window: joins it from pieces until its end is there.
  std::int64_t assembleLine() {
    assembled_.assign(window_);
    for (;;) {
      const std::int64_t got = refill();
      if (got < 0) return kFailed;
      if (got == 0) break;
      const bool whole = takeLine();
      assembled_.append(whole ? physical_ : std::exchange(window_, {}));
      if (whole) break;
    }
    if (assembled_.empty()) return kEnd;
    physical_ = assembled_;
    return 0;
  }

  std::int64_t refill() {
    window_ = {};
    std::string reason;
    const std::int64_t got = source_->read(buffer_.data(), buffer_.size(), reason);
    if (got >= 0) {
      window_ = {buffer_.data(), static_cast<std::size_t>(got)};
    } else {
      PBpostError("getPhysLine", 87, reason.empty() ? openedName_ : openedName_ + ": " + reason);
    }
    return got;
  }

  std::string name_;
  std::string openedName_;
  bool escapes_;
  std::unique_ptr<ByteSource> source_;
  std::vector<char> buffer_;
  std::string_view window_;
  std::string assembled_;
  // The last physical line read: a part of the window's text or of assembled_;
  // null at the end and after a failure.
  std::string_view physical_;
  LogicalLine logical_;
  std::int64_t lineNumber_ = 0;
  std::int64_t firstLineNumber_ = 0;
};

void TextFileCloser::operator()(PBtextFile* file) const { std::default_delete<PBtextFile>()(file); }

// --- Opening -------------------------------------------------------------------------

namespace {

TextFilePtr makeFile(const std::string& name, const std::string& openedName, bool escapes) {
  return TextFilePtr(std::make_unique<PBtextFile>(name, openedName, escapes).release());
}

int openForReading(const std::string& path) { return platform().open(path.c_str(), O_RDONLY, 0); }

std::unique_ptr<ByteSource> openPlain(const std::string& path) {
  const int descriptor = openForReading(path);
  if (descriptor < 0) return nullptr;
  return std::make_unique<PlainSource>(descriptor);
}

// The way of PBopenGzText: `path` when it is there, else "path.gz".
std::unique_ptr<ByteSource> PBopenGzText(const std::string& path, std::string& actualName) {
  const bool asNamed = fileExists(path);
  actualName = asNamed ? path : path + ".gz";
  const int descriptor = openForReading(actualName);
  if (descriptor < 0) return nullptr;
  gzFile handle = gzdopen(descriptor, "rb");
  if (handle == nullptr) {
    platform().close(descriptor);
    return nullptr;
  }
  return std::make_unique<GzipSource>(handle, !asNamed);
}

int writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = platform().write(descriptor, text.data(), text.size());
    if (written <= 0) return -1;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

}  // namespace

TextFilePtr PBopenCompressedTextFile(const std::string& path, const char* mode, bool escapes,
                                     int flags) {
  std::string openedName = path;
  std::unique_ptr<ByteSource> source;
  if (mode[0] != 'r') {
    errno = EINVAL;
  } else {
    source = (flags & kTextGzip) != 0 ? PBopenGzText(path, openedName) : openPlain(path);
  }
  if (!source) {
    PBpostError("PBopenCompressedTextFile", 81, path);
    return nullptr;
  }
  // Looking for the file, or asking a pipe for its position, may have failed.
  errno = 0;
  TextFilePtr file = makeFile(path, openedName, escapes);
  file->readFrom(std::move(source));
  return file;
}

TextFilePtr PBopenMemoryText(std::string_view text, std::string_view name, bool escapes) {
  const std::string shown(name);
  TextFilePtr file = makeFile(shown, shown, escapes);
  file->readFrom(text);
  return file;
}

TextFilePtr PBopenMemoryText(const char* text, std::int64_t length, std::string_view name,
                             bool escapes) {
  if (text == nullptr) return PBopenMemoryText(std::string_view(), name, escapes);
  const std::size_t size = length < 0 ? std::strlen(text) : static_cast<std::size_t>(length);
  return PBopenMemoryText(std::string_view(text, size), name, escapes);
}

TextFilePtr PBopenTempText(std::string_view text, bool escapes) {
  std::string path;
  const int descriptor = PBcreateTempFile("mvksrf", path);
  if (descriptor < 0) {
    PBpostError("PBopenTempText", 81, path);
    return nullptr;
  }
  auto source = std::make_unique<TemporarySource>(descriptor, path);
  if (writeAll(descriptor, text) != 0 || platform().seek(descriptor, 0, SEEK_SET) != 0) {
    PBpostError("PBopenTempText", 85, path);
    if (source->close() != 0) errno = 0;
    return nullptr;
  }
  TextFilePtr file = makeFile(path, path, escapes);
  file->readFrom(std::move(source));
  return file;
}

// --- Reading and telling -------------------------------------------------------------

std::int64_t PBreadTextLine(PBtextFile* file, std::string_view& line, std::string_view& comment) {
  if (file == nullptr) {
    PBpostError("PBreadTextLine", 106, kNotOpened);
    return kFailed;
  }
  return file->read(line, comment);
}

std::int64_t PBgetTextLineNumber(const PBtextFile* file) { return file->lineNumber(); }
std::int64_t PBfirstTextLineNumber(const PBtextFile* file) { return file->firstLineNumber(); }
const std::string& PBtextFileName(const PBtextFile* file) { return file->name(); }
const std::string& PBtextOpenedName(const PBtextFile* file) { return file->openedName(); }

int PBcloseCompressedTextFile(TextFilePtr file) {
  if (!file) {
    PBpostError("PBcloseCompressedTextFile", 106, kNotOpened);
    return -2;
  }
  if (file->close() == 0) return 0;
  PBpostError("PBcloseCompressedTextFile", 0, "unable to close file");
  return -2;
}

std::string PBcompressedTextError(const PBtextFile* file, std::string_view message) {
  std::string text = "(" + file->openedName() + ") line " + std::to_string(file->lineNumber());
  return text.append(":\n").append(message);
}

std::string PBtextPosition(const PBtextFile* file) {
  std::string text;
  if (file == nullptr) return text;
  if (!file->openedName().empty()) text = "(" + file->openedName() + ")";
  if (file->lineNumber() == 0) return text;
  text += " line " + std::to_string(file->lineNumber()) + ":";
  if (file->physicalLine().empty()) return text;
  text += " \"";
  text += withoutLineEnd(file->physicalLine()).substr(0, kMaxShownLine);
  return text += '"';
}

bool PBtextFileExists(const std::string& path) {
  const bool exists = fileExists(path) || fileExists(path + ".gz");
  errno = 0;
  return exists;
}
