// The attributes a copied, backed-up or installed file takes over from the file it comes from
// or replaces: owner, mode, file-system flags and security label.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "common/support/messages.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::attr {
namespace {

// SWM_Chown's first argument: follow a symbolic link and change its target. The record was
// taken with stat (which follows links) and mode, label and flags are set on the target as
// well, so the owner goes there too; giving a link itself an owner is LinkAttr's task.
constexpr int kChownFollowLinks = 1;

// The caller's record may come from anywhere: its context is used only up to its last byte.
void TerminatedContext(const BOOT_INIT_FILE_ATTR_S &record, char (&out)[BOOT_INIT_CONTEXT_LEN]) {
  std::memcpy(out, record.context, BOOT_INIT_CONTEXT_LEN - 1);
  out[BOOT_INIT_CONTEXT_LEN - 1] = '\0';
}

}  // namespace

uint32_t GetAttr(const char *path, BOOT_INIT_FILE_ATTR_S *record) {
  uint32_t flags = 0;
  uint32_t fatal = 1;
  struct stat info {};
  if (::stat(path, &info) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:stat %s failed, errno:%d", path,
                       errno);
    return BOOT_INIT_ERROR;
  }
  // A file system without flags clears fatal: the file then simply has none.
  if (BOOT_INIT_GetFileFlags(path, &flags, &fatal) != BOOT_INIT_OK && fatal == 1) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:file %s, get flags failed",
                       path);
    return BOOT_INIT_ERROR;
  }
  if (BOOT_INIT_GetSecurityContext(path, record->context, BOOT_INIT_CONTEXT_LEN) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file:%s, get context info failed", path);
    return BOOT_INIT_ERROR;
  }
  record->uid = info.st_uid;
  record->gid = info.st_gid;
  record->mode = info.st_mode;
  record->flags = flags;
  return BOOT_INIT_OK;
}

uint32_t SetAttr(const char *path, const BOOT_INIT_FILE_ATTR_S &record) {
  if (TKAL_IsFileExist(path) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:file %s not exists", path);
    return BOOT_INIT_ERROR;
  }
  if (SWM_Chown(kChownFollowLinks, path, record.uid, record.gid) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file:%s, change own failed, errno:%d", path, errno);
    return BOOT_INIT_ERROR;
  }
  // After the owner: a change of owner clears the set-id bits that the mode may carry.
  if (SWM_FchmodPath(path, record.mode) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file:%s, change mod failed, errno:%d", path, errno);
    return BOOT_INIT_ERROR;
  }
  char context[BOOT_INIT_CONTEXT_LEN] = {};
  TerminatedContext(record, context);
  if (BOOT_INIT_SetSecurityContext(path, context) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file %s, set security context failed", path);
    return BOOT_INIT_ERROR;
  }
  if (record.flags == 0) {
    return BOOT_INIT_OK;
  }
  uint32_t fatal = 1;
  if (BOOT_INIT_SetFileFlags(path, record.flags, &fatal) != BOOT_INIT_OK && fatal == 1) {
    // "get" in the text of the set step: the line is kept as log readers know it.
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:file %s, get flags failed",
                       path);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t CopyAttr(const char *srcPath, const char *dstPath) {
  BOOT_INIT_FILE_ATTR_S record{};
  if (GetAttr(srcPath, &record) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:file %s, get attr failed",
                       srcPath);
    return BOOT_INIT_ERROR;
  }
  if (SetAttr(dstPath, record) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:file %s, set attr failed",
                       dstPath);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t LinkAttr(const char *srcPath, const char *dstPath) {
  struct stat info {};
  if (::stat(srcPath, &info) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:stat %s failed, errno:%d",
                       srcPath, errno);
    return BOOT_INIT_ERROR;
  }
  if (::lchown(dstPath, info.st_uid, info.st_gid) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file:%s, lchown failed, errno:%d", dstPath, errno);
    return BOOT_INIT_ERROR;
  }
  if (BOOT_INIT_LinkSecurityContext(srcPath, dstPath) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:link context from %s to %s failed", srcPath, dstPath);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t BackupFile(const char *srcPath, const char *dstPath) {
  if (SWM_CopyFile(srcPath, dstPath) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:backup file %s to %s failed",
                       srcPath, dstPath);
    return BOOT_INIT_ERROR;
  }
  if (CopyAttr(srcPath, dstPath) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:copy attr failed");
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::attr

using namespace bootinit::attr;

namespace {

bool AnyNull(const void *first, const void *second) {
  if (first != nullptr && second != nullptr) {
    return false;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
  return true;
}

}  // namespace

extern "C" {

uint32_t BOOT_INIT_GetAttr(const char *path, BOOT_INIT_FILE_ATTR_S *record) {
  return AnyNull(path, record) ? BOOT_INIT_ERROR : GetAttr(path, record);
}

uint32_t BOOT_INIT_SetAttr(const char *path, const BOOT_INIT_FILE_ATTR_S *record) {
  return AnyNull(path, record) ? BOOT_INIT_ERROR : SetAttr(path, *record);
}

uint32_t BOOT_INIT_CopyAttr(const char *srcPath, const char *dstPath) {
  return AnyNull(srcPath, dstPath) ? BOOT_INIT_ERROR : CopyAttr(srcPath, dstPath);
}

uint32_t BOOT_INIT_LinkAttr(const char *srcPath, const char *dstPath) {
  return AnyNull(srcPath, dstPath) ? BOOT_INIT_ERROR : LinkAttr(srcPath, dstPath);
}

uint32_t BOOT_INIT_BackupFile(const char *srcPath, const char *dstPath) {
  return AnyNull(srcPath, dstPath) ? BOOT_INIT_ERROR : BackupFile(srcPath, dstPath);
}

}  // extern "C"
