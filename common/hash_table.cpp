// Chained hash tables over intrusive chain nodes. The package file index is the main user: it
// is searched by name from every extraction, hence the shared read lock for searches.
#include <pthread.h>

#include <cstdlib>
#include <span>

#include "bootinit/common.h"

namespace bootinit::hash {
namespace {

using Node = BOOT_INIT_HLIST_NODE_S;
using Table = BOOT_INIT_HASH_TABLE_S;

std::span<Node *> Buckets(const Table &table) { return {table.buckets, table.bucketCount}; }

// The chain head for key. The hash function's answer is checked rather than trusted: an index
// outside the table would reach memory that is not the table's.
Node **Slot(const Table &table, const void *key) {
  const int32_t index = table.hashFn(table.bucketCount, key);
  if (index < 0 || static_cast<uint32_t>(index) >= table.bucketCount) {
    return nullptr;
  }
  return &Buckets(table)[static_cast<std::size_t>(index)];
}

Node *FindInChain(const Table &table, Node *first, const void *key) {
  for (Node *node = first; node != nullptr; node = node->next) {
    if (table.compareFn(key, node) == 0) {
      return node;
    }
  }
  return nullptr;
}

// Size in bytes of the bucket array. The size is a signed 32-bit product: a count whose
// product does not fit gives no array at all, never a shorter one.
bool BucketBytes(uint32_t bucketCount, std::size_t *bytes) {
  int32_t product = 0;
  if (__builtin_mul_overflow(bucketCount, static_cast<uint32_t>(sizeof(Node *)), &product)) {
    return false;
  }
  *bytes = static_cast<std::size_t>(product);
  return true;
}

// Holds a table lock taken with Acquire for one scope; a lock that could not be taken is
// reported by held() and never released.
template <int (*Acquire)(pthread_rwlock_t *)>
class HeldLock {
 public:
  explicit HeldLock(pthread_rwlock_t *lock) : lock_(Acquire(lock) == 0 ? lock : nullptr) {}
  HeldLock(const HeldLock &) = delete;
  HeldLock &operator=(const HeldLock &) = delete;
  ~HeldLock() {
    if (lock_ != nullptr) {
      (void)pthread_rwlock_unlock(lock_);
    }
  }
  [[nodiscard]] bool held() const { return lock_ != nullptr; }

