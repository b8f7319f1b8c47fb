// Name predicates of the extraction and the guard for texts bound for a shell command line.
#include <cstdint>

#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "common/support/messages.hpp"
#include "swm.h"

namespace bootinit::extract {
namespace {

// The five files that make up a signature file list and its signature.
constexpr const char *kSignatureFiles[] = {BOOT_SIG_FILELIST,     BOOT_SIG_CMS,     BOOT_SIG_CRL,
                                           BOOT_SIG_PSS_FILELIST, BOOT_SIG_PSS_CMS, nullptr};
// The hardware-type description and its signature files. The ".pss.cms" form is not one of
// them on purpose: it is extracted and proven like any other file.
constexpr const char *kHardTypeInfoFiles[] = {"hardtype_info.txt", "hardtype_info.txt.cms",
                                              "hardtype_info.txt.crl", nullptr};

// Characters that change the meaning of a shell command line, in the order they are looked for.
constexpr char kForbidden[] = {'|', ';',  '&', '$',  '<', '>', '(', ')', '[', ']',
                               '`', '\\', '"', '\'', '~', '?', '*', '!', '\n'};

bool IsForbidden(char c) {
  for (const char forbidden : kForbidden) {
    if (c == forbidden) {
      return true;
    }
  }
  return false;
}

uint32_t CommandFilter(const char *text, uint32_t maxLength) {
  for (uint32_t i = 0; i < maxLength && text[i] != '\0'; ++i) {
    if (IsForbidden(text[i])) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:find illegal char in cmd string, illegal char:%c.",
                         text[i]);
      return BOOT_INIT_ERROR;
    }
  }
  return BOOT_INIT_OK;
}

}  // namespace
}  // namespace bootinit::extract

extern "C" {

uint32_t MatchFile(const char *name, const char *const *names) {
  if (name == nullptr || names == nullptr) {
    return 0;
  }
  for (const char *const *candidate = names; *candidate != nullptr; ++candidate) {
    if (SWM_IsStringEqual(name, *candidate) != 0) {
      return 1;
    }
  }
  return 0;
}

uint32_t IsSignature(const char *name) {
  return MatchFile(name, bootinit::extract::kSignatureFiles);
}

uint32_t IsHardTypeInfo(const char *name) {
  return MatchFile(name, bootinit::extract::kHardTypeInfoFiles);
}

uint32_t IsFileNameWithBin(const char *name) {
  return SWM_IsPostfixString(name, ".bin") != 0 ? 1 : 0;
}

uint32_t BOOT_INIT_IsExtractTypeValid(uint32_t type) {
  return type <= BOOT_EXTRACT_TYPE_BY_NAME ? 1 : 0;
}

uint32_t BOOT_INIT_SysCmdCommandFilter(const char *text, uint32_t maxLength) {
  if (text == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return bootinit::extract::CommandFilter(text, maxLength);
}

}  // extern "C"
