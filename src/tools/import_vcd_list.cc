#include <fmt/format.h>

#include "tools/import.h"
#include "tools/import_vcd_internal.h"

namespace {

struct NetCounts {
  std::uint64_t changes = 0;
  std::uint8_t sides = 0;
};

// Counts what is handed out; a file that is cut is counted as far as it goes.
bool countChanges(VcdReader& reader, std::vector<NetCounts>& nets) {
  for (VcdEvent event = reader.next(); event != VcdEvent::end; event = reader.next()) {
    if (event == VcdEvent::time) continue;
    NetCounts& net = nets[reader.net()];
    ++net.changes;
    if (event == VcdEvent::ports) noteVcdSides(reader.value(), net.sides);
  }
  return !reader.failed();
}

std::string shownName(const VcdVar& var) {
  if (!var.ranged) return var.name;
  if (var.left == var.right) return fmt::format("{}[{}]", var.name, var.left);
  return fmt::format("{}[{}:{}]", var.name, var.left, var.right);
}

Cell textOrNone(std::string_view text) {
  return text.empty() ? Cell(std::monostate()) : Cell(std::string(text));
}

}  // namespace

bool listVcd(const std::string& file, TableFormat format, TextSink& out, const MessageSink& sink) {
  std::string reason;
  std::unique_ptr<ByteSource> source = ByteSource::open(file, false, reason);
  if (!source) {
    sink({Severity::error, kCantRead, reason, file, 0, 0, {}, {}});
    return false;
  }
  VcdReader reader(std::move(source), sink);
  if (!reader.readHeader()) return false;
  std::vector<NetCounts> nets(reader.header().netWidths.size());
  if (!countChanges(reader, nets)) return false;
  TableOutput table(out, format, "pvb-vcd-variables/1",
                    {"scope", "name", "type", "width", "changes", "direction"});
  std::string scope;
  for (const VcdVar& var : reader.header().vars) {
    vcdScopePath(reader.header(), var.scope, scope);
    const NetCounts& net = nets[var.net];
    table.row({textOrNone(scope), shownName(var), var.type, std::int64_t{var.width},
               static_cast<std::int64_t>(net.changes), textOrNone(vcdDirectionName(net.sides))});
  }
  if (table.finish()) return true;
  sink({Severity::error, kOutputLost, "the list can't be written", file, 0, 0, {}, {}});
  return false;
}
