// The operations at full size, as a user runs them ("program"): concat and merge of two
// patterns, copy of a stretch out of a long pattern, insert in front of a pattern. Beside
// each the same job in SQLite (row by row in the order of positions, one transaction,
// prepared statements, synchronous off), the calls of the pattern store that the job
// needs and nothing else ("store"), and copying the files of the result. Every
// measurement is a process of its own.
//
//   region_bench [ROWS [SIGNALS]]     default: 1000000 rows, 64 and 512 signals

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/temp_directory.h"
#include "pattern_load.h"
#include "pvb/state_map.h"

namespace {

constexpr std::uint32_t kLongFactor = 10;

// Rows of one source.
struct Stretch {
  std::string path;
  std::uint32_t first;
  std::uint32_t rows;
};

struct Job {
  std::string name;
  std::vector<std::string> arguments;  // of the program, besides the databases
  std::vector<Stretch> sources;
  std::string destination;
  int signals;      // of the destination
  bool together;    // the sources are joined row by row
  bool intoSecond;  // the first source goes in front of a copy of the second
};

// --- The calls of the store ----------------------------------------------------------

class Reader {
 public:
  Reader(const Stretch& stretch, int column) {
    database_ = PVBopenAny(stretch.path, false, 0, 8, kAllSections, false);
    check(database_ >= 0, "PVBopenAny");
    next_ = stretch.first;
    end_ = stretch.first + stretch.rows;
    const auto signals = static_cast<std::uint32_t>(PVBget(database_)->rowWidth);
    for (std::uint32_t i = 0; i < signals; ++i) {
      map_.add(i, static_cast<std::uint32_t>(column) + i);
    }
    map_.compile();
  }
  ~Reader() { PVBcloseUnsaved(database_); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  bool atEnd() const { return next_ == end_; }
  int database() const { return database_; }
  int width() const { return PVBget(database_)->rowWidth; }
  RowHandle next() {
    PVBposition position;
    position.row = next_++;
    RowHandle row(database_, PVBpatternInqRow(database_, kMainPattern, position, BY_ROW));
    check(static_cast<bool>(row), "PVBpatternInqRow");
    return row;
  }
  void copyTo(PVBrow& to, const PVBrow& from) const {
    map_.copy(to.states(), from.states());
    to.type = from.type;
    to.count = from.count;
    to.timeplate = PVBtimePlateInqByID(database_, from.timeplate) != nullptr ? 0 : kNoTimePlate;
  }

 private:
  int database_;
  std::uint32_t next_;
  std::uint32_t end_;
  StateMap map_;
};

void copyProperties(int database, PVBrow& to, const Reader& reader, const PVBrow& from) {
  if (from.tag == UNDEF) return;
  if (to.tag == UNDEF) to.tag = PVBpropListNew(database);
  const PVBproperty* property = PVBpropInqFirst(reader.database(), from.tag);
  for (; property != nullptr; property = PVBpropInqNext(reader.database())) {
    check(PVBputProp(database, to.tag, *property) == 0, "PVBputProp");
  }
}

void insertAt(int database, std::uint32_t place, PVBrow& row) {
  PVBposition position;
  position.row = place;
  check(PVBrowInsert(database, kMainPattern, position, BY_ROW, row) >= 0, "PVBrowInsert");
}

std::vector<std::unique_ptr<Reader>> openReaders(const Job& job) {
  std::vector<std::unique_ptr<Reader>> readers;
  int column = 0;
  for (const Stretch& stretch : job.sources) {
    readers.push_back(std::make_unique<Reader>(stretch, job.together ? column : 0));
    column += readers.back()->width();
  }
  return readers;
}

// One new row out of a row of each of the readers.
void storeRow(int database, std::uint32_t place, std::span<const std::unique_ptr<Reader>> readers) {
  const RowHandle row(database, PVBpatternNew(database));
  check(static_cast<bool>(row), "PVBpatternNew");
  for (const auto& reader : readers) {
    const RowHandle from = reader->next();
    reader->copyTo(*row, *from);
    copyProperties(database, *row, *reader, *from);
  }
  insertAt(database, place, *row);
}

void makeDestination(int database, int signals) {
  for (int i = 0; i < signals; ++i) {
    auto signal = PVBsignalNew();
    signal->name = "d" + std::to_string(i);
    signal->direction = INPUT;
    check(PVBsignalAdd(database, std::move(signal)) > 0, "PVBsignalAdd");
  }
  addPlate(database);
}

void runStore(const Job& job) {
  if (job.intoSecond) std::filesystem::copy(job.sources[1].path, job.destination);
  auto readers = openReaders(job);
  if (job.intoSecond) readers.pop_back();
  const int database = PVBopenAny(job.destination, true, job.signals, 8, kAllSections, false);
  check(database >= 0, "PVBopenAny");
  if (!job.intoSecond) makeDestination(database, job.signals);
  std::uint32_t place = 0;
  const std::span all(readers);
  if (job.together) {
    for (; !readers[0]->atEnd(); ++place) storeRow(database, place, all);
  } else {
    for (std::size_t i = 0; i < readers.size(); ++i) {
      for (; !readers[i]->atEnd(); ++place) storeRow(database, place, all.subspan(i, 1));
    }
  }
  check(PVBclose(database) == 0, "PVBclose");
}

// --- SQLite --------------------------------------------------------------------------

// One cursor over the stretch, in one transaction: no look-up of each row.
struct SqliteReader {
  explicit SqliteReader(const Stretch& stretch)
      : database(stretch.path),
        select(database.prepare("SELECT timeplate, count, comment, states FROM rows WHERE "
                                "position >= ? ORDER BY position")),
        next(stretch.first),
        end(stretch.first + stretch.rows) {
    sqlite3_bind_int64(select, 1, next);
  }

