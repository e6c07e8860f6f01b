#include "equations/time_update.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>

#include "base/errors.h"
#include "equations/expression.h"
#include "pvb/database.h"
#include "pvb/pattern.h"

namespace {

constexpr std::string_view kPeriodEnding = ".period";
constexpr const char* kOwnPeriod = "period";

using Tell = std::function<void(const TimeVariableFault& fault)>;

class TimeUpdate {
 public:
  TimeUpdate(int database, const ssData& equations, const Tell& tell)
      : database_(database), scope_(equations), tell_(tell) {}

  void plate(PVBtimePlate& plate) {
    fault_ = TimeVariableFault();
    fault_.timeplate = plate.id;
    fault_.period = true;
    if (plate.name) period(plate, *plate.name + std::string(kPeriodEnding));
    fault_.period = false;
    scope_.setLocal(kOwnPeriod, quantityOfTime(plate.period));
    for (std::size_t level = 0; level < plate.levels.size(); ++level) {
      fault_.level = static_cast<int>(level);
      for (std::size_t track = 0; track < plate.levels[level].tracks.size(); ++track) {
        fault_.track = static_cast<int>(track);
        events(plate.levels[level].tracks[track]);
      }
    }
  }

  bool changed() const { return changed_; }
  bool periodChanged() const { return periodChanged_; }
  bool failed() const { return failed_; }

 private:
  void period(PVBtimePlate& plate, const std::string& variable) {
    if (!scope_.has(variable)) return;
    Quantity value;
    ExpressionError error;
    TIME time;
    if (!scope_.variable(variable, value, error)) return undefined(expressionErrorText(error));
    if (!toTime(value, time)) return;
    if (time == TIME_ZERO) return fail(TimeVariableFault::Kind::notPositive, "the period is zero");
    if (time == plate.period) return;
    if (PVBgetSection(database_, kSectionPatterns) == nullptr) {
      return fail(TimeVariableFault::Kind::notStored,
                  "the period has changed, but the pattern isn't open");
    }
    plate.period = time;
    changed_ = periodChanged_ = true;
  }

  void events(PVBtrack& track) {
    const std::size_t count = std::min(track.eventTimes.size(), track.eventExprs.size());
    for (std::size_t i = 0; i < count; ++i) {
      if (!track.eventExprs[i]) continue;
      fault_.event = static_cast<int>(i);
      event(*track.eventExprs[i], track.eventTimes[i]);
    }
  }

  void event(const std::string& expression, TIME& stored) {
    Quantity value;
    ExpressionError error;
    TIME time;
    if (!scope_.evaluate(expression, value, error)) return undefined(expressionErrorText(error));
    if (!toTime(value, time) || time == stored) return;
    stored = time;
    changed_ = true;
  }

  bool toTime(const Quantity& value, TIME& time) {
    std::string reason;
    if (quantityToTime(value, time, reason)) return true;
    const bool isTime = value.dimension == kTimeDimension;
    fail(isTime && value.number < 0 ? TimeVariableFault::Kind::notPositive
                                    : TimeVariableFault::Kind::undefined,
         reason);
    return false;
  }

  void undefined(std::string reason) {
    fail(TimeVariableFault::Kind::undefined, std::move(reason));
  }
  void fail(TimeVariableFault::Kind kind, std::string reason) {
    failed_ = true;
    fault_.kind = kind;
    fault_.reason = std::move(reason);
    tell_(fault_);
  }

  int database_;
  ExpressionScope scope_;
  const Tell& tell_;
  TimeVariableFault fault_;
  bool changed_ = false;
  bool periodChanged_ = false;
  bool failed_ = false;
};

}  // namespace

std::string timeVariableFaultText(int database, const TimeVariableFault& fault) {
  const PVBtimePlate* plate = PVBtimePlateInqByID(database, fault.timeplate);
  const bool named = plate != nullptr && plate->name;
  const std::string text = named ? fmt::format("timeplate \"{}\"", *plate->name)
                                 : fmt::format("timeplate #{}", fault.timeplate);
  if (fault.period) return fmt::format("{}, period: {}", text, fault.reason);
  const std::string level = fault.level > 0 ? fmt::format(", level {}", fault.level + 1) : "";
  return fmt::format("{}{}, track {}, event {}: {}", text, level, fault.track + 1, fault.event + 1,
                     fault.reason);
}

int PVBtimeVariableUpdate(int database, const Tell& tell) {
  PVBdatabase* slot = PVBgetSection(database, kSectionTimePlates);
  if (slot == nullptr) return -2;
  const std::optional<ssData> equations = ssOpen(PVBpath(database));
  if (!equations) return -2;
  TimeUpdate update(database, *equations, tell);
  for (const auto& plate : slot->timePlates->plates) {
    if (plate) update.plate(*plate);
  }
  if (update.changed()) slot->timePlates->changed = true;
  const bool summed = !update.periodChanged() || PVBpatternFixTimes(database) == 0;
  return summed && !update.failed() ? 0 : -2;
}

int PVBtimeVariableUpdate(int database) {
  return PVBtimeVariableUpdate(database, [database](const TimeVariableFault& fault) {
    errno = 0;
    PBpostError("PVBtimeVariableUpdate", 0, timeVariableFaultText(database, fault));
  });
}
