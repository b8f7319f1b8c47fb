// The transfer: the data stream into a new local file, collected in blocks of about 100 KiB so
// that the file sees few writes.
#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "bootinit/download.h"
#include "bootinit/log.h"
#include "common/support/c_owners.hpp"
#include "common/support/messages.hpp"
#include "common/support/unique_fd.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::ftp {
namespace {

constexpr std::size_t kTransBufLen = 102400;
constexpr uint32_t kReadPiece = 1024;
constexpr uint32_t kIoFailed = 0xFFFFFFFFu;
constexpr mode_t kLocalFileMode = 0640;

using TransBuffer = MallocPtr<char>;

// Writes are checked for failure only: the platform's write retries short writes itself. The
// errno of a failure survives the message, for the caller's own report.
bool WriteBlock(int32_t localFd, const char *block, std::size_t length, bool last) {
  if (TKAL_FdWrite(localFd, block, length) >= 0) {
    return true;
  }
  const int saved = errno;
  if (last) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Final write local file failed, errno = %d.", saved);
  } else {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:write local file failed, errno = %d.", saved);
  }
  errno = saved;
  return false;
}

uint32_t Transfer(int32_t dataFd, int32_t localFd) {
  const TransBuffer buffer(static_cast<char *>(std::calloc(1, kTransBufLen)));
  if (buffer == nullptr) {
    return BOOT_INIT_ERR_GENERAL;
  }
  std::size_t filled = 0;
  for (;;) {
    const uint32_t got = BOOT_INIT_FTPCLIENT_Read(dataFd, buffer.get() + filled, kReadPiece);
    if (got == kIoFailed) {
      const int saved = errno;
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:FTPCLIENT read data from server failed.");
      errno = saved;
      return BOOT_INIT_ERR_GENERAL;
    }
    if (got == 0) {  // the server closed the data connection: the file is complete
      return WriteBlock(localFd, buffer.get(), filled, true) ? BOOT_INIT_OK : BOOT_INIT_ERR_GENERAL;
    }
    filled += got;
    if (kTransBufLen - filled < kReadPiece) {
      if (!WriteBlock(localFd, buffer.get(), filled, false)) {
        return BOOT_INIT_ERR_GENERAL;
      }
      filled = 0;
    }
  }
}

uint32_t GenerateLocalFile(int32_t dataFd, const char *localPath) {
  int fd = -1;
  const uint32_t ret = SWM_Open(localPath, O_RDWR | O_CREAT | O_TRUNC, &fd, kLocalFileMode);
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Failed to open file %s, ret=%u, errno=%d.", localPath,
                       ret, errno);
    return BOOT_INIT_ERR_GENERAL;
  }
  const UniqueFd file(fd);
  if (BOOT_INIT_FTPCLIENT_TransFile4Get(dataFd, file.get()) != BOOT_INIT_OK) {
    // The words of an open failure, although the open succeeded: the log readers know them.
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Failed to open file %s, errno:%d.", localPath, errno);
    return BOOT_INIT_ERR_GENERAL;
  }
  return BOOT_INIT_OK;
}

}  // namespace
}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_INIT_FTPCLIENT_TransFile4Get(int32_t dataFd, int32_t localFd) {
  return Transfer(dataFd, localFd);
}

uint32_t BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(BOOT_INIT_FTP_CONN_S *connection,
                                                   const char *localPath) {
  if (connection == nullptr || localPath == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_GENERAL;
  }
  return GenerateLocalFile(connection->dataFd, localPath);
}

}  // extern "C"
