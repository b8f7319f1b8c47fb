#include "list_check_faults.hpp"

#include <cstdlib>
#include <cstring>

#include "boundedstr.h"

namespace listfaults {
Faults &Get() {
  static Faults faults;
  return faults;
}
void Reset() { Get() = Faults{}; }
}  // namespace listfaults

extern "C" {
void *__real_calloc(size_t count, size_t size);
errno_t __real_strcpy_s(char *dest, size_t destMax, const char *src);

void *__wrap_calloc(size_t count, size_t size) {
  listfaults::Faults &faults = listfaults::Get();
  if (faults.callocFailSize != 0 && count * size == faults.callocFailSize) {
    ++faults.callocFailed;
    return nullptr;
  }
  return __real_calloc(count, size);
}

// A failed copy clears the destination, as the real function does when a source does not fit.
errno_t __wrap_strcpy_s(char *dest, size_t destMax, const char *src) {
  listfaults::Faults &faults = listfaults::Get();
  if (faults.strcpyFailAt > 0 && src != nullptr && faults.strcpyFailSource == src &&
      ++faults.strcpySeen == faults.strcpyFailAt) {
    ++faults.strcpyFailed;
    if (dest != nullptr && destMax > 0) {
      dest[0] = '\0';
    }
    return BOUNDED_ERANGE_AND_RESET;
  }
  return __real_strcpy_s(dest, destMax, src);
}
}
