// Hardware types as text: matching "0x%X" names against the types a board answers to.
#include "bootinit/board.h"
#include "bootinit/log.h"
#include "boundedstr.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "swm.h"

namespace bootinit::board {
namespace {
constexpr std::size_t kTypeTextLen = 32;
}  // namespace

// Matching is exact and case-sensitive: "0x1a2b" does not name type 0x1A2B.
uint32_t IsHardtypeMatch(const char *text, const uint32_t *list, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    char typeText[kTypeTextLen] = {};
    if (!FormatInto(typeText, "0x%X", list[i])) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                         "BOOT_INIT_IsHardtypeMatch");
    }
    if (SWM_IsStringEqual(typeText, text)) {
      return 1;
    }
  }
  return 0;
}

uint32_t GetHardTypeListAndCpu(uint32_t *list, uint32_t *count, char *cpuText,
                               uint32_t cpuTextLen) {
  uint32_t cpuId = 0;
  const uint32_t cpuRet = SWM_GetLogicCpuId(&cpuId);
  if (cpuRet != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Get cpu id failed, ret is %u",
                       cpuRet);
    return cpuRet;
  }
  if (snprintf_s(cpuText, cpuTextLen, cpuTextLen - 1u, "0x%X", cpuId) < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BOOT_INIT_GetHardTypeListAndCpu");
  }
  const uint32_t listRet = SWM_GetBoardMultiHardType(list, count);
  if (listRet != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][%s]:Get multi hard type failed, ret = %u.", "ERROR", listRet);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::board

extern "C" {

uint32_t BOOT_INIT_IsHardtypeMatch(const char *text, const uint32_t *list, uint32_t count) {
  if (text == nullptr || list == nullptr) {
    return 0;
  }
  return bootinit::board::IsHardtypeMatch(text, list, count);
}

uint32_t BOOT_INIT_GetHardTypeListAndCpu(uint32_t *list, uint32_t *count, char *cpuText,
                                         uint32_t cpuTextLen) {
  if (list == nullptr || count == nullptr || cpuText == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return bootinit::board::GetHardTypeListAndCpu(list, count, cpuText, cpuTextLen);
}

}  // extern "C"
