#pragma once

// Shared by the parts of the expansion: the states of the signals (stil_states.cc), the
// data of calls (stil_expand_data.cc), calls and loops (stil_expand_blocks.cc), and
// shifts (stil_expand_shift.cc).

#include <array>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tools/stil_expand.h"

inline constexpr std::int64_t kNoTable = -1;
inline constexpr char kNeverSet = 0;

// --- States --------------------------------------------------------------------------

// What a stretch of statements needs of the states that it begins with, found by a pass
// that writes nothing.
struct StilEffect {
  std::vector<std::uint8_t> inherited;  // by signal: a vector has it as it was before
  bool usesTable = false;               // a vector stands before any W
  bool vectors = false;
  bool stops = false;
  bool repeats = false;  // it ends with what it needs of its beginning
};

// The characters in force with the table, and which of them the writer was told. A
// character that is set while it is fixed is passed over.
class StilStates {
 public:
  // Of a signal.
  struct State {
    std::uint32_t setAt = 0;  // number of the place
    std::uint32_t fixed = 0;  // how often
    char character = kNeverSet;
    bool dirty = false;     // the writer wasn't told
    bool assigned = false;  // since beginDry
  };
  struct Saved {
    std::vector<State> states;
    std::int64_t table = kNoTable;
    bool tableAssigned = false;
  };

  StilStates(StilReader& reader, const StilTiming& timing, PatternWriter& writer, bool lenient);

  void forget();  // nothing set, no table
  char of(std::uint32_t signal) const { return states_[signal].character; }
  bool isFixed(std::uint32_t signal) const { return states_[signal].fixed != 0; }
  std::int64_t table() const { return table_; }
  std::size_t size() const { return states_.size(); }

  // What is put from now on stands there.
  void at(const StilWhere& where) { places_[++place_ % kPlaces] = where; }
  void put(std::uint32_t signal, char character) {
    State& state = states_[signal];
    if (state.fixed == 0) set(state, signal, character);
  }
  void useTable(std::int64_t table);
  // Fixed signals from a mark on are free again by `release`.
  std::size_t mark() const { return order_.size(); }
  void fix(std::uint32_t signal, char character);
  void release(std::size_t mark);

  void save(Saved& saved) const;
  void restore(const Saved& saved);

  // Tells the writer what has changed, for a vector at `where`.
  bool tell(const StilWhere& where);
  // The character as the table in force has it; null without a table or a wave.
  const StilCharacter* wave(std::uint32_t signal, char character) const;

  // Between these two nothing is told; `effect` gets what vectors() found.
  void beginDry();
  bool dry() const { return dry_; }
  void dryVector();
  void endDry(const Saved& before, StilEffect& effect);

 private:
  static constexpr std::uint32_t kPlaces = 1U << 14;  // kept for messages

  void set(State& state, std::uint32_t signal, char character) {
    state.setAt = place_;
    state.assigned = true;
    change(state, signal, character);
  }
  // Without branches: whether data change can't be foreseen.
  void change(State& state, std::uint32_t signal, char character) {
    const bool isNew = (state.character != character) & !state.dirty;
    state.character = character;
    state.dirty = state.dirty | isNew;
    changed_[changedCount_] = signal;
    changedCount_ += isNew ? 1 : 0;
  }
  std::span<const std::uint32_t> changed() const { return {changed_.data(), changedCount_}; }
  bool tellSignal(std::uint32_t signal, const StilWhere& where);
  bool unknownWave(std::uint32_t signal, const StilWhere& where);
  void useWaves();
  void warnNeverSet(const StilWhere& where);

  StilReader& reader_;
  const StilTiming& timing_;
  PatternWriter& writer_;
  bool lenient_;
  std::size_t carried_ = 0;  // signals; supplies, which the writer doesn't know, come last

  std::vector<State> states_;
  std::int64_t table_ = kNoTable;
  std::vector<std::uint32_t> order_;  // in which signals were fixed
  std::vector<StilWhere> places_;     // the last kPlaces
  std::uint32_t place_ = 0;

