#pragma once

// Reads STIL (IEEE 1450.0, and 1450.1 as test generators write it): the blocks into a
// StilModel, and the statements of a pattern one by one.
//
// The first pass reads everything but the patterns, whose blocks are skipped as fast as
// the bytes come; patterns are then read from their places, in any order. Included files
// are read where they stand, each once where "IfNeed" says so, nested to kDeepestInclude;
// their paths are taken from the directory of the file that names them, and only plain
// files are read. A text in memory includes none.
//
// What isn't known is told as a warning with its place and passed over: blocks of user
// keywords, unknown statements up to their `;` or block. What breaks the syntax is an
// error and ends the reading, as are two things of one kind, domain and name, but for
// PatternExecs, Specs and Selectors. Nesting of statements is bounded (kDeepestStatement),
// and what one statement with its body may take up (stil_statement.h).

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/stil_model.h"
#include "tools/stil_scanner.h"

inline constexpr int kDeepestInclude = 16;
inline constexpr int kDeepestStatement = 64;
// Characters that the data of one assignment may have.
inline constexpr std::size_t kMostStilData = std::size_t{1} << 26;

class StilReader {
 public:
  // `sink` gets errors and warnings with the line they stand in.
  explicit StilReader(MessageSink sink);
  ~StilReader();

  // Opens the file ("-": standard input) and reads all but the patterns. False after a
  // message. The model then stays as it is, but for `files` and `references`.
  bool open(const std::string& path);
  // The same for a text in memory, which must outlive the reader.
  bool openText(std::string_view text, std::string name);
  StilModel& model() { return model_; }

  // Goes to the first statement of a pattern.
  bool beginPattern(const StilPatternPlace& pattern);
  // The next statement of it into `statement`, whose room is used again. False at the
  // end of the pattern and after a failure.
  bool nextStatement(StilStatement& statement);
  bool failed() const;

  // Number of a reference, that of an equal one when there was one.
  std::uint32_t referenceNumber(std::string_view text, bool expression);
  // Messages at a place of one of the files. `failAt` is always false and stops the reader.
  bool failAt(const StilWhere& where, MessageCode code, std::string text);
  void warnAt(const StilWhere& where, MessageCode code, std::string text);
  // Bytes on disk of all files, and how many of them were read in this pass: the first
  // one, or that over the patterns, which passes over the files without any.
  std::int64_t bytesTotal() const;
  std::int64_t bytesRead() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
  StilModel model_;
};
