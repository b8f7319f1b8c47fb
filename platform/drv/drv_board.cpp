// Board facts of libdrv: hardware type, active state, slot and role, from the board description.
#include <cstdint>

#include "board_description.hpp"
#include "drv.h"

namespace {

constexpr const char *kBoardSection = "board";

// [board] key as a number into *out; fallback when the description does not have it.
// A value that is not a number describes nothing: DRV_ERR_NOT_FOUND, *out untouched.
uint32_t ReadFact(const char *key, uint32_t fallback, uint32_t *out) {
  const boarddesc::Entry<uint32_t> fact = boarddesc::BoardNumber(kBoardSection, key);
  switch (fact.found) {
    case boarddesc::Found::kValue:
      *out = fact.value;
      return 0;
    case boarddesc::Found::kAbsent:
      *out = fallback;
      return 0;
    case boarddesc::Found::kUnusable:
      break;
  }
  return DRV_ERR_NOT_FOUND;
}

constexpr uint32_t kDefaultHardType = 0;
constexpr uint32_t kDefaultActiveState = 0;  // master
#ifndef DRV_MINIMAL_BUILD
constexpr uint32_t kDefaultSlot = 1;
constexpr uint32_t kDefaultRole = 1;  // main management board
#endif

}  // namespace

extern "C" uint32_t drv_board_get_type(uint32_t boardId, uint32_t *type) {
  if (boardId != DRV_OWN_BOARD || type == nullptr) {
    return DRV_ERR_PARAM;
  }
  return boarddesc::ForcedResult("drv_board_get_type",
                                 ReadFact("hard_type", kDefaultHardType, type));
}

extern "C" uint32_t drv_msc_get_state(uint32_t boardId, uint32_t index, uint32_t *state) {
  (void)index;  // one state per board on the host
  if (boardId != DRV_OWN_BOARD || state == nullptr) {
    return DRV_ERR_PARAM;
  }
  return boarddesc::ForcedResult("drv_msc_get_state",
                                 ReadFact("active_state", kDefaultActiveState, state));
}

#ifndef DRV_MINIMAL_BUILD

extern "C" uint32_t drv_board_get_self_logic_slotid(uint32_t *slot) {
  if (slot == nullptr) {
    return DRV_ERR_PARAM;
  }
  return boarddesc::ForcedResult("drv_board_get_self_logic_slotid",
                                 ReadFact("slot", kDefaultSlot, slot));
}

extern "C" uint32_t DEV_GetRoleOfBoard(uint32_t *role) {
  if (role == nullptr) {
    return DRV_ERR_PARAM;
  }
  return boarddesc::ForcedResult("DEV_GetRoleOfBoard", ReadFact("role", kDefaultRole, role));
}

#endif  // DRV_MINIMAL_BUILD