  std::vector<std::uint32_t> changed_;  // room for one more than there are signals
  std::size_t changedCount_ = 0;
  std::vector<SignalCycle> told_;
  bool toldAny_ = false;
  bool begins_ = true;                                          // no vector was told since `forget`
  std::set<std::pair<std::uint32_t, std::uint64_t>> warnedAt_;  // of signals never set
  std::int64_t toldTable_ = kNoTable;
  std::vector<std::vector<const StilCharacters*>> waves_;  // by table and signal
  std::unordered_set<std::uint64_t> unknown_;              // of which a warning told

  bool dry_ = false;
  bool tableAssigned_ = false;
  StilEffect effect_;
};

// --- Data of calls -------------------------------------------------------------------

// What a call gives one signal.
struct StilStream {
  const char* data = nullptr;
  std::uint32_t stride = 1;
  std::uint32_t count = 0;
  std::uint32_t next = 0;
  std::uint32_t lead = 0;     // `#` of a Shift that come before the data
  std::uint32_t shifted = 0;  // place in `StilFrame::shifted`, from 1; may be of an older one
  char before = kNeverSet;    // what those `#` give
  char after = kNeverSet;     // what `#` of a Shift gives behind the data
  char whole = kNeverSet;     // what `%` gives once it was met
  bool touched = false;

  std::size_t left() const { return count - next; }
};

// In which order data of unequal length come.
enum class StilAlignment : std::uint8_t { byData, load, unload };

// A signal with a `#` in a Shift.
struct StilShifted {
  std::uint32_t signal;
  StilAlignment alignment;
  std::size_t takes;   // characters in one pass
  std::size_t length;  // of the chain, 0 when it isn't known
};

// A call that is being carried out, or the pattern itself.
struct StilFrame {
  std::vector<StilStream> streams;  // by signal
  std::vector<std::uint32_t> bound;
  std::vector<std::uint32_t> passedOn;  // of the frame below
  std::list<std::string> expanded;
  StilStates::Saved saved;
  std::vector<StilShifted> shifted;
  bool shifting = false;
  std::uint64_t taken = 0;  // characters given to `#` and `%`
};

// Characters of data with \h and \d parts put in, for `signals` signals (0: as many as
// come). False with the reason.
bool stilCodedData(const StilData& data, const StilAttributes* attributes, std::size_t signals,
                   std::string& out, std::string& reason);
// Whether `#` or `%` stands in assignments of these statements.
bool hasParameters(const std::vector<StilStatement>& body);

// --- The whole -----------------------------------------------------------------------

// Sets a flag and puts it back.
class StilQuiet {
 public:
  StilQuiet(bool& flag, bool value) : flag_(flag), before_(flag) { flag = value; }
  ~StilQuiet() { flag_ = before_; }
  StilQuiet(const StilQuiet&) = delete;
  StilQuiet& operator=(const StilQuiet&) = delete;

 private:
  bool& flag_;
  bool before_;
};

struct StilVariant {
  int subroutine;
  std::uint64_t cycles;
};

struct StilCallable {
  const StilRoutine* routine = nullptr;
  bool active = false;
  std::optional<bool> parameters;
  std::optional<StilEffect> effect;
  std::map<std::string, StilVariant> variants;  // by what they depend on
};

struct StilExpand::Parts {
  Parts(StilReader& reader, StilNames& names, StilTiming& timing, PatternWriter& writer,
        StilExpandOptions options);

  void use(const StilDomains& domains);
  bool top(const StilStatement& statement);

  // Statements.
  bool run(const StilStatement& statement);
  bool runBlock(const std::vector<StilStatement>& body);
  bool vector(const StilStatement& statement, std::uint32_t count);
  bool assignAll(const StilStatement& statement, bool fixes);
  bool assign(const StilAssignment& assignment, bool fixes);
  bool table(const StilStatement& statement);
  void annotation(const StilStatement& statement);
  void testPoint(const StilStatement& statement);

  // Calls.
  bool call(const StilStatement& statement);
  bool inPlace(const StilStatement& statement, StilCallable& callable);
  bool asSubroutine(const StilStatement& statement, StilCallable& callable);
  bool findEffect(const StilStatement& statement, StilCallable& callable);
  bool define(const StilStatement& statement, StilCallable& callable, StilVariant& variant);
  std::string variantKey(const StilEffect& effect) const;
  std::string subroutineName(const std::string& routine);

