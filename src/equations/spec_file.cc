#include <fmt/format.h>

#include <cerrno>

#include "base/errors.h"
#include "base/file_copy.h"
#include "base/platform.h"
#include "base/text_file.h"
#include "equations/spec_data.h"
#include "pvb/database.h"
#include "pvb/section_text.h"

namespace {

constexpr std::string_view kFirstLine = "SDB 1";
constexpr std::string_view kLastLine = "end";

std::nullopt_t refuse(const PBtextFile* file, std::string_view reason) {
  errno = 0;
  PBpostError(
      "ssOpen", 87,
      fmt::format("{} line {}: {}", PBtextFileName(file), PBgetTextLineNumber(file), reason));
  return std::nullopt;
}

// The next line with content: 1, 0 at the end, -2 after a post.
int nextLine(PBtextFile* file, std::string_view& line) {
  std::string_view comment;
  for (;;) {
    const std::int64_t length = PBreadTextLine(file, line, comment);
    if (length == -1) return 0;
    if (length < 0) return -2;
    if (!ssLineContent(line).empty()) return 1;
  }
}

std::optional<ssData> readFile(PBtextFile* file) {
  std::string_view line;
  int got = nextLine(file, line);
  if (got < 0) return std::nullopt;
  if (got == 0 || ssLineContent(line) != kFirstLine) {
    return refuse(file, fmt::format("the file doesn't begin with \"{}\"", kFirstLine));
  }
  ssLineReader reader;
  while ((got = nextLine(file, line)) > 0 && ssLineContent(line) != kLastLine) {
    if (reader.take(line)) continue;
    return refuse(file, fmt::format("column {}: {}", reader.column(), reader.error()));
  }
  if (got < 0) return std::nullopt;
  if (got == 0) return refuse(file, fmt::format("the file ends without \"{}\"", kLastLine));
  got = nextLine(file, line);
  if (got < 0) return std::nullopt;
  if (got > 0) return refuse(file, fmt::format("there is more behind \"{}\"", kLastLine));
  return std::move(reader.data());
}

}  // namespace

bool ssExists(const std::string& directory) {
  return presenceOf(PVBfilePath(directory, kSpecFile)) != Presence::absent;
}

std::optional<ssData> ssOpen(const std::string& directory) {
  const std::string path = PVBfilePath(directory, kSpecFile);
  if (presenceOf(path) == Presence::absent) return ssNew();
  const TextFilePtr file = PBopenCompressedTextFile(path, "r", false, 0);
  return file ? readFile(file.get()) : std::nullopt;
}

int ssSave(const ssData& data, const std::string& directory) {
  const std::string path = PVBfilePath(directory, kSpecFile);
  SectionWriter out;
  bool good = out.open(path, SectionWriter::Storage::plain);
  if (good) {
    const auto line = [&out](std::string_view text) {
      out.text(text);
      out.text("\n");
    };
    line(kFirstLine);
    ssWriteLines(data, line);
    line(kLastLine);
    good = out.commit();
  }
  if (good) return 0;
  PBpostError("ssSave", 85, path);
  return -2;
}

int ssCopyFile(const std::string& toDirectory, const std::string& fromDirectory) {
  const std::string to = PVBfilePath(toDirectory, kSpecFile);
  if (PBcopyFile(PVBfilePath(fromDirectory, kSpecFile), to) == 0) return 0;
  PBpostError("ssCopyFile", 85, to);
  return -2;
}
