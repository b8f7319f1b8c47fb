// Which FTP servers a board downloads from, in which order, and on which port. The master main
// board never downloads; a stacked device has one server, the stack master; otherwise the two
// main boards are tried in turn, never the board's own address.
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "bootinit/common.h"
#include "bootinit/download.h"
#include "bootinit/log.h"
#include "common/support/messages.hpp"
#include "swm.h"

namespace bootinit::ftp {
namespace {

constexpr const char *kFtpServerConf = "/etc/conf/ftpserver.conf";
constexpr uint32_t kPortTextLen = 8;
constexpr uint16_t kDefaultFtpPort = 21;
constexpr uint32_t kIpTextLen = 128;
constexpr int32_t kFamilyIpv4 = 2;
constexpr uint32_t kRoleMaster = 0;

static_assert(sizeof(BOOT_INIT_FTP_SERVER_ADDR_S) == 392, "server addresses are frozen");
static_assert(offsetof(BOOT_INIT_FTP_SERVER_ADDR_S, server) == 8);
static_assert(sizeof(BOOT_INIT_FTP_SOCK_ADDR_S) == 256, "data addresses are frozen");

bool ToSockAddr(const char *ip, uint16_t port, sockaddr_storage &out) {
  return BOOT_INIT_StrIPAddr2SockAddr(kFamilyIpv4, ip, port, &out) == BOOT_INIT_OK;
}

// The client binds to the board's own address with any port.
uint32_t SetClient(const char *ownIp, BOOT_INIT_FTP_SERVER_ADDR_S &servers) {
  if (!ToSockAddr(ownIp, 0, servers.client)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:Init client ftp sock addr unsuccessfully.");
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint16_t ServerPort() {
  char text[kPortTextLen] = {};
  const uint32_t ret = SWM_GetPortInfoReliable(kFtpServerConf, text, sizeof(text));
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Get portinfo reliable failed from file %s, uiRet:%d.",
                       kFtpServerConf, static_cast<int>(ret));
    return kDefaultFtpPort;
  }
  // Not validated further: text that is no number gives port 0, and the download fails later.
  return static_cast<uint16_t>(std::strtol(text, nullptr, 10));
}

uint32_t StackServers(BOOT_INIT_FTP_SERVER_ADDR_S &servers) {
  uint16_t port = 0;
  BOOT_INIT_GetFtpServerPort(&port);
  char masterIp[kIpTextLen] = {};
  if (SWM_GetStackMasterIp(masterIp, sizeof(masterIp)) == SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Stack master Ip:%s.", masterIp);
    if (ToSockAddr(masterIp, port, servers.server[0])) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][INFO]:Get Stack master ftp server sock addr success, "
                         "masterIp:%s.",
                         masterIp);
      servers.sockAddrNum = 1;
    }
  }
  if (servers.sockAddrNum == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:Init Mmb ftp server sock addr unsuccessfully.");
    return BOOT_INIT_ERROR;
  }
  char ownIp[kIpTextLen] = {};
  if (SWM_GetBoardLocalIp(ownIp, sizeof(ownIp)) != SWM_OK) {
    return BOOT_INIT_ERROR;
  }
  return SetClient(ownIp, servers);
}

void LogMmb2(const char *mmbIp2) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][INFO]:Init Mmb2 ftp server sock addr success, mmbIp2:%s.",
                     mmbIp2);
}

// Main board 1 first, main board 2 second; an address equal to the board's own is skipped, so
// a standby main board downloads from its peer.
bool ChooseMmbs(const char *mmbIp1, const char *mmbIp2, const char *ownIp, uint16_t port,
                BOOT_INIT_FTP_SERVER_ADDR_S &servers) {
  if (std::strcmp(mmbIp1, ownIp) != 0 && ToSockAddr(mmbIp1, port, servers.server[0])) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:Init Mmb1 ftp server sock addr success, mmbIp1:%s.",
                       mmbIp1);
    if (std::strcmp(mmbIp2, ownIp) == 0 || !ToSockAddr(mmbIp2, port, servers.server[1])) {
      servers.sockAddrNum = 1;
    } else {
      LogMmb2(mmbIp2);
      servers.sockAddrNum = 2;
    }
    return true;
  }
  if (std::strcmp(mmbIp2, ownIp) != 0 && ToSockAddr(mmbIp2, port, servers.server[0])) {
    LogMmb2(mmbIp2);
    servers.sockAddrNum = 1;
    return true;
  }
  servers.sockAddrNum = 0;
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][INFO]:Init Mmb ftp server sock addr unsuccessfully.");
  return false;
}

uint32_t MmbServers(BOOT_INIT_FTP_SERVER_ADDR_S &servers) {
  uint16_t port = 0;
  BOOT_INIT_GetFtpServerPort(&port);
  char mmbIp1[kIpTextLen] = {};
  char mmbIp2[kIpTextLen] = {};
  char ownIp[kIpTextLen] = {};
  if (SWM_GetServerIpByBoardRole(mmbIp1, sizeof(mmbIp1), mmbIp2, sizeof(mmbIp2)) != SWM_OK ||
      SWM_GetBoardLocalIp(ownIp, sizeof(ownIp)) != SWM_OK) {
    return BOOT_INIT_ERROR;
  }
  if (!ChooseMmbs(mmbIp1, mmbIp2, ownIp, port, servers)) {
    return BOOT_INIT_ERROR;
  }
  return SetClient(ownIp, servers);
}

uint32_t ConnAddresses(BOOT_INIT_FTP_SERVER_ADDR_S &servers) {
  uint32_t role = 0;
  if (SWM_GetSystemHaRole(&role) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Get system role failed.");
    return BOOT_INIT_ERROR;
  }
  // The master main board serves the others; a board in role 0 that is not a main board
  // still downloads.
  if (role == kRoleMaster && SWM_BoardIsMMB() != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:My role is master, do not need to download.");
    return BOOT_INIT_ERROR;
  }
  const bool stacked = SWM_IsStackEnabled() != 0;
  servers = {};
  return stacked ? BOOT_INIT_GetFtpSockStack(&servers) : BOOT_INIT_GetFtpSockNotStack(&servers);
}

}  // namespace
}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_INIT_GetFtpSockConnAddr(BOOT_INIT_FTP_SERVER_ADDR_S *serverAddresses) {
  if (serverAddresses == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return ConnAddresses(*serverAddresses);
}

uint32_t BOOT_INIT_GetFtpSockStack(BOOT_INIT_FTP_SERVER_ADDR_S *serverAddresses) {
  if (serverAddresses == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return StackServers(*serverAddresses);
}

uint32_t BOOT_INIT_GetFtpSockNotStack(BOOT_INIT_FTP_SERVER_ADDR_S *serverAddresses) {
  if (serverAddresses == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return MmbServers(*serverAddresses);
}

void BOOT_INIT_GetFtpServerPort(uint16_t *port) {
  if (port != nullptr) {
    *port = ServerPort();
  }
}

}  // extern "C"
