#include "base/param.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "base/errors.h"
#include "base/expand.h"
#include "base/platform.h"
#include "base/temp_directory.h"
#include "base/text.h"
#include "base/text_file.h"

namespace {

constexpr const char* kWhiteSpace = " \t\n\v\f\r";
constexpr std::string_view kTempDirectoryParam = "tmpprefix";
constexpr std::size_t kUsualPairs = 32;

enum class Mode { closed, reading, writing };

struct Pair {
  std::string name;  // lower case, no white space
  std::string value;
};

// The open parameter file: `pairs` when reading, `stream` when writing.
struct ParamFile {
  Mode mode = Mode::closed;
  std::vector<Pair> pairs;
  StreamPtr stream;
};

// Filled by the functions of the header; lives as long as the process.
struct ParamState {
  ParamFile file;
  std::vector<std::string> arguments;
  std::string fileName;
};
ParamState state;

// A post whose reason isn't the system's.
int fail(std::string_view function, int code, ErrArg detail) {
  errno = 0;
  PBpostError(function, code, detail);
  return -2;
}

// A post right behind the system call that failed.
int failWithReason(std::string_view function, int code, ErrArg detail) {
  PBpostError(function, code, detail);
  return -2;
}

std::string normalName(std::string_view name) { return PBlowerText(PBstripSpace(name)); }

std::string_view skipWhiteSpace(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
  return text;
}

void setTempDirectory(std::string_view directory) {
  PBunlockTempDirectory();
  PBsetTempDirectory(directory);
}

// --- Arguments -----------------------------------------------------------------------

// Leaves the row of `key` in `found`, null when no row has it. False after a post
// when the key is the start of more than one name.
bool findRow(std::string_view argument, const std::string& key, ParamTable table,
             const PBparam*& found) {
  found = nullptr;
  for (const PBparam& row : table) {
    if (PBlowerText(row.name) != key) continue;
    found = &row;
    return true;
  }
  for (const PBparam& row : table) {
    if (!PBlowerText(row.name).starts_with(key)) continue;
    if (found != nullptr) {
      std::string text = "Ambiguous parameter: \"";
      text.append(argument).append("\", matches \"").append(found->name);
      text.append("\" and \"").append(row.name).append("\"");
      fail("PBunixParams", 0, text);
      return false;
    }
    found = &row;
  }
  return true;
}

int takeArgument(std::string_view argument, ParamTable table) {
  const std::size_t equals = argument.find('=');
  if (equals == std::string_view::npos) {
    std::fprintf(stderr, "Bad argument: %s\n", std::string(argument).c_str());
    return fail("PBunixParams", 0, "Parameter must have form: name=value");
  }
  const PBparam* row = nullptr;
  if (!findRow(argument, normalName(argument.substr(0, equals)), table, row)) return -2;
  if (row != nullptr) *row->value = skipWhiteSpace(argument.substr(equals + 1));
  return 0;
}

void printExpectedNames(ParamTable table) {
  std::fputs("Expected parameter names are:\n", stderr);
  for (const PBparam& row : table) {
    std::fprintf(stderr, "  %s %s\n", row.required ? "(required)" : "          ", row.name);
  }
}

int checkRow(const PBparam& row, ParamTable table) {
  if (PBlowerText(row.name) == kTempDirectoryParam) {
    if (!*row.value) *row.value = ".";
    setTempDirectory(**row.value);
    return 0;
  }
  if (!row.required || *row.value) return 0;
  printExpectedNames(table);
  return fail("PBunixParams", 83, row.name);
}

std::optional<std::string> findArgument(std::string_view name) {
  for (const std::string_view argument : state.arguments) {
    const std::size_t equals = argument.find('=');
    if (PBstrEq(argument.substr(0, equals), name)) {
      return std::string(argument.substr(equals + 1));
    }
  }
  return std::nullopt;
}

bool isVersionRequest(std::string_view argument) {
  return argument == "-vers" || argument == "-v" || argument == "--version";
}

[[noreturn]] void printVersion() {
  std::fprintf(stderr, "Build %s\n", kBuildIdentifier);
  std::fflush(stderr);
  std::exit(0);
}

// --- Parameter file ------------------------------------------------------------------

std::string_view withoutLineEnd(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

// False when the part before or behind the "=" at `equals` is missing.
bool splitLine(std::string_view line, std::size_t equals, Pair& pair) {
  std::string_view value = skipWhiteSpace(line.substr(equals + 1));
  if (equals == 0 || value.empty()) return false;
  value = value.substr(0, value.find_last_not_of(" \t") + 1);
  pair.name = normalName(line.substr(0, equals));
  pair.value = value;
  PBexpandValue(pair.value);
  return true;
}

int readPairs(PBtextFile* file, std::vector<Pair>& pairs) {
  std::string_view line, comment;
  std::int64_t length = 0;
  while ((length = PBreadTextLine(file, line, comment)) >= 0) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    Pair pair;
    if (!splitLine(withoutLineEnd(line), equals, pair)) {
      return fail("PBopenParamFile", 77, PBtextPosition(file));
    }
    pairs.push_back(std::move(pair));
  }
  constexpr std::int64_t kReadFailed = -2;
  return length == kReadFailed ? fail("PBopenParamFile", 106, "Error reading param file") : 0;
}

int openForReading(const std::string& path) {
  // Values are often paths, in which a backslash is no escape.
  TextFilePtr text = PBopenCompressedTextFile(path, "r", false, kTextGzip);
  if (!text) return fail("PBopenParamFile", 81, path);
  ParamFile file;
  file.mode = Mode::reading;
  file.pairs.reserve(kUsualPairs);
  if (readPairs(text.get(), file.pairs) != 0) return -2;
  if (PBcloseCompressedTextFile(std::move(text)) != 0) {
    return fail("PBopenParamFile", 0, "Can't close param file");
  }
  state.file = std::move(file);
  return 0;
}

int openForWriting(const std::string& path) {
  ParamFile file;
  file.mode = Mode::writing;
  file.stream = openStream(path, "w");
  if (!file.stream) return failWithReason("PBopenParamFile", 81, path);
  state.file = std::move(file);
  return 0;
}

}  // namespace

