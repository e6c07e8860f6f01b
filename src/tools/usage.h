#pragma once

// What the verbs share of the command line: options by CLI11, help in two lengths,
// messages with the nearest option. Exit codes: 0 yes, same, done; 1 no, different,
// problems found; 2 could not do it.

#include <CLI/CLI.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/time.h"
#include "tools/message.h"
#include "tools/table_output.h"

inline constexpr int kExitYes = 0;
inline constexpr int kExitNo = 1;
inline constexpr int kExitFailed = 2;

// Prints an error; the exit code of what could not be done.
int refuse(MessageCode code, std::string text, std::string file = {});

// Reads a time that was given with an option ("--begin"), none for an empty text. False
// after an error.
bool readTimeOption(const std::string& text, std::string_view option, std::optional<TIME>& out);

// An option or an argument as a verb declares it.
struct DeclaredOption {
  std::vector<std::string> names;    // "-o", "--output"; of an argument its one name
  std::vector<std::string> choices;  // words that the value may be; none: any
  std::string description;
  bool argument = false;
  bool required = false;
  bool takesValue = false;
};
// What a verb declares on its Usage, found out by running it up to there.
std::vector<DeclaredOption> declaredOptions(int (*run)(std::span<const std::string> arguments));

// A verb's command line: declare options and arguments on `app`, then parse.
class Usage {
 public:
  explicit Usage(std::string_view verb);

  CLI::App app;

  // Adds --format and its short form --json.
  void addFormat();
  TableFormat format() const { return json_ ? TableFormat::json : tableFormat(format_); }

  // Adds --quiet, for verbs that show their progress.
  void addQuiet();
  bool quiet() const { return quiet_; }

  // An exit code when the verb ends here: help was shown, or a message was.
  std::optional<int> parse(std::span<const std::string> arguments);

 private:
  std::string verb_;
  std::string color_ = "auto";
  std::string format_ = "table";
  bool json_ = false;
  bool quiet_ = false;
};
