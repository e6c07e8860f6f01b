#include "tools/dump_format.h"

#include <algorithm>
#include <limits>

#include "pvb/scan_run.h"

// --- Values --------------------------------------------------------------------------

void appendNumber(std::string& out, std::int64_t value) {
  std::array<char, 24> text;
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
  out.append(text.data(), end);
}

void appendId(std::string& out, PVBid id) {
  if (id == UNDEF) {
    out += "none";
    return;
  }
  const int idClass = PVBidClass(id);
  if (id < 0) {
    out += "sub:";
  } else if (idClass != kClassSignal) {
    appendNumber(out, idClass);
    out += ':';
  }
  appendNumber(out, id < 0 ? id & 0x7FFFFFFF : id & kMaxIdIndex);
}

void appendTime(std::string& out, TIME time) {
  const bool isTime = time.major >= 0 && time.major <= TIME_MAX.major && time.minor >= 0 &&
                      time.minor <= TIME_MAX.minor;
  if (isTime) {
    std::string text;
    PBformatTIME(text, '?', -1, -1, time);
    out += text;
    return;
  }
  appendNumber(out, time.major);
  out += ':';
  appendNumber(out, time.minor);
}

void appendOptional(std::string& out, const std::optional<std::string>& text) {
  if (text) {
    appendQuoted(out, *text);
  } else {
    out += "none";
  }
}

void appendWord(std::string& out, ValueWords words, std::int64_t value) {
  for (const ValueWord& row : words) {
    if (row.value != value) continue;
    out += row.word;
    return;
  }
  appendNumber(out, value);
}

bool readWord(DumpScanner& in, ValueWords words, std::int64_t& value) {
  const char first = in.peek();
  if (first == '-' || (first >= '0' && first <= '9')) return in.number(value);
  std::string_view text;
  if (!in.word(text)) return false;
  for (const ValueWord& row : words) {
    if (row.word != text) continue;
    value = row.value;
    return true;
  }
  std::string expected = "one of these or a number is expected:";
  for (const ValueWord& row : words) expected.append(" ").append(row.word);
  return in.fail(kExpected, expected);
}

constexpr std::array<ValueWord, 9> kSignalTypeWords = {{
    {MEM_SIGNAL, "scalar"},
    {MEM_BUS, "bus"},
    {MEM_GROUP, "group"},
    {kScanCellType, "cell"},
    {kScanRegisterType, "register"},
    {kScanGroupType, "scan-group"},
    {kScanChainType, "chain"},
    {MEM_MUX, "mux"},
    {MEM_MUX_BUS, "mux-bus"},
}};
constexpr std::array<ValueWord, 4> kDirectionWords = {{
    {INPUT, "input"},
    {OUTPUT, "output"},
    {BIDIR, "bidir"},
    {kNoDirection, "unset"},
}};
constexpr std::array<ValueWord, 4> kSlotWords = {{
    {0, "input"},
    {1, "output"},
    {2, "bidir"},
    {3, "undefined"},
}};
constexpr std::array<ValueWord, 3> kLabelKindWords = {{
    {kLabelPlain, "plain"},
    {kLabelBlockBegin, "begin"},
    {kLabelBlockEnd, "end"},
}};
constexpr std::array<ValueWord, 3> kRunTypeWords = {{
    {RUN_INPUT, "in"},
    {RUN_OUTPUT, "out"},
    {RUN_FEEDBACK, "both"},
}};
constexpr std::array<ValueWord, 7> kPlainRowWords = {{
    {ROW_LITERAL, "row"},
    {ROW_SCAN, "scan"},
    {ROW_SPACER, "spacer"},
    {ROW_MATCH, "match"},
    {ROW_PVBPOC, "poc"},
    {ROW_SUBR_DEF, "subr-def"},
    {ROW_END_DEF, "end-def"},
}};

// --- Attributes ----------------------------------------------------------------------

