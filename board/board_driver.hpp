// The board driver's entry points as this library sees them. Four of them may be missing on a
// board: they are linked weakly and every use tests for presence first.
#pragma once

#include "drv.h"

extern "C" {
uint32_t drv_board_get_self_logic_slotid(uint32_t *slot) __attribute__((weak));
uint32_t DEV_GetRoleOfBoard(uint32_t *role) __attribute__((weak));
uint32_t drv_env_set(const char *name, const char *value) __attribute__((weak));
uint32_t drv_env_save_block(void) __attribute__((weak));
}

namespace bootinit::board {

// Driver codes that count as "this board is the master" when reading the active state fails.
inline constexpr uint32_t kDrvCodeNoPeer = 420;
inline constexpr uint32_t kDrvCodeNotReady = 2983;

[[nodiscard]] constexpr uint32_t LowCode(uint32_t code) { return code & 0xFFFFu; }

}  // namespace bootinit::board
