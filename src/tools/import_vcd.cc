#include <fmt/format.h>

#include <limits>
#include <optional>

#include "base/errors.h"
#include "pvb/database.h"
#include "tools/import_vcd_cycles.h"
#include "tools/import_vcd_internal.h"
#include "tools/tool_progress.h"

namespace {

constexpr int kBuffers = 64;
constexpr std::uint64_t kMostFemtoseconds = std::numeric_limits<std::int64_t>::max();
// From so many timeplates on a failure is likely to come from their number.
constexpr std::size_t kManyTimeplates = 10000;
constexpr std::int64_t kStrobePercent = 90;  // of the period, where no option tells

std::int64_t femtosecondsOf(TIME time) { return PBtimeToLong(time); }

// The database under construction, given up unless it is closed.
class GrowingDatabase {
 public:
  explicit GrowingDatabase(const std::string& path)
      : handle_(PVBopenAny(path, true, kDefaultRowWidth, kBuffers, kAllSections, false)) {}
  ~GrowingDatabase() {
    if (handle_ < 0) return;
    PVBcloseUnsaved(handle_);
    PBdiscardErrors();
  }
  GrowingDatabase(const GrowingDatabase&) = delete;
  GrowingDatabase& operator=(const GrowingDatabase&) = delete;

  int handle() const { return handle_; }
  bool close() { return PVBclose(std::exchange(handle_, -1)) == 0; }

 private:
  int handle_;
};

class VcdImport {
 public:
  VcdImport(VcdReader& reader, const ImportOptions& options, ImportCounts& counts)
      : reader_(reader), options_(options), counts_(counts) {}

  bool run(const std::string& path);

 private:
  bool refuse(MessageCode code, std::string text) {
    reader_.tell(Severity::error, code, std::move(text));
    return false;
  }
  bool chooseTimes();
  bool addSignals(PatternWriter& writer);
  bool takeChanges(VcdCycles& cycles, const PatternWriter& writer);
  bool takeTime(VcdCycles& cycles);

  VcdReader& reader_;
  const ImportOptions& options_;
  ImportCounts& counts_;
  VcdChoice choice_;
  std::int64_t strobe_ = 0;
  std::uint64_t mostSteps_ = 0;
};

bool VcdImport::chooseTimes() {
  if (!options_.period) {
    return refuse(kVcdBadTime, "a period is needed to cut time into cycles, as --period 100ns");
  }
  if (*options_.period <= TIME_ZERO) return refuse(kVcdBadTime, "the period must be above zero");
  const std::int64_t period = femtosecondsOf(*options_.period);
  const auto step = static_cast<std::int64_t>(reader_.header().stepFemtoseconds);
  mostSteps_ = kMostFemtoseconds / reader_.header().stepFemtoseconds;
  strobe_ = period / 100 * kStrobePercent + period % 100 * kStrobePercent / 100;
  strobe_ -= strobe_ % step;
  if (!options_.strobe) return true;
  if (*options_.strobe < TIME_ZERO || *options_.strobe >= *options_.period) {
    return refuse(kVcdBadTime, "the strobe must be within the period");
  }
  strobe_ = femtosecondsOf(*options_.strobe);
  return true;
}

bool VcdImport::addSignals(PatternWriter& writer) {
  std::vector<WriterSignal> signals;
  signals.reserve(choice_.signals.size());
  for (const VcdSignal& signal : choice_.signals) {
    signals.push_back({signal.name, signal.direction});
  }
  if (!writer.addSignals(signals)) return refuse(kImportRefused, writer.failure());
  std::vector<std::uint32_t> bits;
  for (const VcdBus& bus : choice_.buses) {
    bits.clear();
    for (std::uint32_t i = 0; i < bus.count; ++i) bits.push_back(bus.first + i);
    // A bus whose name is taken has no group; its bits are there all the same.
    if (!writer.addGroup(bus.name, bits) && !writer.failure().empty()) {
      return refuse(kImportRefused, writer.failure());
    }
  }
  writer.useTable(writer.addTable("cycle", *options_.period, {}));
  return true;
}

bool VcdImport::takeTime(VcdCycles& cycles) {
  const std::uint64_t time = reader_.time();
  if (time > mostSteps_) {
    return reader_.fail(kVcdBadTime, fmt::format("#{} is beyond 2^63 femtoseconds", time));
  }
  return cycles.advance(static_cast<std::int64_t>(time * reader_.header().stepFemtoseconds));
}

bool VcdImport::takeChanges(VcdCycles& cycles, const PatternWriter& writer) {
  Progress progress(reader_.source().size(), "Reading changes", options_.quiet);
  bool good = true;
  for (VcdEvent event = reader_.next(); event != VcdEvent::end; event = reader_.next()) {
    if (event == VcdEvent::time) {
      progress.update(reader_.source().consumed());
      good = takeTime(cycles);
    } else if (event == VcdEvent::bits) {
      good = cycles.change(reader_.net(), reader_.value());
    } else if (event == VcdEvent::ports) {
      good = cycles.changePorts(reader_.net(), reader_.value());
    }
    if (!good) break;
  }
  good = good && !reader_.failed() && cycles.finish();
  if (good || reader_.failed()) return good;
  std::string text = cycles.failure();
  if (writer.plateCount() > kManyTimeplates) {
    text += "; with the period of the clock the changes stand at fewer offsets";
  }
  return reader_.fail(kImportRefused, std::move(text));
}

bool VcdImport::run(const std::string& path) {
  if (!reader_.readHeader() || !chooseTimes()) return false;
  if (!chooseVcdSignals(reader_, options_, choice_)) return false;
  GrowingDatabase database(path);
  if (database.handle() < 0) {
    return refuse(kCantSaveDatabase,
                  fmt::format("the database can't be made: {}", takePostedReasons()));
  }
  PatternWriter writer(database.handle(), nullptr);
  if (!addSignals(writer)) return writer.abandon(), false;
  VcdCycles cycles(writer, choice_, reader_.header().netWidths.size(),
                   femtosecondsOf(*options_.period), strobe_);
  if (!takeChanges(cycles, writer)) return writer.abandon(), false;
  if (!writer.finish()) return refuse(kImportRefused, writer.failure());
  counts_.signals = choice_.signals.size();
  counts_.timeplates = writer.plateCount();
  counts_.rows = writer.rowCount();
  counts_.cycles = cycles.cycleCount();
  return database.close() ||
         refuse(kCantSaveDatabase,
                fmt::format("the database can't be saved: {}", takePostedReasons()));
}

}  // namespace

bool importVcd(const std::string& file, const ImportOptions& options, const std::string& path,
               const MessageSink& sink, ImportCounts& counts) {
  std::string reason;
  std::unique_ptr<ByteSource> source = ByteSource::open(file, true, reason);
  if (!source) {
    sink({Severity::error, kCantRead, reason, file, 0, 0, {}, {}});
    return false;
  }
  VcdReader reader(std::move(source), [&](const Message& message) {
    if (message.severity == Severity::warning) ++counts.warnings;
    sink(message);
  });
  return VcdImport(reader, options, counts).run(path);
}
