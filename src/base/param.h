#pragma once

// How a tool takes its parameters: a table of names and a command line that is
// either one parameter file or a list of "name=value" arguments.
//
// A parameter file has a "name=value" a line; lines without "=" say nothing.
// Names there must match whole, values lose trailing blanks and are expanded.
// Arguments match by unique prefix and are taken as they stand. Names compare
// without case and white space; a name that no table knows is passed over, since
// another reader may want it.
//
// One parameter file at a time. Calls give 0, or -2 after a post on the numbered
// stack under their own name; values that were set before a failure stay set.

#include <optional>
#include <span>
#include <string>
#include <string_view>

// Build number, year, month, day, hour, minute.
inline constexpr const char* kBuildIdentifier = "4439.2019.05.31.17.07";

// A row of a parameter table, which needs no end row. The holder is none until
// set; a parameter given without a text ("Name=") is empty.
struct PBparam {
  const char* name;
  std::optional<std::string>* value;
  bool required;
};
using ParamTable = std::span<const PBparam>;
// A command line without the program's own name.
using ParamArguments = std::span<const char* const>;

// The entry point. A lone "-vers", "-v" or "--version" prints the build
// identifier on standard error and exits with code 0.
int PBcmdLine(ParamArguments arguments, ParamTable table);

// The "name=value" way. Of two arguments for one parameter the later one wins.
// A row "TmpPrefix" is "." when not given and sets the temporary directory over
// any lock. The arguments are kept for PBgetParam.
int PBunixParams(ParamArguments arguments, ParamTable table);
// The parameter file way. When a required parameter is missing the file stays
// open; otherwise it is closed and PBparamFileName tells its path.
int PBgatherParams(const std::string& path, ParamTable table);
const std::string& PBparamFileName();

// Mode "r" takes in the whole file (or "path.gz" beside it); "w" creates it.
int PBopenParamFile(const std::string& path, std::string_view mode);
// Also ends a switch-off of expansion, which holds for one file.
int PBcloseParamFile();

// From the arguments of PBunixParams (the first of the name, as it stands behind
// the "="), else from the file open for reading. None when it isn't there; none
// after a post when no file is open for reading. A "TmpPrefix" of the file sets
// the temporary directory over any lock.
std::optional<std::string> PBgetParam(std::string_view name);
// Writes one line to the file open for writing.
int PBputParam(std::string_view name, std::string_view value);

// PBgetParam for each row. `function` is kept as a view: pass a constant text.
int PBfillParams(std::string_view function, ParamTable table);

// Forgets arguments, file and file name.
void PBresetParams();
