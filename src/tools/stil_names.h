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
  // Groups of the domain "" and of `domains`, these first. The model must outlive this.
  StilNames(const StilModel& model, std::span<const std::string> domains);

  // Null with a text when a name is unknown, an expression is wrong or a group contains
  // itself. Good until the end of this object; found at once the second time.
  const StilTarget* find(const StilReference& reference, std::string& problem);
  // Index of a signal of that name, -1 for none.
  std::int64_t signal(std::string_view name) const;

 private:
  const StilModel& model_;
  std::unordered_map<std::string, std::uint32_t> signals_;
  std::unordered_map<std::string, const StilGroup*> groups_;
  std::vector<std::unique_ptr<StilTarget>> found_;  // by number of the reference
};
