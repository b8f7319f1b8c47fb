// Small steps shared by the package modules (index, extraction, checks): the argument check of
// their C entry points, the index's read lock held for one scope, and the fixed path buffer
// that a directory and a file name are joined into.
#pragma once

#include <pthread.h>

#include <array>
#include <cstddef>
#include <initializer_list>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"

namespace bootinit::pkg {

inline constexpr std::size_t kPathLen = 384;
using PathText = std::array<char, kPathLen>;

// True (after the message) when one of the pointers is empty.
[[nodiscard]] inline bool AnyNull(std::initializer_list<const void *> pointers) {
  for (const void *pointer : pointers) {
    if (pointer == nullptr) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
      return true;
    }
  }
  return false;
}

// "dir/name"; false (after the message naming caller) when it does not fit. A path is never
// cut: a cut path could name another file.
[[nodiscard]] inline bool JoinPath(PathText &out, const char *dir, const char *name,
                                   const char *caller) {
  if (!FormatInto(out, "%s/%s", dir, name)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED, caller);
    return false;
  }
  return true;
}

// Holds the index's read lock for one scope. A missing index or a lock that could not be taken
// is reported by held() and never released.
class IndexReadLock {
 public:
  explicit IndexReadLock(BOOT_INIT_HASH_TABLE_S *index)
      : lock_(index != nullptr && pthread_rwlock_rdlock(&index->lock) == 0 ? &index->lock
                                                                           : nullptr) {}
  IndexReadLock(const IndexReadLock &) = delete;
  IndexReadLock &operator=(const IndexReadLock &) = delete;
  ~IndexReadLock() {
    if (lock_ != nullptr) {
      (void)pthread_rwlock_unlock(lock_);
    }
  }
  [[nodiscard]] bool held() const { return lock_ != nullptr; }

 private:
  pthread_rwlock_t *lock_;
};

}  // namespace bootinit::pkg
