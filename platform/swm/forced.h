// Failures forced by the board description's [fail] section, for the functions of libswm that
// report errno: reading the description must not disturb the errno of the real outcome, and a
// forced failure always leaves errno EIO so that a caller's message is the same on every run.
#ifndef SWM_FORCED_H
#define SWM_FORCED_H

#include <cerrno>
#include <cstdint>
#include <optional>

#include "board_description.hpp"

namespace swm {

// For functions that create or change something: true (and *code set) when the description
// forces a failure, which the caller returns before doing anything.
inline bool ForcedBefore(const char *function, uint32_t *code) {
  const int saved = errno;
  const std::optional<uint32_t> forced = boarddesc::ForcedFailure(function);
  if (forced && *forced != 0) {
    *code = *forced;
    errno = EIO;
    return true;
  }
  errno = saved;
  return false;
}

// For functions that read something: the forced code in place of status, once the work is
// done and the outputs are written.
inline uint32_t ForcedAfter(const char *function, uint32_t status) {
  uint32_t code = 0;
  return ForcedBefore(function, &code) ? code : status;
}

}  // namespace swm

#endif  // SWM_FORCED_H
