// Sockets of the FTP client: the options of control and data sockets, and the way both kinds
// of connection are opened.
#include "download/ftp_socket.hpp"

#include <sys/time.h>

#include <cerrno>
#include <utility>

#include "bootinit/log.h"
#include "swm.h"

namespace bootinit::ftp {
namespace {

// The device's internal network answers quickly or not at all.
constexpr time_t kIoTimeoutSeconds = 5;
constexpr int32_t kKeepAliveIdle = 10;
constexpr int32_t kKeepAliveInterval = 10;
constexpr int32_t kKeepAliveProbes = 3;

uint32_t SetKeepAliveAndTimeouts(int32_t fd, const char *keepAliveFailed, const char *rcvFailed,
                                 const char *sndFailed) {
  if (SWM_SockSetKeepAlive(fd, kKeepAliveIdle, kKeepAliveInterval, kKeepAliveProbes) != SWM_OK) {
    LogKeepingErrno(keepAliveFailed);
    return BOOT_INIT_ERR_GENERAL;
  }
  const struct timeval timeout = {kIoTimeoutSeconds, 0};
  if (SWM_SockSetRcvTimeout(fd, &timeout) != SWM_OK) {
    LogKeepingErrno(rcvFailed);
    return BOOT_INIT_ERR_GENERAL;
  }
  if (SWM_SockSetSndTimeout(fd, &timeout) != SWM_OK) {
    LogKeepingErrno(sndFailed);
    return BOOT_INIT_ERR_GENERAL;
  }
  return BOOT_INIT_OK;
}

uint32_t SetCtrlOptions(int32_t fd) {
  // Closing the control connection resets it at once instead of lingering in the kernel.
  const struct linger noLinger = {1, 0};
  if (SWM_SockSetLinger(fd, &noLinger) != SWM_OK) {
    LogKeepingErrno("[BOOT_INIT][ERROR]:Failed to set ctrl conn linger");
    return BOOT_INIT_ERR_GENERAL;
  }
  return SetKeepAliveAndTimeouts(fd, "[BOOT_INIT][ERROR]:Failed to set ctrl conn keep alive",
                                 "[BOOT_INIT][ERROR]:Failed to set ctrl conn rcv timeout",
                                 "[BOOT_INIT][ERROR]:Failed to set ctrl conn snd timeout");
}

uint32_t SetDataOptions(int32_t fd) {
  return SetKeepAliveAndTimeouts(fd, "[BOOT_INIT][ERROR]:Failed to set data sock keep alive",
                                 "[BOOT_INIT][ERROR]:Failed to set data sock rcv timeout",
                                 "[BOOT_INIT][ERROR]:Failed to set data sock snd timeout");
}

}  // namespace

void LogKeepingErrno(const char *message) {
  const int saved = errno;
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "%s", message);
  errno = saved;
}

uint32_t OpenConnection(const BOOT_INIT_FTP_SOCK_ADDR_S &addresses, const ConnectSteps &steps,
                        UniqueFd &out) {
  int32_t fd = -1;
  if (SWM_SockGetTcpSock(addresses.server.ss_family, &fd) != SWM_OK) {
    LogKeepingErrno(steps.socketFailed);
    return BOOT_INIT_ERR_GENERAL;
  }
  UniqueFd socket(fd);
  if (steps.setOptions(fd) != BOOT_INIT_OK) {
    LogKeepingErrno(steps.optionsFailed);
    return BOOT_INIT_ERR_GENERAL;
  }
  if (SWM_SockBind(fd, &addresses.client) != SWM_OK) {
    LogKeepingErrno(steps.bindFailed);
    return BOOT_INIT_ERR_GENERAL;
  }
  if (SWM_SockConnect(fd, &addresses.server) != SWM_OK) {
    LogKeepingErrno(steps.connectFailed);
    return BOOT_INIT_ERR_GENERAL;
  }
  out = std::move(socket);
  return BOOT_INIT_OK;
}

}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_INIT_FTPCLIENT_SetFtpCtrlSockOpt(int32_t fd) { return SetCtrlOptions(fd); }

uint32_t BOOT_INIT_FTPCLIENT_SetFtpDataSockOpt(int32_t fd) { return SetDataOptions(fd); }

}  // extern "C"
