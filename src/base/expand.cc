#include "base/expand.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

#include "base/text.h"

namespace {

using std::string_view;
constexpr std::size_t kNone = string_view::npos;

constexpr const char* kDefaultSwallowed = "tar/gz/tgz/z";
// Calls inside calls whose arguments are expanded.
constexpr int kMaxNesting = 2;

// Set by the switches of the header; lives as long as the process.
struct ExpansionState {
  std::optional<bool> wantedByEnvironment;
  bool switchedOn = false;
  bool switchedOff = false;
};
ExpansionState expansion;

bool inForce() {
  if (!expansion.wantedByEnvironment) {
    expansion.wantedByEnvironment = std::getenv("MVK_ENV_VARIABLES_ON") != nullptr;
  }
  return (*expansion.wantedByEnvironment || expansion.switchedOn) && !expansion.switchedOff;
}

// What variables may still add to a text.
class Budget {
 public:
  // The variable's value; none when there is no such variable or no room for it.
  std::optional<string_view> lookUp(string_view name) {
    if (name.empty() || name.find('\0') != kNone || name.find('=') != kNone) return std::nullopt;
    const char* found = std::getenv(std::string(name).c_str());
    if (found == nullptr) return std::nullopt;
    const string_view value = found;
    if (value.size() > left_) return std::nullopt;
    left_ -= value.size();
    return value;
  }

 private:
  std::size_t left_ = kMaxExpansionBytes;
};

// --- Paths ---------------------------------------------------------------------------

using Extensions = std::vector<string_view>;

bool isSeparator(char c) { return c == '/' || c == '\\'; }

bool isDrive(string_view path) { return path.size() == 2 && path[1] == ':'; }

// A text of nothing but a root: "/" or "C:\".
bool isRoot(string_view path) {
  return !path.empty() && isSeparator(path.back()) &&
         (path.size() == 1 || isDrive(path.substr(0, path.size() - 1)));
}

string_view notdir(string_view path) {
  const std::size_t separator = path.find_last_of("/\\");
  return separator == kNone ? path : path.substr(separator + 1);
}

string_view suffix(string_view path) {
  const string_view name = notdir(path);
  const std::size_t dot = name.rfind('.');
  return dot == kNone ? string_view() : name.substr(dot + 1);
}

std::string dir(string_view path) {
  const string_view name = notdir(path);
  if (name.size() == path.size()) return "./";
  const string_view withSeparator = path.substr(0, path.size() - name.size());
  if (isRoot(withSeparator)) return std::string(withSeparator);
  return std::string(withSeparator.substr(0, withSeparator.size() - 1));
}

Extensions splitExtensions(string_view list) {
  Extensions parts;
  while (!list.empty()) {
    const string_view part = list.substr(0, list.find('/'));
    if (!part.empty()) parts.push_back(part);
    list.remove_prefix(std::min(part.size() + 1, list.size()));
  }
  return parts;
}

bool isSwallowed(string_view extension, const Extensions& swallowed) {
  return std::ranges::any_of(swallowed, [&](string_view part) { return PBstrEq(part, extension); });
}

// Where the dot of the extension stands in the last component `name`. A
// swallowed extension takes the part before it along: "gz" gives "tar.gz".
std::size_t extensionDot(string_view name, const Extensions& swallowed) {
  const std::size_t dot = name.rfind('.');
  if (dot == kNone || dot == 0 || !isSwallowed(name.substr(dot + 1), swallowed)) return dot;
  const std::size_t before = name.rfind('.', dot - 1);
  return before == kNone ? dot : before;
}

string_view ext(string_view path, const Extensions& swallowed) {
  const string_view name = notdir(path);
  const std::size_t dot = extensionDot(name, swallowed);
  return dot == kNone ? string_view() : name.substr(dot + 1);
}

string_view withoutExtension(string_view path, const Extensions& swallowed) {
  const string_view name = notdir(path);
  const std::size_t dot = extensionDot(name, swallowed);
  return dot == kNone ? path : path.substr(0, path.size() - name.size() + dot);
}

string_view noext(string_view path, const Extensions& swallowed) {
  string_view rest = withoutExtension(path, swallowed);
  while (!rest.empty() && isSeparator(rest.back()) && !isRoot(rest)) rest.remove_suffix(1);
  return rest;
}

// `argument`: a path, and behind a "," what to take off its end.
string_view basename(string_view argument, const Extensions& swallowed) {
  const std::size_t comma = argument.find(',');
  const string_view name = notdir(argument.substr(0, comma));
  if (comma == kNone) return name;
  string_view ending = argument.substr(comma + 1);
  ending.remove_prefix(std::min(ending.find_first_not_of(" \t"), ending.size()));
  if (ending == "?") return withoutExtension(name, swallowed);
  if (ending == "*") return name.substr(0, name.find('.'));
  const bool takenOff = name.size() > ending.size() && name.ends_with(ending);
  return takenOff ? name.substr(0, name.size() - ending.size()) : name;
}

// --- Functions -----------------------------------------------------------------------

struct Function {
  const char* word;
  std::string (*result)(string_view argument, const Extensions& swallowed);
};

constexpr Function kFunctions[] = {
    {"ext", [](string_view text, const Extensions& list) { return std::string(ext(text, list)); }},
    {"noext",
     [](string_view text, const Extensions& list) { return std::string(noext(text, list)); }},
    {"suffix", [](string_view text, const Extensions&) { return std::string(suffix(text)); }},
    {"basename",
     [](string_view text, const Extensions& list) { return std::string(basename(text, list)); }},
    {"notdir", [](string_view text, const Extensions&) { return std::string(notdir(text)); }},
    {"dir", [](string_view text, const Extensions&) { return dir(text); }},
};

std::string callFunction(string_view word, std::string argument, const Extensions& swallowed) {
  word = word.substr(0, word.find_first_of(" \t"));
  for (const Function& function : kFunctions) {
    if (PBstrEq(string_view(function.word), word)) return function.result(argument, swallowed);
  }
  return argument;
}

// --- References ----------------------------------------------------------------------

bool isNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

struct Reference {
  std::size_t length;  // from the "$" on
  string_view body;    // the name or call
  bool braced;
  bool wellFormed;
};

Reference plainReference(string_view text) {
  const auto end = std::find_if_not(text.begin() + 1, text.end(), isNameCharacter);
  const auto length = static_cast<std::size_t>(end - text.begin());
  return {length, text.substr(1, length - 1), false, true};
}

// `text` begins with "${". A reference without its "}" takes all the rest, so
// that no part of a text is gone over twice.
Reference bracedReference(string_view text) {
  int depth = 0;      // of "}" to come before the reference's own
  int openNames = 0;  // of "${" with no "(" of a function behind them yet
  bool nameSeen = false;
  bool wellFormed = true;
  for (std::size_t i = 2; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\\') {
      ++i;
    } else if (c == '$' && text.substr(i + 1).starts_with('{')) {
      wellFormed = wellFormed && openNames == 0;
      ++depth;
      ++openNames;
      nameSeen = false;
      ++i;
    } else if (c == '}') {
      if (depth == 0) return {i + 1, text.substr(2, i - 2), true, wellFormed};
      --depth;
      openNames = std::max(openNames - 1, 0);
    } else if (c == '(' && nameSeen) {
      openNames = std::max(openNames - 1, 0);
    } else if (isNameCharacter(c)) {
      nameSeen = true;
    }
  }
  return {text.size(), {}, true, false};
}

