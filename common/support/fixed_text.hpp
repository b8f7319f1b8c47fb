// Writing into the system's fixed-size character buffers. Every bounded format goes through
// here so that the failure behaviour is the same everywhere: output that does not fit is a
// failure, never a silently truncated string.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <span>

#include "boundedstr.h"

namespace bootinit {

// Formats into the whole buffer; false when the output does not fit (or the buffer is empty).
// C-style variadic on purpose: the compiler checks the format against its arguments, and the
// arguments go on unchanged to the bounded formatter.
[[nodiscard]] inline bool FormatInto(  // NOLINT(cert-dcl50-cpp)
    std::span<char> out, const char *format, ...) __attribute__((format(printf, 2, 3)));

inline bool FormatInto(std::span<char> out, const char *format, ...) {  // NOLINT(cert-dcl50-cpp)
  if (out.empty()) {
    return false;
  }
  va_list args;
  va_start(args, format);
  const int written = vsnprintf_s(out.data(), out.size(), out.size() - 1, format, args);
  va_end(args);
  return written >= 0;
}

// Copies a terminated string into the buffer; false (and an emptied buffer) when it does not fit.
[[nodiscard]] inline bool CopyInto(std::span<char> out, const char *text) {
  return strcpy_s(out.data(), out.size(), text) == EOK;
}

}  // namespace bootinit
