// Extraction by name and the signed-file list it proves against: the list of the package the
// board runs now stays loaded between calls (its signature files stay in the staging
// directory for later steps); the list of any other package is extracted into /tmp, checked,
// loaded for one extraction and removed again.
#include <cstdint>
#include <span>

#include "bootinit/common.h"
#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "bootinit/package.h"
#include "bootinit/verify.h"
#include "common/support/fixed_text.hpp"
#include "extract/extract_support.hpp"
#include "swm.h"
#include "tkal.h"

namespace {

BOOT_INIT_DLL_HEAD_S g_signedFilesHead = {
    {&g_signedFilesHead.links, &g_signedFilesHead.links}, nullptr, 0};

}  // namespace

extern "C" BOOT_INIT_DLL_HEAD_S *const g_signedFiles = &g_signedFilesHead;

namespace bootinit::extract {
namespace {

// The signature files of a package other than the current one, removed after every load.
constexpr const char *kTmpSignatureFiles[] = {"/tmp/" BOOT_SIG_FILELIST, "/tmp/" BOOT_SIG_CMS,
                                              "/tmp/" BOOT_SIG_CRL, "/tmp/" BOOT_SIG_PSS_FILELIST,
                                              "/tmp/" BOOT_SIG_PSS_CMS};

void FreeSignedFiles() { BOOT_InitDllFreeAll(g_signedFiles, BOOT_INIT_ReleaseNode); }

bool Exists(const PathText &path) { return TKAL_IsFileExist(path.data()) == 1; }

// A signature file needs no list to come out, and its directory is not made here: the staging
// directory is the verification's and /tmp the system's, and without them nothing is loaded.
uint32_t Extract(const char *name, const char *package, const char *dir) {
  return ExtractFileInner(package, name, dir);
}

// The PSS pair when the package has its list, else the three classic files, each attempted
// whatever became of the one before.
uint32_t ExtractSignatures(const char *package, const char *dir) {
  if (Extract(BOOT_SIG_PSS_FILELIST, package, dir) == BOOT_INIT_OK) {
    return Extract(BOOT_SIG_PSS_CMS, package, dir);
  }
  uint32_t ret = Extract(BOOT_SIG_FILELIST, package, dir);
  ret |= Extract(BOOT_SIG_CMS, package, dir);
  ret |= Extract(BOOT_SIG_CRL, package, dir);
  return ret;
}

// The staging directory keeps the current package's signature files: when one of the lists is
// there already it is used again (it is checked against its signature all the same).
uint32_t CurrPackageSignatures(const char *package, const char *dir) {
  PathText pss = {};
  PathText classic = {};
  if (!JoinPath(pss, dir, BOOT_SIG_PSS_FILELIST)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get signature pss file list failed.");
    return BOOT_INIT_ERROR;
  }
  if (!JoinPath(classic, dir, BOOT_SIG_FILELIST)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get signature file list failed.");
    return BOOT_INIT_ERROR;
  }
  if (Exists(pss) || Exists(classic)) {
    return BOOT_INIT_OK;
  }
  const uint32_t ret = ExtractSignatures(package, dir);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Extract curr package signature file list failed, "
                       "package:%s, path:%s.",
                       package, dir);
  }
  return ret;
}

uint32_t InputPackageSignatures(const char *package, const char *dir) {
  const uint32_t ret = ExtractSignatures(package, dir);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Extract input package signature file list failed, "
                       "package:%s, path:%s.",
                       package, dir);
  }
  return ret;
}

// The PSS list when it is there, else the classic one; pathBuf names the chosen list.
// A path that does not fit is emptied, never left cut.
void Empty(std::span<char> pathBuf) {
  if (!pathBuf.empty()) {
    pathBuf[0] = '\0';
  }
}

uint32_t ChooseAndVerify(const char *dir, std::span<char> pathBuf) {
  if (!FormatInto(pathBuf, "%s/%s", dir, BOOT_SIG_PSS_FILELIST)) {
    Empty(pathBuf);
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get signature pss file list and verify failed, "
                       "path:%s.",
                       dir);
    return BOOT_INIT_ERROR;
  }
  if (TKAL_IsFileExist(pathBuf.data()) == 1) {
    return BootVerifyPssDigitalSignatureFile(dir);
  }
  if (!FormatInto(pathBuf, "%s/%s", dir, BOOT_SIG_FILELIST)) {
    Empty(pathBuf);
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get signature file list and verify failed, path:%s.",
                       dir);
    return BOOT_INIT_ERROR;
  }
  return BootVerifyDigitalSignatureFile(dir);
}

void CleanSignatures(const char *dir) {
  if (SWM_IsStringEqual(dir, BOOT_EXTRACT_TMP_DIR) == 0) {
    return;  // the staging directory's copies serve later runs
  }
  for (const char *path : kTmpSignatureFiles) {
    if (TKAL_IsFileExist(path) == 1 || TKAL_IsSymLink(path) == 1) {
      (void)TKAL_DelFile(path);
    }
  }
}

