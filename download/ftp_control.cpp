// The control connection: commands out, one reply line in. Login commands carry the account,
// so their text is wiped as soon as it has been sent and never written to a log.
#include <cerrno>
#include <cstring>
#include <span>

#include "bootinit/download.h"
#include "bootinit/log.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "download/ftp_reply.hpp"
#include "download/wipe.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::ftp {
namespace {

// "%s %s\r\n" or "%s\r\n": at most 258 characters and the terminator.
constexpr uint32_t kCmdBufLen = 259;
constexpr uint32_t kIoFailed = 0xFFFFFFFFu;
constexpr const char *kQuit = "QUIT";

using CommandBuffer = char[kCmdBufLen];

bool FormatCommand(std::span<char> out, const char *command, const char *argument) {
  return argument != nullptr ? FormatInto(out, "%s %s\r\n", command, argument)
                             : FormatInto(out, "%s\r\n", command);
}

// Reads one line a byte at a time, so that nothing after its line feed leaves the connection.
// After QUIT the server may close at once; what arrived until then is the reply.
bool ReadLine(int32_t fd, bool isQuit, ReplyLine &line) {
  while (!line.complete()) {
    char byte = '\0';
    const uint32_t got = BOOT_INIT_FTPCLIENT_Read(fd, &byte, 1);
    if (got == kIoFailed) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Read failed, errno %d.",
                         errno);
      return false;
    }
    if (got == 0) {
      if (isQuit) {
        return true;
      }
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Ctrl conn unexpected eof.");
      return false;
    }
    (void)line.Add(byte);
  }
  return true;
}

// Hands the trimmed line to the caller's buffer, which must be longer than the line.
bool CopyReply(const char *line, char *replyBuffer, uint32_t replyBufferLength) {
  const auto length = static_cast<int>(std::strlen(line));
  if (replyBufferLength <= static_cast<uint32_t>(length)) {
    // The values stand in this order although the labels name them the other way round.
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Msg buff is not enough, replymsg len = %d, bufflen = "
                       "%d",
                       static_cast<int>(replyBufferLength), length);
    return false;
  }
  if (snprintf_s(replyBuffer, replyBufferLength, replyBufferLength - 1, "%s", line) < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BOOT_INIT_FTPCLIENT_GetReplyEnhanced");
  }
  return true;
}

uint32_t GetReply(int32_t fd, bool isQuit, char *replyBuffer, uint32_t replyBufferLength) {
  ReplyLine line;
  if (!ReadLine(fd, isQuit, line)) {
    return BOOT_INIT_ERR_GENERAL;
  }
  (void)SWM_StringTrim(line.text());
  if (replyBuffer != nullptr && !CopyReply(line.text(), replyBuffer, replyBufferLength)) {
    return BOOT_INIT_ERR_GENERAL;
  }
  const std::optional<uint32_t> code = ReplyCodeOf(line.text());
  if (!code) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Failed to get status code from response msg");
    return BOOT_INIT_ERR_GENERAL;
  }
  return *code;
}

uint32_t SendCmdAndGetReply(int32_t fd, const char *command, const char *argument,
                            char *replyBuffer, uint32_t replyBufferLength) {
  CommandBuffer text = {};
  if (!FormatCommand(text, command, argument)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Command exceeds maximum size of %u.", kCmdBufLen);
    return BOOT_INIT_ERR_GENERAL;
  }
  const auto length = static_cast<uint32_t>(std::strlen(text));
  if (BOOT_INIT_FTPCLIENT_SendCmd(fd, text, length) != length) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Send cmd failed, cmd = %s, errno:%d.", text, errno);
    return BOOT_INIT_ERR_GENERAL;
  }
  return GetReply(fd, std::strcmp(command, kQuit) == 0, replyBuffer, replyBufferLength);
}

// The whole command buffer is wiped once on every path, right after the send (or after the
// failed format, which may leave a cut copy of the password behind).
uint32_t LoginAndGetReply(int32_t fd, const char *command, const char *argument, char *replyBuffer,
                          uint32_t replyBufferLength) {
  CommandBuffer text = {};
  const bool formatted = FormatCommand(text, command, argument);
  const auto length = static_cast<uint32_t>(std::strlen(text));
  const bool sent = formatted && BOOT_INIT_FTPCLIENT_SendCmd(fd, text, length) == length;
  const int sendErrno = errno;
  Wipe(text, sizeof(text), "BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply", __LINE__);
  if (!formatted) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Command exceeds maximum size of %u.", kCmdBufLen);
    return BOOT_INIT_ERR_GENERAL;
  }
  if (!sent) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Send cmd failed, cmd = %s, errno:%d.", command,
                       sendErrno);
    return BOOT_INIT_ERR_GENERAL;
  }
  return GetReply(fd, false, replyBuffer, replyBufferLength);
}

}  // namespace
}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_INIT_FTPCLIENT_SendCmd(int32_t fd, const char *text, uint32_t length) {
  if (fd < 0 || text == nullptr) {
    errno = fd < 0 ? EBADF : EINVAL;
    return kIoFailed;
  }
  return static_cast<uint32_t>(TKAL_FdWrite(fd, text, length));
}

uint32_t BOOT_INIT_FTPCLIENT_Read(int32_t fd, char *buffer, uint32_t length) {
  if (fd < 0 || buffer == nullptr) {
    errno = fd < 0 ? EBADF : EINVAL;
    return kIoFailed;
  }
  return static_cast<uint32_t>(TKAL_FdRead(fd, buffer, length));
}

uint32_t BOOT_INIT_FTPCLIENT_GetReplyEnhanced(int32_t ctrlFd, uint32_t isQuit, char *replyBuffer,
                                              uint32_t replyBufferLength) {
  return GetReply(ctrlFd, isQuit != 0, replyBuffer, replyBufferLength);
}

uint32_t BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(int32_t ctrlFd, const char *command,
                                                const char *argument, char *replyBuffer,
                                                uint32_t replyBufferLength) {
  if (command == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_GENERAL;
  }
  return SendCmdAndGetReply(ctrlFd, command, argument, replyBuffer, replyBufferLength);
}

uint32_t BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(int32_t ctrlFd, const char *command,
                                                 const char *argument, char *replyBuffer,
                                                 uint32_t replyBufferLength) {
  if (command == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_GENERAL;
  }
  return LoginAndGetReply(ctrlFd, command, argument, replyBuffer, replyBufferLength);
}

}  // extern "C"
