#include "pkg_faults.hpp"

#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "boundedstr.h"

namespace pkgfaults {

// Never destroyed: free may still be called while the program's statics go away.
Faults &Get() {
  static Faults *const faults = new Faults;
  return *faults;
}

void Reset() {
  Faults &faults = Get();
  faults.mallocFailSize = 0;
  faults.callocFailSize = 0;
  faults.allocFailed = 0;
  faults.memsetFailDestMax = 0;
  faults.memsetFailed = 0;
  faults.strcpyFailDestMax = 0;
  faults.strcpyFailed = 0;
  faults.lseekFailFd = -1;
  faults.lseekFailAt = 0;
  faults.lseekErrno = 0;
  faults.lseekSeen = 0;
  faults.lseekFailed = 0;
  faults.rdlockFailAt = 0;
  faults.rdlockSeen = 0;
  faults.rdlockFailed = 0;
  faults.watching = false;
  faults.held.clear();
  faults.copies.clear();
}

}  // namespace pkgfaults

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void __real_free(void *block);
errno_t __real_memset_s(void *dest, size_t destMax, int c, size_t count);
errno_t __real_strcpy_s(char *dest, size_t destMax, const char *src);
off_t __real_lseek(int fd, off_t offset, int whence);
int __real_pthread_rwlock_rdlock(pthread_rwlock_t *lock);
uint32_t __real_BOOT_INIT_CopyFileWithLen(int in, int out, int32_t length);

static void *Held(void *block) {
  pkgfaults::Faults &faults = pkgfaults::Get();
  if (faults.watching && block != nullptr) {
    faults.held.insert(block);
  }
  return block;
}

void *__wrap_malloc(size_t size) {
  pkgfaults::Faults &faults = pkgfaults::Get();
  if (faults.mallocFailSize != 0 && size == faults.mallocFailSize) {
    ++faults.allocFailed;
    errno = ENOMEM;
    return nullptr;
  }
  return Held(__real_malloc(size));
}

void *__wrap_calloc(size_t count, size_t size) {
  pkgfaults::Faults &faults = pkgfaults::Get();
  if (faults.callocFailSize != 0 && count * size == faults.callocFailSize) {
    ++faults.allocFailed;
    errno = ENOMEM;
    return nullptr;
  }
  return Held(__real_calloc(count, size));
}

void __wrap_free(void *block) {
  pkgfaults::Get().held.erase(block);
  __real_free(block);
}

// A failed zeroing clears what it can, as the real function does when the count is too large.
errno_t __wrap_memset_s(void *dest, size_t destMax, int c, size_t count) {
  pkgfaults::Faults &faults = pkgfaults::Get();
  if (faults.memsetFailDestMax != 0 && destMax == faults.memsetFailDestMax) {
    ++faults.memsetFailed;
    return BOUNDED_ERANGE_AND_RESET;
  }
  return __real_memset_s(dest, destMax, c, count);
}

// A failed copy empties the destination, as the real function does when a source does not fit.
errno_t __wrap_strcpy_s(char *dest, size_t destMax, const char *src) {
  pkgfaults::Faults &faults = pkgfaults::Get();
  if (faults.strcpyFailDestMax != 0 && destMax == faults.strcpyFailDestMax) {
    ++faults.strcpyFailed;
    if (dest != nullptr) {
      dest[0] = '\0';
    }
    return BOUNDED_ERANGE_AND_RESET;
  }
  return __real_strcpy_s(dest, destMax, src);
}

off_t __wrap_lseek(int fd, off_t offset, int whence) {
  pkgfaults::Faults &faults = pkgfaults::Get();
  if (faults.lseekFailAt > 0 && fd == faults.lseekFailFd &&
      ++faults.lseekSeen == faults.lseekFailAt) {
    ++faults.lseekFailed;
    errno = faults.lseekErrno;
    return -1;
  }
  return __real_lseek(fd, offset, whence);
}

int __wrap_pthread_rwlock_rdlock(pthread_rwlock_t *lock) {
  pkgfaults::Faults &faults = pkgfaults::Get();
  if (faults.rdlockFailAt > 0 && ++faults.rdlockSeen == faults.rdlockFailAt) {
    ++faults.rdlockFailed;
    return EAGAIN;
  }
  return __real_pthread_rwlock_rdlock(lock);
}

// Recorded, never changed: the tests look at how records are copied out of the package.
uint32_t __wrap_BOOT_INIT_CopyFileWithLen(int in, int out, int32_t length) {
  pkgfaults::CopyCall call;
  call.src = in;
  call.dst = out;
  call.length = length;
  call.srcPosition = static_cast<long long>(__real_lseek(in, 0, SEEK_CUR));
  pkgfaults::Get().copies.push_back(call);
  return __real_BOOT_INIT_CopyFileWithLen(in, out, length);
}
}
