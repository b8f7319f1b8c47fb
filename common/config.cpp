// Configuration files: their fixed names, flat key=value reading and the data root path.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "boundedstr.h"
#include "common/support/c_owners.hpp"
#include "common/support/messages.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::config {
namespace {

constexpr const char *kIniFile = "/opt/startup.ini";
constexpr const char *kBootIpIniFile = "/opt/boot_ip.ini";
constexpr const char *kUserCfgFile = "/etc/swm_user.conf";

constexpr const char *kDefaultRootPath = "/var/lib";
constexpr const char *kRootPathSection = "[RootPath]";
constexpr const char *kRootPathKey = "RootPath";
constexpr uint32_t kRootPathBufLen = 256;

// fgets reads at most 511 characters; a longer line arrives in pieces, each taken as a line.
constexpr int kCfgLineBufLen = 512;

using FieldArray = MallocPtr<char *>;

using UniqueFile = FileStream;

// Finds the first non-blank line containing key, trimmed in place in line.
bool FindKeyLine(FILE *stream, const char *key, char (&line)[kCfgLineBufLen]) {
  while (std::fgets(line, kCfgLineBufLen, stream) != nullptr) {
    if (SWM_IsSpaceString(line)) {
      continue;
    }
    (void)SWM_StringTrim(line);
    // A plain substring test: a longer key or a value holding the word matches as well.
    if (std::strstr(line, key) != nullptr) {
      return true;
    }
  }
  return false;
}

}  // namespace

uint32_t GetValueInLine(char *line, char *valueBuf, uint32_t valueBufLen) {
  char **rawFields = nullptr;
  uint32_t count = 0;
  if (SWM_TransString2Array(line, "=", &rawFields, &count, 0) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Trans string to array failed.");
    return BOOT_INIT_ERROR;
  }
  FieldArray fields(rawFields);
  if (count != 2) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get string array num[%u] error.", count);
    return BOOT_INIT_ERROR;
  }
  char *value = fields.get()[1];
  if (SWM_StringTrim(value) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Trim string[%s] failed.",
                       value);
    return BOOT_INIT_ERROR;
  }
  // Kept as designed: unsigned "length - 1", so an empty value counts as too long, and values
  // one or two characters longer than the buffer pass here and fail at the copy below.
  const auto length = static_cast<uint32_t>(std::strlen(value));
  if (valueBufLen < length - 1u) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Failed to get value, value length [%d] is too long, "
                       "more than 256.",
                       static_cast<int>(length));
    return BOOT_INIT_ERROR;
  }
  if (snprintf_s(valueBuf, valueBufLen, valueBufLen - 1u, "%s", value) < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Failed to strncpy pcValue");
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t GetValueFromCfg(const char *cfgFile, const char *key, char *valueBuf,
                         uint32_t valueBufLen) {
  FILE *rawStream = nullptr;
  const uint32_t openRet = SWM_Fopen(cfgFile, "r", &rawStream);
  if (openRet != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get value from cfg failed, open file %s failed, "
                       "ret=%u, errno=%d.",
                       cfgFile, openRet, errno);
    return BOOT_INIT_ERROR;
  }
  UniqueFile stream(rawStream);
  char line[kCfgLineBufLen] = {};
  if (!FindKeyLine(stream.get(), key, line)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get value from cfg failed, target is not exist, "
                       "[key is: %s][value is: %s]",
                       key, valueBuf);
    return BOOT_INIT_ERROR;
  }
  const uint32_t ret = BOOT_INIT_GetValueInLine(line, valueBuf, valueBufLen);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get value from cfg failed, errno: %u, "
                       "[line is: %s][key is: %s][value is: %s]",
                       ret, line, key, valueBuf);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t GetRootPath(char *outBuf, uint32_t outBufLen) {
  char value[kRootPathBufLen] = {};
  const char *root = kDefaultRootPath;
  if (TKAL_IsFileExist(kIniFile) &&
      SWM_IniGetValue(kIniFile, kRootPathSection, kRootPathKey, value, sizeof(value)) == 0 &&
      value[0] != '\0') {
    root = value;
  }
  return strcpy_s(outBuf, outBufLen, root) == EOK ? BOOT_INIT_OK : BOOT_INIT_ERROR;
}

}  // namespace bootinit::config

using namespace bootinit::config;

extern "C" {

const char *BOOT_INIT_GetIniFile(void) { return kIniFile; }
const char *BOOT_INIT_GetBootIpIniFile(void) { return kBootIpIniFile; }
const char *BOOT_INIT_GetUserCfgFile(void) { return kUserCfgFile; }

uint32_t BOOT_INIT_GetValueInLine(char *line, char *valueBuf, uint32_t valueBufLen) {
  if (line == nullptr || valueBuf == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return GetValueInLine(line, valueBuf, valueBufLen);
}

uint32_t BOOT_INIT_GetValueFromCfg(const char *cfgFile, const char *key, char *valueBuf,
                                   uint32_t valueBufLen) {
  if (cfgFile == nullptr || key == nullptr || valueBuf == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return GetValueFromCfg(cfgFile, key, valueBuf, valueBufLen);
}

uint32_t BOOT_INIT_GetRootPath(char *outBuf, uint32_t outBufLen) {
  return GetRootPath(outBuf, outBufLen);
}

}  // extern "C"
