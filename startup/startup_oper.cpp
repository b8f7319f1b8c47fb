// Operations 9, 10 and 11: the backup path and the startup mode for the boot scripts, which read
// the answers from standard output.
#include <cstdio>
#include <cstring>

#include "bootinit/log.h"
#include "bootinit/startup.h"
#include "common/support/oper_args.hpp"

namespace bootinit::startup {
namespace {

constexpr uint32_t kBackPathLen = 32;
constexpr uint32_t kOperFailed = 1;

}  // namespace
}  // namespace bootinit::startup

using namespace bootinit;
using namespace bootinit::startup;

extern "C" {

uint32_t BOOT_InitOperGetBackPath(int32_t argc, char ** /*argv*/) {
  if (!ArgCountIs(argc, 0)) {
    return kOperFailed;
  }
  char path[kBackPathLen] = {};
  if (BOOT_INIT_GetBackUpPath(path, sizeof(path)) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:BOOT InitOperGetBackPath InitOperAppbootVerify get back "
                       "path failed");
    return kOperFailed;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Get back path: %s", path);
  (void)std::printf("\nBACK_PATH:%s\n", path);
  return BOOT_INIT_OK;
}

uint32_t BOOT_InitOperGetStartupMode(int32_t argc, char ** /*argv*/) {
  if (!ArgCountIs(argc, 0)) {
    return kOperFailed;
  }
  uint32_t mode = BOOT_INIT_STARTUP_MODE_INVALID;
  BOOT_INIT_GetStartupMode(&mode);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Get startup mode :%u", mode);
  // Anything but local, failures included, answers network.
  (void)std::puts(mode == BOOT_INIT_STARTUP_MODE_LOCAL ? "\nSTARTUP_MODE:local"
                                                       : "\nSTARTUP_MODE:network");
  return BOOT_INIT_OK;
}

uint32_t BOOT_InitOperSetStartupMode(int32_t argc, char **argv) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:set startup mode start");
  LogOperArgs(argc, argv);
  if (!ArgCountIs(argc, 1)) {
    return kOperFailed;
  }
  if (std::strcmp(argv[0], "network") == 0) {
    return BOOT_INIT_SetStartupMode(BOOT_INIT_STARTUP_MODE_NETWORK);
  }
  if (std::strcmp(argv[0], "local") == 0) {
    return BOOT_INIT_SetStartupMode(BOOT_INIT_STARTUP_MODE_LOCAL);
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:Set startup mode is invalid, enStartupMode = %u",
                     BOOT_INIT_STARTUP_MODE_INVALID);
  return kOperFailed;
}

}  // extern "C"