namespace {

template <typename T>
struct MemberOf;
template <typename C, typename V>
struct MemberOf<V C::*> {
  using Record = C;
  using Value = V;
};
template <auto Member>
using RecordOf = typename MemberOf<decltype(Member)>::Record;
template <auto Member>
using ValueOf = typename MemberOf<decltype(Member)>::Value;

template <auto Member, std::int64_t Default>
constexpr Field<RecordOf<Member>> number(std::string_view key) {
  using Record = RecordOf<Member>;
  return {key, [](const Record& r) { return static_cast<std::int64_t>(r.*Member) == Default; },
          [](std::string& out, const Record& r) {
            appendNumber(out, static_cast<std::int64_t>(r.*Member));
          },
          [](DumpScanner& in, Record& r) { return in.number(r.*Member); }};
}

template <auto Member>
constexpr Field<RecordOf<Member>> id(std::string_view key) {
  using Record = RecordOf<Member>;
  return {key, [](const Record& r) { return r.*Member == UNDEF; },
          [](std::string& out, const Record& r) { appendId(out, r.*Member); },
          [](DumpScanner& in, Record& r) { return in.id(r.*Member); }};
}

template <auto Member, std::int64_t Default, const auto& Words>
constexpr Field<RecordOf<Member>> word(std::string_view key) {
  using Record = RecordOf<Member>;
  return {key, [](const Record& r) { return static_cast<std::int64_t>(r.*Member) == Default; },
          [](std::string& out, const Record& r) { appendWord(out, Words, r.*Member); },
          [](DumpScanner& in, Record& r) {
            std::int64_t value = 0;
            if (!readWord(in, Words, value)) return false;
            using Value = ValueOf<Member>;
            r.*Member = static_cast<Value>(value);
            return r.*Member == value || in.fail(kOutOfRange, "the number doesn't fit");
          }};
}

template <auto Member>
constexpr Field<RecordOf<Member>> text(std::string_view key) {
  using Record = RecordOf<Member>;
  return {key, [](const Record& r) { return !(r.*Member).has_value(); },
          [](std::string& out, const Record& r) { appendQuoted(out, *(r.*Member)); },
          [](DumpScanner& in, Record& r) { return in.quoted((r.*Member).emplace()); }};
}

template <auto Member, char Default>
constexpr Field<RecordOf<Member>> character(std::string_view key) {
  using Record = RecordOf<Member>;
  return {key, [](const Record& r) { return r.*Member == Default; },
          [](std::string& out, const Record& r) {
            appendQuoted(out, std::string_view(&(r.*Member), 1));
          },
          [](DumpScanner& in, Record& r) { return in.quotedCharacter(r.*Member); }};
}

template <auto Member>
constexpr Field<RecordOf<Member>> time(std::string_view key) {
  using Record = RecordOf<Member>;
  return {key, [](const Record& r) { return r.*Member == TIME_ZERO; },
          [](std::string& out, const Record& r) { appendTime(out, r.*Member); },
          [](DumpScanner& in, Record& r) { return in.time(r.*Member); }};
}

// A number of a record within a record.
template <auto Outer, auto Inner, std::int64_t Default>
constexpr Field<RecordOf<Outer>> nested(std::string_view key) {
  using Record = RecordOf<Outer>;
  return {key,
          [](const Record& r) { return static_cast<std::int64_t>(r.*Outer.*Inner) == Default; },
          [](std::string& out, const Record& r) { appendNumber(out, r.*Outer.*Inner); },
          [](DumpScanner& in, Record& r) { return in.number(r.*Outer.*Inner); }};
}

// A number that always stands there.
constexpr std::int64_t kAlways = std::numeric_limits<std::int64_t>::min();
// Columns, bounds and values that mean none.
constexpr std::int64_t kNone16 = 65535;

constexpr std::array kHeaderTable = {
    number<&DumpHeader::version, kAlways>("version"),
    number<&DumpHeader::rowWidth, kAlways>("row-width"),
    number<&DumpHeader::room, 0>("room"),
    nested<&DumpHeader::counts, &PVBstatus::patternErrors, -1>("pattern-errors"),
    nested<&DumpHeader::counts, &PVBstatus::timingErrors, -1>("timing-errors"),
    nested<&DumpHeader::counts, &PVBstatus::patternWarnings, -1>("pattern-warnings"),
    nested<&DumpHeader::counts, &PVBstatus::timingWarnings, -1>("timing-warnings"),
};
constexpr std::array kSignalCounterTable = {
    number<&SignalCounters::nextColumn, kAlways>("next-column"),
    number<&SignalCounters::nextID, kAlways>("next-id"),
};
constexpr std::array kSignalTable = {
    word<&PVBsignal::type, kAlways, kSignalTypeWords>("type"),
    word<&PVBsignal::direction, kNoDirection, kDirectionWords>("direction"),
    number<&PVBsignal::inColumn, kNone16>("in"),
    number<&PVBsignal::outColumn, kNone16>("out"),
    number<&PVBsignal::leftIndex, kNone16>("left"),
    number<&PVBsignal::rightIndex, kNone16>("right"),
    character<&PVBsignal::radix, 'D'>("radix"),
    number<&PVBsignal::memberCount, 0>("member-count"),
    number<&PVBsignal::variety, 0>("variety"),
    number<&PVBsignal::multiTrack, 0>("multi-track"),
    number<&PVBsignal::multiBit, 0>("multi-bit"),
    number<&PVBsignal::bitIn, -1>("bit-in"),
    number<&PVBsignal::bitOut, -1>("bit-out"),
    nested<&PVBsignal::inStates, &PVBstateTable::count, 0>("in-states"),
    nested<&PVBsignal::inStates, &PVBstateTable::id, -1>("in-states-id"),
    nested<&PVBsignal::outStates, &PVBstateTable::count, 0>("out-states"),
    nested<&PVBsignal::outStates, &PVBstateTable::id, -1>("out-states-id"),
    text<&PVBsignal::alias>("alias"),
    text<&PVBsignal::description>("description"),
};
constexpr std::array kSignalListTable = {
    ListField<PVBsignal>{"members", &PVBsignal::members, true},
    ListField<PVBsignal>{"mux-children", &PVBsignal::muxChildren, true},
    ListField<PVBsignal>{"ate-pins", &PVBsignal::lists3, true},
    ListField<PVBsignal>{"dut-pins", &PVBsignal::lists4, true},
    ListField<PVBsignal>{"pin-columns", &PVBsignal::lists5, true},
    ListField<PVBsignal>{"tracks", &PVBsignal::tracks, false},
    ListField<PVBsignal>{"bit-tracks", &PVBsignal::bitTracks, false},
};
constexpr std::array kTimePlateHeadTable = {
    number<&TimePlateHead::modeWord, kAlways>("mode"),
    number<&TimePlateHead::cycleCapacity, 0>("cycle-capacity"),
};
constexpr std::array kTimePlateTable = {
    time<&PVBtimePlate::period>("period"),
    text<&PVBtimePlate::family>("family"),
    number<&PVBtimePlate::multiplier, 1>("multiplier"),
    id<&PVBtimePlate::lastRow>("last-row"),
};
constexpr std::array kTrackTable = {
    number<&PVBtrack::repeat, 1>("repeat"),
    character<&PVBtrack::selector, '-'>("selector"),
    id<&PVBtrack::slotIn>("slot-in"),
    id<&PVBtrack::slotOut>("slot-out"),
    id<&PVBtrack::slotBoth>("slot-both"),
    number<&PVBtrack::cycleOffset, 0>("cycle-offset"),
    number<&PVBtrack::cycleLength, 0>("cycle-length"),
};
constexpr std::array kPinCounterTable = {
    number<&PinCounters::nextID, kAlways>("next-id"),
};
constexpr std::array kPinTable = {
    text<&PVBpin::node>("node"),
    number<&PVBpin::pinClass, -1>("class"),
    number<&PVBpin::flags, 0>("flags"),
    text<&PVBpin::description>("description"),
};
constexpr std::array kPinListTable = {
    ListField<PVBpin>{"linked", &PVBpin::linkedPins, true},
    ListField<PVBpin>{"signals-of", &PVBpin::signals, true},
    ListField<PVBpin>{"columns-of", &PVBpin::columns, true},
    ListField<PVBpin>{"spare", &PVBpin::spare, true},
};
constexpr std::array kColumnTable = {
    number<&PVBcolumn::number, -1>("number"),
    number<&PVBcolumn::flag, 255>("flag"),
};
constexpr std::array kColumnListTable = {
    ListField<PVBcolumn>{"ate-pins", &PVBcolumn::atePins, true},
    ListField<PVBcolumn>{"dut-pins", &PVBcolumn::dutPins, true},
    ListField<PVBcolumn>{"signals-of", &PVBcolumn::signals, true},
};
constexpr std::array kVectorTable = {
    number<&VectorHead::value, 0>("value"),
};
constexpr std::array kPatternTable = {
    number<&PatternHead::addressBase, 0>("base"),
};
constexpr std::array kLabelTable = {
    number<&PVBlabel::rowNumber, static_cast<std::int64_t>(kNoRowNumber)>("row"),
    number<&PVBlabel::subroutine, -1>("subroutine"),
    word<&PVBlabel::kind, kLabelPlain, kLabelKindWords>("kind"),
    text<&PVBlabel::text>("text"),
};
constexpr std::array kHeadingTable = {
    number<&PVBmessageHeading::itemCount, 0>("items"),
    number<&PVBmessageHeading::limit, 0>("limit"),
};
constexpr std::array kItemTable = {
    number<&PVBmessageItem::kind, 0>("kind"),
    number<&PVBmessageItem::number, 0>("number"),
    text<&PVBmessageItem::text>("text"),
};
constexpr std::array kRowTable = {
    time<&PVBrow::spacerTime>("spacer-time"),
    number<&PVBrow::spacerAddresses, 0>("spacer-addresses"),
    time<&PVBrow::startTime>("start-time"),
    time<&PVBrow::endTime>("end-time"),
};

}  // namespace

