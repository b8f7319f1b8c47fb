// The root CA certificate built into the library: the only trust anchor of the local CMS
// verifier. Its bytes come from the build (see cmake/RootCertificate.cmake).
#ifndef BOOTINIT_VERIFY_ROOT_CERT_HPP
#define BOOTINIT_VERIFY_ROOT_CERT_HPP

#include <cstdint>
#include <span>

#include "bootinit/verify.h"

namespace bootinit::verify {

std::span<const uint8_t, BOOT_INIT_ROOT_CERT_LEN> RootCertificate();

}  // namespace bootinit::verify

#endif  // BOOTINIT_VERIFY_ROOT_CERT_HPP
