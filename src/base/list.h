#pragma once

// Singly linked lists with a cursor and a tag on each item. Lists come in arrays
// of one or more heads. The items' data belongs to the caller; nodes belong to
// their list and live until they are removed or the heads go.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct PBlistNode {
  void* data = nullptr;
  std::int32_t tag = 0;
  std::unique_ptr<PBlistNode> next;
};

// The head of a list. `last` is the end of the chain, so that appending needn't
// walk to it; null exactly when `first` is.
struct PBlist {
  PBlist() = default;
  ~PBlist();
  PBlist(const PBlist&) = delete;
  PBlist& operator=(const PBlist&) = delete;

  int count = 0;
  std::optional<std::string> name;
  PBlistNode* cursor = nullptr;
  std::unique_ptr<PBlistNode> first;
  PBlistNode* last = nullptr;
};

using PBlistHeads = std::vector<PBlist>;
// Called with the data of an item that goes.
using PBlistFree = void (*)(void* data);

PBlistHeads PBlistNew(int count);
// false only for a null head.
bool PBlistAppend(PBlist* head, void* data, std::int32_t tag);

// The cursor: both move it and give the node there, null at the end. After the
// end the next one is the first again.
PBlistNode* PBlistFirst(PBlist* head);
PBlistNode* PBlistNext(PBlist* head);
// Null and 0 for no node.
void* PBlistData(const PBlistNode* node);
std::int32_t PBlistTag(const PBlistNode* node);

// Takes the node out; a cursor on it steps back, so that the next one is the
// node behind. false, with nothing done, when the node isn't in the list.
bool PBlistRemove(PBlist* head, const PBlistNode* node, PBlistFree freeData);
// Empties the heads, calling `freeData` when given with every item's data.
void PBlistDestroy(PBlistHeads&& heads, PBlistFree freeData);
