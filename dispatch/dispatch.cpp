// BOOT_INIT_DoOperation: argument vector in, one operation call out.
#include "bootinit/dispatch.h"

#include <cstdlib>

#include "bootinit/log.h"
#include "swm.h"

extern "C" uint32_t BOOT_INIT_DoOperation(int32_t argc, char **argv) {
  // The front-end always passes at least the number, so argc is not looked at before argv[0].
  if (argv == nullptr || !SWM_IsDigitString(argv[0])) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:BOOT_INIT do operation, operType = %s is not right.",
                       argv == nullptr ? "(null)" : argv[0]);
    return BOOT_INIT_ERROR;
  }
  // No range check: the low 32 bits are the number, so 4294967296 selects operation 0.
  const auto operType = static_cast<uint32_t>(std::strtol(argv[0], nullptr, 10));
  const BOOT_INIT_OPER_FUNC operFunc = BOOT_INIT_GetOperationFunc(operType);
  if (operFunc == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Can not find operation func by type = %u", operType);
    return BOOT_INIT_ERROR;
  }
  return operFunc(argc - 1, argv + 1);
}
