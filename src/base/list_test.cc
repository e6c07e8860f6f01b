#include "base/list.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <deque>
#include <vector>

namespace {

void addOne(void* data) { ++*static_cast<int*>(data); }

int* dataOf(const PBlistNode* node) { return static_cast<int*>(PBlistData(node)); }

std::vector<int*> content(const PBlist& list) {
  std::vector<int*> data;
  for (const PBlistNode* node = list.first.get(); node != nullptr; node = node->next.get()) {
    data.push_back(dataOf(node));
  }
  return data;
}

// The cursor of the model is a position; -1 is none.
struct Model {
  std::vector<int*> items;
  int cursor = -1;

  int* next() {
    if (++cursor == static_cast<int>(items.size())) cursor = -1;
    return cursor < 0 ? nullptr : items[static_cast<std::size_t>(cursor)];
  }
  int* remove(int position) {
    int* item = items[static_cast<std::size_t>(position)];
    items.erase(items.begin() + position);
    if (cursor >= position) --cursor;
    return item;
  }
};

PBlistNode* nodeAt(const PBlist& list, int position) {
  PBlistNode* node = list.first.get();
  while (position-- > 0) node = node->next.get();
  return node;
}

RC_GTEST_PROP(List, BehavesAsAVectorWithACursor, ()) {
  std::deque<int> data;
  const PBlistHeads unused = PBlistNew(1);
  PBlistHeads heads = PBlistNew(2);
  PBlist* list = &heads[1];
  Model model;
  for (const int action : *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 12))) {
    const int count = static_cast<int>(model.items.size());
    if (action < 5) {
      int* item = &data.emplace_back(0);
      RC_ASSERT(PBlistAppend(list, item, action));
      RC_ASSERT(PBlistTag(list->last) == action);
      model.items.push_back(item);
    } else if (action < 9) {
      RC_ASSERT(dataOf(PBlistNext(list)) == model.next());
    } else if (action == 9) {
      model.cursor = -1;
      RC_ASSERT(dataOf(PBlistFirst(list)) == model.next());
    } else if (count > 0) {
      const int position = action == 10 ? std::max(model.cursor, 0) : count - 1;
      RC_ASSERT(PBlistRemove(list, nodeAt(*list, position), addOne));
      RC_ASSERT(*model.remove(position) == 1);
    }
    RC_ASSERT(content(*list) == model.items);
    RC_ASSERT(list->count == static_cast<int>(model.items.size()));
  }
  RC_ASSERT(heads[0].count == 0);
}

TEST(List, LongListIsFreedWithoutDeepCalls) {
  PBlistHeads heads = PBlistNew(1);
  int calls = 0;
  for (int i = 0; i < 500'000; ++i) PBlistAppend(&heads[0], &calls, i);
  PBlistDestroy(std::move(heads), addOne);
  EXPECT_EQ(calls, 500'000);
}

}  // namespace
