#include "support/optimize_world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <sstream>

namespace {

// Of a timeplate's lines in the dump: slots, which say directions, and tracks in the same
// order with their events.
class WaveLines {
 public:
  explicit WaveLines(std::string id) : end_(" " + std::move(id)) {}

  void read(const std::string& line) {
    if (line.starts_with("  slot ")) directions_.push_back(line.substr(7));
    if (line == "    track") wave_.clear(), ++track_;
    if (line.starts_with("    event ")) wave_ += (wave_.empty() ? "" : " ") + edge(line.substr(10));
    if (!(line + " ").starts_with("    on ") || !line.ends_with(end_) || wave_.empty()) return;
    const std::string& direction = directions_.at(track_ - 1);
    waves_ += (waves_.empty() ? "" : " + ") + (direction == "input" ? "" : direction + " ") + wave_;
  }
  const std::string& waves() const { return waves_; }

 private:
  static std::string edge(const std::string& event) {
    static const std::regex form("(?:0pS|([0-9.]+)nS) (.)(?: expr=\"(.*)\")?");
    std::smatch parts;
    if (!std::regex_match(event, parts, form)) return event;
    return parts[1].str() + parts[2].str() + (parts[3].matched ? "=" + parts[3].str() : "");
  }

  std::string end_;  // of the lines that name the signals of a track; each has one
  std::vector<std::string> directions_;
  std::size_t track_ = 0;
  std::string wave_;
  std::string waves_;
};

std::string idOf(const std::string& dump, const std::string& signal) {
  const std::regex record("\nsignal ([0-9]+) \"" + signal + "\"");
  std::smatch found;
  return std::regex_search(dump, found, record) ? found[1].str() : "";
}

}  // namespace

OptimizeWorld::OptimizeWorld(Programs programs) : OperationWorld(std::move(programs)) {
  DatabaseText text;
  text.signal("b", "input").plate("tb", "20nS", {{"b", "0pS S", ""}});
  for (int row = 0; row < 64; ++row) text.rows(steps("tb", {row % 3 == 0 ? "1" : "0"}));
  build("B", text);
}

void OptimizeWorld::useShapes(const std::string& shapes, const std::string& more) {
  std::string lines = shapes;
  std::ranges::replace(lines, ' ', '\n');
  directory().write("tester.shp", "#% shape\n" + lines + "\n" + more);
}

Outcome OptimizeWorld::tryMerge(std::vector<std::string> parameters) {
  parameters.insert(parameters.begin(), {"OptimizeTimePlates=yes", "ATEFamily=other",
                                         "ShapeFile=tester.shp", "Pmode=last_force"});
  return runOperations("merge A B dest", std::move(parameters));
}

Outcome OptimizeWorld::merge(std::vector<std::string> parameters, const std::string& signals) {
  Outcome outcome = tryMerge(std::move(parameters));
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err << outcome.report;
  if (!signals.empty()) expectSame("A", "dest", {"--ignore-cycles", "--signals", signals});
  return outcome;
}

Outcome OptimizeWorld::optimizeAlone(const std::string& text, std::vector<std::string> parameters) {
  build("A", text);
  build("dest", text);
  Outcome outcome = optimizeAgain(std::move(parameters));
  expectSame("A", "dest", {"--ignore-cycles"});
  return outcome;
}

Outcome OptimizeWorld::optimizeAgain(std::vector<std::string> parameters) {
  parameters.insert(
      parameters.begin(),
      {"Operation=copy", "SourcePVB1=B", "DestinationPVB=destB", "Optimize=2", "WaveSource=dest",
       "OptimizeTimePlates=yes", "ATEFamily=other", "ShapeFile=tester.shp", "Pmode=last_force"});
  Outcome outcome = runParameters(std::move(parameters));
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err << outcome.report;
  return outcome;
}

std::ptrdiff_t OptimizeWorld::timeplates(const std::string& name) const {
  return std::ranges::count(linesOf(name, "timeplate "), '\n');
}

std::string OptimizeWorld::waves(const std::string& signal, const std::string& name) const {
  const std::string text = dump(name);
  const std::string id = idOf(text, signal);
  std::vector<WaveLines> plates;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("timeplate ")) plates.emplace_back(id);
    if (line.starts_with("rows ")) break;
    if (!plates.empty()) plates.back().read(line);
  }
  std::string all;
  for (const WaveLines& plate : plates) {
    all += (&plate == &plates.front() ? "" : " | ") + plate.waves();
  }
  return all;
}

std::string OptimizeWorld::data(std::size_t column, const std::string& name) const {
  std::string all;
  std::istringstream in(rowsOf(name));
  for (std::string line; std::getline(in, line);) {
    const std::size_t at = line.find('|') + 1 + column;
    if (line.starts_with("  row ")) all += at < line.size() ? line[at] : '-';
  }
  return all;
}

TrackText track(const std::string& signals, const std::string& edges,
                const std::string& direction) {
  static const std::regex first("^([^0-9])");
  static const std::regex later("([0-9.]+)([^0-9. ])");
  const std::string timed = std::regex_replace(edges, later, "$1nS $2");
  return {signals, std::regex_replace(timed, first, "0pS $1"), direction};
}

std::string withExpressions(const DatabaseText& text) {
  static const std::regex expression("(    event .*)=(.*)");
  return std::regex_replace(text.text(), expression, "$1 expr=\"$2\"");
}

std::string mergedCounts(const std::string& report) {
  const std::regex line("\nMerged ([0-9]+) timeplates into ([0-9]+) timeplates\\.\n");
  std::string counts;
  for (std::sregex_iterator at(report.begin(), report.end(), line), end; at != end; ++at) {
    counts += (counts.empty() ? "" : " ") + (*at)[1].str() + ">" + (*at)[2].str();
  }
  return counts;
}
