#include "support/pattern_model.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

namespace {

std::int64_t picoseconds(const std::string& text) {
  std::size_t end = 0;
  const double number = std::stod(text, &end);
  const std::string unit = text.substr(end);
  const double scale = unit == "pS"   ? 1
                       : unit == "nS" ? 1e3
                       : unit == "uS" ? 1e6
                       : unit == "mS" ? 1e9
                                      : throw std::runtime_error("no time: " + text);
  return std::llround(number * scale);
}

std::string unquoted(const std::string& text) { return text.substr(1, text.size() - 2); }

struct Signal {
  std::string name;
  int in = -1;
  int out = -1;
};
struct Event {
  std::int64_t time;
  char state;
};
struct Slot {
  std::string direction;
  std::vector<int> signals;
  std::vector<Event> events;
};
struct Plate {
  std::int64_t period = 0;
  std::vector<Slot> slots;
};
struct Row {
  std::string kind;
  std::string target;  // of a call
  std::string plate;
  std::string states;
  std::int64_t count = 1;
  std::vector<Row> body;
};

// Reads the lines of a dump one after the other.
class Reader {
 public:
  explicit Reader(const std::string& dump) : in_(dump) { next(); }

  void readAll() {
    while (!done_) {
      if (word_ == "signal")
        readSignal();
      else if (word_ == "timeplate")
        readPlate();
      else if (word_ == "subroutine")
        readSubroutine();
      else if (word_ == "rows")
        readPattern();
      else
        next();
    }
  }

  std::map<int, Signal> signals;
  std::map<std::string, Plate> plates;
  std::map<std::string, std::string> slotOfSubroutine;
  std::map<std::string, std::vector<Row>> patterns;

 private:
  void next() {
    std::string line;
    done_ = !std::getline(in_, line);
    nested_ = line.starts_with(' ');
    fields_.clear();
    std::istringstream words(line);
    for (std::string word; words >> word;) fields_.push_back(word);
    word_ = fields_.empty() ? "" : fields_[0];
  }
  std::string valueOf(const std::string& key) const {
    for (const std::string& field : fields_) {
      if (field.starts_with(key + "=")) return field.substr(key.size() + 1);
    }
    return "";
  }

  void readSignal() {
    if (valueOf("type") == "scalar") {
      Signal signal{unquoted(fields_.at(2))};
      if (const std::string in = valueOf("in"); !in.empty()) signal.in = std::stoi(in);
      if (const std::string out = valueOf("out"); !out.empty()) signal.out = std::stoi(out);
      signals[std::stoi(fields_[1])] = signal;
    }
    next();
  }

  void readPlate() {
    Plate& plate = plates[fields_.at(2)];
    plate.period = picoseconds(valueOf("period"));
    std::size_t track = 0;
    bool anyTrack = false;
    for (next(); !done_ && nested_; next()) {
      if (word_ == "slot") plate.slots.push_back({fields_.at(1), {}, {}});
      if (word_ == "of") {
        for (std::size_t i = 1; i < fields_.size(); ++i) {
          plate.slots.back().signals.push_back(std::stoi(fields_[i]));
        }
      }
      if (word_ == "track") track += anyTrack ? 1 : 0, anyTrack = true;
      if (word_ == "event" && track < plate.slots.size()) {
        plate.slots[track].events.push_back({picoseconds(fields_.at(1)), fields_.at(2)[0]});
      }
    }
  }

  void readSubroutine() {
    slotOfSubroutine[fields_.at(2)] = fields_.at(1);
    next();
  }

  void readPattern() {
    std::vector<Row>& rows = patterns[fields_.at(1)];
    next();
    rows = readRows();
  }

  std::vector<Row> readRows() {
    std::vector<Row> rows;
    while (!done_ && nested_ && word_ != "end") {
      if (word_ == "row" || word_ == "scan" || word_ == "loop" || word_ == "call") {
        rows.push_back(readRow());
      } else {
        next();
      }
    }
    return rows;
  }

  Row readRow() {
    Row row{word_, "", "", "", 1, {}};
    for (std::size_t i = 1; i < fields_.size(); ++i) {
      const std::string& field = fields_[i];
      if (field[0] == '"') (row.kind == "call" ? row.target : row.plate) = field;
      if (field[0] == 'x') row.count = std::stoll(field.substr(1));
      if (field[0] == '|') row.states = field.substr(1);
    }
    next();
    if (row.kind == "loop") {
      row.body = readRows();
      next();
    }
    return row;
  }

  std::istringstream in_;
  std::vector<std::string> fields_;
  std::string word_;
  bool nested_ = false;
  bool done_ = false;
};

class Player {
 public:
  Player(const Reader& reader, PatternModel& model) : reader_(reader), model_(model) {}

