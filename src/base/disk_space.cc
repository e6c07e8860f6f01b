#include "base/disk_space.h"

#include <sys/statvfs.h>

#include <cerrno>

std::optional<std::uint64_t> PBfreeDiskBytes(const std::string& path) {
  const int kept = errno;
  struct statvfs space;
  const bool known = ::statvfs(path.c_str(), &space) == 0;
  errno = kept;
  if (!known) return std::nullopt;
  return std::uint64_t{space.f_bavail} * space.f_frsize;
}
