// The digests of a package's signature file list placed into its file index. The list is read a
// second way here, tolerant of section order: the main section wherever it stands, then every
// file section writes its digest into the node of the file it names. The list has been proven
// by its signature before it gets here; its values are still bounded before they are kept.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bootinit/log.h"
#include "bootinit/package.h"
#include "boundedstr.h"
#include "common/support/c_owners.hpp"
#include "common/support/messages.hpp"
#include "swm.h"
#include "verify/signature_list_format.hpp"

namespace bootinit::pkg {
namespace {

using Key = SWM_INI_KEY_S;
using Section = SWM_INI_SECTION_S;

using namespace siglistformat;  // the names of the list format

static_assert(kMaxFileCount == BOOT_PKG_MAX_FILES);
constexpr uint32_t kAllSeen =
    BOOT_PKG_SEEN_FILETYPE | BOOT_PKG_SEEN_FILENAME | BOOT_PKG_SEEN_DIGEST;

bool IsKey(const Key &key, const char *name) { return SWM_IsStringEqual(key.name, name) != 0; }

// Only what the section holds is checked: a main section without one of its keys passes here,
// since the list reader of the signature check already required both.
uint32_t VerifySignatureFileMainInfo(const Key *first) {
  bool creatorSeen = false;
  bool countSeen = false;
  for (const Key *key = first; key != nullptr && !(creatorSeen && countSeen); key = key->next) {
    if (IsKey(*key, kCreatorKey)) {
      creatorSeen = true;
      if (SWM_IsStringEqual(key->value, kCreator) == 0) {
        BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                           "[BOOT_INIT][ERROR]:Verify key create by(%s) failed.", key->value);
        return BOOT_INIT_ERROR;
      }
    } else if (IsKey(*key, kFileCountKey)) {
      countSeen = true;
      const uint32_t count = ParseNumber(key->value);
      if (count < kMinFileCount || count > kMaxFileCount) {
        BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                           "[BOOT_INIT][ERROR]:File number(%u) is invalid, NumStr = %s.", count,
                           key->value);
        return BOOT_INIT_ERROR;
      }
    }
  }
  return BOOT_INIT_OK;
}

// What one file section has told so far.
struct FileSection {
  uint32_t seen = 0;
  uint32_t type = 0;
  char name[BOOT_PKG_BIN_NAME_LEN] = {};
};

enum class KeyOutcome : uint8_t { kGoOn, kSectionDone, kFailed };

KeyOutcome ReadName(const Key &key, FileSection &section) {
  if (key.value[0] == '\0') {
    return KeyOutcome::kFailed;
  }
  if (BootFileInBlackList(key.value) == 1) {
    return KeyOutcome::kSectionDone;  // an exempt file: nothing of it is kept
  }
  section.seen |= BOOT_PKG_SEEN_FILENAME;
  // A bounded copy: the name a record can have holds at most 95 characters.
  (void)strncpy_s(section.name, sizeof(section.name), key.value, sizeof(section.name) - 1);
  return KeyOutcome::kGoOn;
}

KeyOutcome ReadDigest(const Key &key, FileSection &section) {
  if (key.value[0] == '\0') {
    return KeyOutcome::kFailed;
  }
  section.seen |= BOOT_PKG_SEEN_DIGEST;
  return BootUpdateFileDigest(section.name, section.type, key.value, section.seen) == BOOT_INIT_OK
             ? KeyOutcome::kGoOn
             : KeyOutcome::kFailed;
}

KeyOutcome ReadKey(const Key &key, FileSection &section) {
  if (IsKey(key, kTypeKey)) {
    section.seen |= BOOT_PKG_SEEN_FILETYPE;
    section.type = ParseNumber(key.value);
    return KeyOutcome::kGoOn;
  }
  if (IsKey(key, kNameKey)) {
    return ReadName(key, section);
  }
  if (IsKey(key, kDigestKey)) {
    return ReadDigest(key, section);
  }
  return KeyOutcome::kGoOn;
}

// Keys count in file order; once type, name and digest were all met, the rest is not read.
uint32_t GetOneFileHashValue(const Key *first) {
  FileSection section;
  for (const Key *key = first; key != nullptr && section.seen != kAllSeen; key = key->next) {
    switch (ReadKey(*key, section)) {
      case KeyOutcome::kGoOn:
        break;
      case KeyOutcome::kSectionDone:
        return BOOT_INIT_OK;
      case KeyOutcome::kFailed:
        return BOOT_INIT_ERROR;
    }
  }
  return BOOT_INIT_OK;
}

uint32_t GetFilesHashValue(const Section *first) {
  for (const Section *section = first; section != nullptr; section = section->next) {
    uint32_t ret = BOOT_INIT_OK;
    if (SWM_IsStringEqual(section->name, kMainSection) != 0) {
      ret = VerifySignatureFileMainInfo(section->keys);
    } else if (section->keys != nullptr) {
      ret = GetOneFileHashValue(section->keys);
    }
    if (ret != BOOT_INIT_OK) {
      return ret;
    }
  }
  return BOOT_INIT_OK;
}

// The stream is closed as soon as the profile is in memory.
uint32_t ReadSignatureFileList(const char *listPath) {
  FILE *raw = nullptr;
  if (SWM_Fopen(listPath, "r", &raw) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Open file %s failed, errno=%d.",
                       listPath, errno);
    return BOOT_INIT_ERROR;
  }
  Profile profile;
  {
    const FileStream stream(raw);
    profile.reset(SWM_IniLoadProfile(stream.get()));
  }
  if (!profile) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Read file %s failed.",
                       listPath);
    return BOOT_INIT_ERROR;
  }
  const uint32_t ret = GetFilesHashValue(profile.get());
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get files hash value from %s failed.", listPath);
  }
  return ret;
}

}  // namespace
}  // namespace bootinit::pkg

extern "C" uint32_t BOOT_ReadSignatureFileList(const char *listPath) {
  if (listPath == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return bootinit::pkg::ReadSignatureFileList(listPath);
}
