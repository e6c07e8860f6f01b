#pragma once

// Reads value change dumps (VCD, plain and extended) as they stream in: first the head
// with scopes and variables, then one change after the other. Memory is the head, a
// buffer that holds the longest word, and a table of identifiers.
//
//   #TIME                      time, in steps of the timescale; never goes back
//   0! 1! x! z!                a bit (of the nine VHDL states u w - count as x, l h as 0 1)
//   b0101 !                    bits, the leftmost first; short ones are extended by a reader
//                              of the value: 0 by 0, 1 by 0, x by x, z by z
//   r1.5 !     sText !         a real, a string
//   pDLN 660 006 !             states of ports and the strengths of their 0 and 1
//   $dumpvars ... $end         as $dumpall, $dumpon, $dumpoff, $dumpports...: what stands
//                              in them are changes like any other
//   $comment ... $end          passed over, as any other command is
//
// Variables with one identifier code are names of one net. Events count as bits.
//
// The first failure is told with file, line and column; from then on each event is
// `end` and failed() holds. A text that ends in the middle of something is no failure:
// what stands before that is handed out, and a warning kVcdEndsEarly is told.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/byte_source.h"
#include "tools/message.h"

enum class VcdKind : std::uint8_t { bits, real, string, event };

struct VcdScope {
  std::string name;          // may be empty
  std::int32_t parent = -1;  // index, -1 for none
};

struct VcdVar {
  std::string type;  // "wire"
  std::string name;  // without range, and without the backslash of an escaped one
  std::int32_t scope = -1;
  std::uint32_t net = 0;
  std::uint32_t width = 1;
  VcdKind kind = VcdKind::bits;
  bool ranged = false;
  std::int32_t left = 0;  // of the range
  std::int32_t right = 0;
};

struct VcdHeader {
  std::uint64_t stepFemtoseconds = 0;  // of the timescale
  std::vector<VcdScope> scopes;        // a parent stands in front of its children
  std::vector<VcdVar> vars;
  std::vector<std::uint32_t> netWidths;  // the widest variable of each net
  bool hasPorts = false;
};

// The names of the scopes above a variable or scope, joined by dots; those without a
// name are passed over. Replaces `path`.
void vcdScopePath(const VcdHeader& header, std::int32_t scope, std::string& path);

enum class VcdEvent : std::uint8_t {
  end,
  time,    // time()
  bits,    // net(), value(): of 0 1 x z
  real,    // value(): its text
  string,  // value(): its text
  ports,   // value(): a state character for each bit
};

class VcdReader {
 public:
  static constexpr std::size_t kLongestWord = std::size_t{64} << 20;
  static constexpr std::size_t kLongestPath = 4096;

  VcdReader(std::unique_ptr<ByteSource> source, MessageSink sink);

  // Up to $enddefinitions, which must stand. Call it first, and once.
  bool readHeader();
  const VcdHeader& header() const { return header_; }

  VcdEvent next();
  std::uint64_t time() const { return time_; }
  std::uint32_t net() const { return net_; }
  // Good until the next event. Letters are small but for ports.
  std::string_view value() const { return value_; }
  // Back to the first change; warnings aren't told again.
  bool rewind();

  // Tells what is wrong at the event read last; always false.
  bool fail(MessageCode code, std::string text);
  // A warning or note about the file as a whole.
  void tell(Severity severity, MessageCode code, std::string text);
  bool failed() const { return failed_; }
  const ByteSource& source() const { return *source_; }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
  };
  static constexpr std::size_t kMostWords = 4;
  // Words at the place of reading, in the buffer until it is filled again. Fewer than
  // were asked for at the end of the text; `cut` when the text ends right behind the
  // last one, or a failure.
  struct Words {
    std::array<std::string_view, kMostWords> word;
    std::size_t count = 0;
    bool cut = false;
  };

  // Text (vcd_reader_text.cc).
  Words words(std::size_t count);
  bool word(std::string_view& out);  // takes one
  std::size_t placeOf(std::string_view piece) const {
    return static_cast<std::size_t>(piece.data() - buffer_.data());
  }
  void takeUpTo(std::string_view piece) { at_ = placeOf(piece) + piece.size(); }
  bool fill();
  void drop();
  bool grow();
  bool failAt(std::size_t place, MessageCode code, std::string text);
  Message messageAt(std::size_t place, MessageCode code, std::string text) const;
  VcdEvent endEarly(std::string_view what);

  // Changes (vcd_reader.cc).
  std::uint32_t findNet(std::string_view code) const;
  // What isn't a plain bit or time in the middle of the buffer; false for what is no
  // event.
  bool other(VcdEvent& event);
  VcdEvent stamp();
  VcdEvent scalar();
  VcdEvent vector();
  VcdEvent text(VcdEvent kind);
  VcdEvent ports();
  bool takeCode(const Words& read);
  bool normalBits(std::string_view bits);
  bool command();
  VcdEvent finish();

  // The head (vcd_reader_header.cc).
  bool definition(std::string_view keyword);
  bool skipCommand();
  bool readArguments(const std::string& name);
  bool timescale();
  bool enterScope();
  bool upScope();
  bool variable();
  bool variableWidth(VcdVar& var, std::string_view text);
  void enterNet(std::string_view code, VcdVar& var);

  std::unique_ptr<ByteSource> source_;
  MessageSink sink_;
  VcdHeader header_;

  // The buffer holds the text from `base_` on; zero bytes stand behind its end.
  std::vector<char> buffer_;
  std::size_t at_ = 0;
  std::size_t end_ = 0;
  std::size_t event_ = 0;        // where the event read last begins
  bool ended_ = false;           // nothing comes behind end_
  bool cut_ = false;             // because packed data end too soon
  std::uint64_t base_ = 0;       // offset in the text
  std::uint64_t line_ = 1;       // at the buffer's beginning
  std::uint64_t lineBegin_ = 0;  // offset in the text of that line
  std::uint64_t bodyOffset_ = 0;
  std::uint64_t bodyLine_ = 1;
  std::uint64_t bodyLineBegin_ = 0;

  // Nets by the number of a code of up to three characters; other codes by text.
  std::vector<std::uint32_t> shortCodes_;
  std::unordered_map<std::string, std::uint32_t, Hash, std::equal_to<>> longCodes_;

  std::vector<std::string> arguments_;  // of the definition in hand
  std::int32_t scope_ = -1;
  std::size_t pathLength_ = 0;

  std::uint64_t time_ = 0;
  std::uint32_t net_ = 0;
  std::string_view value_;
  std::string normal_;   // bits that the text spells in another way
  bool inDump_ = false;  // a $dumpvars or the like has no $end yet
  bool quiet_ = false;   // warnings were told
  bool finished_ = false;
  bool failed_ = false;
};
