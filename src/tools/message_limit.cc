#include "tools/message_limit.h"

#include <fmt/format.h>

namespace {

constexpr std::uint64_t kMostWarnings = 10;  // of a code

}  // namespace

void MessageLimit::tell(const Message& message) {
  if (message.severity != Severity::warning) return sink_(message);
  const std::uint64_t number = ++warnings_[message.code];
  if (number > kMostWarnings) return;
  Message told = message;
  told.showsRemedy = number == 1;
  sink_(told);
}

void MessageLimit::tellRest() {
  for (const auto& [code, count] : warnings_) {
    if (count <= kMostWarnings) continue;
    Message message;
    message.severity = Severity::note;
    message.code = code;
    message.text = fmt::format("{} more such warning{}", count - kMostWarnings,
                               count - kMostWarnings == 1 ? "" : "s");
    message.showsRemedy = false;
    sink_(message);
  }
  warnings_.clear();
}
