/*
 * Bounded memory and string functions.
 *
 * Every function takes the size of its destination ("destMax") and never writes past it.
 * Results are 0 (EOK) on success and one of the error numbers below on failure; the
 * formatting functions return the number of characters written, or -1.
 *
 * The errno_t functions check destMax first (BOUNDED_ERANGE), then the destination pointer
 * (BOUNDED_EINVAL); nothing is written in either case. Every later failure also clears the
 * destination (the _AND_RESET codes), so a caller that ignores the result never works on a
 * half-written buffer.
 *
 * Semantics the boot code relies on:
 *  - snprintf_s(dest, destMax, count, fmt, ...) writes at most min(count, destMax - 1)
 *    characters plus a terminator. When the complete output does not fit it returns -1:
 *    with count < destMax the truncated text (count characters) stays in dest, with
 *    count >= destMax dest is emptied. It never returns a truncated length.
 *  - sprintf_s(dest, destMax, fmt, ...) needs the whole output to fit; otherwise dest is
 *    emptied and the result is -1.
 *  - strcat_s empties dest when the result would not fit.
 *  - strcpy_s / strncpy_s / memcpy_s empty (or zero) the destination when the source does
 *    not fit, and refuse overlapping buffers.
 *  - sscanf_s takes an extra size argument (size_t) after every %s, %c and %[ destination
 *    that is not suppressed with '*'. For %s and %[ the size includes the terminator; a
 *    longer field is a matching failure that leaves an empty string in the destination and
 *    ends the scan. For %c the size must be at least the field width (default 1).
 *
 * See docs/bounded-functions.md for the full rules.
 */
#ifndef BOUNDEDSTR_H
#define BOUNDEDSTR_H

#include <stdarg.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#define BOUNDEDSTR_API __attribute__((visibility("default")))

#ifndef EOK
#define EOK 0
#endif

typedef int errno_t;

/* Error numbers; the _AND_RESET forms say that the destination was cleared as well. */
#define BOUNDED_EINVAL 22              /* destination pointer is NULL */
#define BOUNDED_EINVAL_AND_RESET 150   /* NULL source or unterminated dest; dest was cleared */
#define BOUNDED_ERANGE 34              /* destMax zero or beyond BOUNDED_MAX_LEN */
#define BOUNDED_ERANGE_AND_RESET 162   /* source does not fit; destination was cleared */
#define BOUNDED_EOVERLAP_AND_RESET 182 /* source and destination overlap; destination cleared */

/* Largest size any bounded function accepts; a larger destMax is taken as a caller bug. */
#define BOUNDED_MAX_LEN (0x7fffffffUL)

BOUNDEDSTR_API errno_t memcpy_s(void *dest, size_t destMax, const void *src, size_t count);
BOUNDEDSTR_API errno_t memset_s(void *dest, size_t destMax, int c, size_t count);
BOUNDEDSTR_API errno_t strcpy_s(char *dest, size_t destMax, const char *src);
BOUNDEDSTR_API errno_t strncpy_s(char *dest, size_t destMax, const char *src, size_t count);
BOUNDEDSTR_API errno_t strcat_s(char *dest, size_t destMax, const char *src);

BOUNDEDSTR_API int snprintf_s(char *dest, size_t destMax, size_t count, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
BOUNDEDSTR_API int vsnprintf_s(char *dest, size_t destMax, size_t count, const char *format,
                               va_list argList) __attribute__((format(printf, 4, 0)));
BOUNDEDSTR_API int sprintf_s(char *dest, size_t destMax, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
/* No format attribute: the size arguments after %s, %c and %[ would fail the compiler's
 * scanf checks. Returns the number of items assigned, or EOF (-1) when buffer or format is
 * NULL or the input ends before anything was assigned. */
BOUNDEDSTR_API int sscanf_s(const char *buffer, const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif /* BOUNDEDSTR_H */
