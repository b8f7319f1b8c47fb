// The three process-wide log records and their initialisation.
#include <cstring>
#include <span>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "boundedstr.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "log/log_layout.hpp"
#include "swm.h"

extern "C" {
BOOT_INIT_LOG_INFO_S g_stBootInitLogInfo;
BOOT_INIT_LOG_INFO_S g_stBootInitSafeLogInfo;
BOOT_INIT_LOG_INFO_S g_stBootInitDcSafeLogInfo;
}

namespace bootinit::log {
namespace {

constexpr const char *kLogPathKey = "swm_log_path";

void ClearRecord(BOOT_INIT_LOG_INFO_S &record) {
  (void)memset_s(&record, sizeof(record), 0, sizeof(record));
}

// Shared by the two security logs: a record that already names its file is kept as it is,
// so a second initialisation never moves a log that is in use.
uint32_t InitSafeRecord(BOOT_INIT_LOG_INFO_S &record, bool fixedDir) {
  if (SWM_IsStringEqual(record.fileName, kSafeLogName)) {
    return BOOT_INIT_OK;
  }
  ClearRecord(record);
  record.curLen = 0;
  record.maxLen = kSafeLogMaxLen;
  if (fixedDir) {
    if (!CopyInto(record.dir, kDcSafeLogDir)) {
      return BOOT_INIT_ERROR;
    }
  } else {
    (void)BOOT_INIT_GetLogPath(record.dir, sizeof(record.dir));
  }
  return CopyInto(record.fileName, kSafeLogName) ? BOOT_INIT_OK : BOOT_INIT_ERROR;
}

}  // namespace

uint32_t GetLogPath(std::span<char> out) {
  if (out.empty()) {
    return BOOT_INIT_OK;
  }
  (void)memset_s(out.data(), out.size(), 0, out.size());
  const uint32_t ret = BOOT_INIT_GetValueFromCfg(BOOT_INIT_GetUserCfgFile(), kLogPathKey,
                                                 out.data(), static_cast<uint32_t>(out.size()));
  if (ret == BOOT_INIT_OK && out[0] == '/') {
    return BOOT_INIT_OK;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][WARNING]:Get log path from cfg, key is: %s, value is: %s. "
                     "Using default.",
                     kLogPathKey, out.data());
  char root[BOOT_INIT_LOG_DIR_LEN] = {};
  (void)BOOT_INIT_GetRootPath(root, sizeof(root));
  if (!FormatInto(out, "%s/swm/workdir/var/log", root)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BOOT_INIT_GetLogPath");
  }
  return BOOT_INIT_OK;
}

uint32_t InitMainRecord() {
  BOOT_INIT_LOG_INFO_S &record = g_stBootInitLogInfo;
  ClearRecord(record);
  record.maxLen = kMainLogMaxLen;
  (void)BOOT_INIT_GetLogPath(record.dir, sizeof(record.dir));
  if (!CopyInto(record.fileName, kMainLogName)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_STRCPY_FAILED, "BOOT_INIT_LogInit");
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::log

using namespace bootinit::log;

extern "C" {

BOOT_INIT_LOG_INFO_S *BOOT_INIT_GetLogInfo(void) { return &g_stBootInitLogInfo; }
BOOT_INIT_LOG_INFO_S *BOOT_INIT_GetSafeLogInfo(void) { return &g_stBootInitSafeLogInfo; }
BOOT_INIT_LOG_INFO_S *BOOT_INIT_GetDcSafeLogInfo(void) { return &g_stBootInitDcSafeLogInfo; }

BOOT_INIT_LOG_INFO_S *BOOT_INIT_GetLogInfoByType(int32_t logType) {
  switch (logType) {
    case BOOT_INIT_LOG_TYPE_MAIN:
      return BOOT_INIT_GetLogInfo();
    case BOOT_INIT_LOG_TYPE_SAFE:
      return BOOT_INIT_GetSafeLogInfo();
    case BOOT_INIT_LOG_TYPE_DC_SAFE:
      return BOOT_INIT_GetDcSafeLogInfo();
    default:
      return nullptr;
  }
}

uint32_t BOOT_INIT_GetLogPath(char *buffer, uint32_t size) {
  if (buffer == nullptr) {
    return BOOT_INIT_OK;
  }
  return GetLogPath(std::span<char>(buffer, size));
}

uint32_t BOOT_INIT_SafeLogInit(void) { return InitSafeRecord(g_stBootInitSafeLogInfo, false); }

uint32_t BOOT_INIT_DcSafeLogInit(void) { return InitSafeRecord(g_stBootInitDcSafeLogInfo, true); }

uint32_t BOOT_INIT_LogInit(void) {
  (void)InitMainRecord();
  uint32_t ret = BOOT_INIT_SafeLogInit();
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Can not init safe log! ret = 0x%x", ret);
  }
  ret = BOOT_INIT_DcSafeLogInit();
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Can not init dc safe log! ret = 0x%x", ret);
  }
  return BOOT_INIT_OK;
}

}  // extern "C"
