// Bounded formatting: vsnprintf_s, snprintf_s and sprintf_s.
//
// The result is either the full length of the output or -1; a truncated length is never
// returned, so `if (snprintf_s(...) < 0)` is the one check a caller needs. What is left in dest
// after a failure depends on how the caller asked for truncation:
//   count <  destMax  the caller allowed count characters: dest keeps those (terminated);
//   count >= destMax  the caller expected the whole output to fit: dest is emptied.
#include <cstdio>

#include "bounded_internal.h"

namespace {

// The one place that runs the C library formatter. `limit` characters plus a terminator fit in
// dest; `keepTruncated` chooses what a too-long output leaves behind.
__attribute__((format(printf, 4, 0))) int format_into(char *dest, std::size_t limit,
                                                      bool keepTruncated, const char *format,
                                                      va_list argList) noexcept {
  const int written = std::vsnprintf(dest, limit + 1, format, argList);
  if (written < 0) {
    // Encoding error (or an output longer than INT_MAX): what was written is meaningless.
    dest[0] = '\0';
    return -1;
  }
  if (static_cast<std::size_t>(written) > limit) {
    // vsnprintf has already stored the first `limit` characters and a terminator.
    if (!keepTruncated) {
      dest[0] = '\0';
    }
    return -1;
  }
  return written;
}

}  // namespace

extern "C" {

BOUNDEDSTR_API int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format,
                               va_list argList) {
  if (dest == nullptr || !bounded::usable_size(destMax)) {
    return -1;
  }
  if (format == nullptr) {
    dest[0] = '\0';
    return -1;
  }
  if (count < destMax) {
    return format_into(dest, count, true, format, argList);
  }
  return format_into(dest, destMax - 1, false, format, argList);
}

BOUNDEDSTR_API int snprintf_s(char *dest, size_t destMax, size_t count, const char *format, ...) {
  va_list argList;
  va_start(argList, format);
  const int result = vsnprintf_s(dest, destMax, count, format, argList);
  va_end(argList);
  return result;
}

BOUNDEDSTR_API int sprintf_s(char *dest, size_t destMax, const char *format, ...) {
  // count == destMax selects "the whole output must fit, else empty dest".
  va_list argList;
  va_start(argList, format);
  const int result = vsnprintf_s(dest, destMax, destMax, format, argList);
  va_end(argList);
  return result;
}

}  // extern "C"
