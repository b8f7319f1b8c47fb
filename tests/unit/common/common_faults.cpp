#include "common_faults.hpp"

#include <pthread.h>

#include <cstddef>
#include <cstdlib>

#include "boundedstr.h"
#include "swm.h"

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
uint32_t __real_SWM_TransString2Array(const char *str, const char *separators, char ***array,
                                      uint32_t *count, uint32_t flags);

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
  commonfaults::Faults &faults = commonfaults::Get();
  const bool failThisOne = faults.callocFailAt > 0 && ++faults.callocSeen == faults.callocFailAt;
  return faults.failCalloc || failThisOne ? nullptr : __real_calloc(count, size);
}

errno_t __wrap_memset_s(void *dest, size_t destMax, int c, size_t count) {
  return commonfaults::Get().failMemset ? BOUNDED_ERANGE : __real_memset_s(dest, destMax, c, count);
}

// Splitting only fails when memory runs out, which no test can bring about for real.
uint32_t __wrap_SWM_TransString2Array(const char *str, const char *separators, char ***array,
                                      uint32_t *count, uint32_t flags) {
  const uint32_t forced = commonfaults::Get().splitResult;
  return forced != 0 ? forced : __real_SWM_TransString2Array(str, separators, array, count, flags);
}
}
