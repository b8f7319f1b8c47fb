#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "bootinit/common.h"
#include "common_faults.hpp"

namespace {

// A record kept in a table: the chain node first, as the table requires.
struct Item {
  BOOT_INIT_HLIST_NODE_S node;
  char key[16];
  bool hidden;
};

std::vector<std::string> &Freed() {
  static std::vector<std::string> freed;
  return freed;
}

Item *AsItem(BOOT_INIT_HLIST_NODE_S *node) { return reinterpret_cast<Item *>(node); }

// Every key lands in the bucket of its first character modulo the count, so tests can put
// several keys into one bucket on purpose.
int32_t FirstCharHash(uint32_t bucketCount, const void *key) {
  return static_cast<int32_t>(static_cast<uint32_t>(*static_cast<const char *>(key)) % bucketCount);
}
int32_t OutOfRangeHash(uint32_t bucketCount, const void *) {
  return static_cast<int32_t>(bucketCount);
}
int32_t NegativeHash(uint32_t, const void *) { return -1; }
int32_t CompareKey(const void *key, BOOT_INIT_HLIST_NODE_S *node) {
  return std::strcmp(static_cast<const char *>(key), AsItem(node)->key);
}
void RecordFree(void *node) { Freed().emplace_back(static_cast<Item *>(node)->key); }
int32_t HiddenFilter(BOOT_INIT_HLIST_NODE_S *node) { return AsItem(node)->hidden ? 1 : 0; }

Item MakeItem(const char *key, bool hidden = false) {
  Item item{};
  std::strncpy(item.key, key, sizeof(item.key) - 1);
  item.hidden = hidden;
  return item;
}

// Keys of a bucket's chain, first to last, checking every back pointer on the way.
std::vector<std::string> Chain(const BOOT_INIT_HASH_TABLE_S *table, uint32_t bucket) {
  std::vector<std::string> keys;
  BOOT_INIT_HLIST_NODE_S **expectedPprev = &table->buckets[bucket];
  for (BOOT_INIT_HLIST_NODE_S *node = table->buckets[bucket]; node != nullptr; node = node->next) {
    EXPECT_EQ(node->pprev, expectedPprev);
    keys.emplace_back(AsItem(node)->key);
    expectedPprev = &node->next;
  }
  return keys;
}

class HashTableTest : public testing::Test {
 protected:
  void SetUp() override {
    Freed().clear();
    commonfaults::Reset();
    table_ = HashTableCreate(FirstCharHash, CompareKey, RecordFree, HiddenFilter, 4);
    ASSERT_NE(table_, nullptr);
  }
  void TearDown() override {
    HashTableDestroy(table_);
    commonfaults::Reset();
  }
  BOOT_INIT_HASH_TABLE_S *table_ = nullptr;
};

TEST(HlistTest, AddHeadAndDelKeepTheBackPointers) {
  BOOT_INIT_HLIST_NODE_S *first = nullptr;
  Item a = MakeItem("a");
  Item b = MakeItem("b");
  Item c = MakeItem("c");
  INIT_HLIST_NODE(&a.node);
  EXPECT_EQ(a.node.next, nullptr);
  EXPECT_EQ(a.node.pprev, nullptr);
  Hlist_Add_Head(&a.node, &first);
  Hlist_Add_Head(&b.node, &first);
  Hlist_Add_Head(&c.node, &first);
  EXPECT_EQ(first, &c.node);
  EXPECT_EQ(c.node.pprev, &first);
  EXPECT_EQ(b.node.pprev, &c.node.next);
  EXPECT_EQ(a.node.pprev, &b.node.next);

  Hlist_Del(&b.node);  // from the middle
  EXPECT_EQ(c.node.next, &a.node);
  EXPECT_EQ(a.node.pprev, &c.node.next);
  EXPECT_EQ(b.node.next, nullptr);
  EXPECT_EQ(b.node.pprev, nullptr);
  Hlist_Del(&c.node);  // the first
  EXPECT_EQ(first, &a.node);
  EXPECT_EQ(a.node.pprev, &first);
  Hlist_Del(&a.node);  // the last one
  EXPECT_EQ(first, nullptr);
}

TEST(HlistTest, NullAndUnlinkedNodesAreIgnored) {
  BOOT_INIT_HLIST_NODE_S *first = nullptr;
  Item a = MakeItem("a");
  INIT_HLIST_NODE(nullptr);
  Hlist_Add_Head(nullptr, &first);
  Hlist_Add_Head(&a.node, nullptr);
  EXPECT_EQ(first, nullptr);
  INIT_HLIST_NODE(&a.node);
  Hlist_Del(&a.node);
  Hlist_Del(nullptr);
  EXPECT_EQ(a.node.pprev, nullptr);
}

TEST(HashTableCreateTest, RefusesMissingFunctionsAndZeroBuckets) {
  EXPECT_EQ(HashTableCreate(nullptr, CompareKey, nullptr, nullptr, 4), nullptr);
  EXPECT_EQ(HashTableCreate(FirstCharHash, nullptr, nullptr, nullptr, 4), nullptr);
  EXPECT_EQ(HashTableCreate(FirstCharHash, CompareKey, nullptr, nullptr, 0), nullptr);
}

TEST(HashTableCreateTest, BucketArrayIsZeroedAndFieldsSet) {
  BOOT_INIT_HASH_TABLE_S *table =
      HashTableCreate(FirstCharHash, CompareKey, RecordFree, HiddenFilter, 7);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->bucketCount, 7u);
  EXPECT_EQ(table->hashFn, FirstCharHash);
  EXPECT_EQ(table->compareFn, CompareKey);
  EXPECT_EQ(table->freeFn, RecordFree);
  EXPECT_EQ(table->filterFn, HiddenFilter);
  for (uint32_t i = 0; i < 7; ++i) {
    EXPECT_EQ(table->buckets[i], nullptr);
  }
  HashTableDestroy(table);
}

