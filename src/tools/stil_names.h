#pragma once

// Resolves references to signals: names, groups of the domains in force, ranges and
// expressions over them.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/stil_model.h"

// Signals of a reference, by their index in the model, in order, with the attributes
// of the group where the reference is one.
struct StilTarget {
  std::vector<std::uint32_t> signals;
  const StilAttributes* attributes = nullptr;  // of the group or the signal; may be null
};

class StilNames {
 public:
  // Groups in groups, and brackets in expressions.
  static constexpr int kDeepest = 64;
  // Signals gone through for all references: ranges and sums of groups would make many
  // of few bytes.
  static constexpr std::size_t kMostSteps = std::size_t{1} << 26;

  // Groups of the domain "" and of `domains`, these first. The model must outlive this
  // and stay as it is.
  StilNames(const StilModel& model, std::span<const std::string> domains);

  // Null with a text when a name is unknown, an expression is wrong or a group contains
  // itself. Good until the end of this object; found at once the second time.
  //
  // A name is a signal, else a group, else a range of a bus or a bus as a whole; a signal
  // named twice by an expression stands at its first place.
  const StilTarget* find(const StilReference& reference, std::string& problem);
  // Index of a signal of that name, -1 for none.
  std::int64_t signal(std::string_view name) const;

 private:
  friend class StilNameSearch;
  struct Group {
    explicit Group(const StilGroup* definition) : group(definition) {}
    const StilGroup* group;
    bool searched = false;  // its members are being looked for
    std::unique_ptr<StilTarget> target;
  };

  const StilModel& model_;
  // Views of the model's names.
  std::unordered_map<std::string_view, std::uint32_t> signals_;
  std::unordered_map<std::string_view, std::vector<std::uint32_t>> buses_;
  std::unordered_map<std::string_view, Group> groups_;
  std::vector<std::unique_ptr<StilTarget>> found_;  // by number of the reference
  // For each signal the list it was marked in last, so that a list has it once.
  std::vector<std::uint64_t> marked_;
  std::uint64_t marks_ = 0;
  std::size_t steps_ = 0;
};
