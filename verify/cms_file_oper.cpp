// Verify sub-operation 0: the signature check of one file of a directory by the platform's
// CMS service, classic with a CRL file, or PSS against the kernel's CRL when none is given.
#include <array>
#include <cstdint>
#include <cstdlib>

#include "bootinit/log.h"
#include "bootinit/verify.h"
#include "common/support/fixed_text.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::cms {
namespace {

constexpr int32_t kArgsWithoutCrl = 3;
constexpr int32_t kArgsWithCrl = 4;
constexpr std::size_t kPathLen = 384;
using PathText = std::array<char, kPathLen>;

constexpr const char *kCheckFailed = "[BOOT_INIT][ERROR]:res is FALSE when check res.";

// The files of one request, each "directory/name".
struct CmsFiles {
  PathText source = {};
  PathText signature = {};
  PathText crl = {};
  bool withCrl = false;
};

bool FormPaths(int32_t argc, char **argv, CmsFiles &files) {
  const char *dir = argv[0];
  files.withCrl = argc == kArgsWithCrl;
  bool formed = FormatInto(files.source, "%s/%s", dir, argv[1]) &&
                FormatInto(files.signature, "%s/%s", dir, argv[2]);
  if (formed && files.withCrl) {
    formed = FormatInto(files.crl, "%s/%s", dir, argv[3]);
  }
  if (!formed) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:BOOT_INIT_VerifyCmsFile: sprintf failed");
  }
  return formed;
}

// Each missing file has its own code; the CRL file is looked for only when one was named.
uint32_t CheckFilesExist(const CmsFiles &files) {
  uint32_t ret = BOOT_INIT_OK;
  if (TKAL_IsFileExist(files.source.data()) == 0) {
    ret = BOOT_INIT_ERR_FILE_NOT_EXIST;
  } else if (TKAL_IsFileExist(files.signature.data()) == 0) {
    ret = BOOT_INIT_ERR_SIGNATURE_NOT_EXIST;
  } else if (files.withCrl && TKAL_IsFileExist(files.crl.data()) == 0) {
    ret = BOOT_INIT_ERR_CRL_NOT_EXIST;
  }
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kCheckFailed);
  }
  return ret;
}

uint32_t CheckSignature(const CmsFiles &files) {
  const uint32_t ret =
      files.withCrl ? SWM_VerifyCms(files.source.data(), files.signature.data(), files.crl.data())
                    : SWM_VerifyPssCms(files.source.data(), files.signature.data());
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                       "[BOOT_INIT][SECURITY]verify signature failed, result = %u, source file:%s.",
                       ret, files.source.data());
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:verify signature failed");
    return ret;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                     "[BOOT_INIT][SECURITY]verify signature success, source file:%s.",
                     files.source.data());
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:verify signature success");
  return BOOT_INIT_OK;
}

uint32_t VerifyCmsFile(int32_t argc, char **argv) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Receive verify cms request");
  if ((argc != kArgsWithoutCrl && argc != kArgsWithCrl) || argv == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:verify cms, para count is invalid, argc = %d",
                       static_cast<int>(argc));
    return BOOT_INIT_ERR_PARAM;
  }
  if (TKAL_IsDirExist(argv[0]) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kCheckFailed);
    return BOOT_INIT_ERR_DIR_NOT_EXIST;
  }
  CmsFiles files;
  if (!FormPaths(argc, argv, files)) {
    return BOOT_INIT_ERROR;
  }
  const uint32_t ret = CheckFilesExist(files);
  return ret != BOOT_INIT_OK ? ret : CheckSignature(files);
}

}  // namespace
}  // namespace bootinit::cms

extern "C" {

uint32_t BOOT_INIT_VerifyCmsFile(int32_t argc, char **argv) {
  return bootinit::cms::VerifyCmsFile(argc, argv);
}

void BOOT_INIT_ReleaseNode(void *p) {
  if (p != nullptr) {
    std::free(p);
  }
}

uint32_t BOOT_INIT_IsFastFlash(void) { return 0; }

}  // extern "C"
