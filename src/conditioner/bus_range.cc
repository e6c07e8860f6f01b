#include "conditioner/bus_range.h"

#include <algorithm>
#include <cerrno>
#include <optional>

#include "base/errors.h"
#include "base/text.h"
#include "conditioner/messages.h"
#include "pvb/signal.h"

namespace {

// The row of the message; its last argument is the list's name unless noted.
using Fault = std::optional<ConditionerMessage>;

bool isScalarName(std::string_view name, int database) {
  const PVBsignal* all = PVBsignalInqByID(database, kGroupAll);
  return all != nullptr && std::ranges::any_of(all->members, [&](PVBid id) {
           const PVBsignal* signal = PVBsignalInqByID(database, id);
           return signal != nullptr && signal->name == name;
         });
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The index: digits and at most one pair of periods.
Fault indexFault(std::string_view index) {
  bool pairSeen = false;
  for (std::size_t i = 0; i < index.size(); ++i) {
    if (isDigit(index[i])) continue;
    if (index[i] != '.') return kMalformedIndex;
    const bool pair = i + 1 < index.size() && index[i + 1] == '.';
    if (!pair || pairSeen) return kNoTwoPeriods;
    pairSeen = true;
    ++i;
  }
  return {};
}

Fault faultOf(std::string_view name, int database) {
  if (name.find('[') == name.npos) return kNoLeftBracket;
  if (name.find(']') == name.npos) return kNoRightBracket;
  if (isScalarName(busBase(name), database)) return kBusNotFound;
  if (name.find('.') == name.npos) return kNoTwoPeriods;
  if (busBase(name).empty()) return kNoBusName;
  return indexFault(busIndexText(name));
}

}  // namespace

bool isBusRange(std::string_view name) {
  return name.find_first_of("[]") != name.npos && name.find('.') != name.npos;
}

bool validateBus(std::string_view name, std::string_view listName, int database,
                 std::string_view srcPath) {
  const Fault fault = faultOf(name, database);
  if (!fault) return true;
  errno = 0;
  PBerrPush(PBconditionerError, *fault, "validateBus", name,
            *fault == kBusNotFound ? srcPath : listName);
  return false;
}

bool isValidBus(std::string_view name, int database) { return !faultOf(name, database); }

// --- Parts of a name -----------------------------------------------------------------

std::string_view busBase(std::string_view name) {
  const std::size_t bracket = name.rfind('[');
  return bracket == name.npos ? std::string_view() : name.substr(0, bracket);
}

std::string_view busIndexText(std::string_view name) {
  const std::size_t bracket = name.rfind('[');
  if (bracket == name.npos || bracket + 2 > name.size()) return {};
  return name.substr(bracket + 1, name.size() - bracket - 2);
}

int busLeftIndex(std::string_view name) { return PBtextToInt(busIndexText(name)); }

int busRightIndex(std::string_view name) {
  const std::string_view index = busIndexText(name);
  return PBtextToInt(index.substr(index.rfind('.') + 1));
}

std::string busMemberName(std::string_view base, std::string_view indexText) {
  return std::string(base) + "[" + std::string(indexText) + "]";
}

BusRange::BusRange(std::string_view name)
    : base(busBase(name)),
      low(std::min(busLeftIndex(name), busRightIndex(name))),
      high(std::max(busLeftIndex(name), busRightIndex(name))) {}

std::string BusRange::member(std::int64_t index) const {
  return busMemberName(base, std::to_string(index));
}
