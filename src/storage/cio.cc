#include "storage/cio.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "base/errors.h"
#include "base/platform.h"
#include "base/text.h"
#include "storage/cfile.h"
#include "storage/plain_file.h"

namespace {

constexpr std::size_t kTableGrowth = 16;
constexpr int kPlain = 0;
constexpr int kCompressed = 1;
constexpr int kFree = 2;

struct Entry {
  std::unique_ptr<PlainFile> plain;
  std::unique_ptr<CompressedFile> compressed;
  int kind = kFree;
  std::string name;
};

// --- Kinds ---------------------------------------------------------------------------

// What a kind of file does; the results are those of the public functions.
struct KindRow {
  std::int64_t (*read)(Entry& entry, void* buffer, std::size_t size);
  std::int64_t (*write)(Entry& entry, const void* buffer, std::size_t size);
  int (*seek)(Entry& entry, std::int64_t offset, int whence);
  std::int64_t (*tell)(Entry& entry);
  int (*getc)(Entry& entry);
  void (*ungetc)(Entry& entry);  // takes back what getc has just given
  int (*flush)(Entry& entry);
  int (*truncate)(Entry& entry, std::int64_t size);
  std::int64_t (*size)(Entry& entry);
  int (*close)(Entry& entry);
  int (*discard)(Entry& entry);  // closes without writing; the file stays
};

// Every kind has the same functions over the handle that `file` names.
template <auto file>
constexpr KindRow kindOver() {
  return {
      [](Entry& entry, void* buffer, std::size_t size) {
        return (entry.*file)->read(static_cast<char*>(buffer), size);
      },
      [](Entry& entry, const void* buffer, std::size_t size) {
        return (entry.*file)->write(static_cast<const char*>(buffer), size);
      },
      [](Entry& entry, std::int64_t offset, int whence) {
        return (entry.*file)->seek(offset, whence);
      },
      [](Entry& entry) { return (entry.*file)->tell(); },
      [](Entry& entry) { return (entry.*file)->getc(); },
      [](Entry& entry) { (entry.*file)->ungetc(); },
      [](Entry& entry) { return (entry.*file)->flush(); },
      [](Entry& entry, std::int64_t size) { return (entry.*file)->truncate(size); },
      [](Entry& entry) { return (entry.*file)->size(); },
      [](Entry& entry) { return (entry.*file)->close(); },
      [](Entry& entry) { return (entry.*file)->discard(); },
  };
}

// By Entry::kind.
constexpr std::array<KindRow, 2> kKinds = {
    {kindOver<&Entry::plain>(), kindOver<&Entry::compressed>()}};

const KindRow& kindOf(const Entry& entry) { return kKinds[static_cast<std::size_t>(entry.kind)]; }

// --- The table -----------------------------------------------------------------------

// Every open file of the process, by descriptor. PBcfopen fills the first free
// entry, PBcfclose frees it; it grows by kTableGrowth and never shrinks. Never
// destroyed: what a close needs may be gone by then, and a run that ends without
// closing must not write.
std::vector<Entry>& table = *std::make_unique<std::vector<Entry>>().release();

int postMisuse(ErrArg text) {
  errno = 0;
  PBpostError("cfio", 0, text);
  return -2;
}

Entry* findEntry(int descriptor) {
  const auto index = static_cast<std::size_t>(descriptor);
  if (descriptor >= 0 && index < table.size() && table[index].kind != kFree) return &table[index];
  postMisuse("Bad cfile descriptor");
  return nullptr;
}

std::size_t freePlace() {
  std::size_t place = 0;
  while (place < table.size() && table[place].kind != kFree) ++place;
  if (place == table.size()) table.resize(table.size() + kTableGrowth);
  return place;
}

// By the flag of PBcfopen.
constexpr std::array<int, 3> kOpenFlags = {O_RDWR | O_CREAT | O_TRUNC, O_RDONLY, O_RDWR};

// Read once.
bool compressionIsOn() {
  static const bool on = std::getenv("MVK_COMPRESSION_OFF") == nullptr;
  return on;
}

// An entry with an open file; kFree after a failure.
Entry openEntry(const std::string& path, int flag, bool newCompressed) {
  Entry entry;
  entry.name = path;
  const std::optional<bool> compressed = flag == kCfNew ? newCompressed : isCompressedFile(path);
  if (!compressed) return entry;
  if (*compressed) {
    entry.compressed = newCompressed ? CompressedFile::create(path)
                                     : CompressedFile::open(path, flag == kCfUpdate);
    if (entry.compressed) entry.kind = kCompressed;
  } else {
    entry.plain = PlainFile::open(path, kOpenFlags[static_cast<std::size_t>(flag)]);
    if (entry.plain) entry.kind = kPlain;
  }
  return entry;
}

int openFile(const std::string& path, int flag, bool newCompressed) {
  if (flag < kCfNew || flag > kCfUpdate) return postMisuse("Bad cfopen flag");
  Entry entry = openEntry(path, flag, newCompressed);
  if (entry.kind == kFree) {
    PBpostError("cfio", 0, "could not open file " + path);
    return -2;
  }
  const std::size_t place = freePlace();
  table[place] = std::move(entry);
  return static_cast<int>(place);
}

// --- Scanning ------------------------------------------------------------------------

// Of a byte as getc gives it; the end and a failure are none.
bool isSpace(int c) { return c >= 0 && PBisSpace(static_cast<char>(c)); }

enum class ItemForm { space, literal, integer, word };

struct FormatItem {
  ItemForm form;
  char literal = '\0';
};

std::optional<FormatItem> nextItem(std::string_view& format) {
  const char c = format.front();
  format.remove_prefix(1);
  if (isSpace(c)) return FormatItem{ItemForm::space};
  if (c != '%') return FormatItem{ItemForm::literal, c};
  const char form = format.empty() ? '\0' : format.front();
  if (form != 'd' && form != 's') return std::nullopt;
  format.remove_prefix(1);
  return FormatItem{form == 'd' ? ItemForm::integer : ItemForm::word};
}

bool takes(const CfScanTarget& target, ItemForm form) {
  return std::holds_alternative<std::string*>(target) == (form == ItemForm::word);
}

// The items of a format whose conversions go with the targets; none otherwise.
std::optional<std::vector<FormatItem>> parseFormat(std::string_view format,
                                                   std::initializer_list<CfScanTarget> targets) {
  std::vector<FormatItem> items;
  const auto* target = targets.begin();
  while (!format.empty()) {
    const std::optional<FormatItem> item = nextItem(format);
    if (!item) return std::nullopt;
    items.push_back(*item);
    if (item->form != ItemForm::integer && item->form != ItemForm::word) continue;
    if (target == targets.end() || !takes(*target++, item->form)) return std::nullopt;
  }
  if (target != targets.end()) return std::nullopt;
  return items;
}

enum class ScanResult { matched, mismatch, end, error };

class Scanner {
 public:
  explicit Scanner(Entry& entry) : entry_(entry), kind_(kindOf(entry)) {}

