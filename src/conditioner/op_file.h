#pragma once

// The operation file: tables of regions, signal lists, compression settings and
// operations, a row each. Rows fill the run's tables in file order, so an
// operation row can use only what stands above it.

#include <string>

// The parameters that an operation file's rows refer to; empty when not given.
struct OpFileParams {
  std::string referencePVB;
  std::string tpRenameMode;
  std::string tpRenameStartIndex;
  std::string tpRenamePrefixStr;
  std::string tpRenameSearchStr;
  std::string tpRenameReplaceStr;
};

// Reads the whole file into `run`. True when no row failed; the reasons of those
// that did stand on the error stacks, and their lines on standard error.
bool readOperationFile(const std::string& path, const OpFileParams& params);
