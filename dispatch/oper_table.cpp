// The operation table. Positions are fixed; the search is linear and the first equal number
// wins. Number 4 is a known operation without a function, and numbers 19 and 18 stand in that
// order on purpose. An entry's function stays empty until its operation is available.
#include "bootinit/board.h"
#include "bootinit/common.h"
#include "bootinit/dispatch.h"
#include "bootinit/download.h"
#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "bootinit/startup.h"
#include "bootinit/verify.h"

extern "C" {

const BOOT_INIT_OPER_FUNC_INFO_S g_operFuncInfo[BOOT_INIT_OPER_FUNC_NUM] = {
    {0, BOOT_InitOperExtractFile},
    {1, BOOT_InitOperGetDrvBasicInfo},
    {2, BOOT_InitOperDownloadFile},
    {3, BOOT_InitOperVerifyFile},
    {4, nullptr},  // known, never available
    {5, BOOT_InitOperBinFIleTrans2RealFile},
    {6, nullptr},  // measure the running package
    {7, nullptr},  // install a cold patch
    {8, BOOT_InitOperUntarFile},
    {9, BOOT_InitOperGetBackPath},
    {10, BOOT_InitOperGetStartupMode},
    {11, BOOT_InitOperSetStartupMode},
    {12, nullptr},  // back up the start files
    {13, nullptr},  // remove backed-up files
    {14, BOOT_InitOperModFileAttr},
    {15, nullptr},  // back up the start patch files
    {16, nullptr},  // check package type and product
    {17, nullptr},  // measure a file
    {19, nullptr},  // mini system entry
    {18, nullptr},  // set the product model
};

static_assert(sizeof(BOOT_INIT_OPER_FUNC_INFO_S) == 12, "entries are packed pairs");

BOOT_INIT_OPER_FUNC BOOT_INIT_GetOperationFunc(uint32_t operType) {
  for (const BOOT_INIT_OPER_FUNC_INFO_S &entry : g_operFuncInfo) {
    if (entry.operType == operType) {
      return entry.operFunc;
    }
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:Operation type value is invalid, operType = %u.",
                     operType);
  return nullptr;
}

}  // extern "C"
