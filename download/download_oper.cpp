// Operation 2: fetch one file from the main board's FTP server. The servers are tried in
// order until one delivers; a file the server does not have ends the operation at once.
#include "bootinit/download.h"
#include "bootinit/log.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "download/wipe.hpp"
#include "swm.h"

namespace bootinit::ftp {
namespace {

constexpr uint32_t kOperArgCount = 2;
constexpr uint32_t kOperFailed = 1;
constexpr uint32_t kReplyFileUnavailable = 550;

// The account lives only here; it is wiped on every way out, success or not.
class AccountGuard {
 public:
  explicit AccountGuard(BOOT_INIT_FTP_ACCOUNT_S &account) : account_(account) {}
  AccountGuard(const AccountGuard &) = delete;
  AccountGuard &operator=(const AccountGuard &) = delete;
  ~AccountGuard() { Wipe(&account_, sizeof(account_), "BOOT_InitOperDownloadFileOper", __LINE__); }

 private:
  BOOT_INIT_FTP_ACCOUNT_S &account_;
};

void PrintPath(std::span<char> out, const char *path) {
  if (!FormatInto(out, "%s", path)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BOOT_INIT_GetFtpFileInfo");
  }
}

// Tries each server in order. 550 means the file is missing, which the other main board,
// holding the same files, cannot change.
uint32_t DownloadFromServers(const BOOT_INIT_FTP_FILE_INFO_S &file,
                             const BOOT_INIT_FTP_SERVER_ADDR_S &servers,
                             const BOOT_INIT_FTP_ACCOUNT_S &account) {
  uint32_t ret = BOOT_INIT_OK;
  for (uint32_t index = 0; index < servers.sockAddrNum && index < BOOT_INIT_FTP_SERVER_NUM;
       ++index) {
    BOOT_INIT_FTP_SOCK_ADDR_S addresses = {};
    addresses.server = servers.server[index];
    addresses.client = servers.client;
    ret = BOOT_INIT_FTPCLIENT_Get(&file, &addresses, &account);
    if (ret == BOOT_INIT_OK) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][INFO]:Succeed to download file[%s] to local[%s] from MMB, "
                         "uiSockAddrIndex:%d.",
                         file.remotePath, file.localPath, static_cast<int>(index));
      return BOOT_INIT_OK;
    }
    if (ret == kReplyFileUnavailable) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:[%s] not exit in MMB",
                         file.remotePath);
      return ret;
    }
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Download file[%s] to local[%s] from MMB "
                       "unsuccessfully,try to download file from another MMB, "
                       "uiSockAddrIndex:%d.",
                       file.remotePath, file.localPath, static_cast<int>(index));
  }
  return ret;
}

uint32_t DownloadFile(const char *remotePath, const char *localPath) {
  BOOT_INIT_FTP_FILE_INFO_S file = {};
  if (BOOT_INIT_GetFtpFileInfo(remotePath, localPath, &file) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Failed to get ftp file info");
    return kOperFailed;
  }
  BOOT_INIT_FTP_SERVER_ADDR_S servers = {};
  if (BOOT_INIT_GetFtpSockConnAddr(&servers) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Failed to get ftp sock addr");
    return kOperFailed;
  }
  BOOT_INIT_FTP_ACCOUNT_S account = {};
  const AccountGuard guard(account);
  if (BOOT_INIT_GetFtpAccount(&account, file.remotePath) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Failed to get ftp account info for sswm");
    return kOperFailed;
  }
  (void)SWM_StringTrim(account.userName);
  (void)SWM_StringTrim(account.password);
  if (servers.sockAddrNum == 0) {
    return BOOT_INIT_OK;  // nothing to download from counts as done
  }
  return DownloadFromServers(file, servers, account);
}

}  // namespace
}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_InitOperDownloadFile(int32_t argc, char **argv) {
  if (argc != static_cast<int32_t>(kOperArgCount) || argv == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Param count is not right for ftp getting file");
    return kOperFailed;
  }
  return BOOT_InitOperDownloadFileOper(argv[0], argv[1]);
}

uint32_t BOOT_InitOperDownloadFileOper(const char *remotePath, const char *localPath) {
  if (remotePath == nullptr || localPath == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  return DownloadFile(remotePath, localPath);
}

uint32_t BOOT_INIT_GetFtpFileInfo(const char *remotePath, const char *localPath,
                                  BOOT_INIT_FTP_FILE_INFO_S *fileRequest) {
  if (remotePath == nullptr || localPath == nullptr || fileRequest == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  *fileRequest = {};
  PrintPath(fileRequest->localPath, localPath);
  PrintPath(fileRequest->remotePath, remotePath);
  return BOOT_INIT_OK;
}

}  // extern "C"
