#pragma once

// Runs a built program as a user would, and keeps what it said.

#include <chrono>
#include <cstdint>
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
  // Size in bytes above which no file can grow, as if the disk were full there.
  std::optional<std::uint64_t> fileSizeLimit;
  // Ends the program by a signal that it can't catch so long after its start.
  std::optional<std::chrono::microseconds> killAfter;
};

ProgramResult runProgram(const std::string& program, const ProgramCall& call);
