#include "pvb/database_copy.h"

#include <fmt/printf.h>

#include <cerrno>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/platform.h"
#include "base/report.h"
#include "pvb/database.h"
#include "pvb/database_internal.h"
#include "pvb/row.h"

namespace {

constexpr std::string_view kFunction = "copySrcToDstPVB";
constexpr std::string_view kHeaderFile = "pvb.h";

template <typename... Args>
bool fail(int message, const Args&... args) {
  PBerrPush(PBconditionerError, message, kFunction, args...);
  return false;
}

}  // namespace

bool copySrcToDstPVB(const std::string& srcPath, const std::string& destPath, FILE* reportStream) {
  if (sameDirectory(srcPath, destPath)) return fail(kSameDatabase, destPath, srcPath);
  if (PVBhasFiles(destPath) && PVBdeleteAll(destPath) != 0) {
    return fail(kFunctionAndText, fmt::sprintf("Deleting destination PVB failed: %s", destPath));
  }
  errno = 0;
  PBprint(reportStream,
          fmt::sprintf("Copying source PVB (%s) to destination PVB (%s)\n", srcPath, destPath));
  if (PVBcopy(destPath, srcPath) != 0) return fail(kCopyFailed, srcPath, destPath);
  return true;
}

// --- Headers -------------------------------------------------------------------------

namespace {

// Rows may be wider than the header says, never narrower.
bool isWideEnough(const PVBheader& own, const PVBheader& other) {
  return rowDataSize(other.rowWidth) <= rowDataSize(own.rowWidth);
}

bool fits(const PVBheader& own, const PVBheader& other) {
  return other.mainRoot == own.mainRoot && other.propList == own.propList &&
         isWideEnough(own, other);
}

}  // namespace

int PVBadoptHeader(const std::string& toPath, const std::string& fromPath) {
  const std::string to = PVBfilePath(toPath, kHeaderFile);
  const std::string from = PVBfilePath(fromPath, kHeaderFile);
  PVBheader own;
  PVBheader other;
  if (ReadPVBheader(to, false, own) < 1 || ReadPVBheader(from, false, other) < 1) return -2;
  if (fits(own, other)) return PBcopyFile(from, to) == 0 ? 0 : -2;
  other.mainRoot = own.mainRoot;
  other.propList = own.propList;
  if (!isWideEnough(own, other)) other.rowWidth = own.rowWidth;
  return WritePVBheader(to, other);
}
