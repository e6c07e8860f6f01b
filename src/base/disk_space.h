#pragma once

// How much a file system has left, for work whose size is known before it begins.

#include <cstdint>
#include <optional>
#include <string>

// Bytes that files of this user can still take where `path` is; none when the system
// can't tell.
std::optional<std::uint64_t> PBfreeDiskBytes(const std::string& path);