// Replaces the records by those of the verified list at listPath.
uint32_t LoadList(const char *listPath, const char *dir) {
  FreeSignedFiles();
  if (BOOT_INIT_GetDigestInfoFromSignatureFileList(listPath, g_signedFiles) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:GetSignedFiles: get signed files failed");
    FreeSignedFiles();
    CleanSignatures(dir);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t SignedFiles(const char *package, uint32_t &freeAfter) {
  PathText current = {};
  uint32_t ret = SWM_GetCCPackage(current.data(), BOOT_EXTRACT_PATH_LEN);
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get current cc package failed.");
    return ret;
  }
  const bool isCurrent = SWM_IsStringEqual(package, current.data()) != 0;
  if (isCurrent && g_signedFiles->count != 0) {
    return BOOT_INIT_OK;  // loaded by an earlier call
  }
  const char *dir = isCurrent ? BOOT_PKG_STAGING_DIR : BOOT_EXTRACT_TMP_DIR;
  ret = isCurrent ? CurrPackageSignatures(package, dir) : InputPackageSignatures(package, dir);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:get signature failed");
    CleanSignatures(dir);
    return BOOT_INIT_ERROR;
  }
  PathText listPath = {};
  ret = ChooseAndVerify(dir, listPath);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:get signature file list and verify cms failed(%u), sig "
                       "path:%s.",
                       ret, listPath.data());
    CleanSignatures(dir);
    return ret;
  }
  ret = LoadList(listPath.data(), dir);
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  CleanSignatures(dir);
  freeAfter = isCurrent ? 0U : 1U;
  return BOOT_INIT_OK;
}

uint32_t ExtractByName(const char *fileName, const char *package, const char *destDir) {
  if (TKAL_IsFileExist(package) != 1) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kCheckFailed);
    return BOOT_INIT_ERR_FILE_NOT_EXIST;
  }
  if (MakeDestDir(destDir) != SWM_OK) {
    return BOOT_INIT_ERROR;
  }
  uint32_t freeAfter = 0;
  // The signature files come out unchecked: loading the list would need them first.
  if (IsSignature(fileName) == 0 && SignedFiles(package, freeAfter) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:get signed files failed");
    return BOOT_INIT_ERROR;
  }
  const uint32_t ret = ExtractFileInner(package, fileName, destDir);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:extract file %s from %s to %s not ok.", fileName,
                       package, destDir);
  }
  if (freeAfter == 1) {
    FreeSignedFiles();
  }
  return ret;
}

}  // namespace
}  // namespace bootinit::extract

using namespace bootinit::extract;

extern "C" {

const BOOT_INIT_SIG_FILE_DIGEST_NODE_S *GetSignedFile(const char *name) {
  if (name == nullptr) {
    return nullptr;
  }
  for (const BOOT_INIT_DLL_NODE_S *node = g_signedFiles->links.next;
       node != nullptr && node != &g_signedFiles->links; node = node->next) {
    const auto *record = reinterpret_cast<const BOOT_INIT_SIG_FILE_DIGEST_NODE_S *>(node);
    if (SWM_IsStringEqual(record->fileName, name) != 0) {
      return record;
    }
  }
  return nullptr;
}

uint32_t GetSignedFiles(const char *package, uint32_t *freeAfter) {
  if (package == nullptr || freeAfter == nullptr) {
    return BOOT_INIT_ERROR;
  }
  return SignedFiles(package, *freeAfter);
}

uint32_t ExtractSignatureFilelist(const char *package, const char *dir) {
  return ExtractSignatures(package, dir);
}

uint32_t GetCurrPackageSignatureFilelist(const char *package, const char *dir) {
  if (package == nullptr || dir == nullptr) {
    return BOOT_INIT_ERROR;
  }
  return CurrPackageSignatures(package, dir);
}

uint32_t GetInputPackageSignatureFilelist(const char *package, const char *dir) {
  return InputPackageSignatures(package, dir);
}

uint32_t GetSigFilelistAndVerifyCms(const char *dir, char *pathBuf, uint32_t pathLen) {
  if (dir == nullptr || pathBuf == nullptr) {
    return BOOT_INIT_ERROR;
  }
  return ChooseAndVerify(dir, std::span<char>(pathBuf, pathLen));
}

void CleanExtractedSigFilelist(const char *dir) { CleanSignatures(dir); }

uint32_t BOOT_INIT_ExtractFileByFileName(const char *fileName, const char *packagePath,
                                         const char *destDir) {
  if (fileName == nullptr || packagePath == nullptr || destDir == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kNullParam3);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  return ExtractByName(fileName, packagePath, destDir);
}

}  // extern "C"
