#include "common_faults.hpp"

#include <pthread.h>

#include <cstddef>
#include <cstdlib>

#include "boundedstr.h"

namespace commonfaults {
Faults &Get() {
  static Faults faults;
  return faults;
}
void Reset() { Get() = Faults{}; }
}  // namespace commonfaults

extern "C" {
int __real_pthread_attr_init(pthread_attr_t *attr);
int __real_pthread_attr_setdetachstate(pthread_attr_t *attr, int state);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                          void *arg);
void *__real_calloc(size_t count, size_t size);
errno_t __real_memset_s(void *dest, size_t destMax, int c, size_t count);

int __wrap_pthread_attr_init(pthread_attr_t *attr) {
  const int forced = commonfaults::Get().attrInitResult;
  return forced != 0 ? forced : __real_pthread_attr_init(attr);
}

int __wrap_pthread_attr_setdetachstate(pthread_attr_t *attr, int state) {
  commonfaults::Get().detachStateSeen = state;
  const int forced = commonfaults::Get().setDetachResult;
  return forced != 0 ? forced : __real_pthread_attr_setdetachstate(attr, state);
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *),
                          void *arg) {
  const int forced = commonfaults::Get().createResult;
  return forced != 0 ? forced : __real_pthread_create(thread, attr, start, arg);
}

void *__wrap_calloc(size_t count, size_t size) {
  return commonfaults::Get().failCalloc ? nullptr : __real_calloc(count, size);
}

errno_t __wrap_memset_s(void *dest, size_t destMax, int c, size_t count) {
  return commonfaults::Get().failMemset ? BOUNDED_ERANGE : __real_memset_s(dest, destMax, c, count);
}
}
