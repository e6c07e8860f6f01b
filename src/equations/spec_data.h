#pragma once

// The equation data of a database: sheets of named variables and, for each sheet,
// sets of values for these. Plain records, owned by whoever opened them; nothing of
// them hangs on an open database, so whoever needs equations opens the file
// "pvb.sdb" by the path of the database's directory and saves it there.
//
// A variable has a type and an expression of its own; an item gives the variable
// another expression in its set, and the attributes 4 minimum, 5 maximum and 7
// measured value. Numbers of attributes are in the base unit of the variable: seconds,
// hertz, volts, amperes. One sheet of a database and one set of each sheet are
// selected.
//
// "pvb.sdb" is text, a line for each thing, in the order in which they were entered.
// NAME, EXPRESSION and TEXT stand between double quotes (base/quote.h), so any bytes
// are safe. Blanks in front mean nothing; blank lines and lines that begin with "#"
// are passed over.
//
//   LINE                              MEANING
//   SDB 1                             format; the first line
//   sheet NAME [selected]             a sheet; "" for one without a name
//     variable NAME TYPE EXPRESSION   of the sheet above; "" is named "NullVarName"
//     set NAME [selected]             of the sheet above, behind its variables
//       value NAME [FIELD=...]...     what the set above says of a variable; none
//                                     without fields: expr=EXPRESSION min=VALUE
//                                     max=VALUE measured=VALUE
//   end                               the last line, so that a cut file is seen
//
//   TYPE   any number time frequency voltage current
//   VALUE  a number (code 1), CODE:NUMBER, or 2:TEXT, 2:none; nothing is code 9.
//          Numbers are written so that they read back exactly; inf and nan are some.
//
// A name stands once among the sheets, and once in a sheet among its variables and
// among its sets. Where nothing is selected the first one is.
//
// Failure: -2, none or null after a post (87 with the file, the line and what is wrong
// there); memory stays in proportion to the file.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

inline constexpr std::string_view kSpecFile = "pvb.sdb";
inline constexpr std::string_view kFirstSheet = "Sheet1";
inline constexpr std::string_view kFirstSet = "Set1";
inline constexpr std::string_view kNullVariable = "NullVarName";
inline constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

// A typed value. Code kValueUndefined has no value, kValueText a text (which may be
// absent), any other a number.
inline constexpr int kValueNumber = 1;
inline constexpr int kValueText = 2;
inline constexpr int kValueUndefined = 9;
struct ssValue {
  int code = kValueUndefined;
  double number = 0;
  std::optional<std::string> text;
};

// What a variable's expression must give; `any` leaves it open.
enum class ssType { any, number, time, frequency, voltage, current };
// The word of the file, "time".
std::string_view ssTypeWord(ssType type);

struct ssItem {
  std::optional<std::string> expression;  // in place of the variable's own
  ssValue minimum;                        // attribute 4
  ssValue maximum;                        // attribute 5
  ssValue measured;                       // attribute 7
};
bool ssHoldsNothing(const ssItem& item);

struct ssVariable {
  std::string name;
  ssType type = ssType::any;
  std::string expression;
};

struct ssSet {
  std::string name;
  // By the variable's row, of the variables of which the set says anything.
  std::map<std::size_t, ssItem> items;
};

// Records in the order in which they were entered, found by their names, of which each
// stands here once.
template <typename T>
class ssNamedList {
 public:
  std::size_t size() const { return records_.size(); }
  bool empty() const { return records_.empty(); }
  auto begin() const { return records_.begin(); }
  auto end() const { return records_.end(); }
  T& operator[](std::size_t index) { return records_[index]; }
  const T& operator[](std::size_t index) const { return records_[index]; }

  // kNotFound when there is none.
  std::size_t find(std::string_view name) const {
    const auto found = byName_.find(std::string(name));
    return found != byName_.end() ? found->second : kNotFound;
  }
  // Null when the name is taken. Good until the next call that changes the list.
  T* add(T record) {
    if (!byName_.emplace(record.name, records_.size()).second) return nullptr;
    return &records_.emplace_back(std::move(record));
  }
  // Removes those of which `cut` is true; the others keep their order.
  void cut(const std::function<bool(const T& record)>& cut) {
    std::erase_if(records_, cut);
    byName_.clear();
    for (std::size_t i = 0; i < records_.size(); ++i) byName_.emplace(records_[i].name, i);
  }

 private:
  std::vector<T> records_;
  std::unordered_map<std::string, std::size_t> byName_;
};

struct ssSheet {
  std::string name;  // empty: none
  ssNamedList<ssVariable> variables;
  ssNamedList<ssSet> sets;
  std::size_t selectedSet = 0;  // of its sets, when it has any
};

struct ssData {
  ssNamedList<ssSheet> sheets;
  std::size_t selectedSheet = 0;  // of the sheets, when there are any
};

// --- The file ------------------------------------------------------------------------

// A new equation database: "Sheet1" with "Set1".
ssData ssNew();
bool ssExists(const std::string& directory);
// The equation data of a database directory; a new one when it has no file. None after
// a post under "ssOpen".
std::optional<ssData> ssOpen(const std::string& directory);
// Writes the file beside and renames: a failed save leaves the old one whole. Posts 85.
int ssSave(const ssData& data, const std::string& directory);
// Copies the file of one database directory to another, byte for byte. Posts 85.
int ssCopyFile(const std::string& toDirectory, const std::string& fromDirectory);

// Gives the lines between the first and the last one, without line ends.
void ssWriteLines(const ssData& data, const std::function<void(std::string_view line)>& write);

// A line without the blanks around it; empty for one that is passed over.
std::string_view ssLineContent(std::string_view line);
// Makes equation data from these lines.
class ssLineReader {
 public:
  // False for the first line that is wrong: error() and column() tell what and where.
  bool take(std::string_view line);
  const std::string& error() const { return error_; }
  std::size_t column() const { return place_ + 1; }  // from 1, in bytes
  ssData& data() { return data_; }

 private:
  bool sheet();
  bool variable();
  bool set();
  bool value();
  bool field(ssItem& item);
  bool attribute(ssValue& value);
  bool attributeText(ssValue& value);
  bool name(std::string& out);
  bool selected(bool& out);
  bool lineEnd();
  bool fail(std::string text);
  std::string_view word(std::string_view stops);
  void skipBlanks();
  ssSheet* lastSheet();

  std::string_view line_;
  std::size_t place_ = 0;
  std::string error_;
  ssData data_;
  bool sheetSelected_ = false;
  bool setSelected_ = false;
};

// --- Sheets, sets, symbols -----------------------------------------------------------

// Selecting gives the index, or kNotFound and nothing changes.
std::size_t ssSelectSheet(ssData& data, std::string_view name);
std::size_t ssSelectSet(ssSheet& sheet, std::string_view name);
// A sheet with the set "Set1", or null: the name is taken.
ssSheet* ssAddSheet(ssData& data, std::string_view name);
// Removes the sheets of which `cut` is true. The selected one stays selected, or the
// first one is when it was cut.
void ssCutSheets(ssData& data, const std::function<bool(const ssSheet& sheet)>& cut);
ssSet* ssAddSet(ssSheet& sheet, std::string_view name);
// A variable as the sheet's last row, "NullVarName" when it has no name.
ssVariable* ssAddSymbol(ssSheet& sheet, std::string_view name, ssType type,
                        std::string_view expression);
// The expression that a variable has in a set (kNotFound: in none).
const std::string& ssExpression(const ssSheet& sheet, std::size_t set, std::size_t variable);