TEST(HashTableCreateTest, BucketCountsWhoseSizeOverflowsGiveNoTable) {
  // 2^28 * 8 is negative as a signed 32-bit size; 2^29 * 8 would wrap to nothing at all.
  EXPECT_EQ(HashTableCreate(FirstCharHash, CompareKey, nullptr, nullptr, 0x10000000u), nullptr);
  EXPECT_EQ(HashTableCreate(FirstCharHash, CompareKey, nullptr, nullptr, 0x20000000u), nullptr);
  EXPECT_EQ(HashTableCreate(FirstCharHash, CompareKey, nullptr, nullptr, 0x20000001u), nullptr);
}

TEST(HashTableCreateTest, AllocationFailuresGiveNoTable) {
  commonfaults::Reset();
  commonfaults::Get().callocFailAt = 1;  // the table object
  EXPECT_EQ(HashTableCreate(FirstCharHash, CompareKey, nullptr, nullptr, 4), nullptr);
  commonfaults::Reset();
  commonfaults::Get().callocFailAt = 2;  // the bucket array: the table object is released
  EXPECT_EQ(HashTableCreate(FirstCharHash, CompareKey, nullptr, nullptr, 4), nullptr);
  EXPECT_EQ(commonfaults::Get().callocSeen, 2);
  commonfaults::Reset();
}

TEST_F(HashTableTest, InsertThenSearchFindsTheNode) {
  Item apple = MakeItem("apple");
  EXPECT_EQ(HashTableInsert(table_, apple.key, &apple.node), 0u);
  EXPECT_EQ(HashTableSearch(table_, "apple"), &apple.node);
  EXPECT_EQ(HashTableSearch(table_, "apricot"), nullptr);
  HashTableRemove(table_, "apple");
}

TEST_F(HashTableTest, NewNodesComeFirstInTheirBucket) {
  Item a = MakeItem("a1");
  Item b = MakeItem("a2");
  Item c = MakeItem("a3");
  ASSERT_EQ(HashTableInsert(table_, a.key, &a.node), 0u);
  ASSERT_EQ(HashTableInsert(table_, b.key, &b.node), 0u);
  ASSERT_EQ(HashTableInsert(table_, c.key, &c.node), 0u);
  const uint32_t bucket = static_cast<uint32_t>('a') % 4;
  EXPECT_EQ(Chain(table_, bucket), (std::vector<std::string>{"a3", "a2", "a1"}));
  EXPECT_EQ(HashTableSearch(table_, "a1"), &a.node);
  for (const char *key : {"a1", "a2", "a3"}) {
    HashTableRemove(table_, key);
  }
}

TEST_F(HashTableTest, DuplicateKeyIsRefusedAndTheFirstNodeStays) {
  Item first = MakeItem("same");
  Item second = MakeItem("same");
  ASSERT_EQ(HashTableInsert(table_, first.key, &first.node), 0u);
  EXPECT_EQ(HashTableInsert(table_, second.key, &second.node), 4u);
  EXPECT_EQ(HashTableSearch(table_, "same"), &first.node);
  EXPECT_EQ(second.node.pprev, nullptr);
  EXPECT_EQ(Chain(table_, static_cast<uint32_t>('s') % 4), (std::vector<std::string>{"same"}));
  HashTableRemove(table_, "same");
}

