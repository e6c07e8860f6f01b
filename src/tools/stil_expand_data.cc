#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>

#include "tools/stil_expand_internal.h"

namespace {

constexpr int kHex = 16;
constexpr unsigned kBitsOfDigit = 4;
constexpr unsigned kBitsOfNumber = 64;

bool isParameter(char character) { return character == '#' || character == '%'; }

bool holdsParameter(std::string_view data) { return std::ranges::any_of(data, isParameter); }

// The digits as bits, the first is the highest.
bool hexBits(std::string_view digits, std::string& bits, std::string& reason) {
  for (const char digit : digits) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(&digit, &digit + 1, value, kHex);
    if (error != std::errc() || end != &digit + 1) {
      reason = fmt::format("'{}' is no hexadecimal digit", digit);
      return false;
    }
    for (unsigned bit = kBitsOfDigit; bit-- > 0;) bits += (value >> bit & 1U) != 0 ? '1' : '0';
  }
  return true;
}

bool decimalBits(std::string_view digits, std::string& bits, std::string& reason) {
  std::uint64_t value = 0;
  const char* last = digits.data() + digits.size();
  const auto [end, error] = std::from_chars(digits.data(), last, value);
  if (error != std::errc() || end != last) {
    reason = fmt::format("'{}' is no decimal number of 64 bits", digits);
    return false;
  }
  const auto length =
      std::max<unsigned>(1, kBitsOfNumber - static_cast<unsigned>(std::countl_zero(value)));
  for (unsigned bit = length; bit-- > 0;) bits += (value >> bit & 1U) != 0 ? '1' : '0';
  return true;
}

// Cuts or fills to the number of bits that the signals take. What is cut off must be 0.
bool fitBits(std::string& bits, std::size_t wanted, bool decimal, bool alignLeft) {
  if (decimal && bits.size() < wanted) bits.insert(0, wanted - bits.size(), '0');
  if (bits.size() < wanted || (!decimal && bits.size() - wanted >= kBitsOfDigit)) return false;
  const std::size_t excess = bits.size() - wanted;
  const std::size_t cut = alignLeft && !decimal ? wanted : 0;
  if (bits.find('1', cut) < cut + excess) return false;
  bits.erase(cut, excess);
  return true;
}

// One character for as many bits as number the characters of the base.
bool appendCharacters(std::string_view bits, unsigned width, std::string_view base,
                      std::string& out, std::string& reason) {
  for (std::size_t i = 0; i + width <= bits.size(); i += width) {
    std::size_t value = 0;
    for (unsigned bit = 0; bit < width; ++bit) value = value * 2 + (bits[i + bit] == '1' ? 1 : 0);
    if (value >= base.size()) {
      reason = fmt::format("{} stands for none of the characters \"{}\"", value, base);
      return false;
    }
    out += base[value];
  }
  return true;
}

bool appendCoded(const StilCoded& coded, const StilAttributes* attributes, std::size_t signals,
                 std::string& out, std::string& reason) {
  std::string_view base = coded.characters;
  if (base.empty() && attributes != nullptr && attributes->base)
    base = attributes->base->characters;
  if (base.empty()) base = "01";
  const unsigned width = std::max(1U, static_cast<unsigned>(std::bit_width(base.size() - 1)));
  const bool decimal = coded.radix != kHex;
  std::string bits;
  if (!(decimal ? decimalBits(coded.digits, bits, reason) : hexBits(coded.digits, bits, reason))) {
    return false;
  }
  const bool alignLeft = attributes == nullptr || attributes->alignLeft;
  if (signals > 0 && !fitBits(bits, signals * width, decimal, alignLeft)) {
    reason = fmt::format("'{}' doesn't give {} characters", coded.digits, signals);
    return false;
  }
  return appendCharacters(bits, width, base, out, reason);
}

}  // namespace

bool stilCodedData(const StilData& data, const StilAttributes* attributes, std::size_t signals,
                   std::string& out, std::string& reason) {
  out.clear();
  std::size_t copied = 0;
  const bool alone = data.characters.empty() && data.coded.size() == 1;
  for (const StilCoded& coded : data.coded) {
    const std::size_t position = std::min(coded.position, data.characters.size());
    if (position > copied) out.append(data.characters, copied, position - copied);
    copied = std::max(copied, position);
    if (!appendCoded(coded, attributes, alone ? signals : 0, out, reason)) return false;
  }
  out.append(data.characters, copied);
  return true;
}

bool hasParameters(const std::vector<StilStatement>& body) {
  return std::ranges::any_of(body, [](const StilStatement& statement) {
    return hasParameters(statement.body) ||
           std::ranges::any_of(statement.assignments, [](const StilAssignment& assignment) {
             return holdsParameter(assignment.data.characters);
           });
  });
}

const StilTarget* StilExpand::Parts::target(const StilReference& reference) {
  std::string problem;
  const StilTarget* target = names->find(reference, problem);
  if (target == nullptr) fail(reference.where, kStilUnknownName, std::move(problem));
  return target;
}

bool StilExpand::Parts::characters(const StilAssignment& assignment, const StilTarget& target,
                                   std::size_t signals, std::string& buffer,
                                   std::string_view& out) {
  out = assignment.data.characters;
  if (assignment.data.coded.empty()) return true;
  std::string reason;
  if (!stilCodedData(assignment.data, target.attributes, signals, buffer, reason)) {
    return fail(assignment.signals.where, kStilDataCount, std::move(reason));
  }
  out = buffer;
  return true;
}

