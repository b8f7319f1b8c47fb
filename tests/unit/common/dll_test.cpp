#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bootinit/common.h"

namespace {

struct Entry {
  BOOT_INIT_DLL_NODE_S node;
  int value;
};

std::vector<int> &Released() {
  static std::vector<int> released;
  return released;
}

void ReleaseEntry(void *element) {
  auto *entry = static_cast<Entry *>(element);
  Released().push_back(entry->value);
  std::free(entry);
}

Entry *NewEntry(int value) {
  auto *entry = static_cast<Entry *>(std::calloc(1, sizeof(Entry)));
  entry->value = value;
  return entry;
}

void InitHead(BOOT_INIT_DLL_HEAD_S *head) {
  head->links.next = &head->links;
  head->links.prev = &head->links;
  head->reserved = nullptr;
  head->count = 0;
}

void Append(BOOT_INIT_DLL_HEAD_S *head, Entry *entry) {
  BOOT_InitDllInsertInMiddle(head, head->links.prev, &entry->node, &head->links);
}

// Values from first to last, checking both directions of every link.
std::vector<int> Values(BOOT_INIT_DLL_HEAD_S *head) {
  std::vector<int> values;
  for (BOOT_INIT_DLL_NODE_S *node = head->links.next; node != &head->links; node = node->next) {
    EXPECT_EQ(node->next->prev, node);
    EXPECT_EQ(node->prev->next, node);
    values.push_back(reinterpret_cast<Entry *>(node)->value);
  }
  EXPECT_EQ(values.size(), head->count);
  return values;
}

class DllTest : public testing::Test {
 protected:
  void SetUp() override {
    Released().clear();
    InitHead(&head_);
  }
  void TearDown() override { BOOT_InitDllFreeAll(&head_, ReleaseEntry); }
  BOOT_INIT_DLL_HEAD_S head_{};
};

// The head is next, prev, a reserved word and the count, in this order.
static_assert(sizeof(BOOT_INIT_DLL_NODE_S) == 2 * sizeof(void *));
static_assert(offsetof(BOOT_INIT_DLL_HEAD_S, links) == 0);
static_assert(offsetof(BOOT_INIT_DLL_HEAD_S, reserved) == 2 * sizeof(void *));
static_assert(offsetof(BOOT_INIT_DLL_HEAD_S, count) == 3 * sizeof(void *));

TEST_F(DllTest, AppendingKeepsOrderAndCount) {
  for (int value : {1, 2, 3}) {
    Append(&head_, NewEntry(value));
  }
  EXPECT_EQ(head_.count, 3u);
  EXPECT_EQ(Values(&head_), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(head_.links.prev->next, &head_.links);  // the last element leads back to the head
}

TEST_F(DllTest, InsertInTheMiddle) {
  Entry *first = NewEntry(1);
  Entry *last = NewEntry(3);
  Append(&head_, first);
  Append(&head_, last);
  BOOT_InitDllInsertInMiddle(&head_, &first->node, &NewEntry(2)->node, &last->node);
  EXPECT_EQ(Values(&head_), (std::vector<int>{1, 2, 3}));
}

TEST_F(DllTest, InsertingNothingLeavesTheCount) {
  Append(&head_, NewEntry(1));
  BOOT_InitDllInsertInMiddle(&head_, head_.links.prev, nullptr, &head_.links);
  EXPECT_EQ(head_.count, 1u);
  EXPECT_EQ(Values(&head_), (std::vector<int>{1}));
}

TEST_F(DllTest, DeleteInMiddleUnlinksAndClearsTheNode) {
  Entry *a = NewEntry(1);
  Entry *b = NewEntry(2);
  Entry *c = NewEntry(3);
  Append(&head_, a);
  Append(&head_, b);
  Append(&head_, c);
  BOOT_InitDllDeleteInMiddle(&head_, &a->node, &b->node, &c->node);
  EXPECT_EQ(b->node.next, nullptr);
  EXPECT_EQ(b->node.prev, nullptr);
  EXPECT_EQ(Values(&head_), (std::vector<int>{1, 3}));
  std::free(b);
}

TEST_F(DllTest, DeleteUnlinksALinkedNodeWithoutFreeingIt) {
  Entry *a = NewEntry(1);
  Entry *b = NewEntry(2);
  Append(&head_, a);
  Append(&head_, b);
  BOOT_InitDllDelete(&head_, &a->node);
  EXPECT_TRUE(Released().empty());
  EXPECT_EQ(a->node.next, nullptr);
  EXPECT_EQ(Values(&head_), (std::vector<int>{2}));
  BOOT_InitDllDelete(&head_, &b->node);
  EXPECT_EQ(head_.count, 0u);
  EXPECT_EQ(head_.links.next, &head_.links);
  EXPECT_EQ(head_.links.prev, &head_.links);
  std::free(a);
  std::free(b);
}

TEST_F(DllTest, DeleteOfANodeWhoseNeighboursDoNotPointBackDoesNothing) {
  Entry *a = NewEntry(1);
  Entry *b = NewEntry(2);
  Append(&head_, a);
  Append(&head_, b);
  Entry stranger{};
  stranger.node.next = &b->node;  // b->prev is a, not the stranger
  stranger.node.prev = &a->node;  // a->next is b
  BOOT_InitDllDelete(&head_, &stranger.node);
  EXPECT_EQ(head_.count, 2u);
  EXPECT_EQ(Values(&head_), (std::vector<int>{1, 2}));

  Entry unlinked{};  // links never set
  BOOT_InitDllDelete(&head_, &unlinked.node);
  unlinked.node.next = &b->node;  // only one link set
  BOOT_InitDllDelete(&head_, &unlinked.node);
  EXPECT_EQ(head_.count, 2u);
  EXPECT_EQ(Values(&head_), (std::vector<int>{1, 2}));
}

TEST_F(DllTest, FreeAllReleasesEveryElementInOrderAndEmptiesTheHead) {
  for (int value : {5, 6, 7}) {
    Append(&head_, NewEntry(value));
  }
  BOOT_InitDllFreeAll(&head_, ReleaseEntry);
  EXPECT_EQ(Released(), (std::vector<int>{5, 6, 7}));
  EXPECT_EQ(head_.count, 0u);
  EXPECT_EQ(head_.links.next, &head_.links);
  EXPECT_EQ(head_.links.prev, &head_.links);
  Append(&head_, NewEntry(8));  // the head is usable again
  EXPECT_EQ(Values(&head_), (std::vector<int>{8}));
}

TEST(DllFreeAllTest, EmptyListWithUninitialisedLinksCallsNothing) {
  Released().clear();
  BOOT_INIT_DLL_HEAD_S head;
  std::memset(&head, 0xA5, sizeof(head));  // garbage links, as a head nobody initialised
  head.count = 0;
  BOOT_InitDllFreeAll(&head, ReleaseEntry);
  EXPECT_TRUE(Released().empty());
  EXPECT_EQ(head.count, 0u);
  EXPECT_EQ(head.links.next, &head.links);
  EXPECT_EQ(head.links.prev, &head.links);
}

TEST(DllGuardTest, NullArgumentsAreIgnored) {
  Released().clear();
  BOOT_INIT_DLL_HEAD_S head{};
  InitHead(&head);
  Entry entry{};
  BOOT_InitDllInsertInMiddle(nullptr, &head.links, &entry.node, &head.links);
  BOOT_InitDllInsertInMiddle(&head, nullptr, &entry.node, &head.links);
  BOOT_InitDllInsertInMiddle(&head, &head.links, &entry.node, nullptr);
  EXPECT_EQ(head.count, 0u);
  EXPECT_EQ(head.links.next, &head.links);
  BOOT_InitDllDeleteInMiddle(nullptr, &head.links, &entry.node, &head.links);
  BOOT_InitDllDeleteInMiddle(&head, &head.links, nullptr, &head.links);
  BOOT_InitDllDelete(nullptr, &entry.node);
  BOOT_InitDllDelete(&head, nullptr);
  EXPECT_EQ(head.count, 0u);
  BOOT_InitDllFreeAll(nullptr, ReleaseEntry);
  Append(&head, NewEntry(1));
  BOOT_InitDllFreeAll(&head, nullptr);  // no release function: the list stays as it is
  EXPECT_EQ(head.count, 1u);
  BOOT_InitDllFreeAll(&head, ReleaseEntry);
  EXPECT_EQ(Released(), (std::vector<int>{1}));
}

}  // namespace
