// Signature file lists: the signed INI file of a delivery that names each of its files with a
// file type and a SHA-256 digest, and verify sub-operation 3 that proves one file against it.
// The list arrives with the delivery, so every value is bounded and checked before it is used.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "bootinit/verify.h"
#include "boundedstr.h"
#include "common/support/c_owners.hpp"
#include "common/support/messages.hpp"
#include "swm.h"
#include "tkal.h"
#include "verify/list_check_support.hpp"
#include "verify/signature_list_format.hpp"

namespace bootinit::siglist {
namespace {

using Record = BOOT_INIT_SIG_FILE_DIGEST_NODE_S;

// The record is shared with callers that allocate and walk it as C structures.
static_assert(offsetof(Record, links) == 0, "a record is its list node");
static_assert(sizeof(Record) <= BOOT_INIT_SIG_DIGEST_NODE_ALLOC, "allocation holds a record");
static_assert(sizeof(Record::fileName) == BOOT_INIT_SIG_FILE_NAME_LEN);
static_assert(sizeof(Record::digest) == BOOT_INIT_SIG_DIGEST_LEN);

using namespace siglistformat;  // the names of the list format

constexpr uint32_t kCreatorLen = 96;
constexpr uint32_t kFileCountLen = 32;
constexpr uint32_t kTypeLen = 32;
constexpr int32_t kSignatureListArgs = 3;

uint32_t CheckCreator(const char *listPath) {
  char creator[kCreatorLen] = {};
  const uint32_t ret = SWM_IniGetValue(listPath, kMainSection, kCreatorKey, creator, kCreatorLen);
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:get Create By description failed, Ret = %u", ret);
    return BOOT_INIT_ERROR;
  }
  if (SWM_IsStringEqual(creator, kCreator) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:vrify create by failed, info = %s", creator);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// The count is only range-checked: the file sections themselves decide what the list holds.
uint32_t CheckFileCount(const char *listPath) {
  char countText[kFileCountLen] = {};
  const uint32_t ret =
      SWM_IniGetValue(listPath, kMainSection, kFileCountKey, countText, kFileCountLen);
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Get value from file[%s] failed",
                       listPath);
    return ret;
  }
  const uint32_t count = ParseNumber(countText);
  if (count < kMinFileCount || count > kMaxFileCount) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:File number(%u) is invalid, NumStr = %s", count,
                       countText);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t ReadDigests(const char *listPath, BOOT_INIT_DLL_HEAD_S *digests) {
  uint32_t ret = CheckCreator(listPath);
  if (ret == BOOT_INIT_OK) {
    ret = CheckFileCount(listPath);
  }
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  ret = BOOT_INIT_AddSigFileDigestInfoToList(digests, listPath);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:[Get DigestInfo from file list failed(%u)", ret);
    return ret;
  }
  if (digests->count == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Can't find digest info in signature file list");
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// The stream is closed as soon as the profile is in memory.
uint32_t LoadProfile(const char *listPath, Profile &profile) {
  FILE *raw = nullptr;
  const uint32_t opened = SWM_Fopen(listPath, "r", &raw);
  if (opened != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:can't open file[%s], uiRet=%u, errno = %d", listPath,
                       opened, errno);
    return opened;
  }
  {
    const FileStream stream(raw);
    profile.reset(SWM_IniLoadProfile(stream.get()));
  }
  if (!profile) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  return BOOT_INIT_OK;
}

// Fills the record's name, type and digest from one file section; 1 when one is missing or bad.
uint32_t FillRecord(const SWM_INI_KEY_S *keys, const char *name, Record *record) {
  if (name[0] == '\0') {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:get digest info, file ame len is 0");
    return BOOT_INIT_ERR_GENERAL;
  }
  const errno_t copied = strcpy_s(record->fileName, sizeof(record->fileName), name);
  if (copied != EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Strcpy_s failed, iRet = %d",
                       static_cast<int>(copied));
    return BOOT_INIT_ERR_GENERAL;
  }
  char typeText[kTypeLen] = {};
  BOOT_INIT_GetOneKeyValueFromKeyList(keys, kTypeKey, typeText, kTypeLen);
  record->fileType = ParseNumber(typeText);
  if (record->fileType == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:File type is error, FileTypeStr = %s", typeText);
    return BOOT_INIT_ERR_GENERAL;
  }
  BOOT_INIT_GetOneKeyValueFromKeyList(keys, kDigestKey, record->digest, sizeof(record->digest));
  if (record->digest[0] == '\0') {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:get digest info, digest len is 0");
    return BOOT_INIT_ERR_GENERAL;
  }
  record->valid = 1;
  return BOOT_INIT_OK;
}

// Appends the record of one file section. A section without any key has no name and fails
// like one with an empty name.
uint32_t AddSectionRecord(const SWM_INI_SECTION_S &section, BOOT_INIT_DLL_HEAD_S *digests) {
  char name[BOOT_INIT_SIG_FILE_NAME_LEN] = {};
  BOOT_INIT_GetOneKeyValueFromKeyList(section.keys, kNameKey, name, sizeof(name));
  MallocPtr<Record> record(static_cast<Record *>(std::calloc(1, BOOT_INIT_SIG_DIGEST_NODE_ALLOC)));
  if (!record) {
    return BOOT_INIT_ERR_NO_MEMORY;
  }
  const uint32_t ret = FillRecord(section.keys, name, record.get());
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  BOOT_InitDllInsertInMiddle(digests, digests->links.prev, &record.release()->links,
                             &digests->links);
  return BOOT_INIT_OK;
}

// The first section is the main one; every later section describes one file, in list order.
// Records appended before a failure stay in the list for the caller to release.
uint32_t AddDigests(BOOT_INIT_DLL_HEAD_S *digests, const char *listPath) {
  Profile profile;
  const uint32_t loaded = LoadProfile(listPath, profile);
  if (loaded != BOOT_INIT_OK) {
    return loaded;
  }
  for (const SWM_INI_SECTION_S *section = profile->next; section != nullptr;
       section = section->next) {
    const uint32_t ret = AddSectionRecord(*section, digests);
    if (ret != BOOT_INIT_OK) {
      return ret;
    }
  }
  return BOOT_INIT_OK;
}

void CopyKeyValue(const SWM_INI_KEY_S *first, const char *key, char *out, uint32_t outSize) {
  for (const SWM_INI_KEY_S *entry = first; entry != nullptr; entry = entry->next) {
    if (SWM_IsStringEqual(entry->name, key) == 0) {
      continue;
    }
    if (strcpy_s(out, outSize, entry->value) != EOK) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_STRCPY_FAILED,
                         "BOOT_INIT_GetOneKeyValueFromKeyList");
    }
    out[outSize - 1] = '\0';
    return;
  }
}

