// Any text as STIL tokens: the same whatever the pieces are in which it is read, whole or
// from the middle on, and a block that is skipped ends where its tokens do. The first
// byte is the size of the pieces.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "memory_file.h"
#include "tools/stil_scanner.h"

namespace {

struct Item {
  StilTokenKind kind;
  std::string text;
  StilPlace place;
  bool joined;

  explicit Item(const StilToken& token)
      : kind(token.kind), text(token.text), place(token.place), joined(token.joined) {}
};

bool same(const StilPlace& a, const StilPlace& b) {
  return a.offset == b.offset && a.line == b.line && a.column == b.column;
}
void requireSame(const Item& a, const StilToken& b) {
  require(a.kind == b.kind && a.text == b.text && same(a.place, b.place));
}

class Scan {
 public:
  Scan(std::string_view text, std::size_t piece)
      : scanner(
            openByteText(text, "text"), [this](const Message& m) { told.push_back(m); }, piece) {}
  std::vector<Message> told;
  StilScanner scanner;
};

void requireSame(const Scan& a, const Scan& b) {
  require(a.told.size() <= 1 && a.told.size() == b.told.size());
  if (a.told.empty()) return;
  const Message& first = a.told.front();
  const Message& second = b.told.front();
  require(first.text == second.text && first.line == second.line && first.column == second.column &&
          first.code == second.code);
}

std::size_t matchingBrace(const std::vector<Item>& items, std::size_t open) {
  std::size_t depth = 0;
  for (std::size_t i = open; i < items.size(); ++i) {
    if (items[i].kind == StilTokenKind::open) ++depth;
    if (items[i].kind == StilTokenKind::close && --depth == 0) return i;
  }
  return items.size();
}

// Skips the block of the n-th token.
void checkSkip(std::string_view text, std::size_t piece, const Scan& whole,
               const std::vector<Item>& items, std::size_t open) {
  Scan scan(text, piece);
  for (std::size_t i = 0; i <= open; ++i) scan.scanner.next();
  const std::size_t close = matchingBrace(items, open);
  require(scan.scanner.skipBlock() == (close < items.size()));
  if (close < items.size()) {
    requireSame(items[close], scan.scanner.token());
    if (close + 1 < items.size()) requireSame(items[close + 1], scan.scanner.next());
    require(scan.scanner.seek(items[open].place));
    requireSame(items[open], scan.scanner.token());
  } else if (whole.told.empty()) {
    require(scan.told.size() == 1 && scan.told.front().code == kStilUnended);
  } else {
    requireSame(whole, scan);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t piece = data[0] + std::size_t{1};
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);

  Scan whole(text, StilScanner::kPieceSize);
  std::vector<Item> items;
  while (whole.scanner.next().kind != StilTokenKind::end) items.emplace_back(whole.scanner.token());
  Scan cut(text, piece);
  for (const Item& item : items) {
    requireSame(item, cut.scanner.next());
    require(item.joined == cut.scanner.token().joined);
  }
  require(cut.scanner.next().kind == StilTokenKind::end);
  requireSame(whole, cut);

  constexpr std::size_t kSkips = 8;  // keeps a run short
  std::size_t skips = 0;
  for (std::size_t i = 0; i < items.size() && skips < kSkips; ++i) {
    if (items[i].kind != StilTokenKind::open) continue;
    checkSkip(text, piece, whole, items, i);
    ++skips;
  }
  return 0;
}
