#include "tools/dump.h"

#include <array>

#include "pvb/property.h"
#include "pvb/row.h"
#include "tools/dump_internal.h"

namespace {

// Ids on one line; a longer list goes on in the next.
constexpr std::size_t kIdsPerLine = 16;

using DumpPart = bool (*)(const DumpContext& dump);
// In this order: what rows and labels name stands above them.
constexpr std::array<DumpPart, 10> kParts = {
    dumpHeader,      dumpSignals,  dumpTimePlates, dumpPins,     dumpVectors,
    dumpSubroutines, dumpPatterns, dumpLabels,     dumpFindings, dumpCarriedFiles};

}  // namespace

bool DumpContext::fail(MessageCode code, std::string text) const {
  sink(failureMessage(code, std::move(text), PVBpath(database)));
  return false;
}

bool dumpProperties(const DumpContext& dump, PVBid list, std::string_view indent) {
  if (list == UNDEF || !PVBpropListExists(dump.database, list)) return true;
  const PVBproperty* property = PVBpropInqFirst(dump.database, list);
  if (property == nullptr) {
    dump.text().append(indent).append("props");
    dump.end();
  }
  for (; property != nullptr; property = PVBpropInqNext(dump.database)) {
    dump.text().append(indent).append("prop ");
    appendNumber(dump.text(), property->key);
    if (property->value) {
      dump.text() += ' ';
      appendQuoted(dump.text(), *property->value);
    }
    dump.end();
  }
  return true;
}

void dumpIdLists(const DumpContext& dump, std::string_view keyword, const PVBidList& list, bool ids,
                 std::string_view indent) {
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (i % kIdsPerLine == 0) dump.text().append(indent).append(keyword);
    dump.text() += ' ';
    if (ids) {
      appendId(dump.text(), list[i]);
    } else {
      appendNumber(dump.text(), list[i]);
    }
    if (i % kIdsPerLine == kIdsPerLine - 1 || i + 1 == list.size()) dump.end();
  }
}

bool dumpHeader(const DumpContext& dump) {
  const PVBdatabase* slot = PVBget(dump.database);
  dump.text().append(kDumpMark).append(" ");
  appendNumber(dump.text(), kDumpFormat);
  dump.end();
  DumpHeader header{slot->version, slot->header.rowWidth, 0, slot->header.counts};
  if (slot->rowWidth > 2 * rowDataSize(header.rowWidth)) header.room = slot->rowWidth;
  dump.text() += "database";
  appendFields(dump.text(), kHeaderFields, header);
  dump.end();
  return dumpProperties(dump, slot->header.propList, "  ");
}

bool dumpDatabase(int database, TextSink& out, const MessageSink& sink, bool quiet) {
  const DumpContext dump{database, out, sink, quiet};
  const PVBdatabase* slot = PVBget(database);
  constexpr std::uint32_t kNeeded = kSectionProperties | kSectionPins | kSectionSignals |
                                    kSectionTimePlates | kSectionPatterns | kSectionMessages |
                                    kSectionScan | kSectionLabels;
  if (slot == nullptr || (slot->sectionsOpen & kNeeded) != kNeeded) {
    return dump.fail(kCantOpenDatabase, "the database isn't loaded as a whole");
  }
  for (const DumpPart part : kParts) {
    if (!part(dump) || !out.good()) return false;
  }
  out.text() += "done\n";
  return out.finish();
}
