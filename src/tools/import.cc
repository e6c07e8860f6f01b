#include "tools/import.h"

#include <algorithm>
#include <array>

#include "base/text.h"

namespace {

constexpr std::array kFormats = {
    ImportFormat{"stil", ".stil .stil.gz", "Standard Test Interface Language, IEEE 1450",
                 importStil},
    ImportFormat{"vcd", ".vcd .vcd.gz .evcd .evcd.gz",
                 "Value change dump, plain and extended, IEEE 1364", importVcd},
};

// Whether capital or not.
bool endsWith(std::string_view file, std::string_view ending) {
  return file.size() >= ending.size() && PBstrEq(file.substr(file.size() - ending.size()), ending);
}

bool endsWithOne(std::string_view file, std::string_view endings) {
  while (!endings.empty()) {
    const std::size_t blank = std::min(endings.find(' '), endings.size());
    if (endsWith(file, endings.substr(0, blank))) return true;
    endings.remove_prefix(std::min(blank + 1, endings.size()));
  }
  return false;
}

}  // namespace

std::span<const ImportFormat> importFormats() { return kFormats; }

const ImportFormat* importFormatOf(std::string_view file) {
  const auto found = std::ranges::find_if(
      kFormats, [file](const ImportFormat& format) { return endsWithOne(file, format.endings); });
  return found != kFormats.end() ? &*found : nullptr;
}
