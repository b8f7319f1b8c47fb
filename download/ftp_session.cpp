// The control session: connecting (with retries), the greeting, login, binary type and QUIT.
#include <unistd.h>

#include <cerrno>

#include "bootinit/download.h"
#include "bootinit/log.h"
#include "download/ftp_socket.hpp"

namespace bootinit::ftp {
namespace {

constexpr int kCtrlConnectAttempts = 5;
constexpr unsigned kCtrlRetryPauseSeconds = 2;

constexpr uint32_t kReplyReady = 220;
constexpr uint32_t kReplyNeedPassword = 331;
constexpr uint32_t kReplyLoggedIn = 230;
constexpr uint32_t kReplyCommandOk = 200;
constexpr uint32_t kReplyClosing = 221;

constexpr ConnectSteps kCtrlSteps = {
    BOOT_INIT_FTPCLIENT_SetFtpCtrlSockOpt,
    "[BOOT_INIT][ERROR]:Failed to get ctrl conn tcp socket",
    "[BOOT_INIT][ERROR]:Failed to set ctrl sock opt",
    "[BOOT_INIT][ERROR]:Failed to bind client ip to ctrl conn",
    "[BOOT_INIT][ERROR]:Conn to server unsuccessfully.",
};

uint32_t ConnectCtrl(const BOOT_INIT_FTP_SOCK_ADDR_S &addresses, int32_t &ctrlFd) {
  UniqueFd socket;
  if (OpenConnection(addresses, kCtrlSteps, socket) != BOOT_INIT_OK) {
    return BOOT_INIT_ERR_GENERAL;
  }
  const uint32_t greeting = BOOT_INIT_FTPCLIENT_GetReplyEnhanced(socket.get(), 0, nullptr, 0);
  if (greeting != kReplyReady) {
    const int saved = errno;
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Failed to establlish ctrl conn, FTP the unexpected "
                       "reply: %u",
                       greeting);
    errno = saved;
    return BOOT_INIT_ERR_GENERAL;
  }
  ctrlFd = socket.release();
  return BOOT_INIT_OK;
}

// A main board that is still starting may refuse the first attempts; each failed attempt is
// followed by a pause, the last one included.
bool ConnectWithRetries(const BOOT_INIT_FTP_SOCK_ADDR_S &addresses, int32_t &ctrlFd) {
  for (int attempt = 0; attempt < kCtrlConnectAttempts; ++attempt) {
    const uint32_t ret = BOOT_INIT_FTPCLIENT_EstablishFtpCtrlConnect(&addresses, &ctrlFd);
    if (ret == BOOT_INIT_OK) {
      return true;
    }
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:Failed to establish ctrl connection, uiRet:%u, "
                       "errno:%d, try times:%d",
                       ret, errno, attempt);
    (void)::sleep(kCtrlRetryPauseSeconds);
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:Establish ctrl connection unsuccessfully.");
  return false;
}

uint32_t Start(const BOOT_INIT_FTP_SOCK_ADDR_S &addresses, const BOOT_INIT_FTP_ACCOUNT_S *account,
               int32_t &ctrlFd) {
  if (!ConnectWithRetries(addresses, ctrlFd)) {
    return BOOT_INIT_ERR_GENERAL;
  }
  if (BOOT_INIT_FTPCLIENT_Login(ctrlFd, account) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Failed to login ftp server");
    return BOOT_INIT_ERR_GENERAL;
  }
  if (BOOT_INIT_FTPCLIENT_OpenBinMode(ctrlFd) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Failed to set binary mode");
    return BOOT_INIT_ERR_GENERAL;
  }
  return BOOT_INIT_OK;
}

uint32_t Login(int32_t ctrlFd, const BOOT_INIT_FTP_ACCOUNT_S &account) {
  uint32_t reply =
      BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(ctrlFd, "USER", account.userName, nullptr, 0);
  if (reply != kReplyNeedPassword) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:FTP CMD USER failed, login failed, the reply:%u", reply);
    return BOOT_INIT_ERR_GENERAL;
  }
  reply = BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(ctrlFd, "PASS", account.password, nullptr, 0);
  if (reply != kReplyLoggedIn) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:FTP CMD PASS failed, login failed, the reply:%u", reply);
    return BOOT_INIT_ERR_GENERAL;
  }
  return BOOT_INIT_OK;
}

}  // namespace
}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_INIT_FTPCLIENT_EstablishFtpCtrlConnect(const BOOT_INIT_FTP_SOCK_ADDR_S *addresses,
                                                     int32_t *ctrlFd) {
  if (addresses == nullptr || ctrlFd == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Input para is NULL.");
    return BOOT_INIT_ERR_GENERAL;
  }
  return ConnectCtrl(*addresses, *ctrlFd);
}

uint32_t BOOT_INIT_FTPCLIENT_Start(const BOOT_INIT_FTP_SOCK_ADDR_S *addresses,
                                   const BOOT_INIT_FTP_ACCOUNT_S *account, int32_t *ctrlFd) {
  if (addresses == nullptr || ctrlFd == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Input para is NULL.");
    return BOOT_INIT_ERR_GENERAL;
  }
  return Start(*addresses, account, *ctrlFd);
}

uint32_t BOOT_INIT_FTPCLIENT_Login(int32_t ctrlFd, const BOOT_INIT_FTP_ACCOUNT_S *account) {
  if (account == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Input para is NULL.");
    return BOOT_INIT_ERR_GENERAL;
  }
  return Login(ctrlFd, *account);
}

uint32_t BOOT_INIT_FTPCLIENT_OpenBinMode(int32_t ctrlFd) {
  const uint32_t reply = BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(ctrlFd, "TYPE", "I", nullptr, 0);
  if (reply != kReplyCommandOk) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:FTP CMD TYPE I failed, the reply:%u", reply);
    return BOOT_INIT_ERR_GENERAL;
  }
  return BOOT_INIT_OK;
}

uint32_t BOOT_INIT_FTPCLIENT_GoodBye(int32_t ctrlFd) {
  const uint32_t reply =
      BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(ctrlFd, "QUIT", nullptr, nullptr, 0);
  if (reply != kReplyClosing) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:FTP CMD QUIT failed, the reply:%u", reply);
    return BOOT_INIT_ERR_GENERAL;
  }
  return BOOT_INIT_OK;
}

}  // extern "C"