 private:
  pthread_rwlock_t *lock_;
};

using ReadLock = HeldLock<pthread_rwlock_rdlock>;
using WriteLock = HeldLock<pthread_rwlock_wrlock>;

}  // namespace

void InitNode(Node *node) {
  node->next = nullptr;
  node->pprev = nullptr;
}

void AddHead(Node *node, Node **headSlot) {
  node->next = *headSlot;
  if (node->next != nullptr) {
    node->next->pprev = &node->next;
  }
  *headSlot = node;
  node->pprev = headSlot;
}

void Delete(Node *node) {
  *node->pprev = node->next;
  if (node->next != nullptr) {
    node->next->pprev = node->pprev;
  }
  InitNode(node);
}

Table *Create(BOOT_INIT_HASH_FUNC hashFn, BOOT_INIT_HASH_COMPARE_FUNC compareFn,
              BOOT_INIT_HASH_FREE_FUNC freeFn, BOOT_INIT_HASH_FILTER_FUNC filterFn,
              uint32_t bucketCount) {
  std::size_t bytes = 0;
  if (hashFn == nullptr || compareFn == nullptr || bucketCount == 0 ||
      !BucketBytes(bucketCount, &bytes)) {
    return nullptr;
  }
  auto *table = static_cast<Table *>(std::calloc(1, sizeof(Table)));
  if (table == nullptr) {
    return nullptr;
  }
  table->buckets = static_cast<Node **>(std::calloc(1, bytes));
  if (table->buckets == nullptr || pthread_rwlock_init(&table->lock, nullptr) != 0) {
    std::free(table->buckets);
    std::free(table);
    return nullptr;
  }
  table->bucketCount = bucketCount;
  table->hashFn = hashFn;
  table->compareFn = compareFn;
  table->freeFn = freeFn;
  table->filterFn = filterFn;
  return table;
}

Node *Search(Table *table, const void *key) {
  if (table == nullptr || key == nullptr) {
    return nullptr;
  }
  Node **slot = Slot(*table, key);
  const ReadLock lock(&table->lock);
  if (slot == nullptr || !lock.held()) {
    return nullptr;
  }
  Node *hit = FindInChain(*table, *slot, key);
  if (hit != nullptr && table->filterFn != nullptr && table->filterFn(hit) != 0) {
    return nullptr;
  }
  return hit;
}

uint32_t Insert(Table *table, const void *key, Node *node) {
  if (table == nullptr || key == nullptr || node == nullptr) {
    return BOOT_INIT_HASH_ERR_NULL;
  }
  Node **slot = Slot(*table, key);
  if (slot == nullptr) {
    return BOOT_INIT_HASH_ERR_NULL;
  }
  const WriteLock lock(&table->lock);
  if (!lock.held()) {
    return BOOT_INIT_HASH_ERR_LOCK;
  }
  if (FindInChain(*table, *slot, key) != nullptr) {
    return BOOT_INIT_HASH_ERR_DUPLICATE;
  }
  AddHead(node, slot);
  return BOOT_INIT_HASH_OK;
}

void Remove(Table *table, const void *key) {
  if (table == nullptr || key == nullptr) {
    return;
  }
  Node **slot = Slot(*table, key);
  const WriteLock lock(&table->lock);
  if (slot == nullptr || !lock.held()) {
    return;
  }
  Node *node = FindInChain(*table, *slot, key);
  if (node == nullptr) {
    return;
  }
  Delete(node);
  if (table->freeFn != nullptr) {
    table->freeFn(node);
  }
}

void Destroy(Table *table) {
  if (table == nullptr || pthread_rwlock_wrlock(&table->lock) != 0) {
    return;
  }
  // Each chain is taken apart from its front, the following node read before the free
  // function may release the current one.
  for (Node *&first : Buckets(*table)) {
    Node *node = first;
    first = nullptr;
    while (node != nullptr) {
      Node *following = node->next;
      InitNode(node);
      if (table->freeFn != nullptr) {
        table->freeFn(node);
      }
      node = following;
    }
  }
  std::free(table->buckets);
  (void)pthread_rwlock_unlock(&table->lock);
  (void)pthread_rwlock_destroy(&table->lock);
  std::free(table);
}

}  // namespace bootinit::hash

extern "C" {

void INIT_HLIST_NODE(BOOT_INIT_HLIST_NODE_S *node) {
  if (node != nullptr) {
    bootinit::hash::InitNode(node);
  }
}

void Hlist_Add_Head(BOOT_INIT_HLIST_NODE_S *node, BOOT_INIT_HLIST_NODE_S **headSlot) {
  if (node != nullptr && headSlot != nullptr) {
    bootinit::hash::AddHead(node, headSlot);
  }
}

void Hlist_Del(BOOT_INIT_HLIST_NODE_S *node) {
  if (node != nullptr && node->pprev != nullptr) {
    bootinit::hash::Delete(node);
  }
}

BOOT_INIT_HASH_TABLE_S *HashTableCreate(BOOT_INIT_HASH_FUNC hashFn,
                                        BOOT_INIT_HASH_COMPARE_FUNC compareFn,
                                        BOOT_INIT_HASH_FREE_FUNC freeFn,
                                        BOOT_INIT_HASH_FILTER_FUNC filterFn, uint32_t bucketCount) {
  return bootinit::hash::Create(hashFn, compareFn, freeFn, filterFn, bucketCount);
}

BOOT_INIT_HLIST_NODE_S *HashTableSearch(BOOT_INIT_HASH_TABLE_S *table, const void *key) {
  return bootinit::hash::Search(table, key);
}

uint32_t HashTableInsert(BOOT_INIT_HASH_TABLE_S *table, const void *key,
                         BOOT_INIT_HLIST_NODE_S *node) {
  return bootinit::hash::Insert(table, key, node);
}

void HashTableRemove(BOOT_INIT_HASH_TABLE_S *table, const void *key) {
  bootinit::hash::Remove(table, key);
}

void HashTableDestroy(BOOT_INIT_HASH_TABLE_S *table) { bootinit::hash::Destroy(table); }

}  // extern "C"
