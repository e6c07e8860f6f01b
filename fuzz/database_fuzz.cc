// A database whose files hold any bytes: reading, dumping and verifying it, and
// changing and closing it, end without a crash.
//
// An input is files one after the other: length of the name, name, length of the
// content in two bytes, low byte first, content.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

#include "base/errors.h"
#include "base/temp_directory.h"
#include "pvb/pattern.h"
#include "scratch_directory.h"
#include "tools/dump.h"
#include "tools/dump_format.h"
#include "tools/open_database.h"
#include "tools/verify.h"

namespace {

bool take(std::string_view& input, std::size_t length, std::string_view& out) {
  if (input.size() < length) length = input.size();
  out = input.substr(0, length);
  input.remove_prefix(length);
  return !out.empty();
}

void writeFiles(std::string_view input, const std::string& directory) {
  while (input.size() > 3) {
    const std::size_t nameLength = static_cast<unsigned char>(input[0]);
    input.remove_prefix(1);
    std::string_view name, length, content;
    if (!take(input, nameLength, name) || !take(input, 2, length) || length.size() < 2) return;
    take(input,
         static_cast<unsigned char>(length[0]) +
             std::size_t{256} * static_cast<unsigned char>(length[1]),
         content);
    if (!isDatabaseFile(name)) continue;
    std::ofstream file(directory + "/" + std::string(name), std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
  }
}

void read(const std::string& path) {
  ReadDatabase database;
  if (!database.open(path, [](const Message&) {})) return;
  std::size_t written = 0;
  TextSink out([&](std::string_view piece) {
    written += piece.size();
    return written < (std::size_t{1} << 26);
  });
  dumpDatabase(database.handle(), out, [](const Message&) {});
}

void change(const std::string& path) {
  const int database = PVBopenAny(path, true, 0, 16, kAllSections, false);
  if (database < 0) return;
  PVBposition position;
  {
    const RowHandle row(database, PVBpatternInqRow(database, kMainPattern, position, BY_ROW));
    if (row) {
      row->count = 3;
      PVBrowUpdate(database, kMainPattern, position, BY_ROW, *row);
    }
  }
  position = {};
  PVBpatternDeleteRow(database, kMainPattern, position, BY_ROW);
  PVBsave(database);
  PVBclose(database);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static ScratchDirectory scratch;
  scratch.clear();
  PBsetTempDirectory(scratch.path("tmp"));
  const std::string path = scratch.path("db");
  std::filesystem::create_directory(path);
  writeFiles({reinterpret_cast<const char*>(data), size}, path);
  if (!PVBexists(path)) return 0;
  read(path);
  verifyDatabase(path, [](const Message&) {});
  change(path);
  PBdiscardErrors();
  PBerrClear();
  return 0;
}
