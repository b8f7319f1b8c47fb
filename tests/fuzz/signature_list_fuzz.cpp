// Signature file lists as a delivery might carry them, whatever their bytes. The list reader
// takes a path (the platform's INI reader opens the file three times: two values of the main
// section, then the whole profile), so each input is written as the list file in a directory of
// this process and read through BOOT_INIT_GetDigestInfoFromSignatureFileList, the path every
// verification takes. Its messages go nowhere: the harness never initialises the boot logs.
// The records are checked against the profile the same reader builds from the same bytes in
// memory; a broken property traps.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bootinit/common.h"
#include "bootinit/verify.h"
#include "fuzz_files.hpp"
#include "swm.h"

namespace {

using fuzzfiles::Check;

std::string ListPath() { return fuzzfiles::WorkPath("signature_list.ini"); }

// Bounded and terminated within its field.
bool IsText(const char *field, size_t fieldSize) {
  return ::memchr(field, '\0', fieldSize) != nullptr;
}

const char *FirstValue(const SWM_INI_KEY_S *keys, const char *name) {
  for (const SWM_INI_KEY_S *key = keys; key != nullptr; key = key->next) {
    if (std::strcmp(key->name, name) == 0) {
      return key->value;
    }
  }
  return "";
}

// Every record is complete; after success there is one record a section behind the first,
// in file order, named as its section names it.
void CheckRecords(const uint8_t *data, size_t size, const BOOT_INIT_DLL_HEAD_S &digests,
                  uint32_t result) {
  // An empty input holds no profile (and an empty memory stream cannot be opened).
  FILE *stream = size == 0 ? nullptr : ::fmemopen(const_cast<uint8_t *>(data), size, "r");
  Check(size == 0 || stream != nullptr);
  SWM_INI_SECTION_S *profile = stream == nullptr ? nullptr : SWM_IniLoadProfile(stream);
  if (stream != nullptr) {
    (void)std::fclose(stream);
  }
  Check(result != BOOT_INIT_OK || profile != nullptr);
  const SWM_INI_SECTION_S *section = profile == nullptr ? nullptr : profile->next;
  uint32_t count = 0;
  const BOOT_INIT_DLL_NODE_S *prev = &digests.links;
  for (const BOOT_INIT_DLL_NODE_S *node = digests.links.next; node != &digests.links;
       node = node->next) {
    Check(node->prev == prev);
    const auto *record = reinterpret_cast<const BOOT_INIT_SIG_FILE_DIGEST_NODE_S *>(node);
    Check(record->valid == 1 && record->fileType != 0);
    Check(IsText(record->fileName, sizeof(record->fileName)) && record->fileName[0] != '\0');
    Check(IsText(record->digest, sizeof(record->digest)) && record->digest[0] != '\0');
    Check(section != nullptr);
    Check(std::strcmp(record->fileName, FirstValue(section->keys, "FILENAME")) == 0);
    Check(std::strcmp(record->digest, FirstValue(section->keys, "SHA256-DIGEST")) == 0);
    section = section->next;
    prev = node;
    ++count;
  }
  Check(digests.links.prev == prev && digests.count == count);
  Check(result != BOOT_INIT_OK || (count > 0 && section == nullptr));
  SWM_FreeProfile(profile);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzzfiles::WriteFile(ListPath(), data, size);
  BOOT_INIT_DLL_HEAD_S digests = {};
  digests.links.next = digests.links.prev = &digests.links;
  const uint32_t result =
      BOOT_INIT_GetDigestInfoFromSignatureFileList(ListPath().c_str(), &digests);
  // Main-section failures (0xFFFFFFFF, or the reader's code for the file count: not found, too
  // long, no memory), a bad file section (1), no memory for a record.
  Check(result == BOOT_INIT_OK || result == BOOT_INIT_ERROR || result == BOOT_INIT_ERR_GENERAL ||
        result == SWM_ERR_NOT_FOUND || result == SWM_ERR_TOO_LONG || result == SWM_ERR_NOMEM ||
        result == BOOT_INIT_ERR_NO_MEMORY);
  // Only a failing file section leaves records of the sections before it.
  Check(digests.count == 0 || result == BOOT_INIT_OK || result == BOOT_INIT_ERR_GENERAL ||
        result == BOOT_INIT_ERR_NO_MEMORY);
  CheckRecords(data, size, digests, result);
  BOOT_InitDllFreeAll(&digests, BOOT_INIT_ReleaseNode);
  return 0;
}
