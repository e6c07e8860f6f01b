// The test of a block file's header and free list against each other.

#include <fmt/format.h>

#include "storage/page_internal.h"

namespace {

class FreeListCheck {
 public:
  FreeListCheck(PageFile& file, const PageFault& fault) : file_(file), fault_(fault) {}

  int run() {
    const PageHeader& header = file_.header;
    if (header.lastFree != kNoBlock && header.lastFree == header.numBlocks - 1) {
      report(fmt::format("header: the last block, {}, is free", header.lastFree));
    }
    std::uint32_t before = kNoBlock;
    std::uint32_t at = header.firstFree;
    std::uint32_t count = 0;
    while (at != kNoBlock && count < header.numFree) {
      const std::optional<FreeLinks> links = readLinks(file_, at);
      if (!links) return report(fmt::format("free list: block {} can't be read", at));
      if (!testLinks(at, before, *links)) return faults_;
      before = at;
      at = links->next;
      ++count;
    }
    if (count != header.numFree || at != kNoBlock || before != header.lastFree) {
      report(fmt::format("free list: ends at block {} after {} blocks, not at {} after {}",
                         static_cast<std::int32_t>(before), count,
                         static_cast<std::int32_t>(header.lastFree), header.numFree));
    }
    return faults_;
  }

 private:
  int report(const std::string& text) {
    if (fault_) fault_(text);
    return ++faults_;
  }

  // Whether the walk can go on.
  bool testLinks(std::uint32_t block, std::uint32_t before, const FreeLinks& links) {
    if (links.prev != before) {
      report(fmt::format("free list: block {} names {} as the one before, not {}", block,
                         static_cast<std::int32_t>(links.prev), static_cast<std::int32_t>(before)));
    }
    if (links.next == kNoBlock) return true;
    if (links.next > block && links.next < file_.header.numBlocks) return true;
    report(fmt::format("free list: block {} is followed by {}", block, links.next));
    return false;
  }

  PageFile& file_;
  const PageFault& fault_;
  int faults_ = 0;
};

}  // namespace

int PageCheck(int handle, const PageFault& fault) {
  PageFile* file = findPageFile(handle);
  return file != nullptr ? FreeListCheck(*file, fault).run() : -2;
}
