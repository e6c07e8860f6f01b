#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "base/text.h"
#include "tools/export.h"
#include "tools/open_database.h"
#include "tools/output_file.h"
#include "tools/tool_progress.h"
#include "tools/usage.h"

namespace {

constexpr std::string_view kStandardOutput = "-";
constexpr std::string_view kCompressed = ".gz";

constexpr std::array<ExportFormat, 2> kFormats = {{
    {"stil", ".stil .stil.gz", "Standard Test Interface Language, IEEE 1450", false, exportStil},
    {"vcd", ".vcd .vcd.gz", "Value change dump, IEEE 1364: the waves over time", true, exportVcd},
}};

// --- Compressed output ---------------------------------------------------------------

// Text to a stream through gzip.
class GzipWriter {
 public:
  explicit GzipWriter(FILE* stream) : stream_(stream) {
    open_ = deflateInit2(&state_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindow, kMemory,
                         Z_DEFAULT_STRATEGY) == Z_OK;
  }
  ~GzipWriter() {
    if (open_) deflateEnd(&state_);
  }
  GzipWriter(const GzipWriter&) = delete;
  GzipWriter& operator=(const GzipWriter&) = delete;

  bool write(std::string_view piece) { return deflate(piece, Z_NO_FLUSH); }
  bool finish() { return deflate({}, Z_FINISH); }

 private:
  static constexpr int kGzipWindow = 15 + 16;  // the largest window, with gzip's head
  static constexpr int kMemory = 8;

  bool deflate(std::string_view piece, int flush) {
    if (!open_) return false;
    state_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
    state_.avail_in = static_cast<uInt>(piece.size());
    do {
      state_.next_out = room_.data();
      state_.avail_out = static_cast<uInt>(room_.size());
      if (::deflate(&state_, flush) == Z_STREAM_ERROR) return false;
      const std::size_t size = room_.size() - state_.avail_out;
      if (std::fwrite(room_.data(), 1, size, stream_) != size) return false;
    } while (state_.avail_out == 0);
    return true;
  }

  FILE* stream_;
  bool open_ = false;
  z_stream state_ = {};
  std::array<Bytef, std::size_t{1} << 16> room_;
};

// --- The verb ------------------------------------------------------------------------

struct ExportCall {
  std::string database;
  std::string output;
  std::string kind;
  std::string begin;
  std::string end;
  bool force = false;
  ExportOptions options;

  const ExportFormat* format = nullptr;
  bool compressed = false;
};

std::optional<int> chooseFormat(ExportCall& call) {
  call.compressed = PBendsWithOneOf(call.output, kCompressed);
  for (const ExportFormat& format : kFormats) {
    const bool known =
        call.kind.empty() ? PBendsWithOneOf(call.output, format.endings) : format.name == call.kind;
    if (!known) continue;
    call.format = &format;
    return std::nullopt;
  }
  if (!call.kind.empty()) {
    return refuse(kUnknownFormat, fmt::format("'{}' is no kind of file to write", call.kind));
  }
  return refuse(kUnknownFormat, "the name of the file doesn't tell its kind", call.output);
}

std::optional<int> readOptions(ExportCall& call) {
  if (!readTimeOption(call.begin, "begin", call.options.from) ||
      !readTimeOption(call.end, "end", call.options.to)) {
    return kExitFailed;
  }
  if (call.options.to && *call.options.to <= call.options.from.value_or(TIME_ZERO)) {
    return refuse(kBadUsage, fmt::format("--end {} isn't behind the beginning", call.end));
  }
  const bool chosen = call.options.from || call.options.to || !call.options.signals.empty();
  if (!chosen || call.format->takesStretch) return std::nullopt;
  return refuse(kBadUsage, fmt::format("{} has no --begin, --end or --signals", call.format->name));
}

// Whether everything went to the stream, but for what it still keeps.
bool write(const ExportCall& call, int database, FILE* stream, bool& lost) {
  std::optional<GzipWriter> gzip;
  if (call.compressed) gzip.emplace(stream);
  TextSink sink = gzip ? TextSink([&](std::string_view piece) { return gzip->write(piece); })
                       : streamSink(stream);
  const bool whole = call.format->write(database, call.options, sink, printMessage);
  lost = !sink.good() || (whole && gzip && !gzip->finish());
  return whole && !lost;
}

int exportTo(const ExportCall& call, int database) {
  bool lost = false;
  if (call.output == kStandardOutput) {
    if (write(call, database, stdout, lost)) return kExitYes;
    return lost ? refuse(kOutputLost, "standard output can't be written") : kExitFailed;
  }
  OutputFile file;
  if (!file.open(call.output)) return refuse(kCantWrite, std::strerror(errno), call.output);
  const bool whole = write(call, database, file.stream(), lost);
  if (!whole && !lost) return kExitFailed;
  if (!whole || !file.commit()) return refuse(kCantWrite, std::strerror(errno), call.output);
  return kExitYes;
}

}  // namespace

std::span<const ExportFormat> exportFormats() { return kFormats; }

int runExport(std::span<const std::string> arguments) {
  Usage usage("export");
  ExportCall call;
  usage.app.add_option("DB", call.database, "Directory of the database")->required();
  usage.app.add_option("-o,--output", call.output, "File to write; - for standard output")
      ->required();
  usage.app.add_option("--to", call.kind, "Kind of file, stil or vcd, whatever its name");
  usage.app.add_option("--begin", call.begin, "VCD: time where the waves begin");
  usage.app.add_option("--end", call.end, "VCD: time where they end");
  usage.app.add_option("--signals", call.options.signals, "VCD: names of signals, by commas")
      ->delimiter(',');
  usage.app.add_flag("--force", call.force, "Replace the file when it is there");
  usage.addQuiet();
  if (const auto exit = usage.parse(arguments)) return *exit;
  if (const auto exit = chooseFormat(call)) return *exit;
  if (const auto exit = readOptions(call)) return *exit;
  if (call.output != kStandardOutput && !mayWriteFile(call.output, call.force, call.database)) {
    return kExitFailed;
  }
  ReadDatabase database;
  if (!database.open(databasePath(call.database), printMessage)) return kExitFailed;
  const bool shown = call.output == kStandardOutput && outputIsTerminal();
  call.options.quiet = usage.quiet() || shown;
  return exportTo(call, database.handle());
}