  void step() {
    check(sqlite3_step(select) == SQLITE_ROW, "SELECT");
    ++next;
  }

  Sqlite database;
  sqlite3_stmt* select;
  std::uint32_t next;
  std::uint32_t end;
};

void insertSqlite(sqlite3_stmt* insert, std::uint32_t place, sqlite3_stmt* row,
                  std::span<const std::uint8_t> states) {
  sqlite3_bind_int64(insert, 1, place);
  sqlite3_bind_int64(insert, 2, sqlite3_column_int64(row, 0));
  sqlite3_bind_int64(insert, 3, sqlite3_column_int64(row, 1));
  sqlite3_bind_value(insert, 4, sqlite3_column_value(row, 2));
  sqlite3_bind_blob(insert, 5, states.data(), static_cast<int>(states.size()), SQLITE_STATIC);
  check(sqlite3_step(insert) == SQLITE_DONE, "INSERT");
  sqlite3_reset(insert);
}

void appendStates(std::vector<std::uint8_t>& states, sqlite3_stmt* row) {
  const auto* blob = static_cast<const std::uint8_t*>(sqlite3_column_blob(row, 3));
  states.insert(states.end(), blob, blob + sqlite3_column_bytes(row, 3));
}

// Positions are keys, so what stands behind an insertion is written anew too.
void runSqlite(const Job& job) {
  std::filesystem::create_directories(job.destination);
  Sqlite destination(job.destination);
  sqlite3_stmt* insert = destination.prepare("INSERT INTO rows VALUES(?,?,?,?,?)");
  destination.run("BEGIN");
  std::vector<std::unique_ptr<SqliteReader>> readers;
  for (const Stretch& stretch : job.sources) {
    readers.push_back(std::make_unique<SqliteReader>(stretch));
  }
  std::vector<std::uint8_t> states;
  std::uint32_t place = 0;
  const std::size_t joined = job.together ? readers.size() : 1;
  for (std::size_t i = 0; i < readers.size(); i += joined) {
    for (; readers[i]->next < readers[i]->end; ++place) {
      states.clear();
      for (std::size_t k = i; k < i + joined; ++k) {
        readers[k]->step();
        appendStates(states, readers[k]->select);
      }
      insertSqlite(insert, place, readers[i]->select, states);
    }
  }
  destination.run("COMMIT");
}

// --- Measuring -----------------------------------------------------------------------

[[noreturn]] void execute(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  std::freopen("/dev/null", "w", stdout);
  std::freopen("/dev/null", "w", stderr);
  execvp(arguments[0], arguments.data());
  std::_Exit(1);
}

// The job over databases stored that way.
Job withEnding(Job job, const std::string& ending) {
  for (Stretch& stretch : job.sources) stretch.path += ending;
  job.destination += ending;
  return job;
}

[[noreturn]] void runProgram(const Job& job) {
  std::vector<std::string> words = {PVBCONDITIONER_BINARY, "UseOpFile=no"};
  words.insert(words.end(), job.arguments.begin(), job.arguments.end());
  for (std::size_t i = 0; i < job.sources.size(); ++i) {
    words.push_back("SourcePVB" + std::to_string(i + 1) + "=" + job.sources[i].path);
  }
  words.push_back("DestinationPVB=" + job.destination);
  setenv("MVKDIR", PBtempDirectory().c_str(), 1);
  setenv("MVK_TMPDIR", PBtempDirectory().c_str(), 1);
  execute(words);
}

void print(const Job& job, const char* what, const Measured& measured, double sqlite, double disk) {
  std::uint32_t rows = 0;
  for (const Stretch& stretch : job.sources) {
    rows = job.together ? stretch.rows : rows + stretch.rows;
  }
  std::printf(
      "  %-22s %-14s %8.3f s  %10.0f rows/s  %5.2f x SQLite  %7.1f MB peak  %7.1f MB on disk\n",
      job.name.c_str(), what, measured.cpuSeconds, rows / measured.cpuSeconds,
      sqlite / measured.cpuSeconds, measured.megabytes, disk);
}

void measureOurs(const Job& plainJob, bool packed, double sqlite) {
  const std::string storage = packed ? "packed" : "plain";
  const Job job = withEnding(plainJob, "." + storage);
  const auto step = [&](const std::string& what, const std::function<void()>& work) {
    std::filesystem::remove_all(job.destination);
    const Measured measured = measure(packed, work);
    print(job, (what + ", " + storage).c_str(), measured, sqlite, diskMegabytes(job.destination));
  };
  step("store", [&] { runStore(job); });
  step("program", [&] { runProgram(job); });
  const std::string copy = job.destination + ".copy";
  const Measured copied = measure(true, [&] { execute({"cp", "-r", job.destination, copy}); });
  print(job, "cp -r", copied, sqlite, diskMegabytes(copy));
  std::filesystem::remove_all(job.destination);
  std::filesystem::remove_all(copy);
}

double measureSqlite(const Job& job) {
  const Job theirs = withEnding(job, ".sqlite");
  const Measured measured = measure(true, [&] { runSqlite(theirs); });
  print(job, "SQLite", measured, measured.cpuSeconds, diskMegabytes(theirs.destination));
  std::filesystem::remove_all(theirs.destination);
  return measured.cpuSeconds;
}

// --- The jobs ------------------------------------------------------------------------

struct Source {
  const char* name;
  Load load;
  const char* prefix;
};

void makeSource(const Source& source, const std::string& directory) {
  const std::string path = directory + "/" + source.name;
  for (const bool packed : {true, false}) {
    const std::string ours = path + (packed ? ".packed" : ".plain");
    std::filesystem::create_directories(ours);
    measure(packed, [&] { appendPvb(ours, source.load, source.prefix); });
  }
  std::filesystem::create_directories(path + ".sqlite");
  measure(true, [&] { appendSqlite(path + ".sqlite", source.load); });
}

std::string timeOf(std::uint32_t row) { return std::to_string(row * (kPeriodFs / 1000000)) + "nS"; }

// A stretch of `rows` rows from the middle of a pattern ten times as long, and insertions
// of a thousandth and a tenth of the rows.
std::vector<Job> jobsOf(const std::string& directory, const Load& load) {
  const std::string a = directory + "/a";
  const std::string dest = directory + "/dest";
  const std::uint32_t n = load.rows;
  const std::uint32_t middle = kLongFactor / 2 * n - n / 2;
  const int signals = load.signals;
  return {
      {"concat", {"Operation=concat"}, {{a, 0, n}, {a + "2", 0, n}}, dest, signals, false, false},
      {"merge",
       {"Operation=merge"},
       {{a, 0, n}, {directory + "/b", 0, n}},
       dest,
       2 * signals,
       true,
       false},
      {"copy of the middle",
       {"Operation=copy", "Start1=" + timeOf(middle), "Stop1=" + timeOf(middle + n)},
       {{directory + "/long", middle, n}},
       dest,
       signals,
       false,
       false},
      {"insert of a 1000th",
       {"Operation=insert"},
       {{directory + "/few", 0, n / 1000}, {a, 0, n}},
       dest,
       signals,
       false,
       true},
      {"insert of a 10th",
       {"Operation=insert"},
       {{directory + "/many", 0, n / 10}, {a, 0, n}},
       dest,
       signals,
       false,
       true},
  };
}

void measureAll(const Load& load) {
  const std::string path = PBtempDirectory() + "/region_bench." + std::to_string(getpid());
  const auto part = [&](std::uint32_t rows) { return Load{rows, load.signals}; };
  for (const Source& source :
       {Source{"a", load, "s"}, Source{"a2", load, "s"}, Source{"b", load, "t"},
        Source{"few", part(load.rows / 1000), "s"}, Source{"many", part(load.rows / 10), "s"},
        Source{"long", part(load.rows * kLongFactor), "s"}}) {
    makeSource(source, path);
  }
  std::printf("%u rows, %d signals (CPU seconds, peak memory)\n", load.rows, load.signals);
  for (const Job& job : jobsOf(path, load)) {
    const double sqlite = measureSqlite(job);
    measureOurs(job, true, sqlite);
    measureOurs(job, false, sqlite);
  }
  std::filesystem::remove_all(path);
}

}  // namespace

int main(int argc, char** argv) {
  PBsetTempDirectory("/tmp");
  const bool given = argc > 1 && argv[1][0] != '-';
  const auto rows =
      given ? static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10)) : 1000000U;
  for (const int signals : {64, 512}) {
    if (!given || argc == 2 || std::atoi(argv[2]) == signals) measureAll({rows, signals});
  }
  return 0;
}