TEST_F(HashTableTest, DuplicateBehindOtherNodesOfTheBucketIsFound) {
  Item x1 = MakeItem("x1");
  Item x2 = MakeItem("x2");
  Item again = MakeItem("x1");
  ASSERT_EQ(HashTableInsert(table_, x1.key, &x1.node), 0u);
  ASSERT_EQ(HashTableInsert(table_, x2.key, &x2.node), 0u);
  EXPECT_EQ(HashTableInsert(table_, again.key, &again.node), 4u);
  HashTableRemove(table_, "x1");
  HashTableRemove(table_, "x2");
}

TEST_F(HashTableTest, FilteredHitIsAMiss) {
  Item secret = MakeItem("secret", true);
  ASSERT_EQ(HashTableInsert(table_, secret.key, &secret.node), 0u);
  EXPECT_EQ(HashTableSearch(table_, "secret"), nullptr);
  EXPECT_EQ(Chain(table_, static_cast<uint32_t>('s') % 4), (std::vector<std::string>{"secret"}));
  secret.hidden = false;
  EXPECT_EQ(HashTableSearch(table_, "secret"), &secret.node);
  HashTableRemove(table_, "secret");
}

TEST_F(HashTableTest, RemoveUnlinksAndFreesTheFirstMatchOnly) {
  auto *kept = new Item(MakeItem("b1"));
  auto *gone = new Item(MakeItem("b2"));
  ASSERT_EQ(HashTableInsert(table_, kept->key, &kept->node), 0u);
  ASSERT_EQ(HashTableInsert(table_, gone->key, &gone->node), 0u);
  HashTableRemove(table_, "b2");
  EXPECT_EQ(Freed(), (std::vector<std::string>{"b2"}));
  EXPECT_EQ(gone->node.next, nullptr);
  EXPECT_EQ(gone->node.pprev, nullptr);
  EXPECT_EQ(HashTableSearch(table_, "b2"), nullptr);
  EXPECT_EQ(Chain(table_, static_cast<uint32_t>('b') % 4), (std::vector<std::string>{"b1"}));
  HashTableRemove(table_, "b1");
  delete kept;
  delete gone;
}

TEST_F(HashTableTest, RemovingAnAbsentKeyChangesNothingAndFreesNothing) {
  Item present = MakeItem("c1");
  ASSERT_EQ(HashTableInsert(table_, present.key, &present.node), 0u);
  HashTableRemove(table_, "c2");
  HashTableRemove(table_, "zzz");
  EXPECT_TRUE(Freed().empty());
  EXPECT_EQ(HashTableSearch(table_, "c1"), &present.node);
  HashTableRemove(table_, "c1");
}

TEST_F(HashTableTest, NullArguments) {
  Item item = MakeItem("n");
  EXPECT_EQ(HashTableInsert(nullptr, item.key, &item.node), 6u);
  EXPECT_EQ(HashTableInsert(table_, nullptr, &item.node), 6u);
  EXPECT_EQ(HashTableInsert(table_, item.key, nullptr), 6u);
  EXPECT_EQ(HashTableSearch(nullptr, "n"), nullptr);
  EXPECT_EQ(HashTableSearch(table_, nullptr), nullptr);
  HashTableRemove(nullptr, "n");
  HashTableRemove(table_, nullptr);
  HashTableDestroy(nullptr);
  EXPECT_TRUE(Freed().empty());
}

// glibc refuses a lock its own thread already holds for writing (EDEADLK): a real way for the
// table's lock to be unavailable.
TEST_F(HashTableTest, UnavailableLock) {
  Item held = MakeItem("h1");
  Item other = MakeItem("h2");
  ASSERT_EQ(HashTableInsert(table_, held.key, &held.node), 0u);
  ASSERT_EQ(pthread_rwlock_wrlock(&table_->lock), 0);
  EXPECT_EQ(HashTableInsert(table_, other.key, &other.node), 3u);
  EXPECT_EQ(HashTableSearch(table_, "h1"), nullptr);
  HashTableRemove(table_, "h1");
  HashTableDestroy(table_);  // does nothing without the lock
  EXPECT_TRUE(Freed().empty());
  ASSERT_EQ(pthread_rwlock_unlock(&table_->lock), 0);
  EXPECT_EQ(HashTableSearch(table_, "h1"), &held.node);
  EXPECT_EQ(other.node.pprev, nullptr);
  HashTableRemove(table_, "h1");
}

TEST_F(HashTableTest, DestroyPassesEveryNodeToTheFreeFunctionBucketByBucket) {
  std::vector<Item *> items;
  for (const char *key : {"d1", "a1", "d2", "b1", "c1"}) {
    items.push_back(new Item(MakeItem(key)));
    ASSERT_EQ(HashTableInsert(table_, items.back()->key, &items.back()->node), 0u);
  }
  HashTableDestroy(table_);
  table_ = nullptr;
  // Buckets from 0 up ('d' % 4 == 0, 'a' 1, 'b' 2, 'c' 3), each chain from its front.
  EXPECT_EQ(Freed(), (std::vector<std::string>{"d2", "d1", "a1", "b1", "c1"}));
  for (Item *item : items) {
    EXPECT_EQ(item->node.pprev, nullptr);
    delete item;
  }
}

