// A board's basic driver library as far as the measure question needs it: the TPM online and
// active status queries. The build has no such library, so the tests of the measure question
// build this one and link it into a board as /etc/bootsim/lib/libdrv_basic.so.
//
// Answers come from the board description: [tpm] online_status and active_status (numbers);
// a status that is not described fails with 2. [fail] <function name> = <code> forces a
// failure with that code (the status is still written). Every call is recorded, one line
// "<function> 0x<board id>", in /tmp/tpm_status_calls.
#include <cstdint>
#include <cstdio>

#include "board_description.hpp"

namespace {

constexpr uint32_t kNotDescribed = 2;

uint32_t Answer(const char *function, const char *key, uint32_t boardId, uint32_t *status) {
  if (FILE *calls = std::fopen("/tmp/tpm_status_calls", "a"); calls != nullptr) {
    std::fprintf(calls, "%s 0x%X\n", function, boardId);
    std::fclose(calls);
  }
  uint32_t result = kNotDescribed;
  const boarddesc::Entry<uint32_t> fact = boarddesc::BoardNumber("tpm", key);
  if (fact.found == boarddesc::Found::kValue) {
    *status = fact.value;
    result = 0;
  }
  const std::optional<uint32_t> forced = boarddesc::ForcedFailure(function);
  return forced && *forced != 0 ? *forced : result;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) uint32_t drv_board_get_tpm_online_status(
    uint32_t boardId, uint32_t *status) {
  return Answer("drv_board_get_tpm_online_status", "online_status", boardId, status);
}

#ifndef TPM_STATUS_ONLINE_ONLY
extern "C" __attribute__((visibility("default"))) uint32_t drv_board_get_tpm_active_status(
    uint32_t boardId, uint32_t *status) {
  return Answer("drv_board_get_tpm_active_status", "active_status", boardId, status);
}
#endif

#ifdef TPM_STATUS_UNRESOLVED_REFERENCE
// Defined by no library: a library referring to it opens with lazy binding only.
extern "C" void tpm_status_defined_nowhere(void);

extern "C" __attribute__((visibility("default"))) void drv_board_tpm_status_reset(void) {
  tpm_status_defined_nowhere();
}
#endif
