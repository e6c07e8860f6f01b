#pragma once

// Runs a built program as a user would, and keeps what it said.

#include <map>
#include <optional>
#include <string>
#include <vector>

struct ProgramResult {
  int exitCode = -1;  // 128 + signal when a signal ended it
  std::string out;    // standard output
  std::string err;    // standard error
};

struct ProgramCall {
  std::vector<std::string> arguments;
  std::string directory = ".";
  // Variables to set, or to take away (none), on top of the test's own.
  std::map<std::string, std::optional<std::string>> environment;
  // Where standard output goes instead of ProgramResult::out.
  std::string outputPath;
};

ProgramResult runProgram(const std::string& program, const ProgramCall& call);
