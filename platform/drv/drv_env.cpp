// Boot environment entry points of libdrv.
#include <cstring>

#include "board_description.hpp"
#include "boot_env.hpp"
#include "drv.h"

namespace {

// U-Boot variable names are non-empty and cannot hold '=', which separates name and value in
// the stored environment.
bool IsVariableName(const char *name) {
  return name != nullptr && name[0] != '\0' && std::strchr(name, '=') == nullptr;
}

uint32_t ReadVariable(const char *name, char *buf, uint32_t bufLen) {
  bootenv::EnvSession env;
  if (!env.Open() || env.origin() == bootenv::EnvSession::Origin::kNone) {
    return DRV_ERR_ENV;  // as fw_printenv: no valid copy and no defaults is an error
  }
  switch (env.Get(name, buf, bufLen)) {
    case bootenv::EnvSession::Value::kCopied:
      return 0;
    case bootenv::EnvSession::Value::kNotFound:
      return DRV_ERR_NOT_FOUND;
    case bootenv::EnvSession::Value::kTooLong:
      break;
  }
  return DRV_ERR_TOO_LONG;
}

#ifndef DRV_MINIMAL_BUILD

// Opens the environment for a change. Without a valid stored copy the change starts from the
// default environment file, or from an empty environment, and its store makes the copy valid.
uint32_t Change(const char *name, const char *value) {
  bootenv::EnvSession env;
  if (!env.Open()) {
    return DRV_ERR_ENV;
  }
  if (name != nullptr && !env.Set(name, value)) {
    return DRV_ERR_ENV;
  }
  return env.Store() ? 0 : DRV_ERR_ENV;
}

#endif  // DRV_MINIMAL_BUILD

}  // namespace

extern "C" uint32_t drv_env_get(const char *name, char *buf, uint32_t bufLen, uint32_t flags) {
  (void)flags;  // reserved
  if (buf != nullptr && bufLen > 0) {
    buf[0] = '\0';  // no failure leaves older text behind
  }
  if (!IsVariableName(name) || buf == nullptr || bufLen == 0) {
    return DRV_ERR_PARAM;
  }
  return boarddesc::ForcedResult("drv_env_get", ReadVariable(name, buf, bufLen));
}

#ifndef DRV_MINIMAL_BUILD

extern "C" uint32_t drv_env_set(const char *name, const char *value) {
  if (!IsVariableName(name)) {
    return DRV_ERR_PARAM;
  }
  // A forced failure fails before anything is written: the stored environment stays as it was.
  const uint32_t forced = boarddesc::ForcedResult("drv_env_set", 0);
  if (forced != 0) {
    return forced;
  }
  // An empty value removes the variable, as "fw_setenv NAME" without a value does
  // (libubootenv itself would keep NAME with an empty value).
  const bool remove = value == nullptr || value[0] == '\0';
  return Change(name, remove ? nullptr : value);
}

extern "C" uint32_t drv_env_save_block(void) {
  const uint32_t forced = boarddesc::ForcedResult("drv_env_save_block", 0);
  if (forced != 0) {
    return forced;
  }
  return Change(nullptr, nullptr);
}

#endif  // DRV_MINIMAL_BUILD
