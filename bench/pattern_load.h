#pragma once

// What the benchmarks of the pattern store and of the operations share: the states
// of a pattern, databases and SQLite tables that hold them, and the measuring of a
// process.

#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "base/errors.h"
#include "pvb/database.h"
#include "pvb/pattern.h"
#include "pvb/property.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"

inline constexpr std::uint32_t kCommentEvery = 100;
inline constexpr std::int32_t kCommentKey = 1;
inline constexpr int kBuffers = 16;
inline constexpr std::int64_t kPeriodFs = 10000000;  // 10 ns

inline void check(bool ok, const char* what) {
  if (ok) return;
  PBflushErrors();
  std::fprintf(stderr, "%s failed\n", what);
  std::_Exit(1);
}

// --- The states of a pattern, row after row ------------------------------------------

// Eight clocks that toggle, buses of 16 signals that take a new value every 16 rows
// or so, and the rest, of which one signal changes every few rows.
class StateSource {
 public:
  explicit StateSource(int signals) : states_(static_cast<std::size_t>(signals) / 2, 0x11) {}

  const std::vector<std::uint8_t>& next() {
    for (std::size_t i = 0; i < 4; ++i) states_[i] ^= 0x33;
    const std::uint64_t luck = random_();
    const std::size_t buses = states_.size() / 2 / 8;
    for (std::size_t bus = 0; bus < buses; ++bus) {
      if (((luck >> (bus % 16 * 4)) & 15) == 0) newValue(4 + bus * 8);
    }
    if ((luck >> 60) < 6) states_[states_.size() / 2 + luck % (states_.size() / 2)] ^= 0x30;
    return states_;
  }

 private:
  void newValue(std::size_t first) {
    std::uint64_t value = random_();
    for (std::size_t i = first; i < first + 8 && i < states_.size(); ++i, value >>= 8) {
      states_[i] = static_cast<std::uint8_t>(0x11 + (value & 1) + (value & 16));
    }
  }

  std::mt19937_64 random_{1};
  std::vector<std::uint8_t> states_;
};

inline bool hasComment(std::uint32_t row) { return row % kCommentEvery == 0; }
inline std::string commentOf(std::uint32_t row) { return "vector " + std::to_string(row); }

struct Load {
  std::uint32_t rows;
  int signals;
};

// --- Our store -----------------------------------------------------------------------

inline int openPvb(const std::string& path, const Load& load, bool writable) {
  const int database = PVBopen(path, writable, load.signals, kBuffers, kAllSections);
  check(database >= 0, "PVBopen");
  return database;
}

// A plate that drives every signal of the database at the beginning of the cycle.
inline void addPlate(int database) {
  auto plate = PVBtimePlateNew();
  plate->name = "tp";
  plate->period = PBlongToTIME(static_cast<std::int32_t>(kPeriodFs));
  int slot = 0;
  for (const PVBid signal : PVBsignalInqByID(database, kGroupAll)->members) {
    check(PVBallocAsNecessary(*plate, slot) == 0, "PVBallocAsNecessary");
    PVBlistInsert(*plate, slot, signal);
    PVBtrackSetDirection(*plate, slot, INPUT);
    PVBallocLevelAsNecessary(*plate, 0, slot, -1, TIME_ZERO, 'D', 1);
    PVBtrackSetSignals(*plate, slot, {signal});
    ++slot;
  }
  check(PVBtimePlateInsert(database, std::move(plate)) == 0, "PVBtimePlateInsert");
}

