#pragma once

// Descriptors over files: one numbered table for every file of a database,
// whatever kind lies underneath, so that the layers above don't care. A descriptor
// is owned by who opened it, until PBcfclose. Offsets and sizes are 64-bit.
//
// A function that fails returns -2. Misuse and a failed open are posted under
// "cfio"; a failed read, write or seek leaves its reason in errno for the post of
// the caller. Writes are buffered: bytes that don't arrive show at the latest in
// PBcfflush or PBcfclose. A write that failed took nothing; what was taken before
// is kept, so that it arrives once there is room again.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

// Flags of PBcfopen.
inline constexpr int kCfNew = 0;     // empty, for writing and reading
inline constexpr int kCfRead = 1;    // an existing file, for reading
inline constexpr int kCfUpdate = 2;  // an existing file, for both

// A new file is stored compressed, unless MVK_COMPRESSION_OFF is set (read once);
// an existing file keeps its kind.
int PBcfopen(const std::string& path, int flag);
// The same, but a new file is stored plain.
int PBcfopenPlain(const std::string& path, int flag);
// The result tells whether everything written has arrived; the descriptor is free
// in any case.
int PBcfclose(int descriptor);
// Exchanges the files behind two descriptors, so that who knows one of them goes on with
// the other's file.
void PBcfswap(int descriptor, int other);

// Bytes read, fewer than `size` only at the end of the file.
std::int64_t PBcfread(int descriptor, void* buffer, std::size_t size);
// `size`, or -2 when not all was taken.
std::int64_t PBcfwrite(int descriptor, const void* buffer, std::size_t size);
// 0; `whence` is SEEK_SET, SEEK_CUR or SEEK_END.
int PBcfseek(int descriptor, std::int64_t offset, int whence);
std::int64_t PBcftell(int descriptor);
// The next byte, 0 to 255, or -1 at the end.
int PBcfgetc(int descriptor);
// The byte written.
int PBcfputc(int descriptor, int byte);
// Brings all that was written to the system. A flush that failed, on a full disk
// say, may be repeated: nothing is lost until the descriptor is closed.
int PBcfflush(int descriptor);
// Cuts the file to `size` bytes; longer than it is, it stays. 0.
int PBcftruncate(int descriptor, std::int64_t size);
// Length in bytes, what is still buffered included.
std::int64_t PBcfsize(int descriptor);
// Closes without writing what is buffered and removes the file. 0.
int PBcfdiscard(int descriptor);
// Whether the file is stored compressed; false for a bad descriptor.
bool PBcfisCompressed(int descriptor);

// Walks a compressed file, its pages, header and table, and unpacks every block: a
// line to `fault` for each fault, and their count. 0 for a plain file.
int PBcfCheck(const std::string& path, const std::function<void(std::string_view)>& fault);

// Reads by a format of "%d" (a decimal integer that fits its target), "%s" (a word
// up to white space), white space (any, also none) and characters that must stand
// there as they are; the targets in their order. "%d" and "%s" skip white space.
// The count of targets filled, which ends at the first that doesn't match; -1 when
// the file ends before the first. Any other form, or targets that don't go with
// the format, post "Bad cfscanf format" before anything is read.
using CfScanTarget = std::variant<std::int32_t*, std::int64_t*, std::string*>;
int PBcfscanf(int descriptor, std::string_view format, std::initializer_list<CfScanTarget> targets);
