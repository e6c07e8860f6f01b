#pragma once

// Reads text by lines from a plain file, a gzip file, a memory text or a
// temporary copy of one, and keeps what messages need to show a line: the file's
// name, the line number and the line itself. With `escapes` a logical line is
// made of physical ones: "#" starts a comment, a backslash takes "#" or itself
// literally and joins lines, lines without content are passed over. Without
// `escapes` a line is a physical one, with its line end as it stands.
//
// Failures are posts on the numbered stack and a null or negative result.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

class PBtextFile;
struct TextFileCloser {
  void operator()(PBtextFile* file) const;
};
// An open text. The destructor closes it and drops the result;
// PBcloseCompressedTextFile gives the result.
using TextFilePtr = std::unique_ptr<PBtextFile, TextFileCloser>;

// Flag of PBopenCompressedTextFile: through gzip, "PATH.gz" when PATH is missing.
inline constexpr int kTextGzip = 2;

// `mode` is "r". Null after a post of code 81 with the path.
TextFilePtr PBopenCompressedTextFile(const std::string& path, const char* mode, bool escapes,
                                     int flags);
// Reads `text` in place: it must outlive the file. `name` is shown in messages.
TextFilePtr PBopenMemoryText(std::string_view text, std::string_view name, bool escapes);
// The same for a text of unknown length, which ends at the first zero byte when
// `length` is negative.
TextFilePtr PBopenMemoryText(const char* text, std::int64_t length, std::string_view name,
                             bool escapes);
// Copies `text` to a temporary file, which is deleted at close.
TextFilePtr PBopenTempText(std::string_view text, bool escapes);

// Bytes of the line; -1 at the end, -2 after a post. The views stay good until
// the next call on `file`. A line that a comment ends has a line end of its own;
// `comment` is what stands behind the "#", with the line end as it stands.
std::int64_t PBreadTextLine(PBtextFile* file, std::string_view& line, std::string_view& comment);
// Physical lines read so far; the line number of the last one read.
std::int64_t PBgetTextLineNumber(const PBtextFile* file);
// First physical line of the current logical line.
std::int64_t PBfirstTextLineNumber(const PBtextFile* file);
// The name asked for, and the name of the file that was opened (with ".gz" when
// that one was taken).
const std::string& PBtextFileName(const PBtextFile* file);
const std::string& PBtextOpenedName(const PBtextFile* file);

// 0, or -2 after a post of "unable to close file".
int PBcloseCompressedTextFile(TextFilePtr file);

// "(%s) line %d:\n%s" with the opened file's name, the line number, the message.
std::string PBcompressedTextError(const PBtextFile* file, std::string_view message);
// Where the reader stands: "(%s) line %d: \"%s\"" with the line up to its line
// end, at most 1,023 characters; parts that are not known are left out.
std::string PBtextPosition(const PBtextFile* file);

// Whether `path`, or "path.gz" beside it, is there to be opened with kTextGzip.
bool PBtextFileExists(const std::string& path);
