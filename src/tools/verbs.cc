#include "tools/verbs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "base/errors.h"
#include "tools/build.h"
#include "tools/check.h"
#include "tools/diff.h"
#include "tools/dump.h"
#include "tools/export.h"
#include "tools/formats.h"
#include "tools/import.h"
#include "tools/manual.h"
#include "tools/message.h"
#include "tools/nearest.h"
#include "tools/show.h"
#include "tools/usage.h"
#include "tools/verify.h"

namespace {

int runHelp(std::span<const std::string> arguments);
int runExplain(std::span<const std::string> arguments);

constexpr std::array<Verb, 11> kVerbs = {{
    {"import",
     "make a database from a pattern of another program",
     "FILE -o DB [options]",
     "Reads a pattern in STIL or VCD and makes a database of its signals, timing and cycles. The "
     "kind of the file is known by its name (.stil, .vcd, also with .gz) or given by --from; FILE "
     "may be - for standard input. Files of any size are read in bounded memory. The database "
     "appears under its name only when it is whole; one that is there already is replaced with "
     "--force only. A VCD file needs --period and the directions of its signals; --list shows "
     "what it holds.",
     {"pvb import design.stil -o design.pvb",
      "pvb import scan.stil.gz -o scan.pvb --exec scan_exec --lenient",
      "pvb import wave.vcd -o wave.pvb --period 100nS --inputs 'clk,d*' --outputs 'q*'"},
     runImport},
    {"formats",
     "list what can be imported and exported",
     "[--format FORM]",
     "Lists the formats that `pvb import` reads and `pvb export` writes: the endings of file names "
     "by which they are known, and the options that are theirs only, with what holds without "
     "them.",
     {"pvb formats", "pvb formats --json", "pvb formats --format md"},
     runFormats},
    {"dump",
     "write a database as text",
     "DB [-o FILE] [--force]",
     "Writes everything that a database holds as lines of text, in an order that depends on its "
     "content only: two dumps can be compared line by line, and `pvb build` makes the database "
     "again. Rows are streamed, so a database may have any size. The database isn't changed.",
     {"pvb dump design.pvb", "pvb dump design.pvb -o design.pvbt",
      "diff <(pvb dump old.pvb) <(pvb dump new.pvb)"},
     runDump},
    {"build",
     "make a database from a dump",
     "TEXT DB [--force]",
     "Makes the database that a dump describes. TEXT may be compressed by gzip, or - for standard "
     "input. The database appears under its name only when it is whole; one that is there already "
     "is replaced with --force only.",
     {"pvb build design.pvbt design.pvb", "zcat design.pvbt.gz | pvb build - design.pvb",
      "pvb dump a.pvb | sed 's/\"clk\"/\"clock\"/' | pvb build - b.pvb"},
     runBuild},
    {"export",
     "write a database as a file of another kind",
     "DB -o FILE [options]",
     "Writes the pattern of a database for other programs, STIL or VCD, by the ending of FILE; "
     "with "
     ".gz behind it the file is compressed. STIL keeps loops, calls, comments, labels and "
     "equations; scan rows are written out. VCD holds the waves over time, all of them or a "
     "stretch: what is driven, and what is expected from its strobe on. What the kind of file has "
     "no place for is told. The database isn't changed.",
     {"pvb export design.pvb -o design.stil", "pvb export design.pvb -o design.stil.gz --force",
      "pvb export design.pvb -o reset.vcd --end 10uS --signals clk,reset"},
     runExport},
    {"show",
     "show what is in a database",
     "DB [SECTION] [--rows FROM..TO] [--format FORM]",
     "Shows a database in tables. Without a section, an overview; the sections are signals, "
     "timeplates, rows, labels, subroutines, properties, pins, columns, vectors, findings, "
     "equations (each variable in each set, evaluated there) and files.",
     {"pvb show design.pvb", "pvb show design.pvb rows --rows 100..120",
      "pvb show design.pvb signals --json"},
     runShow},
    {"diff",
     "compare what two databases mean",
     "A B [options]",
     "Compares signals by name, then the main patterns cycle by cycle: periods, and for each "
     "signal the events of the cycle with the states that they drive or expect. Loops, calls, "
     "repeats and scan rows are taken apart, so a loop equals its rows written out; ids, names of "
     "timeplates and comments don't count. With --ignore-cycles only the waves over time count: "
     "where cycles begin and levels that are said again make no difference. Cycles are counted "
     "from the beginning of what is compared; rows of subroutines are shown as NAME:ROW.",
     {"pvb diff old.pvb new.pvb",
      "pvb diff merged.pvb source.pvb --signals clk,reset --ignore-cycles",
      "pvb diff joined.pvb second.pvb --a-from 250uS --literal-previous"},
     runDiff},
    {"verify",
     "check the structure of a database on disk",
     "DB [--format FORM]",
     "Checks every file of a database against itself and the others: headers, blocks, trees and "
     "their sums, links, ids, columns. Each finding names its file and place. Lost room is a note, "
     "not a fault. The database isn't changed.",
     {"pvb verify design.pvb", "pvb verify design.pvb --json",
      "pvb verify design.pvb && cp -r design.pvb backup.pvb"},
     runVerify},
    {"check",
     "check what a database says",
     "DB [--full] [--limit N] [--errors-only] [--store] [--format FORM]",
     "Looks for what is inconsistent in signals and groups, timeplates, equations and rows: data "
     "that no track takes, tracks without data, slots of a wrong direction, timing that no row "
     "uses. Some findings are errors, others warnings; `pvb verify` tells whether the files "
     "themselves are sound. The database isn't changed, but with --store the findings and "
     "counters are saved in it.",
     {"pvb check design.pvb", "pvb check design.pvb --full --limit 1000 --json",
      "pvb check design.pvb --errors-only && echo good"},
     runCheck},
    {"explain",
     "tell more about a message",
     "CODE",
     "Tells what a message means and what to do about it. The code stands in brackets at the "
     "message's end. Without a code, all are listed.",
     {"pvb explain PVB0203", "pvb explain 203", "pvb explain"},
     runExplain},
    {"help",
     "list the verbs, or show the help of one",
     "[VERB]",
     "Lists the verbs, or shows what `pvb VERB --help` shows.",
     {"pvb help", "pvb help dump", "pvb dump -h"},
     runHelp},
}};

const Verb* findVerb(std::string_view name) {
  const auto verb =
      std::ranges::find_if(kVerbs, [name](const Verb& row) { return row.name == name; });
  return verb != kVerbs.end() ? &*verb : nullptr;
}

int unknownVerb(std::string_view name) {
  std::vector<std::string_view> names;
  names.reserve(kVerbs.size());
  for (const Verb& verb : kVerbs) names.push_back(verb.name);
  return refuse(kUnknownVerb, fmt::format("'{}' is no verb{}", name, didYouMean(name, names)));
}

void print(std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); }

