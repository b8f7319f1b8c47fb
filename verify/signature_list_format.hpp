// The text format of a signature file list, shared by its two readers: the list reader of the
// file checks (signature_list.cpp) and the reader that places a package's digests into its
// file index (pkg_digests.cpp). Names, the creator, number reading and the profile owner are
// spelled here once.
#ifndef BOOTINIT_VERIFY_SIGNATURE_LIST_FORMAT_HPP
#define BOOTINIT_VERIFY_SIGNATURE_LIST_FORMAT_HPP

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "swm.h"

namespace bootinit::siglistformat {

inline constexpr const char *kMainSection = "[MAIN FILE INFO]";
inline constexpr const char *kCreatorKey = "Create By";
inline constexpr const char *kCreator = "Velmor Technology Inc.";
inline constexpr const char *kFileCountKey = "FILENUM";
inline constexpr const char *kNameKey = "FILENAME";
inline constexpr const char *kTypeKey = "FILETYPE";
inline constexpr const char *kDigestKey = "SHA256-DIGEST";
inline constexpr uint32_t kMinFileCount = 1;
inline constexpr uint32_t kMaxFileCount = 256;

// strtoul with base 0 (decimal, 0x hexadecimal, leading-0 octal; what follows the number is
// ignored) as the board's 32-bit unsigned long reads it: a value beyond 32 bits, and so any
// negative number but zero, reads as 0xFFFFFFFF rather than as its low 32 bits, which could
// fall back into range.
inline uint32_t ParseNumber(const char *text) {
  const unsigned long long value = std::strtoull(text, nullptr, 0);
  return value > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
}

struct ProfileDeleter {
  void operator()(SWM_INI_SECTION_S *profile) const { SWM_FreeProfile(profile); }
};
// A profile of the platform's INI reader, released with SWM_FreeProfile.
using Profile = std::unique_ptr<SWM_INI_SECTION_S, ProfileDeleter>;

}  // namespace bootinit::siglistformat

#endif  // BOOTINIT_VERIFY_SIGNATURE_LIST_FORMAT_HPP
