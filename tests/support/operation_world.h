#pragma once

// Databases in a directory of their own, and runs of the programs over them as a user
// would start them. Databases whose names begin with "dest" may change in a run; all
// others must stay as they are, byte for byte, whatever the run comes to. After a run
// every destination is checked: sound when the run went well; otherwise whatever it
// is, looking at it doesn't end in a crash.

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/database_text.h"
#include "support/program.h"
#include "support/temp_dir.h"

struct Programs {
  std::string conditioner;
  std::string companion;
};

// What a run came to, without the lines that stand in every run.
struct Outcome {
  int exitCode = -1;
  std::string err;     // behind the identity line
  std::string report;  // standard output behind the banner
};

class OperationWorld {
 public:
  explicit OperationWorld(Programs programs);

  // A database from its text, replacing the one of that name.
  void build(const std::string& name, const std::string& text);
  void build(const std::string& name, const DatabaseText& text) { build(name, text.text()); }

  // Rows "OPERATION OPERAND1 OPERAND2 OPERAND3" ("-" for none), or a whole operation
  // file when the text begins with "#".
  Outcome runOperations(std::string_view rows, std::vector<std::string> parameters = {});
  // One operation by parameters alone.
  Outcome runParameters(std::vector<std::string> parameters);
  // The operation file of the last runOperations again, under other circumstances.
  Outcome runAgain(const ProgramCall& how = {});
  // `pvb VERB ...` in the directory.
  ProgramResult runCompanion(std::vector<std::string> arguments) const;

  bool exists(const std::string& name) const;
  std::string dump(const std::string& name) const;
  // The lines of the dump that begin with a word, without what stands below them.
  std::string linesOf(const std::string& name, const std::string& begin) const;
  // The first line that begins with a text, and what stands below it.
  std::string sectionOf(const std::string& name, const std::string& begin) const;
  std::string rowsOf(const std::string& name) const { return sectionOf(name, "rows main"); }
  // The records of the dump in the order of their text, for databases whose signals were
  // made in another order.
  std::string recordsOf(const std::string& name) const;
  // Whether `pvb diff` finds the two the same in meaning.
  void expectSame(const std::string& a, const std::string& b,
                  std::vector<std::string> options = {}) const;

  const TempDir& directory() const { return dir_; }

 protected:
  // Databases that are built, and destinations, have plain files.
  bool plainFiles_ = false;
  // Sources may be damaged, and destinations then too.
  bool damaged_ = false;

 private:
  Outcome run(ProgramCall call);
  std::optional<std::string> compressionOff() const;
  std::size_t temporaryFiles() const;
  std::map<std::string, std::map<std::string, std::string>> sources() const;
  void verifyDestinations(bool sound) const;

  Programs programs_;
  TempDir dir_;
};

// The run ended well and said nothing.
void expectDone(const Outcome& outcome);
// The run ended with code 1 after exactly these lines.
void expectRefused(const Outcome& outcome, const std::string& lines);

// The table of regions in the report, from "NAME PATH START STOP" of each.
std::string regionTable(const std::vector<std::array<std::string, 4>>& regions);