// --- Command line --------------------------------------------------------------------

int PBcmdLine(ParamArguments arguments, ParamTable table) {
  if (arguments.size() == 1) {
    const std::string argument = arguments[0];
    if (isVersionRequest(argument)) printVersion();
    if (PBgatherParams(argument, table) == 0) return 0;
    if (argument.find('=') == std::string::npos) return -2;
    PBdiscardErrors();
  }
  if (PBunixParams(arguments, table) == 0) return 0;
  return fail("PBcmdLine", 76, {});
}

int PBunixParams(ParamArguments arguments, ParamTable table) {
  for (const char* argument : arguments) {
    if (takeArgument(argument, table) != 0) return -2;
  }
  for (const PBparam& row : table) {
    if (checkRow(row, table) != 0) return -2;
  }
  state.arguments.assign(arguments.begin(), arguments.end());
  return 0;
}

int PBgatherParams(const std::string& path, ParamTable table) {
  if (PBopenParamFile(path, "r") != 0) return fail("PBgatherParams", 50, path);
  if (PBfillParams("PBgatherParams", table) != 0) return -2;
  if (PBcloseParamFile() != 0) return -2;
  state.fileName = path;
  return 0;
}

const std::string& PBparamFileName() { return state.fileName; }

// --- Parameter file ------------------------------------------------------------------

int PBopenParamFile(const std::string& path, std::string_view mode) {
  if (mode == "r") return openForReading(path);
  if (mode == "w") return openForWriting(path);
  return fail("PBopenParamFile", 0, "Invalid mode");
}

int PBcloseParamFile() {
  if (state.file.mode == Mode::closed) return fail("PBcloseParamFile", 0, "No param file open");
  const bool closed = closeStream(std::move(state.file.stream)) == 0;
  if (!closed) failWithReason("PBcloseParamFile", 0, "fclose failed");
  state.file = {};
  PBendExpansionOff();
  return closed ? 0 : -2;
}

std::optional<std::string> PBgetParam(std::string_view name) {
  if (std::optional<std::string> argument = findArgument(name)) return argument;
  const auto none = [](const char* reason) {
    fail("PBgetParam", 0, reason);
    return std::nullopt;
  };
  if (state.file.mode == Mode::closed) return none("No param file open");
  if (state.file.mode != Mode::reading) return none("Param file not open for reading");
  const std::string key = normalName(name);
  const auto pair = std::ranges::find(state.file.pairs, key, &Pair::name);
  if (pair == state.file.pairs.end()) return std::nullopt;
  if (key == kTempDirectoryParam) setTempDirectory(pair->value);
  return pair->value;
}

int PBputParam(std::string_view name, std::string_view value) {
  if (state.file.mode == Mode::closed) return fail("PBputParam", 0, "No param file open");
  if (state.file.mode != Mode::writing) {
    return fail("PBputParam", 0, "Param file not open for writing");
  }
  std::string line(name);
  line.append("=").append(value).append("\n");
  const std::size_t written = std::fwrite(line.data(), 1, line.size(), state.file.stream.get());
  return written == line.size() ? 0 : failWithReason("PBputParam", 0, "write error");
}

int PBfillParams(std::string_view function, ParamTable table) {
  for (const PBparam& row : table) {
    *row.value = PBgetParam(row.name);
    if (!*row.value && row.required) return fail(function, 83, row.name);
  }
  return 0;
}

void PBresetParams() { state = {}; }
