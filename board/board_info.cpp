// Operation 1: the boot scripts ask about the board by sub-operation number and read the answer
// from standard output.
#include <cstdlib>

#include "bootinit/board.h"
#include "bootinit/log.h"
#include "bootinit/measure.h"

namespace {
// Sub-operation 7 takes no arguments; its answer is the measure question's result.
uint32_t SupportMeasureOper(int32_t /*argc*/, char ** /*argv*/) {
  return BOOT_INIT_IsSupportMeasure();
}
}  // namespace

extern "C" {

// Indexed by sub-operation number; every entry is present.
const BOOT_INIT_DRV_BASIC_INFO_FUNC
    g_apfBootInitDrvBasicInfoOperFunc[BOOT_INIT_DRV_BASIC_INFO_NUM] = {
        BOOT_InitGetCCPackageFullPath, BOOT_InitPrintBoardHardType, BOOT_InitPrintRoleOfBoard,
        BOOT_InitPrintCpuId,           BOOT_InitPrintChassisId,     BOOT_InitPrintSlotId,
        BOOT_InitPrintHardActiveState, SupportMeasureOper,          BOOT_InitPrintBoradAllInfo,
        BOOT_InitPrintAllBoardInfoId,  BOOT_InitPrintHardTypeList,
};

uint32_t BOOT_INIT_IsGetDrvBasicInfoOperValid(uint32_t n) {
  return n < BOOT_INIT_DRV_BASIC_INFO_NUM ? 1u : 0u;
}

uint32_t BOOT_InitOperGetDrvBasicInfo(int32_t argc, char **argv) {
  constexpr uint32_t kSupportMeasure = 7;
  if (argc == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:para count is wrong, value is 0");
    return BOOT_INIT_ERR_PARAM;
  }
  // Not a number parses as 0: the CC package path.
  const auto subOper = static_cast<uint32_t>(std::strtol(argv[0], nullptr, 10));
  if (BOOT_INIT_IsGetDrvBasicInfoOperValid(subOper) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Oper type is invalid");
    return BOOT_INIT_ERR_PARAM;
  }
  const BOOT_INIT_DRV_BASIC_INFO_FUNC func = g_apfBootInitDrvBasicInfoOperFunc[subOper];
  if (func == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:can't find startup info func");
    return BOOT_INIT_ERR_PARAM;
  }
  const uint32_t ret = func(argc - 1, argv + 1);
  // The measure question answers with its result; it is not a status.
  if (subOper == kSupportMeasure || ret == BOOT_INIT_OK) {
    return ret;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:Get basic info unsuccessfully, result = 0x%x", ret);
  return ret;
}

}  // extern "C"
