#pragma once

// What the files of the state vectors share: the section's data, the packed form,
// the names, the cache. Functions give 0 or -2 (null) and set the status of the
// database, unless they say otherwise.

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "base/file_copy.h"
#include "pvb/id.h"
#include "storage/vpage.h"

// A vector has a cell for each index of an id at most, so its bytes have a bound
// that no token on disk can exceed.
inline constexpr std::size_t kMaxVectorBytes = static_cast<std::size_t>(kMaxIdIndex) / 2 + 1;
// 'X' in both halves: cells that were never set.
inline constexpr char kFillByte = 0x44;

// A vector unpacked.
struct StateVector {
  PVBid id = UNDEF;
  std::string bytes;
  std::uint32_t value = 0;
  bool dirty = false;       // not packed since its last change
  std::size_t counted = 0;  // bytes of it in the sum over the cache
};

// Two views of one table. Invariant: each entry of `byId` views a key of `byName`.
struct StateNames {
  std::map<std::string, PVBid, std::less<>> byName;
  std::map<PVBid, std::string_view> byId;

  // False when the name or the id is in the table already.
  bool add(std::string_view name, PVBid id);
  // Whether the vector had a name.
  bool remove(PVBid id);
  // Empty for a vector without a name.
  std::string_view of(PVBid id) const;
};

struct PVBscanData {
  // The file changed is a copy in the temporary directory, made before the first
  // change: until a save puts it in place, the database's own stays as it is.
  // Invariant: empty as long as `file` is the database's own, open for reading.
  TempFile copy;
  VPageFilePtr file;  // null while there is neither
  StateNames names;
  bool namesDirty = false;       // pages 1 and 2 are behind the vectors
  std::size_t numVectors = 64;   // vectors cached
  std::list<StateVector> cache;  // most recently used first
  std::size_t cachedBytes = 0;   // held by `cache`
  std::unordered_map<PVBid, std::list<StateVector>::iterator> cached;
  bool changed = false;
};

// A page in use, given back with its owner.
class VPageHold {
 public:
  VPageHold(VPageFile& file, std::uint32_t page, void* data)
      : file_(file), page_(page), data_(static_cast<char*>(data)) {}
  ~VPageHold() {
    if (data_ != nullptr) VPageRelease(file_, page_);
  }
  VPageHold(const VPageHold&) = delete;
  VPageHold& operator=(const VPageHold&) = delete;

  explicit operator bool() const { return data_ != nullptr; }
  char* data() const { return data_; }

 private:
  VPageFile& file_;
  std::uint32_t page_;
  char* data_;
};

// --- The packed form, state_vector_pack.cc -------------------------------------------

// Bytes that packStates takes, end mark and value included. No byte may be zero.
std::size_t packedStateSize(std::string_view bytes);
// The bytes it came to; nothing is written behind `out`.
std::size_t packStates(std::string_view bytes, std::uint32_t value, std::span<char> out);
// False for a text without an end mark, a token without a byte to repeat, and more
// than kMaxVectorBytes. What follows the end mark is left alone.
bool unpackStates(std::string_view packed, std::string& bytes, std::uint32_t& value);

// --- Names, state_vector_names.cc ----------------------------------------------------

// The first pages, which hold no vector.
inline constexpr std::uint32_t kHeaderPage = 0;
inline constexpr std::uint32_t kIndexPage = 1;
inline constexpr std::uint32_t kNamesPage = 2;
inline constexpr std::uint32_t kFirstVectorPage = 3;

// Makes the pages of an empty, new file.
int stateNamesCreate(int database, PVBscanData& scan);
// Reads the names; from the vectors themselves when the table isn't up to date.
int stateNamesLoad(int database, PVBscanData& scan);
// Brings the table on disk up to date.
int stateNamesStore(int database, PVBscanData& scan);

// --- Cache, state_vector_cells.cc ----------------------------------------------------

// The vector, which becomes the most recently used; good until the next call.
StateVector* stateVectorFetch(int database, PVBscanData& scan, PVBid vector);
// Packs every vector changed.
int stateVectorsPack(int database, PVBscanData& scan);
// Drops a vector without packing it.
void stateVectorForget(PVBscanData& scan, PVBid vector);

// --- File, failure and ids, state_vector.cc ------------------------------------------

// Makes a file that can be changed; called before every change of a page.
int vectorsWillChange(int database, PVBscanData& scan);
// Sets the status that stands for VPageError; -2.
int vectorPageFailure(int database);
// Sets a status; -2.
int vectorFailure(int database, std::int32_t status);
// Whether a vector of this id can be asked for: there is a file, class and page are
// a vector's; otherwise false with a status. Whether the page exists, the file tells.
bool vectorIdFits(int database, const PVBscanData& scan, PVBid vector);
inline std::uint32_t vectorPage(PVBid vector) {
  return static_cast<std::uint32_t>(PVBidIndex(vector));
}
