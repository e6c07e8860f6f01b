#pragma once

// Texts of small databases in the form that `pvb build` reads: signals, timeplates
// and rows in a few lines.

#include <string>
#include <string_view>
#include <vector>

// A track: the names of its signals, its events ("0pS D 4nS S") and, where the signals
// are bidirectional, its direction.
struct TrackText {
  std::string signals;
  std::string events;
  std::string direction;  // empty: that of the signals
};

class DatabaseText {
 public:
  explicit DatabaseText(int version = 501) : version_(version) {}

  // The word behind the letter D of the timeplates: P mode and database flags.
  DatabaseText& mode(int word);
  // Columns follow each other; a bidirectional signal takes two, input first.
  DatabaseText& signal(const std::string& name, const std::string& direction,
                       const std::string& type = "scalar");
  DatabaseText& plate(const std::string& name, const std::string& period,
                      const std::vector<TrackText>& tracks);
  // Lines in the form of a dump.
  DatabaseText& rows(std::string_view lines);
  DatabaseText& subroutine(const std::string& name, std::string_view lines);
  // Signal records of other kinds: chains and cells.
  DatabaseText& signalRecords(std::string_view lines);
  // Records that stand in front of the rows (vectors, pins), and behind them (labels).
  DatabaseText& beforeRows(std::string_view lines);
  DatabaseText& more(std::string_view lines);

  std::string text() const;

 private:
  std::string directionOf(const TrackText& track) const;
  std::string idsOf(const std::string& names) const;

  struct Signal {
    std::string name;
    std::string direction;
    std::string line;
  };
  int version_;
  int mode_ = 1;
  int nextColumn_ = 0;
  int plateCount_ = 0;
  std::vector<Signal> signals_;
  std::string signalRecords_;
  std::string plates_;
  std::string beforeRows_;
  std::string rows_;
  std::string subroutines_;
  std::string subroutineRows_;
  int subroutineCount_ = 0;
  std::string more_;
};

// Lines of literal rows, one for each text of states.
std::string steps(const std::string& plate, const std::vector<std::string>& states);
// A clocked input "a" and an output "y" on a timeplate "tp" of 10 nanoseconds, without
// rows.
DatabaseText smallChip(int version = 501);
