// Wiping secrets (the login command, the account, the platform's user records) with a call the
// compiler cannot drop: memset_s lives in the bounded-function library, outside this one.
#pragma once

#include <cstddef>

#include "bootinit/log.h"
#include "boundedstr.h"
#include "common/support/messages.hpp"

namespace bootinit::ftp {

// A failed wipe is worth a warning, not a stop: the caller carries on either way.
inline void Wipe(void *secret, std::size_t size, const char *function, int line) {
  if (memset_s(secret, size, 0, size) != EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_MEMSET_FAILED, function, line);
  }
}

}  // namespace bootinit::ftp
