#pragma once

// The verbs of the companion program, one table: name, what it is for, help, and
// the function that does it.

#include <array>
#include <span>
#include <string>
#include <string_view>

struct Verb {
  std::string_view name;
  std::string_view summary;      // one line
  std::string_view arguments;    // of the usage line
  std::string_view description;  // for --help
  std::array<std::string_view, 3> examples;
  int (*run)(std::span<const std::string> arguments);
};
std::span<const Verb> verbTable();

enum class HelpLength { brief, full };
// Shows a verb's help on standard output; `options` is the part about its options.
// The exit code.
int showVerbHelp(std::string_view verb, HelpLength length, std::string_view options);

// The whole program without its name; the exit code.
int runCompanion(std::span<const std::string> arguments);
