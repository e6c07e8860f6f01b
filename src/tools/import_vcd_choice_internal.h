#pragma once

// The choice of signals in two parts: finding what names and patterns stand for
// (import_vcd_choice_find.cc), and making signals of it.

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tools/import_vcd_internal.h"

inline constexpr std::size_t kVcdNamesShown = 8;

// A name that an option gives.
struct VcdWanted {
  std::string_view text;
  SignalDirection direction = INPUT;
  bool clock = false;
  bool pattern = false;
};

// A variable that is taken, or one bit of it.
struct VcdTaken {
  std::size_t var = 0;
  std::size_t wanted = 0;
  std::optional<std::int32_t> index;  // of the bit
};

// Variables that a plain name stands for, the whole name before its end.
struct VcdFound {
  std::vector<VcdTaken> whole;
  std::vector<VcdTaken> ending;
};

// Of the bits of a variable; without a range the last one is 0.
struct VcdBounds {
  std::int64_t left;
  std::int64_t right;
};
inline VcdBounds vcdBounds(const VcdVar& var) {
  if (var.ranged) return {var.left, var.right};
  return {std::int64_t{var.width} - 1, 0};
}

class VcdChooser {
 public:
  VcdChooser(VcdReader& reader, const ImportOptions& options)
      : reader_(reader), header_(reader.header()), options_(options) {}

  bool run(VcdChoice& choice);

 private:
  bool refuse(std::string text) {
    reader_.tell(Severity::error, kVcdNoSignals, std::move(text));
    return false;
  }
  bool useScope(std::int32_t scope);
  // The name of a variable below --scope; false for one that isn't there.
  bool nameOf(std::size_t var, std::string& name);
  std::string shown(std::size_t var);

  void addWanted(const std::vector<std::string>& names, SignalDirection direction, bool clock);
  void find();
  void enterEndings(std::size_t wanted, std::string_view name);
  void findNames(std::size_t var, const std::vector<std::size_t>& wanted);
  bool settlePlain(std::size_t wanted, const VcdFound& found);
  bool unknown(std::string_view name);
  bool ambiguous(std::string_view name, const std::vector<VcdTaken>& found);
  void matchPatterns();
  bool take(const VcdTaken& taken);

  bool takePorts();
  bool nothingWanted();

  void shorten();
  bool expand(VcdChoice& choice);
  bool addBits(const VcdTaken& taken, const std::string& name, VcdChoice& choice);

  VcdReader& reader_;
  const VcdHeader& header_;
  const ImportOptions& options_;
  std::vector<VcdWanted> wanted_;
  // Names and their ends behind a dot, with the names that they belong to.
  std::unordered_map<std::string_view, std::vector<std::size_t>> endings_;
  std::vector<VcdFound> found_;                                        // by name
  std::map<std::pair<std::size_t, std::int64_t>, std::size_t> taken_;  // variable and bit
  std::vector<VcdTaken> list_;
  std::unordered_map<std::uint32_t, std::int32_t> netScopes_;  // where a net was taken
  std::unordered_set<std::string> names_;
  std::size_t columns_ = 0;
  std::string cut_;  // what names are shown without
  std::int32_t pathScope_ = -2;
  std::string path_;
  bool inside_ = false;
};
