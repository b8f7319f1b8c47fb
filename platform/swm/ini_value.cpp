// Single-value lookup in an INI file.
#include <cstring>

#include "boundedstr.h"
#include "ini_internal.h"
#include "owners.h"
#include "swm.h"

namespace {

// First section named exactly name (brackets included), or NULL.
const SWM_INI_SECTION_S *FindSection(const SWM_INI_SECTION_S *section, const char *name) {
  for (; section != nullptr; section = section->next) {
    if (std::strcmp(section->name, name) == 0) {
      return section;
    }
  }
  return nullptr;
}

// First key named exactly name in a section, or NULL: later duplicates never override it.
const SWM_INI_KEY_S *FindKey(const SWM_INI_KEY_S *key, const char *name) {
  for (; key != nullptr; key = key->next) {
    if (std::strcmp(key->name, name) == 0) {
      return key;
    }
  }
  return nullptr;
}

struct ProfileDeleter {
  void operator()(SWM_INI_SECTION_S *profile) const { SWM_FreeProfile(profile); }
};

uint32_t CopyValue(const char *found, char *value, uint32_t valueLen) {
  const size_t len = std::strlen(found);
  if (len >= valueLen) {
    return SWM_ERR_TOO_LONG;  // a cut value could name a different file or hash
  }
  return strcpy_s(value, valueLen, found) == EOK ? SWM_OK : SWM_ERR_TOO_LONG;
}

}  // namespace

extern "C" uint32_t SWM_IniGetValue(const char *file, const char *section, const char *key,
                                    char *value, uint32_t valueLen) {
  if (value != nullptr && valueLen > 0) {
    value[0] = '\0';  // no failure leaves an older value behind for a careless caller
  }
  if (file == nullptr || section == nullptr || key == nullptr || value == nullptr ||
      valueLen == 0) {
    return SWM_ERR_PARAM;
  }
  FILE *opened = nullptr;
  if (SWM_Fopen(file, "r", &opened) != SWM_OK) {
    return SWM_ERR_IO;
  }
  const swm::UniqueFile stream(opened);
  SWM_INI_SECTION_S *loaded = nullptr;
  const uint32_t status = swm::LoadProfile(stream.get(), &loaded);
  const std::unique_ptr<SWM_INI_SECTION_S, ProfileDeleter> profile(loaded);
  if (status != SWM_OK) {
    return status;
  }
  const SWM_INI_SECTION_S *found = FindSection(profile.get(), section);
  const SWM_INI_KEY_S *entry = found == nullptr ? nullptr : FindKey(found->keys, key);
  if (entry == nullptr) {
    return SWM_ERR_NOT_FOUND;
  }
  const uint32_t copied = CopyValue(entry->value, value, valueLen);
  if (copied != SWM_OK) {
    value[0] = '\0';
  }
  return copied;
}
