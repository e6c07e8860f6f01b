// The pattern store at full size, beside SQLite and LMDB holding the same states
// and beside copying its files: appends, walks in order, look-ups by each kind of
// key, inserts in the middle. Every measurement is a process of its own, so CPU
// time (user and system) and peak memory are its alone.
//
//   pattern_bench [ROWS [SIGNALS]]     default: 100000 and 1000000 rows, 64 and 512 signals

#include <lmdb.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "base/temp_directory.h"
#include "pattern_load.h"

namespace {

constexpr int kLookups = 100000;
constexpr int kInserts = 10000;
constexpr std::size_t kLmdbSize = std::size_t{1} << 36;

// --- Our store -----------------------------------------------------------------------

void walkPvb(const std::string& path, const Load& load) {
  const int database = openPvb(path, load, true);
  std::uint64_t sum = 0;
  std::uint32_t rows = 0;
  for (PatternWalk walk(database, kMainPattern); walk.next(); ++rows) {
    const RowHandle row(database, PVBrowGet(database, walk.entry().child));
    check(static_cast<bool>(row), "PVBrowGet");
    sum += row->states()[0];
  }
  check(rows == load.rows && sum > 0, "the walk");
  PVBcloseUnsaved(database);
}

PVBposition keyOf(std::uint32_t row, int kind) {
  PVBposition key;
  key.row = key.cycle = key.address = key.rowID = row;
  if (kind == BY_TIME) {
    const std::int64_t time = row * kPeriodFs;
    key.time = {static_cast<std::int32_t>(time / 1000000000),
                static_cast<std::int32_t>(time % 1000000000)};
  }
  return key;
}

void lookUpPvb(const std::string& path, const Load& load, int kind) {
  const int database = openPvb(path, load, true);
  std::mt19937 random(2);
  for (int i = 0; i < kLookups; ++i) {
    PVBposition key = keyOf(static_cast<std::uint32_t>(random() % load.rows), kind);
    const RowHandle row(database, PVBpatternInqRow(database, kMainPattern, key, kind));
    check(static_cast<bool>(row), "PVBpatternInqRow");
  }
  PVBcloseUnsaved(database);
}

void insertPvb(const std::string& path, const Load& load) {
  const int database = openPvb(path, load, true);
  std::mt19937 random(3);
  for (int i = 0; i < kInserts; ++i) {
    RowHandle row(database, PVBpatternNew(database));
    check(static_cast<bool>(row), "PVBpatternNew");
    row->timeplate = 0;
    PVBposition key = keyOf(static_cast<std::uint32_t>(random() % load.rows), BY_ROW);
    check(PVBrowInsert(database, kMainPattern, key, BY_ROW, *row) >= 0, "PVBrowInsert");
  }
  check(PVBclose(database) == 0, "PVBclose");
}

// --- SQLite --------------------------------------------------------------------------

void walkSqlite(const std::string& path, const Load& load) {
  Sqlite database(path);
  sqlite3_stmt* select = database.prepare("SELECT states FROM rows ORDER BY position");
  std::uint32_t rows = 0;
  std::uint64_t sum = 0;
  for (; sqlite3_step(select) == SQLITE_ROW; ++rows) {
    sum += *static_cast<const std::uint8_t*>(sqlite3_column_blob(select, 0));
  }
  check(rows == load.rows && sum > 0, "SELECT");
}

void lookUpSqlite(const std::string& path, const Load& load) {
  Sqlite database(path);
  sqlite3_stmt* select = database.prepare("SELECT states FROM rows WHERE position=?");
  std::mt19937 random(2);
  for (int i = 0; i < kLookups; ++i) {
    sqlite3_bind_int64(select, 1, static_cast<std::uint32_t>(random() % load.rows));
    check(sqlite3_step(select) == SQLITE_ROW, "SELECT");
    check(sqlite3_column_blob(select, 0) != nullptr, "SELECT");
    sqlite3_reset(select);
  }
}

// --- LMDB ----------------------------------------------------------------------------

class Lmdb {
 public:
  Lmdb(const std::string& path, unsigned flags) {
    mdb_env_create(&environment_);
    mdb_env_set_mapsize(environment_, kLmdbSize);
    check(mdb_env_open(environment_, (path + "/rows.mdb").c_str(),
                       MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOMETASYNC, 0644) == 0,
          "mdb_env_open");
    check(mdb_txn_begin(environment_, nullptr, flags, &transaction_) == 0, "mdb_txn_begin");
    const unsigned create = flags == 0 ? static_cast<unsigned>(MDB_CREATE) : 0U;
    check(mdb_dbi_open(transaction_, nullptr, create | MDB_INTEGERKEY, &rows_) == 0,
          "mdb_dbi_open");
  }
  ~Lmdb() {
    mdb_txn_commit(transaction_);
    mdb_env_close(environment_);
  }
  void append(std::uint64_t key, const std::vector<std::uint8_t>& value) {
    MDB_val k = {sizeof key, &key};
    MDB_val v = {value.size(), const_cast<std::uint8_t*>(value.data())};
    check(mdb_put(transaction_, rows_, &k, &v, MDB_APPEND) == 0, "mdb_put");
  }
  std::uint8_t get(std::uint64_t key) {
    MDB_val k = {sizeof key, &key};
    MDB_val v;
    check(mdb_get(transaction_, rows_, &k, &v) == 0, "mdb_get");
    return *static_cast<const std::uint8_t*>(v.mv_data);
  }
  MDB_cursor* cursor() {
    MDB_cursor* result = nullptr;
    check(mdb_cursor_open(transaction_, rows_, &result) == 0, "mdb_cursor_open");
    return result;
  }