  void play(const std::vector<Row>& rows, bool top) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (top) topRow_ = i;
      for (std::int64_t n = 0; n < rows[i].count; ++n) playOnce(rows[i], top);
    }
  }

 private:
  void playOnce(const Row& row, bool top) {
    if (row.kind == "loop") return play(row.body, false);
    if (row.kind == "call") {
      return play(reader_.patterns.at(reader_.slotOfSubroutine.at(row.target)), false);
    }
    const Plate& plate = reader_.plates.at(row.plate);
    for (const Slot& slot : plate.slots) {
      for (const int id : slot.signals) playSignal(row, slot, reader_.signals.at(id));
    }
    const bool literal = top && row.kind == "row";
    model_.cycles.push_back(
        {model_.duration, plate.period, topRow_, literal, literal && row.count < 2});
    model_.duration += plate.period;
  }

  void playSignal(const Row& row, const Slot& slot, const Signal& signal) {
    const auto datum = [&](int column) {
      const auto at = static_cast<std::size_t>(column);
      return column < 0 || at >= row.states.size() ? '-' : row.states[at];
    };
    std::vector<ModelChange>& changes = model_.wave[signal.name + "/" + slot.direction];
    for (const Event& event : slot.events) {
      std::string state(1, event.state);
      if (state == "S" || state == "C") state += datum(signal.in);
      if (state == "Q" || state == "R") state += datum(signal.out);
      if (changes.empty() || changes.back().state != state) {
        changes.push_back({model_.duration + event.time, state});
      }
    }
  }

  const Reader& reader_;
  PatternModel& model_;
  std::size_t topRow_ = 0;
};

// Lists the events of one signal cycle by cycle.
class EventPlayer {
 public:
  EventPlayer(const Reader& reader, const std::string& signal) : reader_(reader) {
    for (const auto& [id, record] : reader.signals) {
      if (record.name == signal) id_ = id, signal_ = record;
    }
  }

  void play(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      for (std::int64_t n = 0; n < row.count; ++n) {
        if (row.kind == "loop") {
          play(row.body);
        } else if (row.kind == "call") {
          play(reader_.patterns.at(reader_.slotOfSubroutine.at(row.target)));
        } else {
          cycles.push_back(eventsOf(row));
        }
      }
    }
  }

  std::vector<std::string> cycles;

 private:
  static char datum(const Row& row, int column) {
    const auto at = static_cast<std::size_t>(column);
    return column < 0 || at >= row.states.size() ? '-' : row.states[at];
  }
  static char meant(char state, char in, char out) {
    const std::string data = "01ZX";
    const std::map<char, std::string> states = {
        {'S', "DUZN"}, {'C', "UDZN"}, {'Q', "LHTX"}, {'R', "HLTX"}};
    const auto found = states.find(state);
    if (found == states.end()) return state;
    const std::size_t at = data.find(state == 'S' || state == 'C' ? in : out);
    return at == std::string::npos ? '?' : found->second[at];
  }
  std::string eventsOf(const Row& row) const {
    const char in = datum(row, signal_.in);
    const char out = datum(row, signal_.out);
    std::multimap<std::int64_t, char> events;
    for (const Slot& slot : reader_.plates.at(row.plate).slots) {
      if (std::ranges::find(slot.signals, id_) == slot.signals.end()) continue;
      if (slot.direction == "input" && in == '-' && out != '-') continue;
      if (slot.direction == "output" && out == '-' && in != '-') continue;
      for (const Event& event : slot.events) {
        events.emplace(event.time, meant(event.state, in, out));
      }
    }
    std::string text;
    for (const auto& [time, state] : events) {
      text += (text.empty() ? "" : ", ") + std::to_string(time / 1000) + " " + state;
    }
    return text.empty() ? "-" : text;
  }

  const Reader& reader_;
  int id_ = -1;
  Signal signal_;
};

}  // namespace

std::vector<std::string> cycleEvents(const std::string& dump, const std::string& signal) {
  Reader reader(dump);
  reader.readAll();
  EventPlayer player(reader, signal);
  player.play(reader.patterns["main"]);
  return player.cycles;
}

PatternModel modelOf(const std::string& dump) {
  Reader reader(dump);
  reader.readAll();
  PatternModel model;
  Player(reader, model).play(reader.patterns["main"], true);
  return model;
}

ModelWave sliceOf(const ModelWave& wave, std::int64_t start, std::int64_t stop) {
  ModelWave slice;
  for (const auto& [name, changes] : wave) {
    std::vector<ModelChange>& kept = slice[name];
    for (const ModelChange& change : changes) {
      if (change.time >= stop) break;
      if (change.time <= start) kept.clear();
      kept.push_back({std::max(change.time, start) - start, change.state});
    }
  }
  return slice;
}

ModelWave joined(const ModelWave& first, std::int64_t at, const ModelWave& second) {
  ModelWave both = first;
  for (const auto& [name, changes] : second) {
    std::vector<ModelChange>& kept = both[name];
    for (const ModelChange& change : changes) {
      if (kept.empty() || kept.back().state != change.state) {
        kept.push_back({change.time + at, change.state});
      }
    }
  }
  return both;
}

std::string shown(const ModelWave& wave) {
  std::string text;
  for (const auto& [name, changes] : wave) {
    text += name + ":";
    for (const ModelChange& change : changes) {
      text += " " + std::to_string(change.time) + "=" + change.state;
    }
    text += "\n";
  }
  return text;
}
