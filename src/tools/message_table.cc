#include <array>

#include "tools/message.h"

namespace {

constexpr std::array kTable = {
    MessageRow{kUnknownVerb, "unknown verb", "`pvb help` lists the verbs.",
               "The first word behind `pvb` names what to do. The nearest verb is proposed when "
               "one is near enough."},
    MessageRow{kBadUsage, "bad option or argument", "`pvb help VERB` shows what a verb takes.",
               "An option or an argument isn't known, is missing, or has a value that it can't "
               "have. Nothing was read or written."},
    MessageRow{kUnknownCode, "unknown message code",
               "Give a code as messages show it, such as PVB0203.",
               "`pvb explain` tells more about one message; its code stands in brackets at the "
               "message's end."},
    MessageRow{kOutputLost, "output lost", "Look for room on the disk, or for who closed the pipe.",
               "What should have gone to standard output couldn't be written to its end."},

    MessageRow{kCantRead, "file can't be read", "Look at the path and at its access rights.",
               "The system refused to open or to read the file, or compressed data in it are cut "
               "off or damaged."},
    MessageRow{kCantWrite, "file can't be written",
               "Look at the path, its access rights and the room on the disk.",
               "Output goes to a temporary name beside the final one and is renamed when it is "
               "whole, so whatever stood under the final name is as it was."},
    MessageRow{kExists, "destination exists", "Give another name, or --force to replace it.",
               "Nothing that exists is replaced unless --force says so."},
    MessageRow{kNoDatabase, "no database", "Give the directory that holds the file \"pvb.h\".",
               "A database is a directory; its file \"pvb.h\" makes it one."},
    MessageRow{kCantOpenDatabase, "database can't be opened", "`pvb verify` tells what is wrong.",
               "A section of the database couldn't be loaded. The text names the function that "
               "failed and the file."},
    MessageRow{kNotReplaceable, "destination isn't only a database",
               "Move away what doesn't belong to a database, or give another name.",
               "--force replaces a database as a whole, and does so only when the directory holds "
               "no other files."},
    MessageRow{kCantSaveDatabase, "database can't be saved",
               "Look for room on the disk; nothing was left under the final name.",
               "The new database couldn't be written completely and was removed again."},

    MessageRow{kNotADump, "not a dump", "Give a text that `pvb dump` made.",
               "The first line of a dump is `pvb-dump` and the number of its format."},
    MessageRow{kNewerDump, "dump of a newer format", "Use a newer version of this program.",
               "The dump was written by a later version, in a format that this one doesn't know."},
    MessageRow{kUnknownKeyword, "unknown keyword", "Each line begins with the keyword of a record.",
               "The first word of a line says what the line holds. The nearest keyword is proposed "
               "when one is near enough."},
    MessageRow{kWrongPlace, "line in a wrong place",
               "Put the line below the record that it belongs to.",
               "Some lines belong to the record above them (members to a signal, events to a "
               "track, rows to a pattern); this one found no such record."},
    MessageRow{kExpected, "something else expected", "See the dump format for what stands here.",
               "The word at the caret isn't what this place of the line needs."},
    MessageRow{kOutOfRange, "number out of range", "Give a number that the field can hold.",
               "Fields have 16 or 32 bits in a database; the number doesn't fit."},
    MessageRow{kBadQuoting, "bad text",
               "Put texts between double quotes; write \\\" and \\\\ for these two.",
               "A text stands between double quotes. Behind a backslash may stand a quote, a "
               "backslash, n, t, or x with two hexadecimal digits."},
    MessageRow{kUnknownAttribute, "unknown attribute", "Leave it out or correct its name.",
               "Attributes are written NAME=VALUE behind the fixed fields of a record."},
    MessageRow{kExtraText, "text behind the end of the record", "Remove what stands here.",
               "The record is complete, but the line goes on."},
    MessageRow{kEndsEarly, "text ends early", "Get the whole text; its last line is `done`.",
               "A dump ends with the line `done`, so that a cut one is seen."},
    MessageRow{kBadState, "bad state character", "Use one of - 0 1 Z X ? ! * . and A to G.",
               "Each column of a row has one of sixteen codes, each with its character."},
    MessageRow{kBadTime, "bad time", "Write a number and a unit, such as 12.5nS.",
               "Times are exact to the femtosecond; the units are fS, pS, nS, uS, mS and S. Two "
               "whole numbers with a colon between them are taken as the two stored words."},
    MessageRow{kBadId, "bad id", "Write a number, CLASS:NUMBER, or none.",
               "Objects are named by numbers; those of scan objects carry their class, as 9:1."},
    MessageRow{kBadBytes, "bad base64 data", "Take the line from the dump as it was written.",
               "Files that are carried along whole stand in a dump as base64 lines of at most 76 "
               "characters."},
    MessageRow{kBadFileName, "not a file of a database", "Take the line out.",
               "Only the files that a database carries along whole may stand in a dump."},

    MessageRow{kSignalRefused, "signal refused", "Give every signal an id and a name of its own.",
               "Two signals have the same id or the same name, or the id can't be one."},
    MessageRow{kTimePlateRefused, "timeplate refused",
               "Give every timeplate an id and a name of its own.",
               "Two timeplates have the same id or the same name, or the id is above what a row "
               "can name."},
    MessageRow{kNoSuchTimePlate, "no such timeplate",
               "Define the timeplate above the rows, or correct its name.",
               "A row names a timeplate that the text doesn't define."},
    MessageRow{kSubroutineRefused, "subroutine refused", "Give every subroutine a slot of its own.",
               "Two subroutines have the same slot, or the slot is out of range."},
    MessageRow{kNoSuchSubroutine, "no such subroutine",
               "Define the subroutine above the rows, or correct its name.",
               "A call or a `rows` line names a subroutine that the text doesn't define."},
    MessageRow{kStatesTooWide, "more states than the row has columns",
               "Raise row-width in the database line.",
               "A row has room for as many states as the row width says."},
    MessageRow{kLoopNesting, "loops don't nest", "Give every loop its own end line.",
               "An `end` line has no loop above it, or a pattern ends inside a loop."},
    MessageRow{
        kVectorRefused, "state vector refused",
        "Give every named vector a name of its own, and two cells a byte of which one isn't -.",
        "Two vectors have the same name, or the cells can't be stored."},
    MessageRow{kRunRefused, "scan run refused",
               "Name a chain that has the signals which the run needs, and a vector.",
               "An input run needs a chain with an input signal, an output run one with an output "
               "signal, a run for both needs both; only scan rows have runs."},
    MessageRow{kPinRefused, "pin or column refused",
               "Give every pin and every column an id of its own.",
               "Two pins of one kind, or two columns, have the same id."},
    MessageRow{kPropertyRefused, "property can't be stored",
               "Look for room on the disk, and for the record that the line belongs to.",
               "The property couldn't be added to the list of its record."},
    MessageRow{kRowRefused, "row can't be stored", "Look for room on the disk.",
               "The row couldn't be added to its pattern; the text tells which step failed."},
    MessageRow{kBadDatabaseLine, "bad database line",
               "Use version 501 or 1501 and a row width from 1 to 65536.",
               "The line `database` comes first and says of which kind the database is."},
    MessageRow{kLabelRefused, "label refused", "Use the kinds plain, begin and end.",
               "A label can have the kinds 0 to 4 and needs a pattern that exists."},
    MessageRow{kNoSuchVector, "no such state vector",
               "Define the vector above the rows, or correct its name.",
               "A scan run names a state vector that the text doesn't define."},
    MessageRow{kEquationRefused, "equation data refused",
               "Correct the line; the text tells what is expected.",
               "Below `equations` stand the lines of \"pvb.sdb\": sheets, their variables, and "
               "sets with their values. A name stands once among its like."},

    MessageRow{kHeaderFault, "header damaged", "Restore \"pvb.h\" from a copy.",
               "The header of the database has a wrong length, version, host code or size."},
    MessageRow{kFileFault, "file can't be read", "Look at the access rights, or restore the file.",
               "A file of the database is missing or can't be read."},
    MessageRow{kBlockFileFault, "block file damaged", "Restore the file from a copy.",
               "The header of a block file, its size and its list of free blocks don't agree."},
    MessageRow{kContainerFault, "compressed file damaged", "Restore the file from a copy.",
               "The blocks of a compressed file don't unpack to what they should."},
    MessageRow{kPageFileFault, "page file damaged", "Restore the file from a copy.",
               "The records of a variable page file and its index don't agree."},
    MessageRow{kSectionFault, "section can't be loaded", "Restore the file from a copy.",
               "A section of the database can't be loaded; the text names the function and the "
               "file."},
    MessageRow{kTreeFault, "tree damaged", "Dump what can be read, and build it anew.",
               "The order of the rows is held by trees whose nodes keep sums. A node has a wrong "
               "number, link, count or sum, or is reached twice."},
    MessageRow{kSharedRow, "row reached twice", "Dump what can be read, and build it anew.",
               "Each row belongs to one place of one pattern."},
    MessageRow{kRowFault, "row damaged", "Correct the row in a dump, and build it anew.",
               "The block of a row is missing, has another row's number, or a type that isn't "
               "known."},
    MessageRow{
        kEntryFault, "tree disagrees with row",
        "Any change of the pattern that recomputes its sums repairs it; so do dump and build.",
        "The entry of a row in its tree keeps type, timeplate, count, time and cycles of "
        "the row; one of them isn't what the row says."},
    MessageRow{kTableSumsFault, "subroutine table disagrees with tree",
               "Dump the database, and build it anew.",
               "\"pvb.ps\" keeps rows, cycles, time and addresses of each subroutine; they aren't "
               "those of its tree."},
    MessageRow{kLoopFault, "loop damaged", "Correct the loop in a dump, and build it anew.",
               "The body of a loop ends with one end row of the loop's count."},
    MessageRow{kLostBlocks, "lost blocks", "Dump and build gives the room back.",
               "Blocks are neither in use nor free. They take room and do no harm."},
    MessageRow{kPropertyListFault, "property list damaged",
               "Correct the list in a dump, and build it anew.",
               "A record names a property list that doesn't exist or that another one has."},
    MessageRow{kPropertyRecordFault, "property damaged",
               "Correct the list in a dump, and build it anew.",
               "A record in \"pvb.v\" lies outside the file or links to a later one."},
    MessageRow{
        kListWithoutOwner, "property list without an owner", "Dump and build gives the room back.",
        "A property list is in use, but no record names it. It takes room and does no harm."},
    MessageRow{kScanRunFault, "scan run damaged", "Correct the row in a dump, and build it anew.",
               "A scan run has a bad type or link, belongs to two rows, or names a chain or a "
               "vector that doesn't exist."},
    MessageRow{kUnknownTimePlate, "timeplate doesn't exist",
               "Give the row another timeplate, or add the timeplate.",
               "A row names a timeplate that the database doesn't have."},
    MessageRow{kUnknownSignal, "signal doesn't exist", "Take the id out of the list.",
               "A list of signals names an id that the database doesn't have."},
    MessageRow{kColumnFault, "column taken twice or out of range",
               "Give the signal a column of its own in a dump, and build it anew.",
               "Each scalar signal owns columns of the row data, inside the row width."},
    MessageRow{kLostLabel, "label without a row", "Remove the label, or give it a row.",
               "The row of a label was deleted, or its subroutine doesn't exist."},
    MessageRow{kUnknownSubroutine, "subroutine doesn't exist", "Correct the call or remove it.",
               "A call names a subroutine that the database doesn't have."},

    MessageRow{kRowsNotReadable, "rows can't be read", "`pvb verify` tells what is wrong.",
               "The trees that hold the order of the rows are damaged, so the rows can't be given "
               "in order."},
    MessageRow{kPropertiesNotReadable, "properties can't be read",
               "`pvb verify` tells what is wrong.",
               "A property list or its records can't be read."},
    MessageRow{kVectorsNotReadable, "state vectors can't be read",
               "`pvb verify` tells what is wrong.", "A state vector can't be unpacked."},
    MessageRow{kEquationsNotReadable, "equation data can't be read",
               "Correct \"pvb.sdb\", which is text, or restore it from a copy.",
               "The file of the equation data has a line that isn't understood, or ends early."},
    MessageRow{kNotCheckable, "database can't be checked", "`pvb verify` tells what is wrong.",
               "What the check walks is damaged: a group that names a signal that isn't there, a "
               "tree or a row that can't be read, or there are more signals than it takes."},

    MessageRow{kNotComparable, "pattern can't be compared", "`pvb verify` tells what is wrong.",
               "A tree or a row can't be read, a subroutine calls itself or doesn't exist, or the "
               "pattern is longer than a time can be, so its cycles can't be given in order."},
    MessageRow{kNoSuchSignal, "no such signal", "`pvb show DB signals` lists the names.",
               "Neither database has a signal of this name. Buses and groups are compared by their "
               "parts."},
    MessageRow{kBadStretch, "bad stretch of time",
               "Give times such as 250nS, at the beginning of a cycle or with --ignore-cycles.",
               "The beginning or the end of what is to be compared isn't a time, the end isn't "
               "behind the beginning, or no cycle begins there."},

    MessageRow{kStilSyntax, "STIL syntax", "Correct the text at the mark.",
               "The statement isn't formed as STIL (IEEE 1450) asks. The text tells what was "
               "expected at this place."},
    MessageRow{
        kStilUnended, "text without end", "Look for the missing end, from the mark on.",
        "A block, a string, a comment or an annotation begins here, and the file ends before "
        "it does: the file may be cut off."},
    MessageRow{kStilTooLong, "too long", "Split what stands there.",
               "A name, the data of one assignment, or the nesting of blocks or files goes beyond "
               "what is read, so that memory stays bounded."},
    MessageRow{kStilUnknownName, "no such signal or group",
               "Define it above, or name the SignalGroups in the PatternBurst.",
               "A name stands where a signal or a group is meant, and neither the Signals nor the "
               "SignalGroups in force define it, or a group contains itself."},
    MessageRow{kStilUnknownWave, "character without a waveform",
               "Add the waveform to the WaveformTable; --lenient leaves the signal alone there.",
               "The WaveformTable in force says nothing of this character for this signal. With "
               "--lenient the signal is left as it was, and each such character is a warning."},
    MessageRow{kStilBadExpression, "bad expression", "Correct the expression.",
               "A time or a value can't be worked out: the text tells why."},
    MessageRow{
        kStilUnknownRoutine, "no such procedure or macro",
        "Define it, or name its block in the PatternBurst.",
        "A Call or a Macro names what no Procedures or MacroDefs in force define, or one that "
        "calls itself."},
    MessageRow{
        kStilUnknownTable, "no such waveform table",
        "Define it in the Timing of the PatternExec, or choose another one.",
        "A W statement names a table that the Timing in force hasn't got, or a vector stands "
        "before any W."},
    MessageRow{kStilNotCarried, "not carried over", "Nothing, if it isn't needed.",
               "The database has no place for what stands there; all else is imported."},
    MessageRow{kStilUnsupported, "can't be imported",
               "Take the statement out; --lenient leaves it out where that keeps the cycles right.",
               "What stands there would change what the pattern does, and the database has no "
               "counterpart."},
    MessageRow{kStilDataCount, "data of a wrong length",
               "Give one character for each signal, or one for all of them.",
               "The data of an assignment and the signals in front of it differ in number."},
    MessageRow{
        kStilUnknownStatement, "unknown statement", "Nothing, if it isn't needed.",
        "A word that STIL doesn't know stands where a statement begins; it is passed over up "
        "to its end."},
    MessageRow{kStilNoPattern, "which pattern?", "Choose one by --exec, --burst or --pattern.",
               "The file has no PatternExec, or several and none without a name, or what it names "
               "isn't there."},
    MessageRow{kStilInclude, "file to include", "Put the file where the text names it.",
               "An Include names a file that can't be read, or includes itself."},
    MessageRow{kStilTwice, "defined twice", "Take one of the two out.",
               "Two things of one kind and domain have the same name."},
    MessageRow{
        kStilBadTime, "bad time", "Correct the expression or the value.",
        "An event or a period isn't a time that can be kept: negative, zero, too long, or not "
        "a time at all. Events out of order are sorted, events behind the period are kept, both "
        "with a warning."},
    MessageRow{kStilNoState, "signals without a state",
               "Give each signal a state before the first vector, by a C statement.",
               "A vector stands where some signals were never assigned. In the cycles up to their "
               "first assignment nothing is driven or compared on them."},

    MessageRow{kVcdSyntax, "VCD syntax", "Correct the text at the mark.",
               "What stands there isn't a value change dump."},
    MessageRow{kVcdUnknownCode, "unknown identifier", "Correct the line.",
               "A change names an identifier that no $var defines."},
    MessageRow{kVcdBadTime, "bad time", "Correct the line, or the options.",
               "Times must not go back, and must be whole steps of the timescale."},
    MessageRow{
        kVcdNoSignals, "no signals",
        "Name them by --inputs and --outputs; `pvb import FILE --list` shows them.",
        "No variable of the dump is chosen as a signal, or a name that an option gives isn't "
        "in the dump."},
    MessageRow{kVcdNotCarried, "not carried over", "Nothing, if it isn't needed.",
               "Reals, strings and events have no counterpart in a pattern."},
    MessageRow{kVcdEndsEarly, "text ends early",
               "Fetch the whole file; what a warning says is taken is good up to there.",
               "The dump ends before its changes begin, which is an error, or in the middle of a "
               "line or of a command."},

    MessageRow{
        kUnknownFormat, "unknown format",
        "Name a file that ends in .stil or .vcd, or give --from or --to.",
        "The kind of a file is known by its name or by an option; `pvb formats` lists them."},
    MessageRow{kImportRefused, "can't be stored", "The text tells which step failed.",
               "The database can't take what the file describes, or there is no room on the disk."},
    MessageRow{kExportRefused, "can't be exported", "The text tells why.",
               "The form asked for can't say what stands in the database."},
    MessageRow{kExportNotCarried, "not carried over", "Nothing, if it isn't needed.",
               "The form asked for has no place for this; all else is written."},
};

}  // namespace

std::span<const MessageRow> messageTable() { return kTable; }
