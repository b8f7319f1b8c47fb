// Bounded string copies: strcpy_s, strncpy_s and strcat_s.
//
// Every failure after the destination has been validated leaves dest as an empty string. The
// boot log assembles lines with strcat_s and relies on this: a line that would overflow is
// dropped as a whole instead of being logged cut in the middle.
#include <algorithm>
#include <cstring>

#include "bounded_internal.h"

namespace {

errno_t check_destination(const char *dest, std::size_t destMax) noexcept {
  if (!bounded::usable_size(destMax)) {
    return BOUNDED_ERANGE;
  }
  if (dest == nullptr) {
    return BOUNDED_EINVAL;
  }
  return EOK;
}

errno_t empty_and_fail(char *dest, errno_t error) noexcept {
  dest[0] = '\0';
  return error;
}

// Writes the `length` characters of src at dest followed by a terminator, after checking that
// the bytes to be written, [dest, dest + length + 1), do not meet the bytes to be read,
// [src, src + length + 1). `target` is the whole destination string that the result will span;
// when the source lies inside it the copy would read what it has just written.
errno_t copy_checked(char *target, std::size_t targetLen, char *dest, const char *src,
                     std::size_t length) noexcept {
  if (bounded::ranges_overlap(target, targetLen + 1, src, length + 1)) {
    return empty_and_fail(target, BOUNDED_EOVERLAP_AND_RESET);
  }
  std::memcpy(dest, src, length);
  dest[length] = '\0';
  return EOK;
}

}  // namespace

extern "C" {

BOUNDEDSTR_API errno_t strcpy_s(char *dest, size_t destMax, const char *src) {
  if (const errno_t rc = check_destination(dest, destMax); rc != EOK) {
    return rc;
  }
  if (src == nullptr) {
    return empty_and_fail(dest, BOUNDED_EINVAL_AND_RESET);
  }
  // Looking at no more than destMax bytes is enough to know whether src fits.
  const std::size_t length = bounded::bounded_length(src, destMax);
  if (length >= destMax) {
    return empty_and_fail(dest, BOUNDED_ERANGE_AND_RESET);
  }
  return copy_checked(dest, length, dest, src, length);
}

BOUNDEDSTR_API errno_t strncpy_s(char *dest, size_t destMax, const char *src, size_t count) {
  if (const errno_t rc = check_destination(dest, destMax); rc != EOK) {
    return rc;
  }
  if (src == nullptr) {
    return empty_and_fail(dest, BOUNDED_EINVAL_AND_RESET);
  }
  // src need not be terminated within count bytes, so never look further than count; and
  // anything of destMax characters or more fails anyway.
  const std::size_t length = bounded::bounded_length(src, std::min(count, destMax));
  if (length >= destMax) {
    return empty_and_fail(dest, BOUNDED_ERANGE_AND_RESET);
  }
  return copy_checked(dest, length, dest, src, length);
}

BOUNDEDSTR_API errno_t strcat_s(char *dest, size_t destMax, const char *src) {
  if (const errno_t rc = check_destination(dest, destMax); rc != EOK) {
    return rc;
  }
  if (src == nullptr) {
    return empty_and_fail(dest, BOUNDED_EINVAL_AND_RESET);
  }
  // An unterminated destination is not a string to append to; the buffer is garbage.
  const std::size_t destLen = bounded::bounded_length(dest, destMax);
  if (destLen == destMax) {
    return empty_and_fail(dest, BOUNDED_EINVAL_AND_RESET);
  }
  // The room left after the existing text, terminator included.
  const std::size_t room = destMax - destLen;
  const std::size_t srcLen = bounded::bounded_length(src, room);
  if (srcLen >= room) {
    return empty_and_fail(dest, BOUNDED_ERANGE_AND_RESET);
  }
  return copy_checked(dest, destLen + srcLen, dest + destLen, src, srcLen);
}

}  // extern "C"
