#include "tools/import_stil.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <utility>

#include "base/errors.h"
#include "equations/spec_data.h"
#include "pvb/database.h"
#include "pvb/property.h"
#include "pvb/signal.h"
#include "tools/stil_choice.h"
#include "tools/stil_names.h"
#include "tools/stil_reader.h"
#include "tools/stil_timing.h"
#include "tools/tool_progress.h"

namespace {

constexpr int kBuffers = 64;
constexpr std::int32_t kCommentKey = 0;

struct DirectionRow {
  StilDirection stil;
  SignalDirection direction;
  int columns;
};
constexpr std::array kDirections = {
    DirectionRow{StilDirection::in, INPUT, 1},     DirectionRow{StilDirection::out, OUTPUT, 1},
    DirectionRow{StilDirection::inOut, BIDIR, 2},  DirectionRow{StilDirection::pseudo, INPUT, 1},
    DirectionRow{StilDirection::supply, INPUT, 0},
};
const DirectionRow& directionRow(StilDirection direction) {
  return *std::ranges::find(kDirections, direction, &DirectionRow::stil);
}

// One import, from an open reader into a directory that isn't there.
class StilImport {
 public:
  StilImport(StilReader& reader, const ImportOptions& options, const StilExpandOptions& limits,
             const std::string& path, const MessageSink& sink, ImportCounts& counts)
      : reader_(reader),
        model_(reader.model()),
        options_(options),
        limits_(limits),
        path_(path),
        sink_(sink),
        counts_(counts) {}
  ~StilImport();
  StilImport(const StilImport&) = delete;
  StilImport& operator=(const StilImport&) = delete;

  bool run();

 private:
  void orderSignals();
  bool openDatabase();
  bool addSignals();
  void addGroups();
  bool isKnownAs(const std::string& name, const std::vector<std::uint32_t>& members);
  bool readTiming();
  void addChains();
  void addChain(const StilChain& chain);
  PVBidList addCells(const StilChain& chain);
  PVBid chainEnd(const StilChain& chain, const std::string& name);
  PVBid scanObject(std::string name, SignalType type, PVBidList members, PVBidList signals);
  bool addTitle();
  bool patterns();
  bool pattern(const StilChosenPattern& chosen, Progress& progress);
  void useDomains(const StilDomains& domains);
  bool close();
  bool fail(std::string text);
  const StilDomains& firstDomains() const { return choice_.patterns.front().domains; }

  StilReader& reader_;
  StilModel& model_;
  const ImportOptions& options_;
  const StilExpandOptions& limits_;
  std::string path_;
  const MessageSink& sink_;
  ImportCounts& counts_;