// A new database of signals named `prefix` and their number.
inline void appendPvb(const std::string& path, const Load& load, const std::string& prefix = "s") {
  const int database = openPvb(path, load, true);
  for (int i = 0; i < load.signals; ++i) {
    auto signal = PVBsignalNew();
    signal->name = prefix + std::to_string(i);
    signal->direction = INPUT;
    check(PVBsignalAdd(database, std::move(signal)) > 0, "PVBsignalAdd");
  }
  addPlate(database);
  StateSource source(load.signals);
  PVBproperty comment = {kCommentKey, std::string()};
  for (std::uint32_t i = 0; i < load.rows; ++i) {
    const std::vector<std::uint8_t>& states = source.next();
    RowHandle row(database, PVBpatternNew(database));
    check(static_cast<bool>(row), "PVBpatternNew");
    row->timeplate = 0;
    std::copy(states.begin(), states.end(), row->states());
    if (hasComment(i)) {
      row->tag = PVBpropListNew(database);
      comment.value = commentOf(i);
      check(PVBputProp(database, row->tag, comment) == 0, "PVBputProp");
    }
    PVBposition end;
    end.row = i;
    check(PVBrowInsert(database, kMainPattern, end, BY_ROW, *row) >= 0, "PVBrowInsert");
  }
  check(PVBclose(database) == 0, "PVBclose");
}

// --- SQLite --------------------------------------------------------------------------

class Sqlite {
 public:
  explicit Sqlite(const std::string& path) {
    check(sqlite3_open((path + "/rows.db").c_str(), &db_) == SQLITE_OK, "sqlite3_open");
    run("PRAGMA synchronous=OFF");
    run("CREATE TABLE IF NOT EXISTS rows(position INTEGER PRIMARY KEY, timeplate INT, count INT, "
        "comment TEXT, states BLOB)");
  }
  ~Sqlite() {
    for (sqlite3_stmt* statement : statements_) sqlite3_finalize(statement);
    sqlite3_close(db_);
  }
  Sqlite(const Sqlite&) = delete;
  Sqlite& operator=(const Sqlite&) = delete;

  void run(const char* sql) {
    check(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql);
  }
  // Good as long as the database is.
  sqlite3_stmt* prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) == SQLITE_OK, sql);
    statements_.push_back(statement);
    return statement;
  }

 private:
  sqlite3* db_ = nullptr;
  std::vector<sqlite3_stmt*> statements_;
};

inline void appendSqlite(const std::string& path, const Load& load) {
  Sqlite database(path);
  sqlite3_stmt* insert = database.prepare("INSERT INTO rows VALUES(?,0,1,?,?)");
  database.run("BEGIN");
  StateSource source(load.signals);
  for (std::uint32_t i = 0; i < load.rows; ++i) {
    const std::vector<std::uint8_t>& states = source.next();
    sqlite3_bind_int64(insert, 1, i);
    const std::string comment = hasComment(i) ? commentOf(i) : std::string();
    if (comment.empty()) {
      sqlite3_bind_null(insert, 2);
    } else {
      sqlite3_bind_text(insert, 2, comment.c_str(), -1, SQLITE_TRANSIENT);
    }
    sqlite3_bind_blob(insert, 3, states.data(), static_cast<int>(states.size()), SQLITE_STATIC);
    check(sqlite3_step(insert) == SQLITE_DONE, "INSERT");
    sqlite3_reset(insert);
  }
  database.run("COMMIT");
}

// --- Measuring -----------------------------------------------------------------------

struct Measured {
  double cpuSeconds = 0;
  double megabytes = 0;  // peak of the process
};

// Runs `work` in a process of its own, which stores new files packed or plain.
inline Measured measure(bool packed, const std::function<void()>& work) {
  std::fflush(stdout);
  const pid_t child = fork();
  check(child >= 0, "fork");
  if (child == 0) {
    if (!packed) setenv("MVK_COMPRESSION_OFF", "1", 1);
    work();
    std::_Exit(0);
  }
  int status = 0;
  rusage usage;
  check(wait4(child, &status, 0, &usage) == child && status == 0, "a measurement");
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return {seconds(usage.ru_utime) + seconds(usage.ru_stime),
          static_cast<double>(usage.ru_maxrss) / 1024};
}

inline double diskMegabytes(const std::string& path) {
  double bytes = 0;
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    bytes += static_cast<double>(entry.file_size());
  }
  return bytes / 1e6;
}
