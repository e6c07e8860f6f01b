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

}  // namespace

std::span<const ImportFormat> importFormats() { return kFormats; }

const ImportFormat* importFormatOf(std::string_view file) {
  const auto found = std::ranges::find_if(kFormats, [file](const ImportFormat& format) {
    return PBendsWithOneOf(file, format.endings);
  });
  return found != kFormats.end() ? &*found : nullptr;
}
