#include <numeric>

#include "base/hash.h"
#include "tools/build_internal.h"

namespace {

struct Member {
  PVBid id;
  std::size_t index;
};

int compareMembers(const void* probe, const void* member) {
  return static_cast<const Member*>(probe)->id == static_cast<const Member*>(member)->id ? 0 : 1;
}
int hashMember(const void* member) { return static_cast<const Member*>(member)->id; }

using Order = std::vector<std::size_t>;

// How members stand in a table after being entered in an order.
Order tableOrder(std::vector<Member>& members, const Order& entered, int buckets) {
  HashTable<Member> table(buckets, compareMembers, hashMember);
  for (const std::size_t index : entered) {
    if (table.insert(&members[index]) != 0) return entered;
  }
  Order order;
  order.reserve(entered.size());
  table.forEach([&](const Member& member) { order.push_back(member.index); });
  return order;
}

}  // namespace

// Being saved and loaded means to be entered in the order of the table, which
// moves members within their buckets in the same way whoever they are. So how
// `order` itself would be moved tells what to undo.
std::vector<std::size_t> entryOrder(const std::vector<PVBid>& order, int buckets) {
  std::vector<Member> members;
  for (std::size_t i = 0; i < order.size(); ++i) members.push_back({order[i], i});
  Order wanted(order.size());
  std::iota(wanted.begin(), wanted.end(), std::size_t{0});
  const auto reloaded = [&](const Order& entered) {
    return tableOrder(members, tableOrder(members, entered, buckets), buckets);
  };
  const Order moved = reloaded(wanted);
  Order entered(order.size());
  for (std::size_t i = 0; i < moved.size(); ++i) entered[moved[i]] = i;
  // An order that no table gives, as in a text written by hand, can't be kept.
  return reloaded(entered) == wanted ? entered : wanted;
}
