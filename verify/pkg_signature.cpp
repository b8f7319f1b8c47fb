// The package's own signature: which of the two schemes the package carries (PSS preferred), the
// extraction of the scheme's signature files into the staging directory, the platform's CMS
// check of the extracted list, and the placement of the list's digests into the file index.
#include <array>
#include <cstdint>

#include "bootinit/base.h"
#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "bootinit/package.h"
#include "bootinit/verify.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "swm.h"
#include "tkal.h"
#include "verify/pkg_support.hpp"

namespace bootinit::pkg {
namespace {

constexpr const char *kCheckFailed = "[BOOT_INIT][ERROR]:res is FALSE when check res.";

// The files of one scheme in a directory, each "dir/name" in 384 bytes.
struct SchemePaths {
  PathText list = {};
  PathText cms = {};
  PathText crl = {};
};

// "dir/name", emptied rather than cut when it does not fit: the existence check that follows
// then fails instead of looking at another file.
bool FormPath(PathText &out, const char *dir, const char *name) {
  if (dir != nullptr && FormatInto(out, "%s/%s", dir, name)) {
    return true;
  }
  out[0] = '\0';
  return false;
}

bool Exists(const PathText &path) { return TKAL_IsFileExist(path.data()) == 1; }

// ---- PSS ----

uint32_t VerifyPssFiles(const char *dir) {
  SchemePaths paths;
  if (!FormPath(paths.list, dir, BOOT_SIG_PSS_FILELIST) ||
      !FormPath(paths.cms, dir, BOOT_SIG_PSS_CMS)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:sprintf filelist failed");
    return BOOT_INIT_ERROR;
  }
  if (!Exists(paths.list)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kCheckFailed);
    return BOOT_INIT_ERR_FILE_NOT_EXIST;
  }
  if (!Exists(paths.cms)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kCheckFailed);
    return BOOT_INIT_ERR_SIGNATURE_NOT_EXIST;
  }
  const uint32_t ret = SWM_VerifyPssCms(paths.list.data(), paths.cms.data());
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                       "[BOOT_INIT][SECURITY]verify pss signature %s failed, result = %u.",
                       paths.list.data(), ret);
  } else {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                       "[BOOT_INIT][SECURITY]verify pss signature %s success.", paths.list.data());
  }
  return ret;
}

uint32_t VerifyPss(const char *pkgPath) {
  for (const char *name : {BOOT_SIG_PSS_FILELIST, BOOT_SIG_PSS_CMS}) {
    const uint32_t ret = BootFileExistCheck(name);
    if (ret != BOOT_INIT_OK) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:pss file %s is not exsit, ret=%u.", name, ret);
      return BOOT_INIT_ERROR;
    }
  }
  for (const char *name : {BOOT_SIG_PSS_FILELIST, BOOT_SIG_PSS_CMS}) {
    const uint32_t ret = BOOT_INIT_ExtractFileByFileName(name, pkgPath, BOOT_PKG_STAGING_DIR);
    if (ret != BOOT_INIT_OK) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:Extract file %s failed, ret=%u.", name, ret);
      return BOOT_INIT_ERROR;
    }
  }
  const uint32_t ret = VerifyPssFiles(BOOT_PKG_STAGING_DIR);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Verify pss signature failed, ret=%u.", ret);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// ---- classic ----

// A path that does not fit is only logged; it is left empty, so its existence check fails.
void FormClassicPath(PathText &out, const char *dir, const char *name) {
  if (!FormPath(out, dir, name)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BootVerifyDigitalSignatureFile");
  }
}

uint32_t CheckClassicFilesExist(const SchemePaths &paths) {
  uint32_t ret = BOOT_INIT_OK;
  if (!Exists(paths.list)) {
    ret = BOOT_INIT_ERR_FILE_NOT_EXIST;
  } else if (!Exists(paths.cms)) {
    ret = BOOT_INIT_ERR_SIGNATURE_NOT_EXIST;
  } else if (!Exists(paths.crl)) {
    ret = BOOT_INIT_ERR_CRL_NOT_EXIST;
  }
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kCheckFailed);
  }
  return ret;
}

