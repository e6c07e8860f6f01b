#pragma once

// Numbers as they stand on disk, most significant byte first.

#include <cstdint>
#include <string>
#include <vector>

inline std::string bigEndian(std::uint64_t value, std::size_t size = 4) {
  std::string bytes(size, '\0');
  for (std::size_t i = size; i-- > 0; value >>= 8) bytes[i] = static_cast<char>(value);
  return bytes;
}

// 32-bit numbers.
inline std::string words(const std::vector<std::uint32_t>& values) {
  std::string bytes;
  for (const std::uint32_t value : values) bytes += bigEndian(value);
  return bytes;
}