// The reference at the start of `text`, which begins with "$", if there is one.
std::optional<Reference> referenceAt(string_view text) {
  if (text.size() < 2) return std::nullopt;
  if (text[1] == '{') return bracedReference(text);
  if (isNameCharacter(text[1])) return plainReference(text);
  return std::nullopt;
}

bool isCall(const Reference& reference) {
  constexpr std::size_t kLongestNoCall = 3;
  const string_view body = reference.body;
  return reference.braced && body.size() > kLongestNoCall && body.ends_with(')') &&
         body.find('(') != kNone;
}

std::string withoutEscapes(string_view body) {
  std::string name;
  for (std::size_t i = 0; i < body.size(); ++i) {
    if (body[i] == '\\' && i + 1 < body.size()) ++i;
    name += body[i];
  }
  return name;
}

class Scanner {
 public:
  explicit Scanner(Extensions swallowed) : swallowed_(std::move(swallowed)) {}

  std::string expand(string_view text, int nesting = 0) {
    std::string result;
    while (!text.empty()) {
      const std::size_t plain = std::min(text.find('$'), text.size());
      result.append(text.substr(0, plain));
      text.remove_prefix(plain);
      const std::optional<Reference> reference = referenceAt(text);
      const std::size_t length =
          reference ? reference->length : std::min<std::size_t>(text.size(), 1);
      const std::optional<std::string> value =
          reference ? resolve(*reference, nesting) : std::nullopt;
      result.append(value ? string_view(*value) : text.substr(0, length));
      text.remove_prefix(length);
    }
    return result;
  }

 private:
  // None for a reference that stays as it is.
  std::optional<std::string> resolve(const Reference& reference, int nesting) {
    if (!reference.wellFormed) return std::nullopt;
    if (isCall(reference)) return call(reference.body, nesting);
    const auto value = budget_.lookUp(reference.braced ? withoutEscapes(reference.body)
                                                       : std::string(reference.body));
    return value ? std::optional(std::string(*value)) : std::nullopt;
  }

  std::string call(string_view body, int nesting) {
    const std::size_t open = body.find('(');
    const string_view inner = body.substr(open + 1, body.size() - open - 2);
    std::string argument = nesting < kMaxNesting ? expand(inner, nesting + 1) : std::string(inner);
    return callFunction(body.substr(0, open), std::move(argument), swallowed_);
  }

  Extensions swallowed_;
  Budget budget_;
};

}  // namespace

// A "%" that ends no variable's name may begin the next one's.
std::string PBexpandEnvironment(string_view text) {
  Budget budget;
  std::string result;
  std::size_t from = text.find('%');
  result.append(text.substr(0, from));
  while (from != kNone) {
    const std::size_t to = text.find('%', from + 1);
    const auto value =
        to == kNone ? std::nullopt : budget.lookUp(text.substr(from + 1, to - from - 1));
    if (!value) {
      result.append(text.substr(from, to == kNone ? kNone : to - from));
      from = to;
      continue;
    }
    result.append(*value);
    from = text.find('%', to + 1);
    result.append(text.substr(to + 1, from == kNone ? kNone : from - to - 1));
  }
  return result;
}

void PBexpandValue(std::string& value) {
  if (!inForce()) return;
  const char* swallowed = std::getenv("MVK_SWALLOWED_EXT");
  Scanner scanner(splitExtensions(swallowed != nullptr ? swallowed : kDefaultSwallowed));
  value = scanner.expand(PBexpandEnvironment(value));
}

void PBswitchExpansionOn() { expansion.switchedOn = true; }
void PBswitchExpansionOff() { expansion.switchedOff = true; }
void PBendExpansionOff() { expansion.switchedOff = false; }
bool PBexpansionOff() { return expansion.switchedOff; }
void PBresetExpansion() { expansion = {}; }
