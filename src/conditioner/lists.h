#pragma once

// The named lists of an operation file: signals to rename, to add and to cut,
// the shapes of added tracks, and the settings of compression passes. They are
// filled while the file is read and looked up by the operations.

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct RenamePair {
  std::string oldName;
  std::string newName;
};

struct AddedSignal {
  std::string name;
  std::string direction;
  std::string track;  // both empty when the row gives none
  std::string patBit;
};

struct TrackShape {
  std::string shape;
};

struct CutSignal {
  std::string name;
};

struct CompressSpec {
  std::string name;
  std::string repeatKey = "REPEAT";
  std::string loopKey = "LOOP";
  std::int32_t blockSize = 1;
};

// Items in the order of the file under the names of their lists. One list is
// current: rows that name none go on with it, from table to table of the file.
template <typename Item>
class ListTable {
 public:
  using List = std::vector<Item>;

  // Makes the list of this name the current one, new when there is none.
  void select(std::string_view name) { current_ = &lists_[std::string(name)]; }
  bool hasCurrent() const { return current_ != nullptr; }
  void append(Item item) { current_->push_back(std::move(item)); }

  // Null when no list has this name.
  const List* find(std::string_view name) const {
    const auto found = lists_.find(std::string(name));
    return found == lists_.end() ? nullptr : &found->second;
  }

 private:
  std::unordered_map<std::string, List> lists_;
  List* current_ = nullptr;
};

// The lists of a run; made when the parameters are read, alive to the end.
struct SignalLists {
  ListTable<RenamePair> sigListTable;
  ListTable<AddedSignal> addListTable;
  ListTable<TrackShape> trackListTable;
  ListTable<CutSignal> cutListTable;
  std::unordered_map<std::string, CompressSpec> compressTable;
};