constexpr std::span<const Field<DumpHeader>> kHeaderFields = kHeaderTable;
constexpr std::span<const Field<SignalCounters>> kSignalCounterFields = kSignalCounterTable;
constexpr std::span<const Field<PVBsignal>> kSignalFields = kSignalTable;
constexpr std::span<const ListField<PVBsignal>> kSignalLists = kSignalListTable;
constexpr std::span<const Field<TimePlateHead>> kTimePlateHeadFields = kTimePlateHeadTable;
constexpr std::span<const Field<PVBtimePlate>> kTimePlateFields = kTimePlateTable;
constexpr std::span<const Field<PVBtrack>> kTrackFields = kTrackTable;
constexpr std::span<const Field<PinCounters>> kPinCounterFields = kPinCounterTable;
constexpr std::span<const Field<PVBpin>> kPinFields = kPinTable;
constexpr std::span<const ListField<PVBpin>> kPinLists = kPinListTable;
constexpr std::span<const Field<PVBcolumn>> kColumnFields = kColumnTable;
constexpr std::span<const ListField<PVBcolumn>> kColumnLists = kColumnListTable;
constexpr std::span<const Field<VectorHead>> kVectorFields = kVectorTable;
constexpr std::span<const Field<PatternHead>> kPatternFields = kPatternTable;
constexpr std::span<const Field<PVBlabel>> kLabelFields = kLabelTable;
constexpr std::span<const Field<PVBmessageHeading>> kHeadingFields = kHeadingTable;
constexpr std::span<const Field<PVBmessageItem>> kItemFields = kItemTable;
constexpr std::span<const Field<PVBrow>> kRowFields = kRowTable;

