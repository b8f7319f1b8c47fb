# cmake -DDER=file.der -DOUT=root_cert.cpp -DLEN=n -P EmbedRootCert.cmake
# Writes the definition of bootinit::verify::RootCertificate() holding the bytes of DER.
file(SIZE ${DER} size)
if(NOT size EQUAL LEN)
  message(FATAL_ERROR "${DER} has ${size} bytes; the root certificate must have ${LEN}")
endif()
file(READ ${DER} hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1, " bytes "${hex}")
# Twelve bytes ("0x30, " each) to a line.
string(LENGTH "${bytes}" bytes_len)
set(lines "")
foreach(start RANGE 0 ${bytes_len} 72)
  string(SUBSTRING "${bytes}" ${start} 72 line)
  string(STRIP "${line}" line)
  if(line)
    string(APPEND lines "    ${line}\n")
  endif()
endforeach()
file(WRITE ${OUT}.new
"// Generated from ${DER} by cmake/EmbedRootCert.cmake; do not edit.
#include \"verify/root_cert.hpp\"

#include <array>

namespace bootinit::verify {
namespace {

constexpr std::array<uint8_t, ${LEN}> kRootCertificate = {
${lines}};

}  // namespace

std::span<const uint8_t, BOOT_INIT_ROOT_CERT_LEN> RootCertificate() { return kRootCertificate; }

}  // namespace bootinit::verify
")
file(RENAME ${OUT}.new ${OUT})
