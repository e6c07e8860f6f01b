#include <fcntl.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <span>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/platform.h"
#include "pvb/database.h"
#include "pvb/database_internal.h"
#include "storage/swapendian.h"

namespace {

constexpr std::size_t kHeaderSize = 36;
constexpr std::size_t kHalfSize = 16;
constexpr std::size_t kWords = kHeaderSize / 4;
constexpr std::int32_t kHostCode = 11;
// Above this a version is of the extended data model.
constexpr std::int32_t kLastClassic = 999;
constexpr std::int32_t kLastBeforeExtended = 1500;
constexpr std::int32_t kFirstWithHostCode = 5;

constexpr int kBadVersionCode = 128;
constexpr int kBadHostCode = 127;

using HeaderWords = std::array<std::int32_t, kWords>;

// Swaps the parts of a header by their tags.
void swapHeader(HeaderWords& words) {
  char* bytes = reinterpret_cast<char*>(words.data());
  SwapBuffer(bytes, typePVBheader, kHalfSize);
  SwapBuffer(bytes + kHalfSize, typePVBstatus, kHalfSize);
  SwapBuffer(bytes + 2 * kHalfSize, typePVBid, 4);
}

struct HeaderBytes {
  HeaderWords words{};
  std::size_t size = 0;
  bool opened = false;
};

HeaderBytes readBytes(const std::string& path) {
  HeaderBytes bytes;
  const int fd = platform().open(path.c_str(), O_RDONLY, 0);
  if (fd < 0) return bytes;
  bytes.opened = true;
  char* data = reinterpret_cast<char*>(bytes.words.data());
  ssize_t got = 1;
  while (bytes.size < kHeaderSize && got > 0) {
    got = platform().read(fd, data + bytes.size, kHeaderSize - bytes.size);
    if (got > 0) bytes.size += static_cast<std::size_t>(got);
  }
  const int error = errno;
  platform().close(fd);
  errno = got < 0 ? error : 0;
  swapHeader(bytes.words);
  return bytes;
}

int refuse(int code, std::string_view text) {
  errno = 0;
  PBpostError("ReadPVBheader", code, text);
  return code == kBadHostCode ? 0 : -1;
}

// Why a version that isn't one of the two can't be read.
std::string_view versionRefusal(std::int32_t version, bool strict) {
  if (version > kLastClassic && strict) return "The data model in this database is not supported.";
  if (version > kLastClassic && version <= kLastBeforeExtended) {
    return "The version of the SDB is no longer supported. Please recreate it.";
  }
  if (version < kClassicVersion) {
    return "The version of the PVB is no longer supported. Please recreate it.";
  }
  return "The database was created by a more recent software version and cannot be read.";
}

bool isReadable(std::int32_t version, bool strict) {
  return version == kClassicVersion || (version == kExtendedVersion && !strict);
}

int judge(const HeaderBytes& bytes, bool strict) {
  const std::int32_t version = bytes.words[0];
  if (!isReadable(version, strict)) return refuse(kBadVersionCode, versionRefusal(version, strict));
  const bool whole = bytes.size >= 2 * kHalfSize;
  if (whole && bytes.words[1] != kHostCode && version >= kFirstWithHostCode) {
    return refuse(kBadHostCode, "Incompatible host type");
  }
  return 1;
}

PVBheader headerOf(const HeaderBytes& bytes) {
  const HeaderWords& words = bytes.words;
  PVBheader header;
  header.version = words[0];
  header.mainRoot = words[2];
  header.rowWidth = words[3];
  if (bytes.size >= 2 * kHalfSize) header.counts = {words[4], words[5], words[6], words[7]};
  if (bytes.size == kHeaderSize) header.propList = words[8];
  return header;
}

}  // namespace

int ReadPVBheader(const std::string& path, bool strict, PVBheader& header) {
  const HeaderBytes bytes = readBytes(path);
  if (!bytes.opened || bytes.size < kHalfSize) {
    PBpostError("ReadPVBheader", 87, path);
    return -1;
  }
  header = headerOf(bytes);
  return judge(bytes, strict);
}

int WritePVBheader(const std::string& path, const PVBheader& header) {
  const PVBstatus& counts = header.counts;
  HeaderWords words = {
      header.version,       kHostCode,           header.mainRoot,        header.rowWidth,
      counts.patternErrors, counts.timingErrors, counts.patternWarnings, counts.timingWarnings,
      header.propList};
  swapHeader(words);
  TempFile fresh(path + ".new");
  StreamPtr stream = openStream(fresh.path(), "w");
  if (!stream) {
    fresh.release();
    PBpostError("WritePVBheader", 81, path);
    return -2;
  }
  std::fwrite(words.data(), 1, kHeaderSize, stream.get());
  if (closeStream(std::move(stream)) != 0 ||
      platform().rename(fresh.path().c_str(), path.c_str()) != 0) {
    PBpostError("WritePVBheader", 85, path);
    return -2;
  }
  fresh.release();
  return 0;
}

// --- Without opening -----------------------------------------------------------------

std::int32_t PVBversionOf(const std::string& path) {
  const HeaderBytes bytes = readBytes(PVBfilePath(path, "pvb.h"));
  errno = 0;
  if (!bytes.opened) return -2;
  return bytes.size >= 4 ? bytes.words[0] : -1;
}

bool PVBisExtended(const std::string& path) { return PVBversionOf(path) > kLastClassic; }

int PVBcheckHeader(const std::string& path) {
  PVBheader header;
  return ReadPVBheader(PVBfilePath(path, "pvb.h"), false, header);
}

int PVBcheckHeaderModel(const std::string& path, bool& extended, std::int32_t& host) {
  const std::string file = PVBfilePath(path, "pvb.h");
  const HeaderBytes bytes = readBytes(file);
  errno = 0;
  extended = bytes.words[0] > kLastClassic;
  host = bytes.words[1];
  return PVBcheckHeader(path);
}
