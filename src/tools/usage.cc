#include "tools/usage.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/message.h"
#include "tools/nearest.h"
#include "tools/verbs.h"

namespace {

// The nearest option of the first word that isn't one.
std::string unknownOption(const CLI::App& app, const std::vector<std::string>& extras) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  const std::vector<std::string_view> views(names.begin(), names.end());
  const auto word = std::ranges::find_if(
      extras, [](const std::string& extra) { return extra.starts_with('-') && extra != "-"; });
  if (word == extras.end()) {
    return fmt::format("'{}' is one argument too many", extras.empty() ? "" : extras.front());
  }
  const std::string name = word->substr(0, word->find('='));
  return fmt::format("'{}' is no option here{}", name, didYouMean(name, views));
}

// Set while declaredOptions runs a verb, which then ends where it would parse.
std::vector<DeclaredOption>* declared = nullptr;

// The words of "TEXT:{a,b}".
std::vector<std::string> choicesOf(const std::string& typeName) {
  const std::size_t begin = typeName.find('{');
  const std::size_t end = typeName.find('}');
  if (begin == std::string::npos || end == std::string::npos) return {};
  return CLI::detail::split(typeName.substr(begin + 1, end - begin - 1), ',');
}

DeclaredOption declare(const CLI::Option& option) {
  DeclaredOption result;
  for (const std::string& name : option.get_snames()) result.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) result.names.push_back("--" + name);
  result.argument = option.get_positional();
  if (result.argument) result.names = {option.get_single_name()};
  result.choices = choicesOf(option.get_type_name());
  result.description = option.get_description();
  result.required = option.get_required();
  result.takesValue = option.get_items_expected_max() > 0;
  return result;
}

void declareAll(const CLI::App& app) {
  for (const CLI::Option* option : app.get_options()) {
    const bool hidden = option->get_group().empty();
    if (!hidden) declared->push_back(declare(*option));
  }
}

}  // namespace

std::vector<DeclaredOption> declaredOptions(int (*run)(std::span<const std::string> arguments)) {
  std::vector<DeclaredOption> options;
  declared = &options;
  run({});
  declared = nullptr;
  return options;
}

int refuse(MessageCode code, std::string text, std::string file) {
  printMessage(errorMessage(code, std::move(text), std::move(file)));
  return kExitFailed;
}

bool readTimeOption(const std::string& text, std::string_view option, std::optional<TIME>& out) {
  if (text.empty()) return true;
  TIME time;
  if (!parseWholeTIME(text, time)) {
    refuse(kBadUsage, fmt::format("--{} {}: a time such as 100nS is expected", option, text));
    return false;
  }
  out = time;
  return true;
}

Usage::Usage(std::string_view verb) : verb_(verb) {
  app.set_help_flag();
  app.name("pvb " + verb_);
  app.allow_extras(false);
  app.add_option("--color", color_, "Colour messages: auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}));
}

void Usage::addFormat() {
  const auto names = tableFormatNames();
  app.add_option("--format", format_, "Form of the output: table, json, jsonl, csv or md")
      ->check(CLI::IsMember(std::vector<std::string>(names.begin(), names.end())));
  app.add_flag("--json", json_, "Short for --format json");
}

void Usage::addQuiet() { app.add_flag("--quiet", quiet_, "Show no progress"); }

std::optional<int> Usage::parse(std::span<const std::string> arguments) {
  if (declared != nullptr) {
    declareAll(app);
    return kExitYes;
  }
  for (const std::string& argument : arguments) {
    if (argument == "--") break;
    if (argument == "-h") return showVerbHelp(verb_, HelpLength::brief, {});
    if (argument == "--help") return showVerbHelp(verb_, HelpLength::full, app.help());
  }
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ExtrasError&) {
    return refuse(kBadUsage, unknownOption(app, app.remaining()));
  } catch (const CLI::ParseError& error) {
    return refuse(kBadUsage, error.what());
  }
  setMessageColor(color_ == "always"  ? ColorMode::always
                  : color_ == "never" ? ColorMode::never
                                      : ColorMode::automatic);
  return std::nullopt;
}