bool StilExpand::Parts::wrongCount(const StilAssignment& assignment, std::size_t given,
                                   std::size_t signals) {
  return fail(
      assignment.signals.where, kStilDataCount,
      fmt::format("{} character{} for the {} signal{} of '{}'", given, given == 1 ? "" : "s",
                  signals, signals == 1 ? "" : "s", assignment.signals.text));
}

bool StilExpand::Parts::hasData() {
  const StilFrame& frame = this->frame();
  return std::ranges::any_of(frame.bound, [&](std::uint32_t signal) {
    return frame.streams[signal].left() > 0 || frame.streams[signal].lead > 0;
  });
}

char StilExpand::Parts::takeOther(StilStream& stream, char parameter) {
  if (parameter == '%' && stream.whole != kNeverSet) return stream.whole;
  if (stream.lead > 0) {
    --stream.lead;
    ++frame().taken;
    return stream.before;
  }
  if (stream.next >= stream.count) return stream.after;
  stream.whole = takeNext(stream);
  return stream.whole;
}

// --- Frames --------------------------------------------------------------------------

bool StilExpand::Parts::enter(const StilStatement& call) {
  if (frames.size() == depth) {
    frames.push_back(std::make_unique<StilFrame>());
    frames.back()->streams.resize(states.size());
  }
  StilFrame& frame = *frames[depth];
  for (const std::uint32_t signal : frame.bound) frame.streams[signal] = {};
  frame.bound.clear();
  frame.passedOn.clear();
  frame.expanded.clear();
  frame.shifting = false;
  frame.taken = 0;
  ++depth;
  for (const StilAssignment& assignment : call.assignments) {
    if (!bind(assignment)) return false;
  }
  return true;
}

// Characters that follow each other belong to the signals in turn, over and over. A
// single one is for all of them.
bool StilExpand::Parts::bind(const StilAssignment& assignment) {
  const StilTarget* target = this->target(assignment.signals);
  if (target == nullptr) return false;
  const std::size_t count = target->signals.size();
  StilFrame& frame = this->frame();
  std::string& coded = assignment.data.coded.empty() ? room : frame.expanded.emplace_back();
  std::string_view data;
  if (!characters(assignment, *target, count > 1 ? count : 0, coded, data)) return false;
  const bool forAll = data.size() == 1 && count > 1;
  if (count == 0 || (!forAll && data.size() % count != 0)) {
    return wrongCount(assignment, data.size(), count);
  }
  for (std::size_t i = 0; i < count; ++i) {
    StilStream& stream = frame.streams[target->signals[i]];
    stream = {};
    stream.data = data.data() + (forAll ? 0 : i);
    stream.stride = static_cast<std::uint32_t>(count);
    stream.count = static_cast<std::uint32_t>(forAll ? 1 : data.size() / count);
    frame.bound.push_back(target->signals[i]);
  }
  if (depth > 1 && holdsParameter(data)) bindParameters(*target, data);
  return true;
}

// `#` and `%` in the data of a call within a routine: its own data from there on, which
// the inner one takes.
void StilExpand::Parts::bindParameters(const StilTarget& target, std::string_view data) {
  StilFrame& outer = *frames[depth - 2];
  StilFrame& inner = frame();
  const std::size_t count = target.signals.size();
  for (std::size_t i = 0; i < count; ++i) {
    const char character = data[data.size() == 1 ? 0 : i];
    if (!isParameter(character)) continue;
    const std::uint32_t signal = target.signals[i];
    outer.streams[signal].touched = true;
    inner.streams[signal] = outer.streams[signal];
    inner.passedOn.push_back(signal);
  }
}

void StilExpand::Parts::leave(const StilStatement& call, const StilCallable& callable) {
  StilFrame& inner = frame();
  StilFrame& outer = *frames[depth - 2];
  for (const std::uint32_t signal : inner.passedOn) {
    outer.streams[signal].next = inner.streams[signal].next;
  }
  outer.taken += inner.passedOn.empty() ? 0 : inner.taken;
  if (!states.dry() && !stopped) {
    for (const StilAssignment& assignment : call.assignments) warnUntaken(assignment, callable);
  }
  --depth;
}

void StilExpand::Parts::warnUntaken(const StilAssignment& assignment,
                                    const StilCallable& callable) {
  const StilTarget* target = this->target(assignment.signals);
  if (target == nullptr || target->signals.empty()) return;
  const StilFrame& frame = this->frame();
  const StilStream& first = frame.streams[target->signals.front()];
  const bool taken =
      first.touched || std::ranges::any_of(target->signals, [&](std::uint32_t signal) {
        return frame.streams[signal].touched;
      });
  if (taken && first.next >= first.count) return;
  if (!toldUntaken.emplace(&callable, assignment.signals.number).second) return;
  const std::string& name = callable.routine->name;
  reader.warnAt(assignment.signals.where, kStilNotCarried,
                taken ? fmt::format("'{}' takes {} of {} characters for each signal of '{}'", name,
                                    first.next, first.count, assignment.signals.text)
                      : fmt::format("'{}' takes no data for '{}'", name, assignment.signals.text));
}
