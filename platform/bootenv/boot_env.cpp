// The boot environment through libubootenv, one session per call of libdrv or libswm.
#include <cstdlib>
#include <cstring>
#include <memory>

// libuboot.h uses size_t without declaring it, so <cstddef> has to come first.
// clang-format off
#include <cstddef>
#include <libuboot.h>
// clang-format on

#include "boot_env.hpp"

namespace bootenv {

namespace {

// Both names are those fw_printenv and fw_setenv use when run without options, so the tools
// and this library always see the same variables.
constexpr const char *kEnvConfigFile = "/etc/fw_env.config";
constexpr const char *kDefaultEnvFile = "/etc/u-boot-initial-env";

struct FreeDeleter {
  void operator()(char *text) const { std::free(text); }
};

}  // namespace

EnvSession::~EnvSession() {
  if (ctx_ != nullptr) {
    if (loaded_) {
      libuboot_close(ctx_);
    }
    libuboot_exit(ctx_);
  }
}

bool EnvSession::Open() {
  if (libuboot_initialize(&ctx_, nullptr) != 0 || ctx_ == nullptr) {
    ctx_ = nullptr;
    return false;
  }
  // Fails for a missing or malformed configuration and for a storage file that does not exist.
  if (libuboot_read_config(ctx_, kEnvConfigFile) != 0) {
    return false;
  }
  loaded_ = true;  // from here on libuboot_close releases whatever was read
  if (libuboot_open(ctx_) == 0) {
    origin_ = Origin::kStored;
    return true;
  }
  // No copy with a valid checksum (a fresh zero-filled image, a short or damaged one): like the
  // tools, fall back to the default environment file when there is one.
  origin_ = libuboot_load_file(ctx_, kDefaultEnvFile) == 0 ? Origin::kDefault : Origin::kNone;
  return true;
}

EnvSession::Value EnvSession::Get(const char *name, char *buf, uint32_t bufLen) const {
  const std::unique_ptr<char, FreeDeleter> value(libuboot_get_env(ctx_, name));
  if (value == nullptr) {
    return Value::kNotFound;
  }
  const size_t len = std::strlen(value.get());
  if (len >= bufLen) {
    buf[0] = '\0';
    return Value::kTooLong;
  }
  std::memcpy(buf, value.get(), len + 1);
  return Value::kCopied;
}

bool EnvSession::Set(const char *name, const char *value) {
  return libuboot_set_env(ctx_, name, value) == 0;
}

bool EnvSession::Store() { return libuboot_env_store(ctx_) == 0; }

}  // namespace bootenv
