// The system's result codes as a scoped enum, and the funnel that turns them into the fixed
// unsigned values of the C interface.
#pragma once

#include <cstdint>

#include "bootinit/base.h"

namespace bootinit {

enum class Code : std::uint32_t {
  kOk = BOOT_INIT_OK,
  kError = BOOT_INIT_ERROR,
  kGeneral = BOOT_INIT_ERR_GENERAL,
  kParam = BOOT_INIT_ERR_PARAM,
  kNullPtr = BOOT_INIT_ERR_NULL_PTR,
  kFileNotExist = BOOT_INIT_ERR_FILE_NOT_EXIST,
  kNoMemory = BOOT_INIT_ERR_NO_MEMORY,
  kNotInPackage = BOOT_INIT_ERR_NOT_IN_PACKAGE,
  kOpenFile = BOOT_INIT_ERR_OPEN_FILE,
};

[[nodiscard]] constexpr std::uint32_t ToResult(Code code) {
  return static_cast<std::uint32_t>(code);
}

}  // namespace bootinit
