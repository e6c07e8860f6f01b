#include "tools/manual.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "tools/usage.h"
#include "tools/verbs.h"

namespace {

struct DeclaredVerb {
  const Verb* verb;
  std::vector<DeclaredOption> options;
};

std::vector<DeclaredVerb> declaredVerbs() {
  std::vector<DeclaredVerb> verbs;
  for (const Verb& verb : verbTable()) verbs.push_back({&verb, declaredOptions(verb.run)});
  return verbs;
}

// Whether an option stands at each verb: then it is told once.
bool isCommon(const std::vector<DeclaredVerb>& verbs, const DeclaredOption& option) {
  return std::ranges::all_of(verbs, [&](const DeclaredVerb& verb) {
    return std::ranges::find(verb.options, option.names, &DeclaredOption::names) !=
           verb.options.end();
  });
}

// --- The manual page -----------------------------------------------------------------

// Text that means itself.
std::string plain(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '*' || c == '_' || c == '\\' || c == '<') result += '\\';
    result += c;
  }
  return result;
}

// A text of the table: what stands between backticks is bold.
std::string marked(std::string_view text) {
  std::string result;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('`', begin), text.size());
    result += plain(text.substr(begin, end - begin));
    if (end < text.size()) result += '*';
    begin = end + 1;
  }
  return result;
}

std::string valueText(const DeclaredOption& option) {
  if (!option.takesValue || option.argument) return {};
  return option.choices.empty() ? " _VALUE_" : fmt::format(" _{}_", fmt::join(option.choices, "|"));
}

void appendOption(std::string& page, const DeclaredOption& option) {
  const char* separator = "";
  for (const std::string& name : option.names) {
    page += fmt::format("{}*{}*", separator, name);
    separator = ", ";
  }
  page += fmt::format("{}\n\t{}", valueText(option), marked(option.description));
  if (option.argument && !option.choices.empty()) {
    page += fmt::format(" ({})", fmt::join(option.choices, ", "));
  }
  page += option.description.ends_with('.') ? "\n\n" : ".\n\n";
}

void appendVerb(std::string& page, const std::vector<DeclaredVerb>& verbs,
                const DeclaredVerb& declared) {
  const Verb& verb = *declared.verb;
  page += fmt::format("## pvb {}: {}\n\n*pvb {}* {}\n\n{}\n\n", verb.name, verb.summary, verb.name,
                      plain(verb.arguments), marked(verb.description));
  for (const DeclaredOption& option : declared.options) {
    if (!isCommon(verbs, option)) appendOption(page, option);
  }
  page += "```\n";
  for (const std::string_view example : verb.examples) page += fmt::format("{}\n", example);
  page += "```\n\n";
}

// --- Completion ----------------------------------------------------------------------

std::string optionNames(const DeclaredVerb& verb, bool onlyWithValue) {
  std::string names;
  for (const DeclaredOption& option : verb.options) {
    if (option.argument || (onlyWithValue && !option.takesValue)) continue;
    for (const std::string& name : option.names) names += fmt::format(" {}", name);
  }
  return names.empty() ? names : names.substr(1);
}

std::string argumentNames(const DeclaredVerb& verb) {
  std::vector<std::string_view> names;
  for (const DeclaredOption& option : verb.options) {
    if (option.argument) names.push_back(option.names.front());
  }
  return fmt::format("{}", fmt::join(names, " "));
}

std::string verbCases(const std::vector<DeclaredVerb>& verbs) {
  std::string text;
  for (const DeclaredVerb& verb : verbs) {
    text += fmt::format("    {}) options='{}' valued='{}' arguments=({}) ;;\n", verb.verb->name,
                        optionNames(verb, false), optionNames(verb, true), argumentNames(verb));
  }
  return text;
}

std::string choiceCases(const std::vector<DeclaredVerb>& verbs) {
  std::string text;
  for (const DeclaredVerb& verb : verbs) {
    for (const DeclaredOption& option : verb.options) {
      if (option.choices.empty()) continue;
      for (const std::string& name : option.names) {
        text += fmt::format("    {}:{}) words='{}' ;;\n", verb.verb->name, name,
                            fmt::join(option.choices, " "));
      }
    }
  }
  return text;
}

// What is asked for at a place: a word behind an option that takes a value, an option, or
// the argument whose turn it is. Databases are directories; all else may be a file.
constexpr std::string_view kCompletionBody = R"(  if ((COMP_CWORD == 1)); then
    words=$verbs
  elif [[ " $valued " == *" $previous "* ]]; then
    place=$previous
  elif [[ $current == -* ]]; then
    words=$options
  else
    local turn=0 i
    for ((i = 2; i < COMP_CWORD; ++i)); do
      if [[ " $valued " == *" ${COMP_WORDS[i]} "* ]]; then ((++i)); continue; fi
      [[ ${COMP_WORDS[i]} == -?* ]] || ((++turn))
    done
    place=${arguments[turn]-}
    [[ -n $place ]] || return
  fi
)";
constexpr std::string_view kCompletionEnd = R"(    *:DB | *:A | *:B)
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      compopt -o filenames 2>/dev/null
      return ;;
    help:VERB) words=$verbs ;;
    explain:CODE) return ;;
  esac
  if [[ -n $words ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    compopt -o filenames 2>/dev/null
  fi
}
complete -F _pvb pvb
)";

}  // namespace

std::string verbManual() {
  const std::vector<DeclaredVerb> verbs = declaredVerbs();
  std::string page = "# VERBS\n\n";
  for (const DeclaredVerb& verb : verbs) appendVerb(page, verbs, verb);
  page += "# OPTIONS OF ALL VERBS\n\n";
  page += "*-h*\n\tShow the verb's usage with three examples.\n\n";
  page += "*--help*\n\tShow all of the verb's options.\n\n";
  for (const DeclaredOption& option : verbs.front().options) {
    if (isCommon(verbs, option)) appendOption(page, option);
  }
  return page;
}

std::string bashCompletion() {
  const std::vector<DeclaredVerb> verbs = declaredVerbs();
  std::string names;
  for (const DeclaredVerb& verb : verbs) names += fmt::format(" {}", verb.verb->name);
  std::string text =
      "# Completion of pvb in bash; made from the program's table of verbs.\n"
      "_pvb() {\n"
      "  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
      "  local verb=${COMP_WORDS[1]} place='' words='' options='' valued='' arguments=()\n";
  text += fmt::format("  local verbs='{} -h --help --version'\n", names.substr(1));
  text += fmt::format("  COMPREPLY=()\n  case $verb in\n{}  esac\n", verbCases(verbs));
  text += kCompletionBody;
  text += fmt::format("  case $verb:$place in\n{}", choiceCases(verbs));
  text += kCompletionEnd;
  return text;
}
