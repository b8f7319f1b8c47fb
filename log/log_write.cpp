// Formatting one time-stamped log line and handing it to the file layer.
#include <sys/time.h>

#include <cstdarg>
#include <cstring>
#include <ctime>

#include "bootinit/log.h"
#include "boundedstr.h"
#include "common/support/fixed_text.hpp"
#include "log/log_layout.hpp"
#include "tkal.h"

namespace bootinit::log {
namespace {

// The line keeps its last byte free: a line that fills the buffer leaves no room for the line
// feed, and the bounded concatenation then empties it, so nothing reaches the file.
constexpr std::size_t kMaxLineChars = kLineBufLen - 1;

uint32_t EnsureFile(int32_t logType, BOOT_INIT_LOG_INFO_S *record, const char *path) {
  if (TKAL_IsFileExist(path)) {
    return BOOT_INIT_OK;
  }
  return logType == BOOT_INIT_LOG_TYPE_DC_SAFE ? BOOT_INIT_CreateDcLogFile(record)
                                               : BOOT_INIT_CreateLogFile(record);
}

// A message that does not fit behind the time stamp is dropped whole, never cut.
bool FormatLine(std::span<char> line, const char *stamp, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));
bool FormatLine(std::span<char> line, const char *stamp, const char *format, va_list args) {
  if (!CopyInto(line, stamp)) {
    return false;
  }
  const std::size_t stampLen = std::strlen(line.data());
  const int written = vsnprintf_s(line.data() + stampLen, line.size() - stampLen,
                                  kMaxLineChars - stampLen, format, args);
  if (written < 0) {
    return false;
  }
  (void)strcat_s(line.data(), line.size(), "\n");
  return true;
}

}  // namespace
}  // namespace bootinit::log

using namespace bootinit;
using namespace bootinit::log;

extern "C" {

void BOOT_INIT_GetCurTime(char *buffer, uint32_t size) {
  if (buffer == nullptr) {
    return;
  }
  struct timeval now = {};
  (void)gettimeofday(&now, nullptr);
  tzset();
  struct tm local = {};
  const time_t seconds = now.tv_sec;
  (void)localtime_r(&seconds, &local);
  // The fraction is the microsecond count (usually six digits), printed with at least three.
  (void)snprintf_s(buffer, size, size - 1, "[%04d-%02d-%02d %02d:%02d:%02d.%03ld]",
                   local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                   local.tm_min, local.tm_sec, static_cast<long>(now.tv_usec));
}

void BOOT_INIT_LogWrite(int32_t logType, const char *format, ...) {
  char stamp[kTimeBufLen] = {};
  char line[kLineBufLen] = {};
  char path[kPathBufLen] = {};
  BOOT_INIT_LOG_INFO_S *record = BOOT_INIT_GetLogInfoByType(logType);
  if (format == nullptr || record == nullptr) {
    return;
  }
  if (!FormatInto(path, "%s/%s", record->dir, record->fileName)) {
    return;
  }
  if (EnsureFile(logType, record, path) != BOOT_INIT_OK) {
    return;
  }
  BOOT_INIT_GetCurTime(stamp, sizeof(stamp));
  va_list args;
  va_start(args, format);
  const bool formatted = FormatLine(line, stamp, format, args);
  va_end(args);
  if (formatted) {
    BOOT_INIT_WriteLogFile(logType, path, line);
  }
}

}  // extern "C"
