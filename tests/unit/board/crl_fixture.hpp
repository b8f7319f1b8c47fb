// Common ground of the CRL tests (flash storage, signature checks, the CRL refresh): the test
// PKI of the build, the board's two CRL flash areas as the real driver keeps them, CRL and
// signature files made with the openssl tool inside the board.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "board_facts.hpp"
#include "drv.h"

#ifndef TEST_PKI_DIR
#error "TEST_PKI_DIR must name the build's test PKI directory"
#endif

namespace crltest {

inline constexpr uint32_t kCrlMaxLen = 0x1FFFC;
inline const std::string kPkiDir = TEST_PKI_DIR;
inline const std::string kFlashDir = "/etc/bootsim/flash";
inline const std::string kClassicArea = kFlashDir + "/crl";
inline const std::string kPssArea = kFlashDir + "/pss_crl";
inline const std::string kKernelCrl = "/dev/module_crl";

inline std::string Pki(const std::string &name) { return kPkiDir + "/" + name; }
inline std::string PkiBytes(const std::string &name) { return testsupport::ReadFile(Pki(name)); }

enum class Area { kClassic, kPss };

// What the area holds, as the driver reads it; nullopt when the driver reports no CRL.
inline std::optional<std::string> AreaContent(Area area) {
  std::vector<uint8_t> buf(kCrlMaxLen);
  uint32_t len = 0;
  const uint32_t ret = area == Area::kPss ? drv_pss_crl_read(buf.data(), kCrlMaxLen, &len)
                                          : drv_crl_read(buf.data(), kCrlMaxLen, &len);
  if (ret != 0) {
    return std::nullopt;
  }
  return std::string(reinterpret_cast<const char *>(buf.data()), len);
}

// Stores bytes in the area through the driver.
inline void StoreInArea(Area area, const std::string &bytes) {
  const auto *data = reinterpret_cast<const uint8_t *>(bytes.data());
  const auto len = static_cast<uint32_t>(bytes.size());
  const uint32_t ret = area == Area::kPss ? drv_pss_crl_write(data, len) : drv_crl_write(data, len);
  ASSERT_EQ(ret, 0u) << "storing " << bytes.size() << " bytes";
}

// The area erased: its image holds a CRL of length 0 (a 32-bit little-endian length, then
// erased flash bytes 0xFF up to the area's 131072 bytes).
inline void EraseArea(Area area) {
  testsupport::WriteFile(area == Area::kPss ? kPssArea : kClassicArea,
                         std::string(4, '\0') + std::string(kCrlMaxLen, '\xFF'));
}

// Both areas as never written: the driver reports no CRL in either.
inline void ForgetFlash() {
  testsupport::RemovePath(kClassicArea);
  testsupport::RemovePath(kPssArea);
}

// Runs a shell command inside the board; its exit status must be 0.
inline void Run(const std::string &command) {
  const int status = std::system((command + " >/dev/null 2>&1").c_str());
  ASSERT_EQ(status, 0) << command;
}

// A CRL of the PKI in PEM form with comment lines before it, so that the file has exactly size
// bytes (the PEM readers skip everything before the armour).
inline void WritePaddedPemCrl(const std::string &path, const std::string &pkiCrl,
                              std::size_t size) {
  const std::string pem = path + ".pem";
  Run("openssl crl -inform DER -in " + Pki(pkiCrl) + " -outform PEM -out " + pem);
  const std::string armour = testsupport::ReadFile(pem);
  testsupport::RemovePath(pem);
  ASSERT_LT(armour.size() + 2, size);
  std::string padding(size - armour.size(), '#');
  padding.back() = '\n';
  testsupport::WriteFile(path, padding + armour);
}

// A detached DER CMS signature of file by a signer of the PKI, RSASSA-PSS when pss is set.
inline void Sign(const std::string &file, const std::string &signature, const std::string &signer,
                 bool pss = false) {
  Run("openssl cms -sign -binary -outform DER -md sha256 -signer " + Pki(signer + ".pem") +
      " -inkey " + Pki(signer + ".key") + (pss ? " -keyopt rsa_padding_mode:pss" : "") + " -in " +
      file + " -out " + signature);
}

}  // namespace crltest
