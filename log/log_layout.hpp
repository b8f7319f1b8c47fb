// Fixed facts of the three boot log files: names, places, sizes and header layouts.
#pragma once

#include <cstddef>
#include <cstdint>

#include "bootinit/log.h"

namespace bootinit::log {

inline constexpr const char *kMainLogName = "app_boot.log";
inline constexpr const char *kSafeLogName = "boot_security.log";
inline constexpr const char *kDcSafeLogDir = "/opt/kytv8/var/log";

inline constexpr std::uint64_t kMainLogMaxLen = 0x7FE00;  // 523776
inline constexpr std::uint64_t kSafeLogMaxLen = 0x10000;  // 65536

inline constexpr std::size_t kLengthHeaderSize = 8;  // types 0 and 1: the 64-bit text length
inline constexpr std::size_t kDcHeaderSize = 12;     // type 2

// Where the text of each type begins. Type 1 keeps two bytes between header and text that
// its readers skip; they are never written.
[[nodiscard]] constexpr std::uint64_t TextStart(std::int32_t logType) {
  switch (logType) {
    case BOOT_INIT_LOG_TYPE_SAFE:
      return 10;
    case BOOT_INIT_LOG_TYPE_DC_SAFE:
      return kDcHeaderSize;
    default:
      return kLengthHeaderSize;
  }
}

// Owner and modes of everything the log creates.
inline constexpr const char *kLogAccount = "swm";
inline constexpr unsigned kUnknownAccountId = 2000;
inline constexpr unsigned kLogDirMode = 0750;
inline constexpr unsigned kLogFileMode = 0640;

// Working buffer sizes of one write.
inline constexpr std::size_t kTimeBufLen = 128;
inline constexpr std::size_t kLineBufLen = 1023;
inline constexpr std::size_t kPathBufLen = 384;

static_assert(sizeof(BOOT_INIT_LOG_INFO_S) == 404);
static_assert(offsetof(BOOT_INIT_LOG_INFO_S, curLen) == 8);
static_assert(offsetof(BOOT_INIT_LOG_INFO_S, dir) == 16);
static_assert(offsetof(BOOT_INIT_LOG_INFO_S, fileName) == 272);
static_assert(offsetof(BOOT_INIT_LOG_INFO_S, reserved) == 400);
static_assert(sizeof(BOOT_INIT_DC_LOG_HEADER_S) == kDcHeaderSize);
static_assert(offsetof(BOOT_INIT_DC_LOG_HEADER_S, wrapLen) == 8);

}  // namespace bootinit::log
