// Any bytes as a value: growth is bounded, what holds no reference stays, and
// variables that don't exist change nothing.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/expand.h"
#include "memory_file.h"

namespace {

bool prepare() {
  ::clearenv();
  ::setenv("F", "/data/run.v1/pat.tar.gz", 1);
  ::setenv("D", "C:\\tmp\\a.b\\", 1);
  ::setenv("R", "${F}%D%$R(", 1);
  ::setenv("E", "", 1);
  PBresetExpansion();
  PBswitchExpansionOn();
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = prepare();
  require(prepared);
  const std::string content(reinterpret_cast<const char*>(data), size);

  const std::string once = PBexpandEnvironment(content);
  require(once.size() <= content.size() + kMaxExpansionBytes);
  if (content.find('%') == std::string::npos) require(once == content);

  std::string value = content;
  PBexpandValue(value);
  require(value.size() <= once.size() + kMaxExpansionBytes);
  if (once.find('$') == std::string::npos) require(value == once);

  // A text in front without a reference is carried along.
  std::string prefixed = "plain " + content;
  PBexpandValue(prefixed);
  require(prefixed == "plain " + value);
  return 0;
}
