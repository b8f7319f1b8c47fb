// Bounded memory functions: memcpy_s and memset_s.
//
// Both first validate the destination itself (size, then pointer). Only once the destination is
// known to be writable do they clear it on a later failure, so that a caller who ignores the
// result never goes on with half-copied or stale bytes.
#include <cstring>

#include "bounded_internal.h"

namespace {

// Shared validation of (dest, destMax): EOK when the destination may be written.
errno_t check_destination(const void *dest, std::size_t destMax) noexcept {
  if (!bounded::usable_size(destMax)) {
    return BOUNDED_ERANGE;
  }
  if (dest == nullptr) {
    return BOUNDED_EINVAL;
  }
  return EOK;
}

// Clears the whole destination and passes the error through, for one-line failure returns.
errno_t zero_and_fail(void *dest, std::size_t destMax, errno_t error) noexcept {
  std::memset(dest, 0, destMax);
  return error;
}

}  // namespace

extern "C" {

BOUNDEDSTR_API errno_t memcpy_s(void *dest, size_t destMax, const void *src, size_t count) {
  if (const errno_t rc = check_destination(dest, destMax); rc != EOK) {
    return rc;
  }
  if (src == nullptr) {
    return zero_and_fail(dest, destMax, BOUNDED_EINVAL_AND_RESET);
  }
  if (count > destMax) {
    return zero_and_fail(dest, destMax, BOUNDED_ERANGE_AND_RESET);
  }
  if (count == 0) {
    return EOK;
  }
  // memcpy on overlapping ranges is undefined; an overlap here is a caller bug worth reporting
  // rather than silently turning into memmove.
  if (bounded::ranges_overlap(dest, count, src, count)) {
    return zero_and_fail(dest, destMax, BOUNDED_EOVERLAP_AND_RESET);
  }
  std::memcpy(dest, src, count);
  return EOK;
}

BOUNDEDSTR_API errno_t memset_s(void *dest, size_t destMax, int c, size_t count) {
  if (const errno_t rc = check_destination(dest, destMax); rc != EOK) {
    return rc;
  }
  // An oversized count still fills what the caller owns: the intent (wipe or initialise the
  // buffer) is honoured as far as it safely can be, and the error reports the caller bug.
  if (count > destMax) {
    std::memset(dest, c, destMax);
    return BOUNDED_ERANGE_AND_RESET;
  }
  std::memset(dest, c, count);
  return EOK;
}

}  // extern "C"
