#include "digest_faults.hpp"

#include <algorithm>
#include <cstdlib>

#include "boundedstr.h"

namespace digestfaults {
Faults &Get() {
  static Faults faults;
  return faults;
}
void Reset() { Get() = Faults{}; }
}  // namespace digestfaults

extern "C" {
void *__real_malloc(size_t size);
errno_t __real_memset_s(void *dest, size_t destMax, int c, size_t count);
void *__real_dlopen(const char *name, int flags);
int __real_dlclose(void *handle);

void *__wrap_malloc(size_t size) {
  digestfaults::Faults &faults = digestfaults::Get();
  if (faults.failMallocOfSize != 0 && size == faults.failMallocOfSize) {
    ++faults.mallocFailures;
    return nullptr;
  }
  return __real_malloc(size);
}

errno_t __wrap_memset_s(void *dest, size_t destMax, int c, size_t count) {
  digestfaults::Faults &faults = digestfaults::Get();
  if (std::find(faults.failMemsetSizes.begin(), faults.failMemsetSizes.end(), destMax) !=
      faults.failMemsetSizes.end()) {
    ++faults.memsetFailures;
    return BOUNDED_ERANGE;
  }
  return __real_memset_s(dest, destMax, c, count);
}

void *__wrap_dlopen(const char *name, int flags) {
  void *handle = __real_dlopen(name, flags);
  digestfaults::Faults &faults = digestfaults::Get();
  faults.dlopenCalls.push_back({name == nullptr ? "<null>" : name, flags, handle != nullptr});
  if (handle != nullptr) {
    ++faults.opened;
  }
  return handle;
}

int __wrap_dlclose(void *handle) {
  ++digestfaults::Get().closed;
  return __real_dlclose(handle);
}
}
