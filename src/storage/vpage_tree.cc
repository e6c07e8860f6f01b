#include <algorithm>

#include "storage/vpage_internal.h"

namespace {

constexpr std::size_t kChunkEntries = 512;

bool isBelow(const VPageTree::Entry& entry, std::uint32_t id) { return entry.id < id; }

}  // namespace

std::uint64_t VPageTree::end() const {
  return chunks_.empty() ? 0 : std::uint64_t{chunks_.back().back().id} + 1;
}

void VPageTree::append(std::uint32_t id, std::uint64_t offset) {
  if (chunks_.empty() || chunks_.back().size() == kChunkEntries) chunks_.emplace_back();
  chunks_.back().push_back({id, offset});
}

std::size_t VPageTree::chunkOf(std::uint32_t id) const {
  const auto chunk =
      std::lower_bound(chunks_.begin(), chunks_.end(), id,
                       [](const Chunk& below, std::uint32_t to) { return below.back().id < to; });
  return static_cast<std::size_t>(chunk - chunks_.begin());
}

VPageTree::Entry* VPageTree::find(std::uint32_t id) {
  const std::size_t place = chunkOf(id);
  if (place == chunks_.size()) return nullptr;
  Chunk& chunk = chunks_[place];
  const auto entry = std::lower_bound(chunk.begin(), chunk.end(), id, isBelow);
  return entry->id == id ? &*entry : nullptr;
}

const VPageTree::Entry* VPageTree::next(std::int64_t id) const {
  if (id >= static_cast<std::int64_t>(end()) - 1) return nullptr;
  const auto wanted = static_cast<std::uint32_t>(std::max<std::int64_t>(id + 1, 0));
  const Chunk& chunk = chunks_[chunkOf(wanted)];
  return &*std::lower_bound(chunk.begin(), chunk.end(), wanted, isBelow);
}

void VPageTree::erase(std::uint32_t id) {
  const Entry* entry = find(id);
  if (entry == nullptr) return;
  const std::size_t place = chunkOf(id);
  Chunk& chunk = chunks_[place];
  chunk.erase(chunk.begin() + (entry - chunk.data()));
  if (chunk.empty()) chunks_.erase(chunks_.begin() + static_cast<std::ptrdiff_t>(place));
}
