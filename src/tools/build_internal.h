#pragma once

// The parts of the build: each takes the lines of one section. What a line may
// follow is known by the part that took the line above.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "equations/spec_data.h"
#include "pvb/pattern.h"
#include "tools/build.h"
#include "tools/dump_format.h"
#include "tools/output_file.h"

struct BuildContext {
  DumpScanner& in;
  int database = -1;
  std::string path;

  // Where the `prop` lines go that follow: the list of the record above, and the
  // row that holds it when it is one.
  PVBid* list = nullptr;
  PVBrow* listRow = nullptr;

  PVBdatabase& slot() const { return *PVBget(database); }
  void ownProperties(PVBid& id, PVBrow* row = nullptr) {
    list = &id;
    listRow = row;
  }
  void noProperties() { list = nullptr; }
  // A call of the database failed: with the line, and why.
  bool fail(MessageCode code, std::string text) const;
};

// Finds a field list by keyword and appends the ids of the line to it.
enum class ListLine { taken, failed, unknown };
template <typename T>
ListLine readListLine(DumpScanner& in, std::span<const ListField<T>> fields, T& record) {
  for (const ListField<T>& field : fields) {
    if (field.keyword != in.keyword()) continue;
    PVBidList& list = record.*field.list;
    return (field.ids ? in.idList(list) : in.intList(list)) ? ListLine::taken : ListLine::failed;
  }
  return ListLine::unknown;
}

class SignalBuild {
 public:
  explicit SignalBuild(BuildContext& build) : build_(build) {}
  bool section();
  bool groups();
  bool signal();
  bool stateEntry();
  ListLine list();
  // Enters all signals. Their order in the tables is that of the text.
  bool finish();

 private:
  BuildContext& build_;
  bool begun_ = false;
  SignalCounters counters_;
  PVBidList groups_;
  std::vector<std::unique_ptr<PVBsignal>> signals_;
};

class TimePlateBuild {
 public:
  explicit TimePlateBuild(BuildContext& build) : build_(build) {}
  bool section();
  bool cycle();
  bool plate();
  bool slot();
  bool slotSignals();
  bool level();
  bool track();
  bool event();
  bool state();
  bool trackList();
  bool finish();

 private:
  PVBtrack* currentTrack();
  bool readState(PVBtrack& track);

  BuildContext& build_;
  std::unique_ptr<PVBtimePlate> plate_;
};

class PinBuild {
 public:
  explicit PinBuild(BuildContext& build) : build_(build) {}
  bool section();
  bool pin();
  bool column();
  ListLine list();
  bool finish();

 private:
  BuildContext& build_;
  std::optional<PinCounters> counters_;
  std::vector<std::unique_ptr<PVBpin>> atePins_;
  std::vector<std::unique_ptr<PVBpin>> dutPins_;
  std::vector<std::unique_ptr<PVBcolumn>> columns_;
  PVBpin* pin_ = nullptr;  // the record of the last line, one of these
  PVBcolumn* column_ = nullptr;
};

class VectorBuild {
 public:
  explicit VectorBuild(BuildContext& build) : build_(build) {}
  bool vector();
  bool cells();
  bool finish();
  // The vector that a run names at this place of its line.
  bool reference(PVBid& vector) const;

 private:
  BuildContext& build_;
  PVBidList vectors_;  // in the text's order
  bool open_ = false;  // the last one takes cells
  VectorHead head_;
  std::string cells_;
};

class RowBuild {
 public:
  RowBuild(BuildContext& build, const VectorBuild& vectors) : build_(build), vectors_(vectors) {}
  bool subroutine();
  bool rows();
  // Whether the line is a row; `good` tells how it went.
  bool isRow(bool& good);
  bool run();
  // The row of the line above, for its properties; an end row is fetched for it.
  bool holdRow();
  bool finish();
  // Gives back what is held, before the database is closed without being saved.
  void abandon();

 private:
  bool finishPattern();
  bool plainRow(std::uint32_t type);
  bool loop();
  bool end();
  bool call();
  bool readRowFields(PVBrow& row);
  bool readField(PVBrow& row);
  bool readAttribute(PVBrow& row);
  bool timePlate(PVBrow& row);
  bool subroutineReference(std::uint32_t& index);
  bool isSubroutine(std::uint32_t slot) const;
  bool insert(const PVBrow& fields);
  bool fillStates(PVBrow& row);
  bool checkPattern();

  BuildContext& build_;
  const VectorBuild& vectors_;
  std::optional<FixBatch> batch_;
  std::optional<int> pattern_;  // that rows go to
  std::uint32_t next_ = 0;      // its next row number
  std::size_t depth_ = 0;       // open loops
  RowHandle row_;               // of the line above
  bool endAbove_ = false;       // which is an end line: its row is next_ - 1
  std::size_t columns_ = 0;
  std::string_view states_;
  std::optional<std::string> comment_;
  std::string name_;
  std::string lastPlateName_;  // and its id: most rows have the plate of the row above
  std::uint16_t lastPlate_ = kNoTimePlate;
};

class RecordBuild {
 public:
  explicit RecordBuild(BuildContext& build) : build_(build) {}
  bool label();
  bool heading();
  bool finding();
  bool item();
  bool file();
  bool data();
  bool equations();
  bool equationLine();
  bool finish();

 private:
  bool writeEquations();

  BuildContext& build_;
  std::optional<OutputFile> file_;         // takes the data lines
  std::optional<ssLineReader> equations_;  // takes the equation lines
};

// The order in which members must be entered into a table of `buckets`, so that
// they stand in `order` after having been saved and loaded once.
std::vector<std::size_t> entryOrder(const std::vector<PVBid>& order, int buckets);