  StilChoice choice_;
  int database_ = -1;
  ssData equations_;
  std::size_t carried_ = 0;  // signals that aren't supplies; these come first
  std::vector<SignalDirection> directions_;
  std::optional<PatternWriter> writer_;
  std::optional<StilTiming> timing_;
  std::vector<std::string> groupDomains_;  // of names_
  std::unique_ptr<StilNames> names_;
  std::optional<StilExpand> expand_;
  StilStatement statement_;
};

StilImport::~StilImport() {
  if (database_ < 0) return;
  if (writer_) writer_->abandon();
  PVBcloseUnsaved(database_);
  PBdiscardErrors();
}

bool StilImport::run() {
  if (!chooseStilPatterns(reader_, options_, choice_)) return false;
  orderSignals();
  if (!openDatabase() || !addSignals()) return false;
  useDomains(firstDomains());
  addGroups();
  if (!readTiming()) return false;
  addChains();
  if (!addTitle() || !patterns()) return false;
  return close();
}

bool StilImport::fail(std::string text) {
  const std::vector<std::string>& files = reader_.model().files;
  sink_(failureMessage(kImportRefused, std::move(text), files.empty() ? "" : files.front()));
  return false;
}

// --- Signals -------------------------------------------------------------------------

// Signals are known by their index, of which supplies have none in the database.
void StilImport::orderSignals() {
  const auto isCarried = [](const StilSignal& signal) {
    return signal.direction != StilDirection::supply;
  };
  std::stable_partition(model_.signals.begin(), model_.signals.end(), isCarried);
  carried_ = static_cast<std::size_t>(std::ranges::count_if(model_.signals, isCarried));
  for (const StilSignal& signal : model_.signals) {
    directions_.push_back(directionRow(signal.direction).direction);
    if (signal.direction == StilDirection::pseudo) {
      reader_.warnAt(signal.where, kStilNotCarried,
                     fmt::format("the pseudo signal '{}' becomes an input", signal.name));
    } else if (!isCarried(signal)) {
      reader_.warnAt(signal.where, kStilNotCarried,
                     fmt::format("the supply '{}' is left out", signal.name));
    }
  }
}

bool StilImport::openDatabase() {
  std::size_t columns = 0;
  for (const StilSignal& signal : model_.signals) {
    columns += static_cast<std::size_t>(directionRow(signal.direction).columns);
  }
  if (columns > kMaxColumns) {
    return fail(
        fmt::format("the signals need {} columns, and a row has {} at most", columns, kMaxColumns));
  }
  const int width = std::max(kDefaultRowWidth, static_cast<int>(columns));
  database_ = PVBopenAny(path_, true, width, kBuffers, kAllSections, false);
  return database_ >= 0 || fail("the database can't be made");
}

bool StilImport::addSignals() {
  writer_.emplace(database_, &equations_);
  std::vector<WriterSignal> signals;
  for (std::size_t i = 0; i < carried_; ++i) {
    const StilSignal& signal = model_.signals[i];
    if (PVBsignalInqByName(database_, signal.name) != nullptr) {
      return reader_.failAt(signal.where, kImportRefused,
                            fmt::format("each database has a group '{}' of its own", signal.name));
    }
    signals.push_back({signal.name, directions_[i]});
  }
  counts_.signals = signals.size();
  return writer_->addSignals(signals) || fail(writer_->failure());
}

// Names stand for signals by the groups of a burst, so each set of them has a table.
void StilImport::useDomains(const StilDomains& domains) {
  if (!names_ || groupDomains_ != domains.signalGroups) {
    groupDomains_ = domains.signalGroups;
    names_ = std::make_unique<StilNames>(model_, groupDomains_);
    if (expand_) expand_->useNames(*names_);
  }
  if (expand_) expand_->useRoutines(domains);
}

// Groups whose names the database has for the same signals are there already.
void StilImport::addGroups() {
  for (const StilGroup& group : model_.groups) {
    std::string problem;
    const StilTarget* target = names_->find(group.members, problem);
    if (target == nullptr) {
      reader_.warnAt(group.where, kStilNotCarried,
                     fmt::format("group '{}' is left out: {}", group.name, problem));
      continue;
    }
    std::vector<std::uint32_t> members;
    std::ranges::copy_if(target->signals, std::back_inserter(members),
                         [&](std::uint32_t signal) { return signal < carried_; });
    if (members.empty() || writer_->addGroup(group.name, members)) continue;
    if (isKnownAs(group.name, members)) continue;
    reader_.warnAt(group.where, kStilNotCarried,
                   fmt::format("group '{}' is left out: the name is taken", group.name));
  }
}

// Whether the database has these signals under the name.
bool StilImport::isKnownAs(const std::string& name, const std::vector<std::uint32_t>& members) {
  const PVBsignal* known = PVBsignalInqByName(database_, name);
  if (known == nullptr) return false;
  PVBidList has = PVBsignalListToScalars(database_, {known->id});
  PVBidList wanted;
  for (const std::uint32_t member : members) {
    const PVBsignal* signal = PVBsignalInqByName(database_, model_.signals[member].name);
    wanted.push_back(signal != nullptr ? signal->id : UNDEF);
  }
  std::ranges::sort(has);
  std::ranges::sort(wanted);
  return has == wanted;
}

bool StilImport::readTiming() {
  timing_.emplace(reader_);
  if (!timing_->readSpecs(choice_.timing, equations_)) return false;
  if (!timing_->readTables(choice_.timing, *names_, equations_, directions_, options_.lenient,
                           *writer_)) {
    return false;
  }
  StilExpandOptions options = limits_;
  options.lenient = options_.lenient;
  options.flat = options_.flat;
  expand_.emplace(reader_, *names_, *timing_, *writer_, options);
  return true;
}

// --- What goes along -----------------------------------------------------------------

PVBid StilImport::scanObject(std::string name, SignalType type, PVBidList members,
                             PVBidList signals) {
  if (name.empty() || PVBsignalInqByName(database_, name) != nullptr) return UNDEF;
  auto object = PVBsignalNew();
  object->name = std::move(name);
  object->type = type;
  object->memberCount = static_cast<std::int32_t>(members.size());
  object->members = std::move(members);
  object->lists3 = std::move(signals);
  return PVBscanObjectInsert(database_, std::move(object));
}

void StilImport::addChains() {
  for (const StilChain& chain : model_.chains) addChain(chain);
  PBdiscardErrors();
}

void StilImport::addChain(const StilChain& chain) {
  PVBidList cells = addCells(chain);
  PVBidList ends = {chainEnd(chain, chain.scanIn), chainEnd(chain, chain.scanOut)};
  if (scanObject(chain.name, kScanChainType, std::move(cells), std::move(ends)) != UNDEF) return;
  reader_.warnAt(chain.where, kStilNotCarried,
                 fmt::format("scan chain '{}' is left out: the name is taken", chain.name));
}

// A cell of several chains stands in each; inversions have no place.
PVBidList StilImport::addCells(const StilChain& chain) {
  PVBidList cells;
  const std::string* firstTaken = nullptr;
  std::size_t taken = 0;
  for (const std::string& name : chain.cells) {
    if (name == "!") continue;
    const PVBsignal* known = PVBsignalInqByName(database_, name);
    const bool isCell = known != nullptr && known->type == kScanCellType;
    const PVBid cell = isCell ? known->id : scanObject(name, kScanCellType, {}, {});
    if (cell != UNDEF) {
      cells.push_back(cell);
    } else if (++taken == 1) {
      firstTaken = &name;
    }
  }
  if (taken > 0) {
    reader_.warnAt(
        chain.where, kStilNotCarried,
        fmt::format("{} of {} cells of scan chain '{}' are left out, the first is '{}': the "
                    "name is taken",
                    taken, taken + cells.size(), chain.name, *firstTaken));
  }
  return cells;
}

// The signal at an end; `name` is empty for none.
PVBid StilImport::chainEnd(const StilChain& chain, const std::string& name) {
  if (name.empty()) return UNDEF;
  const std::int64_t signal = names_->signal(name);
  const bool known = signal >= 0 && static_cast<std::size_t>(signal) < carried_;
  const PVBsignal* end = known ? PVBsignalInqByName(database_, name) : nullptr;
  if (end != nullptr) return end->id;
  reader_.warnAt(chain.where, kStilNotCarried,
                 fmt::format("scan chain '{}' stands without '{}', which is no signal of the "
                             "database",
                             chain.name, name));
  return UNDEF;
}

bool StilImport::addTitle() {
  if (model_.title.empty()) return true;
  const PVBid list = PVBdbPropertyListMake(database_);
  const PVBproperty property{kCommentKey, model_.title};
  return (list != UNDEF && PVBputProp(database_, list, property) == 0) ||
         fail("the title can't be stored");
}

// --- Patterns ------------------------------------------------------------------------

bool StilImport::patterns() {
  Progress progress(reader_.bytesTotal(), "Importing", options_.quiet);
  for (const StilChosenPattern& chosen : choice_.patterns) {
    if (!pattern(chosen, progress)) return false;
  }
  return writer_->finish() || fail(writer_->failure());
}

bool StilImport::pattern(const StilChosenPattern& chosen, Progress& progress) {
  useDomains(chosen.domains);
  if (choice_.patterns.size() > 1) writer_->label(chosen.place->name);
  const std::uint64_t before = expand_->cycles();
  if (!expand_->begin() || !reader_.beginPattern(*chosen.place)) return false;
  while (reader_.nextStatement(statement_)) {
    if (!expand_->statement(statement_)) return false;
    progress.update(reader_.bytesRead());
  }
  if (reader_.failed() || !expand_->end()) return false;
  counts_.cycles += expand_->cycles() - before;
  return true;
}

bool StilImport::close() {
  counts_.rows = writer_->rowCount();
  counts_.timeplates = writer_->plateCount();
  writer_.reset();
  const bool hasEquations = std::ranges::any_of(
      equations_.sheets, [](const ssSheet& sheet) { return !sheet.variables.empty(); });
  const int database = std::exchange(database_, -1);
  bool saved = !hasEquations || ssSave(equations_, path_) == 0;
  saved = PVBclose(database) == 0 && saved;
  return saved || fail("the database can't be saved");
}

bool importOpened(StilReader& reader, const ImportOptions& options, const StilExpandOptions& limits,
                  const std::string& path, const MessageSink& sink, ImportCounts& counts) {
  return StilImport(reader, options, limits, path, sink, counts).run();
}

MessageSink countingWarnings(const MessageSink& sink, ImportCounts& counts) {
  return [&sink, &counts](const Message& message) {
    if (message.severity == Severity::warning) ++counts.warnings;
    sink(message);
  };
}

}  // namespace

bool importStil(const std::string& file, const ImportOptions& options, const std::string& path,
                const MessageSink& sink, ImportCounts& counts) {
  const MessageSink counting = countingWarnings(sink, counts);
  StilReader reader(counting);
  return reader.open(file) && importOpened(reader, options, {}, path, counting, counts);
}

bool importStilText(std::string_view text, const ImportOptions& options, const std::string& path,
                    const MessageSink& sink, ImportCounts& counts,
                    const StilExpandOptions& limits) {
  const MessageSink counting = countingWarnings(sink, counts);
  StilReader reader(counting);
  return reader.openText(text, "text.stil") &&
         importOpened(reader, options, limits, path, counting, counts);
}
