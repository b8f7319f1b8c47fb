// Helpers shared by the bounded function implementations. Private to libboundedstr.
#ifndef BOUNDED_INTERNAL_H
#define BOUNDED_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "boundedstr.h"

namespace bounded {

// A destination size is usable when it is non-zero and not absurdly large; a huge size almost
// always comes from a negative length converted to size_t, so it is refused instead of trusted.
constexpr bool usable_size(std::size_t destMax) noexcept {
  return destMax != 0 && destMax <= BOUNDED_MAX_LEN;
}

// Whether the byte ranges [a, a + aLen) and [b, b + bLen) share at least one byte. Compared as
// integers because relational comparison of pointers into different objects is not defined.
inline bool ranges_overlap(const void *a, std::size_t aLen, const void *b,
                           std::size_t bLen) noexcept {
  const auto aBegin = reinterpret_cast<std::uintptr_t>(a);
  const auto bBegin = reinterpret_cast<std::uintptr_t>(b);
  if (aLen == 0 || bLen == 0) {
    return false;
  }
  return aBegin < bBegin + bLen && bBegin < aBegin + aLen;
}

// Length of s, but never reads more than limit bytes; returns limit when no terminator was seen.
// Keeps every scan inside the caller's stated bounds even for unterminated input.
inline std::size_t bounded_length(const char *s, std::size_t limit) noexcept {
  const void *end = std::memchr(s, '\0', limit);
  return end == nullptr ? limit : static_cast<std::size_t>(static_cast<const char *>(end) - s);
}

}  // namespace bounded

#endif  // BOUNDED_INTERNAL_H
