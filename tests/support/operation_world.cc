#include "support/operation_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <utility>

#include "support/untouched.h"

namespace {

constexpr const char* kIdentity =
    "Meridane-MVK::PVBConditioner Conditioner Version 2019.1.0 (Windows 64-Bit)\n";
constexpr const char* kColumns = "#% operation operand1 operand2 operand3\n";
constexpr std::string_view kDestination = "dest";

// What follows the last line of the banner's frame and the empty line behind it.
std::string behindBanner(const std::string& out) {
  const std::string frame = "# *" + std::string(69, '*') + "\n\n";
  const std::size_t at = out.find(frame);
  return at == std::string::npos ? out : out.substr(at + frame.size());
}

std::string behindIdentity(const std::string& err) {
  EXPECT_THAT(err, testing::StartsWith(kIdentity));
  return err.size() < std::string(kIdentity).size() ? err
                                                    : err.substr(std::string(kIdentity).size());
}

}  // namespace

OperationWorld::OperationWorld(Programs programs) : programs_(std::move(programs)) {
  std::filesystem::create_directory(dir_.path("tmp"));
}

void OperationWorld::build(const std::string& name, const std::string& text) {
  dir_.write("build.pvbt", text);
  const ProgramResult result = runCompanion({"build", "--force", "build.pvbt", name});
  if (result.exitCode != 0) throw std::runtime_error(name + ": " + result.err + text);
}

Outcome OperationWorld::runOperations(std::string_view rows, std::vector<std::string> parameters) {
  const bool whole = rows.starts_with("#");
  dir_.write("test.ops", (whole ? "" : kColumns) + std::string(rows) + "\n");
  ProgramCall call;
  call.arguments = {"OpFile=test.ops", "TmpPrefix=tmp"};
  call.arguments.insert(call.arguments.end(), parameters.begin(), parameters.end());
  return run(call);
}

Outcome OperationWorld::runParameters(std::vector<std::string> parameters) {
  ProgramCall call;
  call.arguments = {"UseOpFile=no", "TmpPrefix=tmp"};
  call.arguments.insert(call.arguments.end(), parameters.begin(), parameters.end());
  return run(call);
}

Outcome OperationWorld::runAgain(const ProgramCall& how) {
  ProgramCall call = how;
  call.arguments = {"OpFile=test.ops", "TmpPrefix=tmp"};
  return run(call);
}

ProgramResult OperationWorld::runCompanion(std::vector<std::string> arguments) const {
  ProgramCall call;
  call.arguments = std::move(arguments);
  call.directory = dir_.path();
  call.environment["MVK_TMPDIR"] = dir_.path("tmp");
  call.environment["MVK_COMPRESSION_OFF"] = compressionOff();
  return runProgram(programs_.companion, call);
}

Outcome OperationWorld::run(ProgramCall call) {
  const auto before = sources();
  const std::size_t temporaryBefore = temporaryFiles();
  call.directory = dir_.path();
  call.environment = {{"MVKDIR", dir_.path()},
                      {"MVK_TMPDIR", {}},
                      {"MVK_ENV_VARIABLES_ON", {}},
                      {"MVK_SAVE_PARFILE_ONLY", {}},
                      {"MVK_COMPRESSION_OFF", compressionOff()},
                      {"MVK_SWALLOWED_EXT", {}}};
  const ProgramResult result = runProgram(programs_.conditioner, call);
  for (const auto& [name, files] : before) {
    EXPECT_TRUE(directoryContent(dir_.path(name)) == files) << name << " was changed";
  }
  if (result.exitCode <= 1) {
    EXPECT_EQ(temporaryFiles(), temporaryBefore) << result.err;
  }
  verifyDestinations(result.exitCode == 0 && !damaged_);
  if (call.killAfter) return {result.exitCode, result.err, result.out};
  return {result.exitCode, behindIdentity(result.err), behindBanner(result.out)};
}

std::map<std::string, std::map<std::string, std::string>> OperationWorld::sources() const {
  std::map<std::string, std::map<std::string, std::string>> found;
  for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
    const std::string name = entry.path().filename().string();
    if (!entry.is_directory() || name == "tmp" || name.starts_with(kDestination)) continue;
    found[name] = directoryContent(entry.path().string());
  }
  return found;
}

void OperationWorld::verifyDestinations(bool sound) const {
  for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
    const std::string name = entry.path().filename().string();
    if (!entry.is_directory() || !name.starts_with(kDestination)) continue;
    const ProgramResult verified = runCompanion({"verify", name});
    EXPECT_LE(verified.exitCode, sound ? 0 : 2) << name << ": " << verified.out << verified.err;
  }
}

std::optional<std::string> OperationWorld::compressionOff() const {
  return plainFiles_ ? std::optional<std::string>("1") : std::nullopt;
}

std::size_t OperationWorld::temporaryFiles() const {
  const std::filesystem::directory_iterator files(dir_.path("tmp"));
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

bool OperationWorld::exists(const std::string& name) const {
  return std::filesystem::exists(dir_.path(name));
}

std::string OperationWorld::dump(const std::string& name) const {
  const ProgramResult result = runCompanion({"dump", name});
  EXPECT_EQ(result.exitCode, 0) << name << ": " << result.err;
  return result.out;
}

std::string OperationWorld::linesOf(const std::string& name, const std::string& begin) const {
  std::istringstream in(dump(name));
  std::string lines;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(begin)) lines += line + "\n";
  }
  return lines;
}

std::string OperationWorld::sectionOf(const std::string& name, const std::string& begin) const {
  std::istringstream in(dump(name));
  std::string section;
  for (std::string line; std::getline(in, line);) {
    if (!section.empty() && !line.starts_with(' ')) break;
    if (!section.empty() || line.starts_with(begin)) section += line + "\n";
  }
  return section;
}

std::string OperationWorld::recordsOf(const std::string& name) const {
  std::istringstream in(dump(name));
  std::multiset<std::string> records;
  std::string record;
  for (std::string line; std::getline(in, line); record += line + "\n") {
    if (line.starts_with(' ')) continue;
    records.insert(std::exchange(record, ""));
  }
  std::string all;
  for (const std::string& each : records) all += each;
  return all;
}

void OperationWorld::expectSame(const std::string& a, const std::string& b,
                                std::vector<std::string> options) const {
  std::vector<std::string> arguments = {"diff", a, b};
  arguments.insert(arguments.end(), options.begin(), options.end());
  const ProgramResult result = runCompanion(arguments);
  EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
}

void expectDone(const Outcome& outcome) {
  EXPECT_THAT(outcome.err, testing::MatchesRegex("\n\nTotal run time = [0-9]+ seconds\n"));
  EXPECT_EQ(outcome.exitCode, 0);
}

void expectRefused(const Outcome& outcome, const std::string& lines) {
  EXPECT_EQ(outcome.err, lines);
  EXPECT_EQ(outcome.exitCode, 1);
}

std::string regionTable(const std::vector<std::array<std::string, 4>>& regions) {
  std::string table;
  const auto line = [&](const std::array<std::string, 4>& fields) {
    const std::size_t widths[] = {20, 20, 10, 10};
    for (std::size_t i = 0; i < fields.size(); ++i) {
      table += (i == 0 ? "\n" : "  ") + fields[i];
      if (fields[i].size() < widths[i]) table += std::string(widths[i] - fields[i].size(), ' ');
    }
  };
  line({"Region Name", "PVB Path", "Start", "Stop"});
  line({"-----------", "--------", "-----", "----"});
  for (const auto& region : regions) line(region);
  return table;
}
