#include <fmt/format.h>

#include <cstring>

#include "base/errors.h"
#include "tools/build_internal.h"

// --- Labels --------------------------------------------------------------------------

bool RecordBuild::label() {
  PVBlabel label;
  build_.noProperties();
  if (!build_.in.quoted(label.name) || !readFields(build_.in, kLabelFields, label)) return false;
  if (label.rowNumber != kNoRowNumber) {
    PVBposition position;
    position.row = label.rowNumber;
    const RowHandle row(build_.database,
                        PVBpatternInqRow(build_.database, label.subroutine, position, BY_ROW));
    PBdiscardErrors();
    if (!row) return build_.in.failLine(kLabelRefused, "the label's row isn't there");
    label.rowId = static_cast<PVBid>(row->id);
  }
  PVBlabelData& data = *build_.slot().labels;
  data.labels.push_back(std::move(label));
  data.changed = true;
  return true;
}

// --- Check findings ------------------------------------------------------------------

bool RecordBuild::heading() {
  PVBmessageData& data = *build_.slot().messages;
  PVBmessageHeading& heading = data.headings.emplace_back();
  data.changed = true;
  build_.noProperties();
  return build_.in.number(heading.number) && build_.in.quoted(heading.shortName) &&
         build_.in.quoted(heading.text) && readFields(build_.in, kHeadingFields, heading);
}

bool RecordBuild::finding() {
  auto& headings = build_.slot().messages->headings;
  if (headings.empty()) return build_.in.failLine(kWrongPlace, "findings stand below a heading");
  headings.back().findings.emplace_back();
  return build_.in.finish();
}

bool RecordBuild::item() {
  auto& headings = build_.slot().messages->headings;
  if (headings.empty() || headings.back().findings.empty()) {
    return build_.in.failLine(kWrongPlace, "items stand below a finding");
  }
  return readFields(build_.in, kItemFields, headings.back().findings.back().emplace_back());
}

// --- Files carried along -------------------------------------------------------------

bool RecordBuild::file() {
  if (!finish()) return false;
  std::string name;
  build_.noProperties();
  if (!build_.in.quoted(name)) return false;
  if (!isCarriedFile(name)) {
    return build_.in.fail(kBadFileName, fmt::format("'{}' isn't carried along whole", name));
  }
  const std::string path = PVBfilePath(build_.path, name);
  if (fileExists(path)) return build_.in.fail(kBadFileName, "the file stands here twice");
  if (file_.emplace().open(path)) return build_.in.finish();
  const std::string reason = std::strerror(errno);
  file_.reset();
  return build_.in.failLine(kCantWrite, fmt::format("{} can't be made: {}", path, reason));
}

bool RecordBuild::data() {
  if (!file_) return build_.in.failLine(kWrongPlace, "data stand below a file");
  std::string bytes;
  std::string_view text;
  if (!build_.in.bytes(text)) return false;
  if (!decodeBase64(text, bytes)) return build_.in.fail(kBadBytes, "these aren't base64 data");
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_->stream()) != bytes.size()) {
    return build_.in.failText(kCantWrite,
                              fmt::format("a file can't be written: {}", std::strerror(errno)));
  }
  return true;
}

// --- Equations -----------------------------------------------------------------------

bool RecordBuild::equations() {
  if (!finish()) return false;
  build_.noProperties();
  if (ssExists(build_.path)) {
    return build_.in.failLine(kEquationRefused, "equation data stand here twice");
  }
  equations_.emplace();
  return build_.in.finish();
}

bool RecordBuild::equationLine() {
  if (!equations_) return build_.in.failLine(kWrongPlace, "there is no 'equations' line above");
  return equations_->take(build_.in.line()) ||
         build_.in.failColumn(kEquationRefused, equations_->error(), equations_->column());
}

bool RecordBuild::writeEquations() {
  const bool written = ssSave(equations_->data(), build_.path) == 0;
  equations_.reset();
  return written || build_.fail(kCantWrite, "the equation data can't be written");
}

bool RecordBuild::finish() {
  if (equations_) return writeEquations();
  if (!file_) return true;
  const bool whole = file_->commit();
  file_.reset();
  return whole || build_.in.failText(
                      kCantWrite, fmt::format("a file can't be written: {}", std::strerror(errno)));
}