 private:
  MDB_env* environment_ = nullptr;
  MDB_txn* transaction_ = nullptr;
  MDB_dbi rows_ = 0;
};

void appendLmdb(const std::string& path, const Load& load) {
  Lmdb database(path, 0);
  StateSource source(load.signals);
  std::vector<std::uint8_t> value;
  for (std::uint32_t i = 0; i < load.rows; ++i) {
    value = source.next();
    value.insert(value.end(), {0, 0, 1, 0});  // timeplate and count
    if (hasComment(i)) {
      const std::string comment = commentOf(i);
      value.insert(value.end(), comment.begin(), comment.end());
    }
    database.append(i, value);
  }
}

void walkLmdb(const std::string& path, const Load& load) {
  Lmdb database(path, MDB_RDONLY);
  MDB_cursor* cursor = database.cursor();
  MDB_val key;
  MDB_val value;
  std::uint32_t rows = 0;
  std::uint64_t sum = 0;
  for (; mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == 0; ++rows) {
    sum += *static_cast<const std::uint8_t*>(value.mv_data);
  }
  mdb_cursor_close(cursor);
  check(rows == load.rows && sum > 0, "the cursor");
}

void lookUpLmdb(const std::string& path, const Load& load) {
  Lmdb database(path, MDB_RDONLY);
  std::mt19937 random(2);
  std::uint64_t sum = 0;
  for (int i = 0; i < kLookups; ++i) sum += database.get(random() % load.rows);
  check(sum > 0, "mdb_get");
}

// --- Measuring -----------------------------------------------------------------------

void print(const char* what, const Measured& measured) {
  std::printf("  %-28s %9.3f s  %8.1f MB\n", what, measured.cpuSeconds, measured.megabytes);
}

void measurePvb(const std::string& path, const Load& load, bool packed) {
  std::filesystem::create_directories(path);
  const std::string storage = packed ? "packed: " : "plain: ";
  const auto step = [&](const std::string& what, const std::function<void()>& work) {
    print((storage + what).c_str(), measure(packed, work));
  };
  step("append", [&] { appendPvb(path, load); });
  std::printf("  %-28s %9.1f MB on disk\n", storage.c_str(), diskMegabytes(path));
  step("walk", [&] { walkPvb(path, load); });
  constexpr std::array<const char*, 5> kKinds = {"row", "cycle", "time", "id", "address"};
  for (int kind = BY_ROW; kind <= BY_ADDRESS; ++kind) {
    step(std::string("look up by ") + kKinds[static_cast<std::size_t>(kind)],
         [&] { lookUpPvb(path, load, kind); });
  }
  step("cp -r", [&] { execlp("cp", "cp", "-r", path.c_str(), (path + ".copy").c_str(), nullptr); });
  step("10,000 middle inserts", [&] { insertPvb(path, load); });
}

void measurePeers(const std::string& path, const Load& load) {
  std::filesystem::create_directories(path + "/sqlite");
  std::filesystem::create_directories(path + "/lmdb");
  print("states alone", measure(true, [&] {
          StateSource source(load.signals);
          for (std::uint32_t i = 0; i < load.rows; ++i) source.next();
        }));
  print("SQLite: append", measure(true, [&] { appendSqlite(path + "/sqlite", load); }));
  std::printf("  %-28s %9.1f MB on disk\n", "SQLite:", diskMegabytes(path + "/sqlite"));
  print("SQLite: walk", measure(true, [&] { walkSqlite(path + "/sqlite", load); }));
  print("SQLite: look up by row", measure(true, [&] { lookUpSqlite(path + "/sqlite", load); }));
  print("LMDB: append", measure(true, [&] { appendLmdb(path + "/lmdb", load); }));
  std::printf("  %-28s %9.1f MB on disk\n", "LMDB:", diskMegabytes(path + "/lmdb"));
  print("LMDB: walk", measure(true, [&] { walkLmdb(path + "/lmdb", load); }));
  print("LMDB: look up by row", measure(true, [&] { lookUpLmdb(path + "/lmdb", load); }));
}

void measureAll(const Load& load) {
  const std::string path = PBtempDirectory() + "/pattern_bench." + std::to_string(getpid());
  std::printf("%u rows, %d signals (CPU seconds, peak memory)\n", load.rows, load.signals);
  measurePeers(path, load);
  measurePvb(path + "/packed", load, true);
  measurePvb(path + "/plain", load, false);
  std::filesystem::remove_all(path);
}

}  // namespace

int main(int argc, char** argv) {
  PBsetTempDirectory("/tmp");
  if (argc > 1 && argv[1][0] != '-') {
    const auto rows = static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10));
    for (const int signals : {64, 512}) {
      if (argc == 2 || std::atoi(argv[2]) == signals) measureAll({rows, signals});
    }
    return 0;
  }
  for (const std::uint32_t rows : {100000U, 1000000U}) {
    for (const int signals : {64, 512}) measureAll({rows, signals});
  }
  return 0;
}