TEST(HashTableDestroyTest, WithoutFreeFunctionOnlyTheTableGoes) {
  BOOT_INIT_HASH_TABLE_S *table = HashTableCreate(FirstCharHash, CompareKey, nullptr, nullptr, 2);
  ASSERT_NE(table, nullptr);
  Item a = MakeItem("a");
  Item b = MakeItem("b");
  ASSERT_EQ(HashTableInsert(table, a.key, &a.node), 0u);
  ASSERT_EQ(HashTableInsert(table, b.key, &b.node), 0u);
  Freed().clear();
  HashTableDestroy(table);  // the sanitizer build proves that nothing else is released
  EXPECT_TRUE(Freed().empty());
  EXPECT_EQ(std::string(a.key), "a");
  EXPECT_EQ(a.node.pprev, nullptr);
}

TEST(HashTableRangeTest, BucketIndexOutsideTheTableIsNeverUsed) {
  for (BOOT_INIT_HASH_FUNC hash : {OutOfRangeHash, NegativeHash}) {
    BOOT_INIT_HASH_TABLE_S *table = HashTableCreate(hash, CompareKey, RecordFree, nullptr, 2);
    ASSERT_NE(table, nullptr);
    Item item = MakeItem("k");
    EXPECT_EQ(HashTableInsert(table, item.key, &item.node), 6u);
    EXPECT_EQ(HashTableSearch(table, "k"), nullptr);
    HashTableRemove(table, "k");
    HashTableDestroy(table);
  }
}

struct Counted {
  BOOT_INIT_HLIST_NODE_S node;
  uint32_t key;
};
int32_t NumberHash(uint32_t bucketCount, const void *key) {
  return static_cast<int32_t>(*static_cast<const uint32_t *>(key) % bucketCount);
}
int32_t NumberCompare(const void *key, BOOT_INIT_HLIST_NODE_S *node) {
  return *static_cast<const uint32_t *>(key) == reinterpret_cast<Counted *>(node)->key ? 0 : 1;
}

TEST(HashTableConcurrencyTest, SearchersShareTheTableWhileWritersChangeIt) {
  BOOT_INIT_HASH_TABLE_S *table = HashTableCreate(NumberHash, NumberCompare, nullptr, nullptr, 64);
  ASSERT_NE(table, nullptr);
  std::vector<Counted> stable(256);
  for (uint32_t i = 0; i < stable.size(); ++i) {
    stable[i].key = i;
    ASSERT_EQ(HashTableInsert(table, &stable[i].key, &stable[i].node), 0u);
  }
  struct Work {
    BOOT_INIT_HASH_TABLE_S *table;
    uint32_t base;
    int misses;
  };
  auto writer = [](void *arg) -> void * {
    auto *work = static_cast<Work *>(arg);
    std::vector<Counted> extra(200);
    for (int round = 0; round < 50; ++round) {
      for (uint32_t i = 0; i < extra.size(); ++i) {
        extra[i].key = work->base + i;
        (void)HashTableInsert(work->table, &extra[i].key, &extra[i].node);
      }
      for (uint32_t i = 0; i < extra.size(); ++i) {
        HashTableRemove(work->table, &extra[i].key);
      }
    }
    return nullptr;
  };
  auto reader = [](void *arg) -> void * {
    auto *work = static_cast<Work *>(arg);
    for (int round = 0; round < 200; ++round) {
      for (uint32_t key = 0; key < 256; ++key) {
        if (HashTableSearch(work->table, &key) == nullptr) {
          ++work->misses;
        }
      }
    }
    return nullptr;
  };
  std::vector<Work> work = {{table, 1000, 0}, {table, 2000, 0}, {table, 0, 0}, {table, 0, 0}};
  std::vector<pthread_t> threads(work.size());
  for (std::size_t i = 0; i < work.size(); ++i) {
    ASSERT_EQ(pthread_create(&threads[i], nullptr, i < 2 ? +writer : +reader, &work[i]), 0);
  }
  for (pthread_t thread : threads) {
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
  }
  EXPECT_EQ(work[2].misses + work[3].misses, 0);
  for (uint32_t key = 1000; key < 2200; ++key) {
    EXPECT_EQ(HashTableSearch(table, &key), nullptr);
  }
  HashTableDestroy(table);
}

}  // namespace
