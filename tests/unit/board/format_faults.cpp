#include "format_faults.hpp"

#include <cstdarg>
#include <cstring>

#include "boundedstr.h"

namespace formatfaults {

Faults &Get() {
  static Faults faults;
  return faults;
}

void Reset() { Get() = Faults{}; }

void FailFormat(const char *format, int onCall) {
  Reset();
  Get().format = format;
  Get().onCall = onCall;
}

void FailFormatOf(const char *format, const char *firstArg) {
  Reset();
  Get().format = format;
  Get().firstArg = firstArg;
}

namespace {

bool Matches(const char *format, va_list args) {
  Faults &faults = Get();
  if (faults.format == nullptr || format == nullptr || std::strcmp(format, faults.format) != 0) {
    return false;
  }
  if (faults.firstArg != nullptr) {
    va_list copy;
    va_copy(copy, args);
    const char *first = va_arg(copy, const char *);
    va_end(copy);
    if (first == nullptr || std::strcmp(first, faults.firstArg) != 0) {
      return false;
    }
  }
  ++faults.seen;
  return faults.onCall == 0 || faults.seen == faults.onCall;
}

}  // namespace
}  // namespace formatfaults

extern "C" {
int __real_vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format, va_list args);

int __wrap_vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format, va_list args) {
  if (formatfaults::Matches(format, args)) {
    ++formatfaults::Get().failed;
    if (dest != nullptr && destMax > 0) {
      dest[0] = '\0';
    }
    return -1;
  }
  return __real_vsnprintf_s(dest, destMax, count, format, args);
}
}
