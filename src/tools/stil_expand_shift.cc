#include <algorithm>
#include <limits>

#include "tools/stil_expand_internal.h"

namespace {

// Signals with a `#` take at most so much in a pass of a Shift.
constexpr std::size_t kMostTaken = std::size_t{1} << 32;
constexpr std::size_t kMostLead = std::numeric_limits<std::uint32_t>::max();

}  // namespace

bool StilExpand::Parts::shift(const StilStatement& statement) {
  StilFrame& frame = this->frame();
  if (frame.shifting) return fail(statement.where, kStilUnsupported, "a Shift within a Shift");
  frame.shifted.clear();
  if (!collect(statement.body, 1)) return false;
  std::size_t passes = 0;
  for (const StilShifted& shifted : frame.shifted) {
    const std::size_t left = frame.streams[shifted.signal].left();
    passes = std::max(passes, left / shifted.takes + (left % shifted.takes != 0 ? 1 : 0));
  }
  if (passes == 0) return shiftWithoutData(statement);
  for (const StilShifted& shifted : frame.shifted) align(shifted, passes);
  frame.shifting = true;
  const StilQuiet quietAfter(quiet, quiet);
  for (std::size_t pass = 0; pass < passes && !stopped; ++pass) {
    if (!runBlock(statement.body)) return false;
    quiet = true;
  }
  frame.shifting = false;
  for (const StilShifted& shifted : frame.shifted) {
    frame.streams[shifted.signal].lead = 0;
    frame.streams[shifted.signal].after = kNeverSet;
  }
  return true;
}

// It runs as long as the chains are, when that is known, on the states in force.
bool StilExpand::Parts::shiftWithoutData(const StilStatement& statement) {
  const std::vector<StilShifted>& all = frame().shifted;
  const auto longest = std::ranges::max_element(all, {}, &StilShifted::length);
  if (longest != all.end() && longest->length > 0) {
    return repeat(statement, longest->length);
  }
  if (!states.dry() && firstAt(statement.where)) {
    reader.warnAt(statement.where, kStilNotCarried,
                  "a Shift without data on chains of unknown length does nothing");
  }
  return true;
}

// The signals with a `#`, and how many characters they take in one pass.
bool StilExpand::Parts::collect(const std::vector<StilStatement>& body, std::size_t times) {
  for (const StilStatement& statement : body) {
    const bool loops = statement.kind == StilStatementKind::loop;
    const std::size_t inside = loops ? std::min<std::uint64_t>(statement.count, kMostTaken) : 1;
    if (inside > 0 && !collect(statement.body, std::min(times * inside, kMostTaken))) return false;
    for (const StilAssignment& assignment : statement.assignments) {
      if (!collect(assignment, times)) return false;
    }
  }
  return true;
}

bool StilExpand::Parts::collect(const StilAssignment& assignment, std::size_t times) {
  if (assignment.data.characters.find('#') == std::string::npos) return true;
  const StilTarget* target = this->target(assignment.signals);
  if (target == nullptr) return false;
  const std::size_t count = target->signals.size();
  std::string_view data;
  if (!characters(assignment, *target, count, room, data)) return false;
  if (data.size() != count && data.size() != 1) return wrongCount(assignment, data.size(), count);
  for (std::size_t i = 0; i < count; ++i) {
    if (data[data.size() == 1 ? 0 : i] == '#')
      collect(target->signals[i], target->attributes, times);
  }
  return true;
}

void StilExpand::Parts::collect(std::uint32_t signal, const StilAttributes* attributes,
                                std::size_t times) {
  StilFrame& frame = this->frame();
  StilStream& stream = frame.streams[signal];
  const std::size_t known = std::size_t{stream.shifted} - 1;
  if (known < frame.shifted.size() && frame.shifted[known].signal == signal) {
    std::size_t& takes = frame.shifted[known].takes;
    takes = std::min(takes + times, kMostTaken);
    return;
  }
  StilShifted shifted{signal, alignments[signal], times, lengths[signal]};
  if (attributes != nullptr) {
    if (shifted.alignment == StilAlignment::byData && attributes->scanIn != attributes->scanOut) {
      shifted.alignment = attributes->scanOut ? StilAlignment::unload : StilAlignment::load;
    }
    shifted.length = std::max<std::size_t>(
        {shifted.length, attributes->scanIn.value_or(0), attributes->scanOut.value_or(0)});
  }
  frame.shifted.push_back(shifted);
  stream.shifted = static_cast<std::uint32_t>(frame.shifted.size());
}

// Data to load end with the Shift, data to compare begin with it.
void StilExpand::Parts::align(const StilShifted& shifted, std::size_t passes) {
  StilStream& stream = frame().streams[shifted.signal];
  const std::size_t missing = passes * shifted.takes - stream.left();
  if (stream.left() == 0 || missing == 0) return;
  bool unload = shifted.alignment == StilAlignment::unload;
  if (shifted.alignment == StilAlignment::byData) {
    const StilCharacter* wave =
        states.wave(shifted.signal, stream.data[std::size_t{stream.next} * stream.stride]);
    unload = wave != nullptr && wave->cycle.out != kNoShape && wave->cycle.in == kNoShape;
  }
  const char before = states.of(shifted.signal);
  if (unload) {
    stream.after = before;
  } else {
    stream.lead = static_cast<std::uint32_t>(std::min<std::size_t>(missing, kMostLead));
    stream.before = before;
  }
}
