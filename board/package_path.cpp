// Where the boot packages are and whether a path may name one. A package lies directly in the
// home directory or directly in the backup partition, carries the suffix of its kind, and its
// name holds no shell-dangerous character.
#include <libgen.h>

#include <cstring>

#include "board/board_driver.hpp"
#include "bootinit/board.h"
#include "bootinit/common.h"
#include "bootinit/log.h"
#include "boundedstr.h"
#include "common/support/messages.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::board {
namespace {

constexpr const char *kHomeDir = "/opt/kytv8/home";
constexpr const char *kCcPackageEnv = "next_bootfile";
constexpr const char *kLastPackageEnv = "last_bootfile";
constexpr const char *kBackupEnv = "homebak_path";
constexpr const char *kHardwarePackageEnv = "next_bootfile_ex";
constexpr const char *kPackageSection = "[package]";

constexpr uint32_t kPathLen = 384;
constexpr uint32_t kPartLen = 128;
constexpr uint32_t kEnvNameLen = 64;
constexpr uint32_t kBackupPartitionLen = 256;

uint32_t StubPackage(const char *key, char *path, uint32_t len) {
  const char *file = BOOT_INIT_GetIniFile();
  if (!TKAL_IsFileExist(file) || SWM_IniGetValue(file, kPackageSection, key, path, len) != 0 ||
      path[0] == '\0') {
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

bool HasSuffixOfKind(const char *name, uint32_t kind) {
  switch (kind) {
    case BOOT_INIT_PKG_KIND_BASE:
      return SWM_IsPostfixString(name, ".cc") || SWM_IsPostfixString(name, ".CC");
    case BOOT_INIT_PKG_KIND_HARDWARE:
      return SWM_IsPostfixString(name, ".cch") != 0;
    default:
      return true;
  }
}

// The directory must be the home directory or the backup partition itself.
bool InPackageDirectory(const char *dir, const char *path) {
  if (std::strcmp(dir, kHomeDir) == 0) {
    return true;
  }
  char backup[kPathLen] = {};
  if (BOOT_InitGetBackupPartition(backup, sizeof(backup)) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Cc package path error, filePath = %s", path);
    return false;
  }
  if (std::strcmp(dir, backup) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Cc package path error, filePath = %s,backuppath = %s.",
                       path, backup);
    return false;
  }
  return true;
}

void LogPathCheckFailed() {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Cc package path checked failed.");
}

}  // namespace

uint32_t IsCCFileNameValid(const char *name, uint32_t kind) {
  if (!HasSuffixOfKind(name, kind)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Filename postfix error, ccFileName = %s", name);
    return 0;
  }
  if (BOOT_INIT_IsIncludeInvalidChar(name, static_cast<uint32_t>(std::strlen(name))) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Filename include invalid character, ccFileName = %s",
                       name);
    return 0;
  }
  return 1;
}

uint32_t IsCCFullNameValid(const char *path, uint32_t kind) {
  if (path == nullptr || path[0] == '\0') {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get Cc package path failed, file length is null or 0");
    return 0;
  }
  char real[kPathLen] = {};
  if (BOOT_INIT_GetCanonicalFilepath(path, real, sizeof(real)) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(
        BOOT_INIT_LOG_TYPE_MAIN,
        "[BOOT_INIT][ERROR]:Cc package path trans to realpath failed, ccFilePath = %s", path);
    return 0;
  }
  char dir[kPartLen] = {};
  char name[kPartLen] = {};
  if (BOOT_INIT_GetDirAndBaseName(real, dir, sizeof(dir), name, sizeof(name)) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get cc filepath and filename failed, ccRealPath = %s",
                       real);
    return 0;
  }
  if (!InPackageDirectory(dir, real)) {
    return 0;
  }
  if (BOOT_InitIsCCFileNameValid(name, kind) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Cc filename error, fileName = %s", name);
    return 0;
  }
  return 1;
}

