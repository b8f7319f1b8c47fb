// The passive data connection and the request for the file (RETR), with their retries.
#include <cerrno>

#include "bootinit/download.h"
#include "bootinit/log.h"
#include "common/support/messages.hpp"
#include "download/ftp_reply.hpp"
#include "download/ftp_socket.hpp"
#include "swm.h"

namespace bootinit::ftp {
namespace {

// "PASV" replies are read into 255 characters and the terminator.
constexpr uint32_t kPasvReplyBufLen = 256;
constexpr int kRetrAttempts = 3;

constexpr uint32_t kReplyPassive = 227;
constexpr uint32_t kReplyOpening = 150;
constexpr uint32_t kReplyAlreadyOpen = 125;

constexpr ConnectSteps kDataSteps = {
    BOOT_INIT_FTPCLIENT_SetFtpDataSockOpt,
    "[BOOT_INIT][ERROR]:Failed to get tcp socket",
    "[BOOT_INIT][ERROR]:Failed to set data sock opt",
    "[BOOT_INIT][ERROR]:Failed to bind client ip to data sock",
    "[BOOT_INIT][ERROR]:Conn to server unsuccessfully.",
};

// The data connection goes to the control connection's own peer whatever address the reply
// names, so a server cannot steer the client to a third host; only its port is taken.
uint32_t DataAddresses(int32_t ctrlFd, BOOT_INIT_FTP_SOCK_ADDR_S &data) {
  data = {};
  char reply[kPasvReplyBufLen] = {};
  const uint32_t code =
      BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(ctrlFd, "PASV", nullptr, reply, sizeof(reply));
  if (code != kReplyPassive) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Failed to set passive mode, ftp reply=%u", code);
    return BOOT_INIT_ERR_GENERAL;
  }
  uint16_t port = 0;
  if (BOOT_INIT_FTPCLIENT_ParsePasvCmdReply(reply, &port) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Failed to get data conn server port, reply msg=%s",
                       reply);
    return BOOT_INIT_ERR_GENERAL;
  }
  if (SWM_SockGetLocalSockAddr(ctrlFd, &data.client) != SWM_OK ||
      SWM_SockSetPort(0, &data.client) != SWM_OK) {
    LogKeepingErrno("[BOOT_INIT][ERROR]:Failed to get client ip");
    return BOOT_INIT_ERR_GENERAL;
  }
  if (SWM_SockGetPeerSockAddr(ctrlFd, &data.server) != SWM_OK ||
      SWM_SockSetPort(port, &data.server) != SWM_OK) {
    LogKeepingErrno("[BOOT_INIT][ERROR]:Failed to get server ip");
    return BOOT_INIT_ERR_GENERAL;
  }
  return BOOT_INIT_OK;
}

uint32_t OpenDataConnection(BOOT_INIT_FTP_CONN_S &connection) {
  BOOT_INIT_FTP_SOCK_ADDR_S data = {};
  if (BOOT_INIT_FTPCLIENT_GetFtpDataConnIPAddr(&connection, &data) != BOOT_INIT_OK) {
    LogKeepingErrno("[BOOT_INIT][ERROR]:Failed to data conn ip addr");
    return BOOT_INIT_ERR_GENERAL;
  }
  UniqueFd socket;
  if (OpenConnection(data, kDataSteps, socket) != BOOT_INIT_OK) {
    return BOOT_INIT_ERR_GENERAL;
  }
  connection.dataFd = socket.release();
  return BOOT_INIT_OK;
}

// One attempt: a fresh data connection, then RETR. Returns whether the server accepted, the
// reply in reply when RETR was sent.
bool RequestFile(BOOT_INIT_FTP_CONN_S &connection, const char *remotePath, int attempt,
                 uint32_t &reply) {
  const uint32_t ret = BOOT_INIT_FTPCLIENT_EstablishFtpDataConnect(&connection);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Failed to get ftp data conn, return [%u].", ret);
    return false;
  }
  reply = BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(connection.ctrlFd, "RETR", remotePath, nullptr, 0);
  if (reply == kReplyOpening || reply == kReplyAlreadyOpen) {
    return true;
  }
  BOOT_INIT_FTPCLIENT_ReleaseFtpDataConn(&connection);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][INFO]:Reply was %d - RPM_FTP_PRELIM - #%d attempt in %d ticks.",
                     static_cast<int>(reply), attempt, kRetrAttempts);
  return false;
}

// When no attempt gets as far as RETR the result is 0 without a data connection: the transfer
// that follows then fails on its first read. Callers rely on that order of failures.
uint32_t Prepare2Get(BOOT_INIT_FTP_CONN_S &connection, const char *remotePath) {
  uint32_t reply = BOOT_INIT_OK;
  for (int attempt = 0; attempt < kRetrAttempts; ++attempt) {
    if (RequestFile(connection, remotePath, attempt, reply)) {
      return BOOT_INIT_OK;
    }
    if (IsTransientFatal(reply)) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:Response %u - aborting transfer.", reply);
      return reply;
    }
  }
  return reply;
}

}  // namespace
}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_INIT_FTPCLIENT_GetFtpDataConnIPAddr(const BOOT_INIT_FTP_CONN_S *connection,
                                                  BOOT_INIT_FTP_SOCK_ADDR_S *dataAddresses) {
  if (connection == nullptr || dataAddresses == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  return DataAddresses(connection->ctrlFd, *dataAddresses);
}

uint32_t BOOT_INIT_FTPCLIENT_EstablishFtpDataConnect(BOOT_INIT_FTP_CONN_S *connection) {
  if (connection == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_GENERAL;
  }
  return OpenDataConnection(*connection);
}

uint32_t BOOT_INIT_FTPCLIENT_Prepare2Get(BOOT_INIT_FTP_CONN_S *connection, const char *remotePath) {
  if (connection == nullptr || remotePath == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  return Prepare2Get(*connection, remotePath);
}

}  // extern "C"
