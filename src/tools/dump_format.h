#pragma once

// What a dump says of each record, as tables that `pvb dump` writes by and
// `pvb build` reads by: words for numbers, attributes, lists, files. A dump is
//
//   pvb-dump 1                              the format
//   database version=501 row-width=32       then the database's properties
//   signals next-column=3 next-id=5         the counters; below: groups ID...
//   signal ID NAME type=... ...             below: members, ..., prop
//   timeplates mode=1                       below: cycle INDEX NAME TIME
//   timeplate ID NAME period=10nS ...       below: slot, level, track, event, prop
//   pins next-id=7
//   ate-pin / dut-pin / column ID ...       below: lists, prop
//   vector NAME value=0                     below: cells |01...
//   subroutine SLOT NAME base=0
//   rows main|SLOT base=0                   below: the rows
//   label NAME row=3 ...
//   heading NUMBER SHORT TEXT ...           below: finding, item
//   equations                               below: the lines of "pvb.sdb", from its
//                                           second one to the last but one
//   file NAME                               below: data BASE64
//   done
//
// Rows: row (literal), scan, match, poc, spacer, subr-def, end-def, other type=N;
// loop ... end around a body; call NAME. Their fields, all but what is usual:
//
//   row "tp1" x10 @3 spacer-time=5nS ... |01-ZX
//        |     |   |                      states, `-` at the end left out
//        |     |   repeat16
//        |     count
//        timeplate by name, or #ID
//
// `prop KEY VALUE` lines stand below what they belong to, newest first; `props`
// alone is a list without properties.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/quote.h"
#include "pvb/database.h"
#include "pvb/label.h"
#include "pvb/message_store.h"
#include "pvb/pin.h"
#include "pvb/row.h"
#include "pvb/signal.h"
#include "pvb/timeplate.h"
#include "tools/dump_text.h"

inline constexpr std::string_view kDumpMark = "pvb-dump";
inline constexpr int kDumpFormat = 1;

// --- Values --------------------------------------------------------------------------

void appendNumber(std::string& out, std::int64_t value);
void appendId(std::string& out, PVBid id);
// "10nS", or "MAJOR:MINOR" for what isn't a time.
void appendTime(std::string& out, TIME time);
void appendOptional(std::string& out, const std::optional<std::string>& text);

struct ValueWord {
  std::int64_t value;
  std::string_view word;
};
using ValueWords = std::span<const ValueWord>;
// The word, or the number where there is none.
void appendWord(std::string& out, ValueWords words, std::int64_t value);
bool readWord(DumpScanner& in, ValueWords words, std::int64_t& value);

extern const std::array<ValueWord, 9> kSignalTypeWords;
extern const std::array<ValueWord, 4> kDirectionWords;
extern const std::array<ValueWord, 4> kSlotWords;
extern const std::array<ValueWord, 3> kLabelKindWords;
extern const std::array<ValueWord, 3> kRunTypeWords;
// Row types by keyword, all but loop, end and call.
extern const std::array<ValueWord, 7> kPlainRowWords;

// --- Attributes ----------------------------------------------------------------------

// An attribute of a record: left out while it has its default.
template <typename T>
struct Field {
  std::string_view key;
  bool (*isDefault)(const T& record);
  void (*write)(std::string& out, const T& record);
  bool (*read)(DumpScanner& in, T& record);
};

template <typename T>
void appendFields(std::string& out, std::span<const Field<T>> fields, const T& record) {
  for (const Field<T>& field : fields) {
    if (field.isDefault(record)) continue;
    out += ' ';
    out += field.key;
    out += '=';
    field.write(out, record);
  }
}

template <typename T>
bool readFields(DumpScanner& in, std::span<const Field<T>> fields, T& record) {
  std::string_view key;
  while (in.attribute(key)) {
    const Field<T>* found = nullptr;
    for (const Field<T>& field : fields) {
      if (field.key == key) found = &field;
    }
    if (found == nullptr) {
      std::array<std::string_view, 32> known;
      std::size_t count = 0;
      for (const Field<T>& field : fields) known[count++] = field.key;
      return in.unknownAttribute(key, std::span(known).first(count));
    }
    if (!found->read(in, record)) return false;
  }
  return in.finish();
}

// A list of ids or numbers on lines of its own.
template <typename T>
struct ListField {
  std::string_view keyword;
  PVBidList T::*list;
  bool ids;  // else plain numbers
};

// What stands in front of the properties in the database record.
struct DumpHeader {
  std::int32_t version = kClassicVersion;
  std::int32_t rowWidth = kDefaultRowWidth;
  std::int32_t room = 0;  // states that the row blocks hold, when more than usual; else 0
  PVBstatus counts;
};
struct SignalCounters {
  std::int32_t nextColumn = 0;
  std::int32_t nextID = 1;
};
struct TimePlateHead {
  std::int32_t modeWord = 1;
  std::int32_t cycleCapacity = 0;
};
struct PinCounters {
  std::int32_t nextID = 1;
};
struct VectorHead {
  std::uint32_t value = 0;
};
struct PatternHead {
  std::int32_t addressBase = 0;
};

extern const std::span<const Field<DumpHeader>> kHeaderFields;
extern const std::span<const Field<SignalCounters>> kSignalCounterFields;
extern const std::span<const Field<PVBsignal>> kSignalFields;
extern const std::span<const ListField<PVBsignal>> kSignalLists;
extern const std::span<const Field<TimePlateHead>> kTimePlateHeadFields;
extern const std::span<const Field<PVBtimePlate>> kTimePlateFields;
extern const std::span<const Field<PVBtrack>> kTrackFields;
extern const std::span<const Field<PinCounters>> kPinCounterFields;
extern const std::span<const Field<PVBpin>> kPinFields;
extern const std::span<const ListField<PVBpin>> kPinLists;
extern const std::span<const Field<PVBcolumn>> kColumnFields;
extern const std::span<const ListField<PVBcolumn>> kColumnLists;
extern const std::span<const Field<VectorHead>> kVectorFields;
extern const std::span<const Field<PatternHead>> kPatternFields;
extern const std::span<const Field<PVBlabel>> kLabelFields;
extern const std::span<const Field<PVBmessageHeading>> kHeadingFields;
extern const std::span<const Field<PVBmessageItem>> kItemFields;
// Of the rows, behind what has its own form.
extern const std::span<const Field<PVBrow>> kRowFields;

// --- Files carried along whole -------------------------------------------------------

// Whether a database carries a file of this name along without looking into it.
bool isCarriedFile(std::string_view name);
// Whether it is any file of a database.
bool isDatabaseFile(std::string_view name);

// Base64, for lines of at most 57 bytes.
inline constexpr std::size_t kBytesPerDataLine = 57;
void appendBase64(std::string& out, std::string_view bytes);
bool decodeBase64(std::string_view text, std::string& bytes);
