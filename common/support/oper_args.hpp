// Shared steps of the operations: logging their arguments and checking their count.
#pragma once

#include <cstdint>

#include "bootinit/log.h"

namespace bootinit {

inline void LogOperArgs(int32_t argc, char **argv) {
  for (int32_t i = 0; i < argc; ++i) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:ppacArgv[%u] = %s",
                       static_cast<uint32_t>(i), argv[i]);
  }
}

// False (with the message naming the expected count) when argc differs from expected.
[[nodiscard]] inline bool ArgCountIs(int32_t argc, uint32_t expected) {
  if (argc >= 0 && static_cast<uint32_t>(argc) == expected) {
    return true;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:Argv invalid. Argc num must be %u", expected);
  return false;
}

}  // namespace bootinit
