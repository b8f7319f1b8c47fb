// The package the board runs now, as the boot environment names it. The environment is read
// through the same session code as libdrv's, so both always see the same variables.
#include <cstdint>

#include "boot_env.hpp"
#include "forced.h"
#include "swm.h"

namespace {

// The variable the boot loader starts the main package from.
constexpr const char *kCcPackageEnv = "next_bootfile";

uint32_t ReadCcPackage(char *path, uint32_t len) {
  bootenv::EnvSession env;
  if (!env.Open() || env.origin() == bootenv::EnvSession::Origin::kNone) {
    return SWM_ERR_IO;  // no configuration, no image, or no valid copy and no defaults
  }
  switch (env.Get(kCcPackageEnv, path, len)) {
    case bootenv::EnvSession::Value::kCopied:
      // A variable set to nothing names no package.
      return path[0] == '\0' ? SWM_ERR_NOT_FOUND : SWM_OK;
    case bootenv::EnvSession::Value::kNotFound:
      return SWM_ERR_NOT_FOUND;
    case bootenv::EnvSession::Value::kTooLong:
      break;
  }
  return SWM_ERR_TOO_LONG;
}

}  // namespace

extern "C" uint32_t SWM_GetCCPackage(char *path, uint32_t len) {
  if (path == nullptr || len == 0) {
    return SWM_ERR_PARAM;
  }
  path[0] = '\0';  // no failure leaves older text behind
  return swm::ForcedAfter("SWM_GetCCPackage", ReadCcPackage(path, len));
}
