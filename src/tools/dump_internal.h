#pragma once

// What the parts of the dump share. Each writes one section; false after a message.

#include <string>
#include <vector>

#include "tools/dump.h"
#include "tools/dump_format.h"

struct DumpContext {
  int database;
  TextSink& out;
  const MessageSink& sink;
  bool quiet;

  std::string& text() const { return out.text(); }
  // Ends a line.
  void end() const {
    out.text() += '\n';
    out.offer();
  }
  bool fail(MessageCode code, std::string text) const;
};

// The properties of a list, newest first, each line behind `indent`.
bool dumpProperties(const DumpContext& dump, PVBid list, std::string_view indent);
void dumpIdLists(const DumpContext& dump, std::string_view keyword, const PVBidList& list, bool ids,
                 std::string_view indent);

bool dumpHeader(const DumpContext& dump);
bool dumpSignals(const DumpContext& dump);
bool dumpTimePlates(const DumpContext& dump);
bool dumpPins(const DumpContext& dump);
bool dumpVectors(const DumpContext& dump);
bool dumpSubroutines(const DumpContext& dump);
bool dumpPatterns(const DumpContext& dump);
bool dumpLabels(const DumpContext& dump);
bool dumpFindings(const DumpContext& dump);
bool dumpCarriedFiles(const DumpContext& dump);

template <typename T>
void dumpLists(const DumpContext& dump, std::span<const ListField<T>> fields, const T& record) {
  for (const ListField<T>& field : fields) {
    dumpIdLists(dump, field.keyword, record.*field.list, field.ids, "  ");
  }
}
