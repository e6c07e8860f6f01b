#include "base/list.h"

#include <algorithm>

// By hand, because nodes that free one another would do so in as many nested
// calls as there are nodes.
PBlist::~PBlist() {
  while (first) first = std::move(first->next);
}

PBlistHeads PBlistNew(int count) {
  return PBlistHeads(static_cast<std::size_t>(std::max(count, 0)));
}

bool PBlistAppend(PBlist* head, void* data, std::int32_t tag) {
  if (head == nullptr) return false;
  auto node = std::make_unique<PBlistNode>();
  node->data = data;
  node->tag = tag;
  std::unique_ptr<PBlistNode>& end = head->last != nullptr ? head->last->next : head->first;
  end = std::move(node);
  head->last = end.get();
  ++head->count;
  return true;
}

PBlistNode* PBlistFirst(PBlist* head) {
  if (head == nullptr) return nullptr;
  return head->cursor = head->first.get();
}

PBlistNode* PBlistNext(PBlist* head) {
  if (head == nullptr || head->cursor == nullptr) return PBlistFirst(head);
  return head->cursor = head->cursor->next.get();
}

void* PBlistData(const PBlistNode* node) { return node != nullptr ? node->data : nullptr; }
std::int32_t PBlistTag(const PBlistNode* node) { return node != nullptr ? node->tag : 0; }

bool PBlistRemove(PBlist* head, const PBlistNode* node, PBlistFree freeData) {
  if (head == nullptr || node == nullptr) return false;
  PBlistNode* previous = nullptr;
  std::unique_ptr<PBlistNode>* link = &head->first;
  while (*link && link->get() != node) {
    previous = link->get();
    link = &previous->next;
  }
  if (!*link) return false;

  const std::unique_ptr<PBlistNode> removed = std::move(*link);
  *link = std::move(removed->next);
  if (head->cursor == node) head->cursor = previous;
  if (head->last == node) head->last = previous;
  --head->count;
  if (freeData != nullptr) freeData(removed->data);
  return true;
}

void PBlistDestroy(PBlistHeads&& heads, PBlistFree freeData) {
  const PBlistHeads owned = std::move(heads);
  if (freeData == nullptr) return;
  for (const PBlist& head : owned) {
    for (const PBlistNode* node = head.first.get(); node != nullptr; node = node->next.get()) {
      freeData(node->data);
    }
  }
}