std::string verbList() {
  std::string text = "usage: pvb VERB [options] DB...\n\n";
  for (const Verb& verb : kVerbs) text += fmt::format("  {:<10}{}\n", verb.name, verb.summary);
  text +=
      "\n`pvb VERB -h` shows examples, `pvb help VERB` all of a verb.\n"
      "exit codes: 0 done, 1 problems found, 2 could not do it\n";
  return text;
}

int runHelp(std::span<const std::string> arguments) {
  Usage usage("help");
  std::string name;
  bool manual = false;
  bool completion = false;
  usage.app.add_option("VERB", name, "Verb to tell about; without it, all are listed");
  // For the build of the manual page and of the completion; not told to users.
  usage.app.add_flag("--scdoc", manual)->group("");
  usage.app.add_flag("--bash-completion", completion)->group("");
  if (const auto exit = usage.parse(arguments)) return *exit;
  if (name.empty()) {
    print(manual ? verbManual() : completion ? bashCompletion() : verbList());
    return kExitYes;
  }
  const Verb* verb = findVerb(name);
  if (verb == nullptr) return unknownVerb(name);
  const std::string help = "--help";
  return verb->run(std::span(&help, 1));
}

int listCodes() {
  for (const MessageRow& row : messageTable()) {
    print(fmt::format("{}  {}\n", messageCodeText(row.code), row.title));
  }
  return kExitYes;
}

int codeNumber(std::string_view text) {
  for (const std::string_view prefix : {"PVB", "pvb"}) {
    if (text.starts_with(prefix)) text.remove_prefix(prefix.size());
  }
  int code = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), code);
  return error == std::errc() && end == text.data() + text.size() ? code : -1;
}

int runExplain(std::span<const std::string> arguments) {
  Usage usage("explain");
  std::string code;
  usage.app.add_option("CODE", code, "Code of a message, as PVB0203");
  if (const auto exit = usage.parse(arguments)) return *exit;
  if (code.empty()) return listCodes();
  const MessageRow* row = messageRow(codeNumber(code));
  if (row == nullptr) return refuse(kUnknownCode, fmt::format("'{}' is no message code", code));
  print(fmt::format("{}: {}\n\n{}\n\nWhat to do: {}\n", messageCodeText(row->code), row->title,
                    row->explanation, row->remedy));
  return kExitYes;
}

}  // namespace

std::span<const Verb> verbTable() { return kVerbs; }

int showVerbHelp(std::string_view name, HelpLength length, std::string_view options) {
  const Verb* verb = findVerb(name);
  if (verb == nullptr) return unknownVerb(name);
  std::string text = fmt::format("pvb {}: {}\n\nusage: pvb {} {}\n\nexamples:\n", verb->name,
                                 verb->summary, verb->name, verb->arguments);
  for (const std::string_view example : verb->examples) text += fmt::format("  {}\n", example);
  if (length == HelpLength::full) {
    text += fmt::format("\n{}\n", verb->description);
    // What CLI11 says first is said above in our own words.
    const std::size_t list = options.find("Positionals:") != std::string_view::npos
                                 ? options.find("Positionals:")
                                 : options.find("Options:");
    if (list != std::string_view::npos) text += fmt::format("\n{}", options.substr(list));
    text += "\nexit codes: 0 done, 1 problems found, 2 could not do it\n";
  }
  print(text);
  return kExitYes;
}

int runCompanion(std::span<const std::string> arguments) {
  if (arguments.empty()) {
    std::fputs(verbList().c_str(), stderr);
    return kExitFailed;
  }
  const std::string& word = arguments.front();
  if (word == "-h" || word == "--help") return runHelp({});
  if (word == "--version") {
    print("pvb " PVB_VERSION "\n");
    return kExitYes;
  }
  const Verb* verb = findVerb(word);
  if (verb == nullptr) return unknownVerb(word);
  const int exit = verb->run(arguments.subspan(1));
  PBdiscardErrors();
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return exit;
  return refuse(kOutputLost, "standard output can't be written");
}