// --- Files carried along whole -------------------------------------------------------

namespace {

constexpr std::array<std::string_view, 13> kCarriedFiles = {
    "pvb.pg",    "pvb.sdb",   "pvbate.h",  "pvbate.a",  "pvbate.r",  "pvbate.d", "pvb.ttb",
    "pvb.SEini", "pvb.PEini", "pvb.TEini", "pvb.WEini", "pvb.EQini", "pvb.pmp"};
constexpr std::array<std::string_view, 14> kSectionFiles = {
    "pvb.h",  "pvb.l",  "pvb.v",  "pvb.p", "pvb.s",  "pvb.tp", "pvb.rd",
    "pvb.ps", "pvb.pk", "pvb.pd", "pvb.m", "pvb.mt", "pvb.st", "pvb.lb"};
constexpr std::string_view kLockFile = "pvb.lock";
constexpr std::string_view kTableEnding = ".srf";

constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::uint32_t byteAt(std::string_view bytes, std::size_t i) {
  return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
}

}  // namespace

bool isCarriedFile(std::string_view name) {
  if (std::ranges::find(kCarriedFiles, name) != kCarriedFiles.end()) return true;
  const bool plain = name.find_first_of("/\\") == std::string_view::npos && name.front() != '.';
  return name.size() > kTableEnding.size() && plain && name.ends_with(kTableEnding);
}

bool isDatabaseFile(std::string_view name) {
  return isCarriedFile(name) || name == kLockFile ||
         std::ranges::find(kSectionFiles, name) != kSectionFiles.end();
}

void appendBase64(std::string& out, std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::uint32_t group =
        byteAt(bytes, i) << 16 | byteAt(bytes, i + 1) << 8 | byteAt(bytes, i + 2);
    out += kBase64[group >> 18];
    out += kBase64[group >> 12 & 63];
    out += i + 1 < bytes.size() ? kBase64[group >> 6 & 63] : '=';
    out += i + 2 < bytes.size() ? kBase64[group & 63] : '=';
  }
}

bool decodeBase64(std::string_view text, std::string& bytes) {
  bytes.clear();
  if (text.size() % 4 != 0) return false;
  std::size_t padding = 0;
  while (padding < 2 && text.ends_with('=')) {
    text.remove_suffix(1);
    ++padding;
  }
  std::uint32_t group = 0;
  for (std::size_t i = 0; i < text.size() + padding; ++i) {
    const std::size_t value = i < text.size() ? kBase64.find(text[i]) : 0;
    if (value == std::string_view::npos) return false;
    group = group << 6 | static_cast<std::uint32_t>(value);
    if (i % 4 != 3) continue;
    bytes += static_cast<char>(group >> 16 & 255);
    bytes += static_cast<char>(group >> 8 & 255);
    bytes += static_cast<char>(group & 255);
  }
  bytes.resize(bytes.size() - padding);
  return true;
}
