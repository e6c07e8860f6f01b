#pragma once

// Reads the statements of patterns, procedures and macros, one at a time, with the data
// of their assignments. Room of a statement that is read into again is used again: what
// one statement has less than the one before is kept in a store for the next.
//
// Bodies of loops and routines are kept whole, and repeats make much data of few bytes:
// what one statement may take up, its body included, is bounded by kMostStilRoom.

#include <cstdint>
#include <string>
#include <vector>

#include "tools/stil_cursor.h"
#include "tools/stil_model.h"

// Bytes of one statement with all that it holds, and of all routines together.
inline constexpr std::uint64_t kMostStilRoom = std::uint64_t{1} << 28;

// Decodes the data of assignments.
class StilDataReader {
 public:
  explicit StilDataReader(StilCursor& cursor) : cursor_(cursor) {}

  // From the token behind `=` through the `;`.
  bool read(StilData& data);
  // Characters and digits of what was read last.
  std::size_t size() const { return size_; }

 private:
  bool piece(StilData& data, std::string_view text);
  bool escape(StilData& data, std::string_view& text);
  bool beginRepeat(std::string_view& text);
  bool run(StilData& data, std::string_view text);
  bool endCoded(StilData& data);
  bool add(std::string& to, std::string_view text, std::uint64_t times);

  StilCursor& cursor_;
  std::size_t size_ = 0;
  std::uint64_t repeat_ = 1;  // of the next run
  bool coded_ = false;        // runs are digits
  bool behindBase_ = false;   // the next run stands right behind \h or \d
};

struct StilStatementWord;

class StilStatementReader {
 public:
  explicit StilStatementReader(StilCursor& cursor) : cursor_(cursor), data_(cursor) {}

  // From its first token to the one behind it.
  bool read(StilStatement& statement);
  // A routine's statements, from the `{` on. What all of them take up is bounded together.
  bool readRoutine(StilRoutine& routine);

 private:
  bool readNested(StilStatement& statement, int depth);
  bool readWord(StilStatement& statement, const StilStatementWord*& word);
  bool readUnknown(StilStatement& statement, bool quoted);
  bool readRest(StilStatement& statement, const StilStatementWord& word, int depth);
  bool readAssignments(StilStatement& statement);
  bool readAssignment(StilAssignment& assignment);
  bool readRoutineCall(StilStatement& statement);
  bool readCounted(StilStatement& statement, int depth);
  bool readBody(std::vector<StilStatement>& body, int depth, std::string_view what);
  bool takeRoom(std::uint64_t bytes);
  void giveRoomBack(StilStatement& statement);

  StilCursor& cursor_;
  StilDataReader data_;
  std::vector<StilAssignment> spareAssignments_;
  std::vector<StilStatement> spareStatements_;
  std::uint64_t room_ = 0;  // of the statement being read
  std::uint64_t routinesRoom_ = 0;
  std::uint64_t grown_ = 0;  // room that statements took since it was given back
};
