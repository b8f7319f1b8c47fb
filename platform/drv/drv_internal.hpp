// The boot environment session of libdrv.
#ifndef DRV_DRV_INTERNAL_HPP
#define DRV_DRV_INTERNAL_HPP

#include <cstdint>

struct uboot_ctx;

namespace drv {

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

  // The value of name: DRV_ERR_NOT_FOUND when unset, DRV_ERR_TOO_LONG when it does not fit
  // buf[bufLen] with its terminator (buf is then ""), else 0.
  uint32_t Get(const char *name, char *buf, uint32_t bufLen) const;
  // Sets name (NULL value: removes it) in memory. false when libubootenv refuses.
  bool Set(const char *name, const char *value);
  // Writes the variables to the storage (the other copy for a redundant environment).
  bool Store();

 private:
  uboot_ctx *ctx_ = nullptr;
  bool loaded_ = false;
  Origin origin_ = Origin::kNone;
};

}  // namespace drv

#endif  // DRV_DRV_INTERNAL_HPP