  ScanResult skipSpace() {
    int c = kind_.getc(entry_);
    while (isSpace(c)) c = kind_.getc(entry_);
    return putBack(c);
  }

  ScanResult literal(char wanted) {
    const int c = kind_.getc(entry_);
    if (c == static_cast<unsigned char>(wanted)) return ScanResult::matched;
    const ScanResult result = putBack(c);
    return result == ScanResult::matched ? ScanResult::mismatch : result;
  }

  ScanResult word(std::string& out) {
    out.clear();
    return collect(out, [](int c) { return !isSpace(c); });
  }

  template <typename Integer>
  ScanResult integer(Integer& out) {
    std::string text;
    const ScanResult result = collect(text, [&](int c) {
      return (c >= '0' && c <= '9') || (text.empty() && (c == '-' || c == '+'));
    });
    if (result != ScanResult::matched) return result;
    const char* first = text.data() + (text.front() == '+' ? 1 : 0);
    const char* last = text.data() + text.size();
    Integer value = 0;
    if (std::from_chars(first, last, value).ec != std::errc()) return ScanResult::mismatch;
    out = value;
    return ScanResult::matched;
  }

 private:
  // Puts back what getc gave, if that was a byte.
  ScanResult putBack(int c) {
    if (c == -2) return ScanResult::error;
    if (c == -1) return ScanResult::end;
    kind_.ungetc(entry_);
    return ScanResult::matched;
  }

  // White space away, then the bytes that belong: at least one.
  template <typename Belongs>
  ScanResult collect(std::string& out, Belongs belongs) {
    if (const ScanResult start = skipSpace(); start != ScanResult::matched) return start;
    int c = kind_.getc(entry_);
    for (; c >= 0 && belongs(c); c = kind_.getc(entry_)) out.push_back(static_cast<char>(c));
    if (putBack(c) == ScanResult::error) return ScanResult::error;
    return out.empty() ? ScanResult::mismatch : ScanResult::matched;
  }

