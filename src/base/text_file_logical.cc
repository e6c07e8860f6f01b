#include <algorithm>
#include <array>

#include "base/text_file_internal.h"

namespace {

enum class Kind : std::uint8_t { hash, backslash, blank, otherWhite, lineEnd, other };
constexpr std::size_t kKinds = 6;

constexpr std::array<Kind, 256> makeKinds() {
  std::array<Kind, 256> kinds{};
  kinds.fill(Kind::other);
  kinds['#'] = Kind::hash;
  kinds['\\'] = Kind::backslash;
  kinds[' '] = kinds['\t'] = Kind::blank;
  kinds['\f'] = kinds['\r'] = Kind::otherWhite;
  kinds['\n'] = Kind::lineEnd;
  return kinds;
}
constexpr std::array<Kind, 256> kKindOf = makeKinds();

Kind kindOf(char c) { return kKindOf[static_cast<unsigned char>(c)]; }

}  // namespace

enum class LogicalLine::Action : std::uint8_t {
  copy,          // white space
  copyContent,   // makes the line one with content
  copyTrailing,  // white space behind a backslash, which may turn out to be a join
  skip,          // the character is left out
  // From here on the physical line is done.
  endAtComment,  // a line end; the rest is the comment
  complete,      // a line end
  join,          // a blank, then the next physical line
  joinTrailing,  // the same in place of what stands behind the backslash
};

struct LogicalLine::Step {
  Action action;
  State next;
};

// Rows are states, columns kinds of character; a text that ends in any state ends
// the line. A "\r" behind a backslash is a character like any other and doesn't
// join lines.
struct LogicalLine::Steps {
  static constexpr std::array<std::array<Step, kKinds>, 3> kTable = {{
      {{{Action::endAtComment, State::text},
        {Action::skip, State::escape},
        {Action::copy, State::text},
        {Action::copy, State::text},
        {Action::complete, State::text},
        {Action::copyContent, State::text}}},
      {{{Action::copyContent, State::text},
        {Action::copyContent, State::text},
        {Action::copyTrailing, State::trailing},
        {Action::copy, State::text},
        {Action::join, State::text},
        {Action::copyContent, State::text}}},
      {{{Action::copyContent, State::text},
        {Action::copyContent, State::text},
        {Action::copy, State::trailing},
        {Action::copy, State::trailing},
        {Action::joinTrailing, State::text},
        {Action::copyContent, State::text}}},
  }};
};

void LogicalLine::clear() {
  text_.clear();
  comment_ = {};
  state_ = State::text;
  hasContent_ = false;
}

bool LogicalLine::add(std::string_view physical) {
  for (std::size_t i = 0; i < physical.size(); ++i) {
    i += copyPlainRun(physical.substr(i));
    if (i == physical.size()) break;
    const auto [action, next] = Steps::kTable[static_cast<std::size_t>(state_)]
                                             [static_cast<std::size_t>(kindOf(physical[i]))];
    state_ = next;
    store(action, physical[i]);
    if (action == Action::endAtComment) comment_ = physical.substr(i + 1);
    if (action >= Action::endAtComment) return action >= Action::join;
  }
  return false;
}

// Plain characters are the bulk of any text: taken in one piece.
std::size_t LogicalLine::copyPlainRun(std::string_view rest) {
  if (state_ != State::text) return 0;
  const auto end =
      std::find_if(rest.begin(), rest.end(), [](char c) { return kindOf(c) != Kind::other; });
  const auto length = static_cast<std::size_t>(end - rest.begin());
  text_.append(rest.substr(0, length));
  hasContent_ = hasContent_ || length > 0;
  return length;
}

void LogicalLine::store(Action action, char c) {
  switch (action) {
    case Action::copyTrailing:
      trailingStart_ = text_.size();
      break;
    case Action::copyContent:
      hasContent_ = true;
      break;
    case Action::joinTrailing:
      text_.resize(trailingStart_);
      c = ' ';
      break;
    case Action::join:
      c = ' ';
      break;
    case Action::endAtComment:
      c = '\n';
      break;
    case Action::skip:
      return;
    case Action::copy:
    case Action::complete:
      break;
  }
  text_ += c;
}