uint32_t VerifyClassicFiles(const char *dir) {
  SchemePaths paths;
  FormClassicPath(paths.list, dir, BOOT_SIG_FILELIST);
  FormClassicPath(paths.cms, dir, BOOT_SIG_CMS);
  FormClassicPath(paths.crl, dir, BOOT_SIG_CRL);
  uint32_t ret = CheckClassicFilesExist(paths);
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  ret = SWM_VerifyCms(paths.list.data(), paths.cms.data(), paths.crl.data());
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                       "[BOOT_INIT][SECURITY]verify signature failed, result = %u, source file:%s.",
                       ret, paths.list.data());
  } else {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                       "[BOOT_INIT][SECURITY]verify signature success, source file:%s.",
                       paths.list.data());
  }
  return ret;
}

// Whichever of the three files fails to come out, the message names the list: the boot
// scripts match this exact line.
uint32_t VerifyClassic(const char *pkgPath) {
  for (const char *name : {BOOT_SIG_FILELIST, BOOT_SIG_CMS, BOOT_SIG_CRL}) {
    if (BOOT_INIT_ExtractFileByFileName(name, pkgPath, BOOT_PKG_STAGING_DIR) != BOOT_INIT_OK) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Extract file %s failed.",
                         BOOT_SIG_FILELIST);
      return BOOT_INIT_ERROR;
    }
  }
  if (VerifyClassicFiles(BOOT_PKG_STAGING_DIR) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Verify signature failed");
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// ---- the choice, the check and the digests ----

// Presence is what the file index holds. Exactly one of the two PSS files is a damaged package.
uint32_t HasNewCmsSignatureFile(uint32_t *isPss) {
  const bool list = BootFileExistCheck(BOOT_SIG_PSS_FILELIST) == BOOT_INIT_OK;
  const bool cms = BootFileExistCheck(BOOT_SIG_PSS_CMS) == BOOT_INIT_OK;
  if (list != cms) {
    return BOOT_INIT_ERROR;
  }
  *isPss = list ? 1U : 0U;
  return BOOT_INIT_OK;
}

uint32_t VerifyDigitalSignature(const char *pkgPath) {
  uint32_t isPss = 0;
  if (HasNewCmsSignatureFile(&isPss) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Boot new cms file not integrity.");
    return BOOT_INIT_ERROR;
  }
  PathText listPath = {};
  (void)FormPath(listPath, BOOT_PKG_STAGING_DIR,
                 isPss == 1 ? BOOT_SIG_PSS_FILELIST : BOOT_SIG_FILELIST);
  uint32_t ret = isPss == 1 ? VerifyPss(pkgPath) : VerifyClassic(pkgPath);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Boot verify signature failed, sigFile=%s, ret=%u.",
                       listPath.data(), ret);
    return BOOT_INIT_ERROR;
  }
  ret = BOOT_ReadSignatureFileList(listPath.data());
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Read file %s failed, ret=%u",
                       listPath.data(), ret);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

}  // namespace
}  // namespace bootinit::pkg

using namespace bootinit::pkg;

extern "C" {

uint32_t BootVerifyDigitalSignature(const char *pkgPath) { return VerifyDigitalSignature(pkgPath); }

uint32_t BootHasNewCmsSignatureFile(uint32_t *isPss) {
  if (AnyNull({isPss})) {
    return BOOT_INIT_ERROR;
  }
  return HasNewCmsSignatureFile(isPss);
}

uint32_t BootVerifyPssDigitalSignature(const char *pkgPath) { return VerifyPss(pkgPath); }

uint32_t BootVerifyPssDigitalSignatureFile(const char *dir) { return VerifyPssFiles(dir); }

uint32_t BootVerifyDigitalSignatureOldImpl(const char *pkgPath) { return VerifyClassic(pkgPath); }

uint32_t BootVerifyDigitalSignatureFile(const char *dir) { return VerifyClassicFiles(dir); }

}  // extern "C"