  Entry& entry_;
  const KindRow& kind_;
};

ScanResult convert(Scanner& scanner, const CfScanTarget& target) {
  if (std::string* const* word = std::get_if<std::string*>(&target)) return scanner.word(**word);
  if (std::int64_t* const* wide = std::get_if<std::int64_t*>(&target)) {
    return scanner.integer(**wide);
  }
  return scanner.integer(*std::get<std::int32_t*>(target));
}

// White space in a format also goes with the end of the file.
ScanResult matchText(Scanner& scanner, const FormatItem& item) {
  if (item.form == ItemForm::literal) return scanner.literal(item.literal);
  const ScanResult result = scanner.skipSpace();
  return result == ScanResult::end ? ScanResult::matched : result;
}

int scan(Scanner& scanner, const std::vector<FormatItem>& items, const CfScanTarget* target) {
  int filled = 0;
  for (const FormatItem& item : items) {
    const bool conversion = item.form == ItemForm::integer || item.form == ItemForm::word;
    const ScanResult result = conversion ? convert(scanner, *target++) : matchText(scanner, item);
    if (result == ScanResult::error) return -2;
    if (result == ScanResult::end && filled == 0) return -1;
    if (result != ScanResult::matched) break;
    if (conversion) ++filled;
  }
  return filled;
}

}  // namespace

int PBcfopen(const std::string& path, int flag) {
  return openFile(path, flag, flag == kCfNew && compressionIsOn());
}

int PBcfopenPlain(const std::string& path, int flag) { return openFile(path, flag, false); }

void PBcfswap(int descriptor, int other) {
  Entry* entry = findEntry(descriptor);
  Entry* otherEntry = findEntry(other);
  if (entry != nullptr && otherEntry != nullptr) std::swap(*entry, *otherEntry);
}

int PBcfclose(int descriptor) {
  Entry* entry = findEntry(descriptor);
  if (entry == nullptr) return -2;
  const int result = kindOf(*entry).close(*entry);
  *entry = {};
  return result;
}

int PBcfdiscard(int descriptor) {
  Entry* entry = findEntry(descriptor);
  if (entry == nullptr) return -2;
  const bool closed = kindOf(*entry).discard(*entry) == 0;
  const bool removed = platform().remove(entry->name.c_str()) == 0;
  *entry = {};
  return closed && removed ? 0 : -2;
}

std::int64_t PBcfread(int descriptor, void* buffer, std::size_t size) {
  Entry* entry = findEntry(descriptor);
  return entry != nullptr ? kindOf(*entry).read(*entry, buffer, size) : -2;
}

std::int64_t PBcfwrite(int descriptor, const void* buffer, std::size_t size) {
  Entry* entry = findEntry(descriptor);
  return entry != nullptr ? kindOf(*entry).write(*entry, buffer, size) : -2;
}

int PBcfseek(int descriptor, std::int64_t offset, int whence) {
  Entry* entry = findEntry(descriptor);
  return entry != nullptr ? kindOf(*entry).seek(*entry, offset, whence) : -2;
}

std::int64_t PBcftell(int descriptor) {
  Entry* entry = findEntry(descriptor);
  return entry != nullptr ? kindOf(*entry).tell(*entry) : -2;
}

int PBcfgetc(int descriptor) {
  Entry* entry = findEntry(descriptor);
  return entry != nullptr ? kindOf(*entry).getc(*entry) : -2;
}

int PBcfputc(int descriptor, int byte) {
  const auto value = static_cast<unsigned char>(byte);
  return PBcfwrite(descriptor, &value, 1) == 1 ? value : -2;
}

int PBcfflush(int descriptor) {
  Entry* entry = findEntry(descriptor);
  return entry != nullptr ? kindOf(*entry).flush(*entry) : -2;
}

int PBcftruncate(int descriptor, std::int64_t size) {
  Entry* entry = findEntry(descriptor);
  return entry != nullptr ? kindOf(*entry).truncate(*entry, size) : -2;
}

std::int64_t PBcfsize(int descriptor) {
  Entry* entry = findEntry(descriptor);
  return entry != nullptr ? kindOf(*entry).size(*entry) : -2;
}

bool PBcfisCompressed(int descriptor) {
  const Entry* entry = findEntry(descriptor);
  return entry != nullptr && entry->kind == kCompressed;
}

int PBcfscanf(int descriptor, std::string_view format,
              std::initializer_list<CfScanTarget> targets) {
  Entry* entry = findEntry(descriptor);
  if (entry == nullptr) return -2;
  const std::optional<std::vector<FormatItem>> items = parseFormat(format, targets);
  if (!items) return postMisuse("Bad cfscanf format");
  Scanner scanner(*entry);
  return scan(scanner, *items, targets.begin());
}
