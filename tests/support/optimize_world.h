#pragma once

// Runs of the timeplate optimizer as a user starts them, over merges and over databases as
// they are. "A" is what is optimized, "dest" what comes of it. The second source of every
// merge, "B", has one input "b" with data in cycles of 20 nanoseconds. Shapes are those of
// "tester.shp".

#include <string>
#include <vector>

#include "support/operation_world.h"

class OptimizeWorld : public OperationWorld {
 public:
  explicit OptimizeWorld(Programs programs);

  // Shapes in their order, and other tables behind them.
  void useShapes(const std::string& shapes, const std::string& more = "");

  // "A", which must be there, and "B".
  Outcome tryMerge(std::vector<std::string> parameters = {});
  // Ends well, and does the same as "A" on these signals of it.
  Outcome merge(std::vector<std::string> parameters = {}, const std::string& signals = "a");
  // The database of the text as it is. Ends well, and does the same.
  Outcome optimizeAlone(const std::string& text, std::vector<std::string> parameters = {});
  // "dest" as it is now.
  Outcome optimizeAgain(std::vector<std::string> parameters = {});

  std::ptrdiff_t timeplates(const std::string& name = "dest") const;
  // The waves of a signal in short: a text for each timeplate with " | " between, in each the
  // tracks with " + " between, those of other directions than input with their direction.
  std::string waves(const std::string& signal, const std::string& name = "dest") const;
  // What the rows say in a column, a letter for each row; '-' where they end before it.
  std::string data(std::size_t column = 0, const std::string& name = "dest") const;
};

// A track by its wave in short, "D 5S 15D" for edges at 0, 5 and 15 nanoseconds; "5S=t" has
// the expression "t", which withExpressions() puts in its place in the text of a database.
TrackText track(const std::string& signals, const std::string& edges,
                const std::string& direction = "");
std::string withExpressions(const DatabaseText& text);

// The lines of the report that tell how many timeplates were merged into how many: "3>1".
std::string mergedCounts(const std::string& report);
