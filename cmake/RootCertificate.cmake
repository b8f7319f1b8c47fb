# The root certificate that package signatures must chain to is built into the library.
# BOOTINIT_ROOT_CERT names its DER file (a product build passes the device maker's root CA);
# left empty, the build makes a throwaway test PKI (tools/bootpkg/bootpkg pki) and builds its
# root in. The test PKI is made in every build, since the tests sign with its keys; its private
# keys live in the build directory only.
set(BOOTINIT_ROOT_CERT "" CACHE FILEPATH
    "DER root certificate (1363 bytes) built into the library; empty: the test PKI's root")
set(BOOTINIT_TEST_PKI_DIR ${CMAKE_BINARY_DIR}/pki)
set(BOOTINIT_ROOT_CERT_LEN 1363)

set(test_pki_files root_ca.der root_ca.pem classic_signer.pem pss_signer.pem revoked_signer.pem
    expired_signer.pem foreign_root.pem foreign_signer.pem crl_empty.der crl_revoking.der
    crl_older.der crl_newer.der crl_tie_early.der crl_tie_late.der crl_pss_empty.der
    crl_pss_revoking.der crl_foreign.der)
list(TRANSFORM test_pki_files PREPEND ${BOOTINIT_TEST_PKI_DIR}/ OUTPUT_VARIABLE test_pki_outputs)
file(GLOB bootpkg_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/bootpkg/bootpkg_lib/*.py)
add_custom_command(
  OUTPUT ${test_pki_outputs}
  COMMAND ${PROJECT_SOURCE_DIR}/tools/bootpkg/bootpkg pki --out ${BOOTINIT_TEST_PKI_DIR}
  DEPENDS ${PROJECT_SOURCE_DIR}/tools/bootpkg/bootpkg ${bootpkg_sources}
  COMMENT "Making the throwaway test PKI in ${BOOTINIT_TEST_PKI_DIR}"
  VERBATIM)
# Everything that needs the PKI depends on this target, never on its files directly, so the
# PKI is made once even in a parallel build.
add_custom_target(test_pki ALL DEPENDS ${test_pki_outputs})

if(BOOTINIT_ROOT_CERT)
  if(NOT EXISTS ${BOOTINIT_ROOT_CERT})
    message(FATAL_ERROR "BOOTINIT_ROOT_CERT: no such file: ${BOOTINIT_ROOT_CERT}")
  endif()
  file(SIZE ${BOOTINIT_ROOT_CERT} root_cert_size)
  if(NOT root_cert_size EQUAL BOOTINIT_ROOT_CERT_LEN)
    message(FATAL_ERROR "BOOTINIT_ROOT_CERT: ${BOOTINIT_ROOT_CERT} has ${root_cert_size} bytes; "
                        "the root certificate must be a DER file of ${BOOTINIT_ROOT_CERT_LEN}")
  endif()
  set(root_cert_der ${BOOTINIT_ROOT_CERT})
else()
  set(root_cert_der ${BOOTINIT_TEST_PKI_DIR}/root_ca.der)
endif()

set(BOOTINIT_ROOT_CERT_SOURCE ${CMAKE_BINARY_DIR}/generated/root_cert.cpp)
add_custom_command(
  OUTPUT ${BOOTINIT_ROOT_CERT_SOURCE}
  COMMAND ${CMAKE_COMMAND} -DDER=${root_cert_der} -DOUT=${BOOTINIT_ROOT_CERT_SOURCE}
          -DLEN=${BOOTINIT_ROOT_CERT_LEN} -P ${PROJECT_SOURCE_DIR}/cmake/EmbedRootCert.cmake
  DEPENDS ${root_cert_der} ${PROJECT_SOURCE_DIR}/cmake/EmbedRootCert.cmake
  COMMENT "Building the root certificate ${root_cert_der} in"
  VERBATIM)
