#include "tools/output_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tools/usage.h"

namespace {

// A device, a pipe or the like, which a file can't take the place of.
bool isDevice(const std::string& path) {
  struct stat status {};
  const int kept = errno;
  const bool found = platform().status(path.c_str(), status) == 0;
  errno = kept;
  return found && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

std::string directoryOf(const std::string& path) {
  const std::string parent = std::filesystem::path(path).parent_path().string();
  return parent.empty() ? "." : parent;
}

bool deny(MessageCode code, const char* text, const std::string& path) {
  refuse(code, text, path);
  return false;
}

}  // namespace

bool mayWriteFile(const std::string& path, bool force, const std::string& database) {
  if (isDevice(path)) return true;
  if (directoryExists(path)) return deny(kCantWrite, "this is a directory", path);
  if (sameDirectory(directoryOf(path), database)) {
    return deny(kCantWrite, "the file would stand within the database", path);
  }
  if (force || !fileExists(path)) return true;
  return deny(kExists, "the file is there already", path);
}

bool OutputFile::open(const std::string& path) {
  path_ = path;
  const bool device = isDevice(path);
  const std::string written = device ? path : path + ".tmp" + std::to_string(getpid());
  stream_ = openStream(written, "w");
  if (!stream_) return false;
  if (!device) file_ = TempFile(written);
  return true;
}

bool OutputFile::commit() {
  if (closeStream(std::move(stream_)) != 0) return false;
  if (file_.path().empty()) return true;
  if (platform().rename(file_.path().c_str(), path_.c_str()) != 0) return false;
  file_.release();
  return true;
}