  // Loops and shifts.
  bool loop(const StilStatement& statement);
  bool matchLoop(const StilStatement& statement);
  bool repeat(const StilStatement& statement, std::uint64_t count);
  bool repeatVector(const StilStatement& statement, std::uint64_t count);
  bool repeatTaking(const StilStatement& statement, std::uint64_t& count);
  bool writeOut(const StilStatement& statement, std::uint64_t count);
  bool writeLoop(const StilStatement& statement, std::uint64_t count);
  bool dryBlock(const std::vector<StilStatement>& body, StilEffect& effect);
  bool shift(const StilStatement& statement);
  bool shiftWithoutData(const StilStatement& statement);
  bool collect(const std::vector<StilStatement>& body, std::size_t times);
  bool collect(const StilAssignment& assignment, std::size_t times);
  void collect(std::uint32_t signal, const StilAttributes* attributes, std::size_t times);
  void align(const StilShifted& shifted, std::size_t passes);

  // Data.
  const StilTarget* target(const StilReference& reference);
  bool characters(const StilAssignment& assignment, const StilTarget& target, std::size_t signals,
                  std::string& buffer, std::string_view& out);
  bool wrongCount(const StilAssignment& assignment, std::size_t given, std::size_t signals);
  bool hasData();  // whether the call's aren't used up
  // What `#` or `%` stands for; kNeverSet where the state in force holds.
  char take(std::uint32_t signal, char parameter) {
    StilStream& stream = frame().streams[signal];
    stream.touched = true;
    const bool plain = parameter == '#' && stream.lead == 0 && stream.next < stream.count;
    return plain ? takeNext(stream) : takeOther(stream, parameter);
  }
  char takeNext(StilStream& stream) {
    ++frame().taken;
    return stream.data[std::size_t{stream.next++} * stream.stride];
  }
  char takeOther(StilStream& stream, char parameter);
  bool enter(const StilStatement& call);
  bool bind(const StilAssignment& assignment);
  void bindParameters(const StilTarget& target, std::string_view data);
  void leave(const StilStatement& call, const StilCallable& callable);
  void warnUntaken(const StilAssignment& assignment, const StilCallable& callable);
  StilFrame& frame() { return *frames[depth - 1]; }

  bool fail(const StilWhere& where, MessageCode code, std::string text) {
    return reader.failAt(where, code, std::move(text));
  }
  bool writerFailed(const StilWhere& where);
  // True the first time for a place.
  bool firstAt(const StilWhere& where) {
    return told.emplace(where.file, where.place.offset).second;
  }
  void addCycles(std::uint64_t count);
  StilCallable* find(const StilStatement& statement);

  StilReader& reader;
  StilNames* names;
  StilTiming& timing;
  PatternWriter& writer;
  StilExpandOptions options;
  StilStates states;

  std::vector<StilAlignment> alignments;  // by signal
  std::vector<std::size_t> lengths;       // of a signal's chain

  std::optional<StilDomains> domains;
  std::vector<StilCallable> procedures;  // as in the model
  std::vector<StilCallable> macros;
  std::unordered_map<std::string_view, StilCallable*> procedureNames;
  std::unordered_map<std::string_view, StilCallable*> macroNames;
  std::set<std::string> subroutineNames;

  std::vector<std::unique_ptr<StilFrame>> frames;  // kept for their room
  std::size_t depth = 0;                           // frames in use
  std::size_t nesting = 0;                         // of blocks
  std::string room;                                // for coded data

  std::string tableName;  // of the last W
  std::int64_t tableNumber = kNoTable;
  bool quiet = false;  // labels and annotations are passed over
  bool inSubroutine = false;
  bool stopped = false;
  bool toldStopped = false;
  bool toldTestPoint = false;
  std::uint64_t cycles = 0;
  std::uint64_t idle = 0;  // statements since the last row
  std::set<std::pair<std::uint32_t, std::uint64_t>> told;
  std::set<std::pair<const StilCallable*, std::uint32_t>> toldUntaken;
};
