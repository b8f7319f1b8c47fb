// Opening one TCP connection of the FTP client: socket, options, bind to the client address,
// connect to the server address. Control and data connections differ only in their options and
// in the words of their messages.
#pragma once

#include <cstdint>

#include "bootinit/download.h"
#include "common/support/unique_fd.hpp"

namespace bootinit::ftp {

struct ConnectSteps {
  uint32_t (*setOptions)(int32_t fd);
  const char *socketFailed;
  const char *optionsFailed;
  const char *bindFailed;
  const char *connectFailed;
};

// The connected socket in out, or 1 with the failing step logged, the socket closed and errno
// as the failing call left it.
[[nodiscard]] uint32_t OpenConnection(const BOOT_INIT_FTP_SOCK_ADDR_S &addresses,
                                      const ConnectSteps &steps, UniqueFd &out);

// Logs message and leaves errno as it was before.
void LogKeepingErrno(const char *message);

}  // namespace bootinit::ftp