const Record *FindRecord(BOOT_INIT_DLL_HEAD_S *digests, const char *fileName) {
  for (const BOOT_INIT_DLL_NODE_S *node = digests->links.next;
       node != nullptr && node != &digests->links; node = node->next) {
    const auto *record = reinterpret_cast<const Record *>(node);
    if (SWM_IsStringEqual(record->fileName, fileName) != 0) {
      return record;
    }
  }
  return nullptr;
}

uint32_t VerifyFileHash(const char *filePath, const char *fileName, BOOT_INIT_DLL_HEAD_S *digests) {
  const Record *record = FindRecord(digests, fileName);
  if (record == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Can not find specific file:%s",
                       fileName);
    return BOOT_INIT_ERR_GENERAL;
  }
  listcheck::DigestText actual = {};
  const uint32_t ret = listcheck::FileDigestText(filePath, actual);
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  // Whole texts are compared: the list must carry the lowercase text of the digest.
  if (SWM_IsStringEqual(actual.data(), record->digest) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Verify file %s hash value failed.", filePath);
    return BOOT_INIT_ERR_GENERAL;
  }
  return BOOT_INIT_OK;
}

// The success line follows a failure as well: the boot scripts look for it to know that the
// check ran to its end, and the failure line before it carries the verdict.
void ReportSpecificFile(const char *filePath, uint32_t ret) {
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:verify specific file failed, result = %u", ret);
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                       "[BOOT_INIT][SECURITY]verify specific file failed, file = %s, result = %u",
                       filePath, ret);
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                     "[BOOT_INIT][SECURITY]verify specific file success, file = %s", filePath);
}

uint32_t VerifyFileInList(const char *dir, const char *fileName, const char *listPath) {
  if (TKAL_IsFileExist(listPath) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, listcheck::kFileMissing);
    return BOOT_INIT_ERR_FILE_NOT_EXIST;
  }
  listcheck::OwnedList digests;
  const uint32_t read = BOOT_INIT_GetDigestInfoFromSignatureFileList(listPath, digests.get());
  if (read != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get Digest Info from signature file list failed(0x%x)",
                       read);
    return read;
  }
  listcheck::PathText filePath = {};
  listcheck::JoinPath(filePath, dir, fileName, "BOOT_INIT_VerifyFileInSignatureFileList");
  const uint32_t ret = VerifyFileHash(filePath.data(), fileName, digests.get());
  ReportSpecificFile(filePath.data(), ret);
  return ret;
}

}  // namespace
}  // namespace bootinit::siglist

using namespace bootinit::siglist;

extern "C" {

uint32_t BOOT_INIT_GetDigestInfoFromSignatureFileList(const char *listPath,
                                                      BOOT_INIT_DLL_HEAD_S *digests) {
  if (listPath == nullptr || digests == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_PARAM;
  }
  return ReadDigests(listPath, digests);
}

uint32_t BOOT_INIT_AddSigFileDigestInfoToList(BOOT_INIT_DLL_HEAD_S *digests, const char *listPath) {
  if (digests == nullptr || listPath == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_PARAM;
  }
  return AddDigests(digests, listPath);
}

void BOOT_INIT_GetOneKeyValueFromKeyList(const struct SwmIniKey *first, const char *key, char *out,
                                         uint32_t outSize) {
  if (key == nullptr || out == nullptr || outSize == 0) {
    return;
  }
  CopyKeyValue(first, key, out, outSize);
}

uint32_t BOOT_INIT_VerifySpecificFileHashValue(const char *filePath, const char *fileName,
                                               BOOT_INIT_DLL_HEAD_S *digests) {
  if (filePath == nullptr || fileName == nullptr || digests == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_PARAM;
  }
  return VerifyFileHash(filePath, fileName, digests);
}

uint32_t BOOT_INIT_VerifyFileInSignatureFileList(int32_t argc, char **argv) {
  if (argc != kSignatureListArgs || argv == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:verify specific file, para count is invalid, iArgc = %d",
                       argc);
    return BOOT_INIT_ERR_PARAM;
  }
  return VerifyFileInList(argv[0], argv[1], argv[2]);
}

}  // extern "C"
