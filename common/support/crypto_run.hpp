// One digest run over the crypto library opened at run time: the handle lives here and the
// library is closed when the run ends, on every path.
#pragma once

#include <dlfcn.h>

#include <cstddef>
#include <cstdint>

#include "bootinit/common.h"
#include "bootinit/log.h"

namespace bootinit {

class CryptoRun {
 public:
  CryptoRun() = default;
  CryptoRun(const CryptoRun &) = delete;
  CryptoRun &operator=(const CryptoRun &) = delete;
  ~CryptoRun() {
    if (handle_.handle != nullptr) {
      (void)::dlclose(handle_.handle);
    }
  }

  [[nodiscard]] bool Load() {
    if (BOOT_INIT_LoadCryptoSymbols(&handle_) != BOOT_INIT_OK) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:load crypto symbols failed");
      return false;
    }
    return true;
  }

  // The results of the library's calls are not looked at: on valid arguments they cannot fail.
  void Init() { (void)handle_.init(&handle_.ctx); }
  void Update(const unsigned char *data, std::size_t len) {
    (void)handle_.update(&handle_.ctx, data, len);
  }
  void Final(uint8_t *digest) { (void)handle_.final(digest, &handle_.ctx); }

  // The handle itself, for a caller that zeroes it explicitly before loading.
  [[nodiscard]] BOOT_INIT_CRYPTO_HANDLE_S &handle() { return handle_; }

 private:
  BOOT_INIT_CRYPTO_HANDLE_S handle_{};
};

}  // namespace bootinit
