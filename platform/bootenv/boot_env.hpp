// The boot environment session shared by libdrv (its environment entry points) and libswm (the
// package the board runs now): both read the environment the same way.
#ifndef BOOTENV_BOOT_ENV_HPP
#define BOOTENV_BOOT_ENV_HPP

#include <cstdint>

struct uboot_ctx;

namespace bootenv {

// The boot environment as libubootenv keeps it: configuration /etc/fw_env.config, storage the
// image (or the two images of a redundant environment) named there. One session per call:
// nothing is cached between calls, so other writers (fw_setenv, other processes) are seen.
class EnvSession {
 public:
  // Where the variables of an opened session came from.
  enum class Origin {
    kStored,   // a valid stored copy
    kDefault,  // no valid stored copy; the default environment file (/etc/u-boot-initial-env)
    kNone,     // no valid stored copy and no default environment: nothing to read
  };

  EnvSession() = default;
  ~EnvSession();
  EnvSession(const EnvSession &) = delete;
  EnvSession &operator=(const EnvSession &) = delete;

  // Reads the configuration and loads the variables. false when the configuration is missing
  // or wrong (a storage file named there that does not exist included).
  bool Open();
  Origin origin() const { return origin_; }

  // What Get found.
  enum class Value {
    kCopied,    // the value and its terminator are in buf
    kNotFound,  // the variable is not set
    kTooLong,   // it does not fit buf[bufLen] with its terminator; buf is then ""
  };

  // The value of name into buf[bufLen] (bufLen > 0). A value is never cut: a cut value could
  // name another file.
  Value Get(const char *name, char *buf, uint32_t bufLen) const;
  // Sets name (NULL value: removes it) in memory. false when libubootenv refuses.
  bool Set(const char *name, const char *value);
  // Writes the variables to the storage (the other copy for a redundant environment).
  bool Store();

 private:
  uboot_ctx *ctx_ = nullptr;
  bool loaded_ = false;
  Origin origin_ = Origin::kNone;
};

}  // namespace bootenv

#endif  // BOOTENV_BOOT_ENV_HPP
