#include "frame/list.h"

#include <vector>

#include "frame/pool.h"
#include "support.h"

namespace vx {
namespace {

class ListTest : public support::LibraryTest {
 protected:
  static void* data(int i) { return &cells_[i]; }
  // The list forward, as numbers; checks that it reads the same backward and that the count is right.
  static std::vector<int> numbers(const CObList& list) {
    std::vector<int> forward;
    std::vector<int> backward;
    for (CNode* node = list.Head; node != nullptr; node = node->Next) {
      forward.push_back(static_cast<int>(static_cast<char*>(node->Data) - cells_));
    }
    for (CNode* node = list.Tail; node != nullptr; node = node->Previous) {
      backward.insert(backward.begin(), static_cast<int>(static_cast<char*>(node->Data) - cells_));
    }
    EXPECT_EQ(forward, backward);
    EXPECT_EQ(list.Count, static_cast<int32_t>(forward.size()));
    return forward;
  }
  using Numbers = std::vector<int>;

 private:
  static inline char cells_[16];
};

TEST_F(ListTest, KeepsOrderWhereverNodesComeAndGo) {
  CObList list{};
  EXPECT_EQ(list_remove_head(list), nullptr);
  EXPECT_EQ(list_remove(list, nullptr), nullptr);
  list_add_tail(list, data(2));
  list_add_head(list, data(1));
  CNode* four = list_add_tail(list, data(4));
  list_insert_before(list, four, data(3));
  list_insert_before(list, list.Head, data(0));
  list_insert_before(list, nullptr, data(5));
  EXPECT_EQ(numbers(list), (Numbers{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(list_at(list, 4), four);
  EXPECT_EQ(list_at(list, 6), nullptr);
  EXPECT_EQ(list_at(list, -1), nullptr);
  EXPECT_EQ(list_remove(list, four), data(4));
  EXPECT_EQ(list_remove_head(list), data(0));
  EXPECT_EQ(list_remove_tail(list), data(5));
  EXPECT_EQ(numbers(list), (Numbers{1, 2, 3}));
  list_add_tail(list, data(1));
  CNode* first = list_find(list, data(1));
  CNode* again = list_find(list, data(1), first);
  EXPECT_EQ(first, list.Head);
  EXPECT_EQ(again, list.Tail);
  EXPECT_EQ(list_find(list, data(1), again), nullptr);
  list_clear(list);
  EXPECT_EQ(numbers(list), Numbers{});
}

TEST_F(ListTest, TakesOtherListsWholeAndItself) {
  CObList list{};
  CObList other{};
  list_add_tail(list, data(1));
  list_add_tail(other, data(2));
  list_add_tail(other, data(3));
  EXPECT_TRUE(list_append_all(list, other));
  EXPECT_TRUE(list_prepend_all(list, other));
  EXPECT_EQ(numbers(list), (Numbers{2, 3, 1, 2, 3}));
  EXPECT_TRUE(list_append_all(other, other));
  EXPECT_EQ(numbers(other), (Numbers{2, 3, 2, 3}));
  fail_allocation_after(2);
  EXPECT_FALSE(list_append_all(list, other));
  EXPECT_EQ(numbers(list), (Numbers{2, 3, 1, 2, 3, 2}));
  list_clear(list);
  list_clear(other);
}

}  // namespace
}  // namespace vx
