// Screening of byte strings: terminators within a length, and shell-dangerous characters.
#include <cstring>

#include "bootinit/common.h"
#include "bootinit/log.h"

namespace bootinit::text {
namespace {

// Exactly these 19 characters. A strchr lookup of NUL finds this literal's terminator, so a
// NUL inside the checked length counts as dangerous too; callers pass the exact length.
constexpr const char *kDangerousChars = "|;&$<>()[]`\\\"'~?*!\n";

}  // namespace
}  // namespace bootinit::text

extern "C" {

uint32_t BOOT_INIT_IsContainsEndCharacter(const char *buf, int32_t len) {
  if (buf == nullptr || len < 1) {
    return 0;
  }
  return std::memchr(buf, '\0', static_cast<std::size_t>(len)) != nullptr ? 1u : 0u;
}

uint32_t BOOT_INIT_IsIncludeInvalidChar(const char *str, uint32_t len) {
  if (str == nullptr || len == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:param error");
    return 1;
  }
  for (uint32_t i = 0; i < len; ++i) {
    if (std::strchr(bootinit::text::kDangerousChars, str[i]) != nullptr) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                         "[BOOT_INIT][ERROR]:str include invalid character");
      return 1;
    }
  }
  return 0;
}

}  // extern "C"
