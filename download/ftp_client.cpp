// One whole download: control session, data connection and RETR, transfer, completion reply,
// QUIT. Every path out releases both descriptors; a transfer that does not complete leaves no
// partly written local file behind.
#include "bootinit/download.h"
#include "bootinit/log.h"
#include "common/support/messages.hpp"
#include "common/support/unique_fd.hpp"
#include "tkal.h"

namespace bootinit::ftp {
namespace {

constexpr uint32_t kReplyTransferComplete = 226;

// Owns the two descriptors of one download.
class Session {
 public:
  Session() { BOOT_INIT_FTPCLIENT_InitFtpConn(&connection_); }
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;
  ~Session() { Release(); }

  BOOT_INIT_FTP_CONN_S &connection() { return connection_; }
  void Release() { BOOT_INIT_FTPCLIENT_ReleaseFtpConn(&connection_); }

 private:
  BOOT_INIT_FTP_CONN_S connection_{};
};

void CloseFd(int32_t &fd) {
  UniqueFd owner(fd);
  fd = -1;
}

uint32_t Get(const BOOT_INIT_FTP_FILE_INFO_S &file, const BOOT_INIT_FTP_SOCK_ADDR_S &addresses,
             const BOOT_INIT_FTP_ACCOUNT_S &account) {
  Session session;
  BOOT_INIT_FTP_CONN_S &connection = session.connection();
  if (BOOT_INIT_FTPCLIENT_Start(&addresses, &account, &connection.ctrlFd) != BOOT_INIT_OK) {
    return BOOT_INIT_ERR_GENERAL;
  }
  uint32_t ret = BOOT_INIT_FTPCLIENT_Prepare2Get(&connection, file.remotePath);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Request server prepare to trans remote file[%s] "
                       "unsuccessful",
                       file.remotePath);
    return ret;
  }
  ret = BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(&connection, file.localPath);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Generate local file failed, reply code=%u", ret);
    session.Release();
    (void)TKAL_DelFile(file.localPath);
    return ret;
  }
  BOOT_INIT_FTPCLIENT_ReleaseFtpDataConn(&connection);
  ret = BOOT_INIT_FTPCLIENT_GetReplyEnhanced(connection.ctrlFd, 0, nullptr, 0);
  if (ret != kReplyTransferComplete) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get Ftp Server Connect Response Failed, retcode [%d]",
                       static_cast<int>(ret));
    session.Release();
    (void)TKAL_DelFile(file.localPath);
    return ret;
  }
  // The file is complete; a server that does not say goodbye properly changes nothing.
  if (BOOT_INIT_FTPCLIENT_GoodBye(connection.ctrlFd) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Break ctrl conn unsuccessfully");
  }
  return BOOT_INIT_OK;
}

}  // namespace
}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_INIT_FTPCLIENT_Get(const BOOT_INIT_FTP_FILE_INFO_S *fileRequest,
                                 const BOOT_INIT_FTP_SOCK_ADDR_S *addresses,
                                 const BOOT_INIT_FTP_ACCOUNT_S *account) {
  if (fileRequest == nullptr || addresses == nullptr || account == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  return Get(*fileRequest, *addresses, *account);
}

void BOOT_INIT_FTPCLIENT_InitFtpConn(BOOT_INIT_FTP_CONN_S *connection) {
  if (connection != nullptr) {
    connection->ctrlFd = -1;
    connection->dataFd = -1;
  }
}

void BOOT_INIT_FTPCLIENT_ReleaseFtpDataConn(BOOT_INIT_FTP_CONN_S *connection) {
  if (connection != nullptr) {
    CloseFd(connection->dataFd);
  }
}

void BOOT_INIT_FTPCLIENT_ReleaseFtpCtrlConn(BOOT_INIT_FTP_CONN_S *connection) {
  if (connection != nullptr) {
    CloseFd(connection->ctrlFd);
  }
}

void BOOT_INIT_FTPCLIENT_ReleaseFtpConn(BOOT_INIT_FTP_CONN_S *connection) {
  BOOT_INIT_FTPCLIENT_ReleaseFtpDataConn(connection);
  BOOT_INIT_FTPCLIENT_ReleaseFtpCtrlConn(connection);
}

}  // extern "C"
