#include "support/shipped.h"

#include <fstream>
#include <iterator>

std::string shippedFile(const std::string& name) { return SHIPPED_ROOT "/" + name; }

std::string shippedText(const std::string& name) {
  std::ifstream in(shippedFile(name));
  return {std::istreambuf_iterator<char>(in), {}};
}