uint32_t GetCCPackage(char *path, uint32_t len) {
  const uint32_t ret = drv_env_get(kCcPackageEnv, path, len, 0);
  if (ret != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:Get cc package full path from drv, result = 0x%x", ret);
    path[0] = '\0';
    const uint32_t stubRet = BOOT_INIT_StubGetCCPackage(path, len);
    if (stubRet != BOOT_INIT_OK) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][WARNING]:Get cc package full path from stub failed, result = "
                         "0x%x",
                         stubRet);
    }
  }
  if (path[0] == '\0' || BOOT_InitIsCCFullNameValid(path, BOOT_INIT_PKG_KIND_BASE) == 0) {
    LogPathCheckFailed();
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t GetLastPackage(char *path, uint32_t len) {
  const uint32_t ret = drv_env_get(kLastPackageEnv, path, len, 0);
  if (ret != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:Get last package full path from drv, result = 0x%x", ret);
    path[0] = '\0';
    if (BOOT_INIT_StubGetLastPackage(path, len) != BOOT_INIT_OK) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:Get last package full path from stub failed");
      return BOOT_INIT_ERROR;
    }
  }
  if (path[0] == '\0') {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get last package path failed, file length is 0");
    return BOOT_INIT_ERROR;
  }
  if (BOOT_InitIsCCFullNameValid(path, BOOT_INIT_PKG_KIND_BASE) == 0) {
    LogPathCheckFailed();
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// One trailing slash is dropped ("/bak/" is "/bak"), but "/" stays "/".
uint32_t GetBackupPartition(char *buf, uint32_t len) {
  if (drv_env_get(kBackupEnv, buf, len, 0) != 0) {
    return BOOT_INIT_ERROR;
  }
  const std::size_t length = strnlen(buf, len);
  if (length >= 2 && length <= kPathLen - 1 && buf[length - 1] == '/') {
    buf[length - 1] = '\0';
  }
  if (SWM_IsDirExist(buf) != 1) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Invalid backup area path, path:%s.", buf);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t GetHardwarePackage(const char *envPrefix, uint32_t n, char *path, uint32_t len) {
  char envName[kEnvNameLen] = {};
  const int formatted = sprintf_s(envName, sizeof(envName), "%s%u", envPrefix, n);
  if (formatted < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:sprintf_s failed, ret = %d, env = %s%u.", formatted,
                       kHardwarePackageEnv, n);
    return static_cast<uint32_t>(formatted);
  }
  const uint32_t ret = drv_env_get(envName, path, len, 0);
  if (ret != 0) {
    BOOT_INIT_LogWrite(
        BOOT_INIT_LOG_TYPE_MAIN,
        "[BOOT_INIT][INFO]:Get hardware package full path from drv, ret = 0x%x, num = "
        "%u, filePath = %s.",
        ret, n, path);
    return BOOT_INIT_ERROR;
  }
  if (BOOT_InitIsCCFullNameValid(path, BOOT_INIT_PKG_KIND_HARDWARE) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Hardware package path checked failed, num = %u, "
                       "filePath = %s.",
                       n, path);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// Where the backup copy of a package lies: the backup partition and the package's own name.
uint32_t GetBackupPackage(const char *packagePath, char *out, uint32_t outLen) {
  char copy[kPathLen] = {};
  if (strcpy_s(copy, sizeof(copy), packagePath) != EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_STRCPY_FAILED,
                       "BOOT_INIT_GetBackupPackage");
  }
  const char *name = ::basename(copy);
  if (BOOT_INIT_IsIncludeInvalidChar(name, static_cast<uint32_t>(std::strlen(name))) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:package name include invalid char");
    return BOOT_INIT_ERROR;
  }
  char backup[kBackupPartitionLen] = {};
  if (BOOT_InitGetBackupPartition(backup, sizeof(backup)) != BOOT_INIT_OK) {
    return BOOT_INIT_ERROR;
  }
  if (snprintf_s(out, outLen, outLen - 1u, "%s/%s", backup, name) < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BOOT_INIT_GetBackupPackage");
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::board

using namespace bootinit::board;

extern "C" {

uint32_t BOOT_InitIsCCFileNameValid(const char *name, uint32_t kind) {
  return name == nullptr ? 0u : IsCCFileNameValid(name, kind);
}

uint32_t BOOT_InitIsCCFullNameValid(const char *path, uint32_t kind) {
  return IsCCFullNameValid(path, kind);
}

uint32_t BOOT_INIT_StubGetCCPackage(char *path, uint32_t len) {
  return path == nullptr ? BOOT_INIT_ERROR : StubPackage("cc", path, len);
}

uint32_t BOOT_INIT_StubGetLastPackage(char *path, uint32_t len) {
  return path == nullptr ? BOOT_INIT_ERROR : StubPackage("last_cc", path, len);
}

uint32_t BOOT_InitGetCCPackage(char *path, uint32_t len) {
  return path == nullptr || len == 0 ? BOOT_INIT_ERROR : GetCCPackage(path, len);
}

uint32_t BOOT_INIT_GetLastPackage(char *path, uint32_t len) {
  if (path == nullptr || len == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:param error");
    return BOOT_INIT_ERROR;
  }
  return GetLastPackage(path, len);
}

uint32_t BOOT_InitGetBackupPartition(char *buf, uint32_t len) {
  return buf == nullptr || len == 0 ? BOOT_INIT_ERROR : GetBackupPartition(buf, len);
}

uint32_t BOOT_InitGetHardwarePackage(const char *envPrefix, uint32_t n, char *path, uint32_t len) {
  if (envPrefix == nullptr || path == nullptr || len == 0) {
    return BOOT_INIT_ERROR;
  }
  return GetHardwarePackage(envPrefix, n, path, len);
}

uint32_t BOOT_INIT_GetBackupPackage(const char *packagePath, char *out, uint32_t outLen) {
  if (packagePath == nullptr || out == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:param error");
    return BOOT_INIT_ERROR;
  }
  return GetBackupPackage(packagePath, out, outLen);
}

}  // extern "C"
