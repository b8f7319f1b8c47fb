// Stand-ins for the system crypto library, built as libcrypto.so each in a directory of its own;
// a test links one into its board's /etc/bootsim/lib under the name the digest code looks for.
// None of them pins itself in memory, so a test can see from /proc/self/maps that the digest
// code closed it again.
//
//  CRYPTO_STAND_IN_NONE       no SHA-256 entry point at all
//  CRYPTO_STAND_IN_PARTIAL    SHA256_Init and SHA256_Update, but no SHA256_Final
//  CRYPTO_STAND_IN_RECORDING  all three; each call appends one line to /tmp/crypto_calls:
//                             "init", "update <length>", "final" (with " other state" when the
//                             state differs from the one init got). The digest written by
//                             final is the total length hashed, 8 bytes little-endian, four
//                             times over.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#define STAND_IN_API extern "C" __attribute__((visibility("default")))

#ifdef CRYPTO_STAND_IN_NONE

// A library needs something to export; this is not a SHA-256 entry point.
STAND_IN_API int crypto_stand_in_version(void) { return 1; }

#else

namespace {

constexpr std::size_t kStateSize = 112;  // the crypto library's SHA256_CTX
const void *g_initState = nullptr;

void Record(const char *call, const void *state, const char *detail = "") {
  if (FILE *calls = std::fopen("/tmp/crypto_calls", "a"); calls != nullptr) {
    std::fprintf(calls, "%s%s%s\n", call, detail, state == g_initState ? "" : " other state");
    std::fclose(calls);
  }
}

}  // namespace

STAND_IN_API int SHA256_Init(void *state) {
  std::memset(state, 0, kStateSize);
  g_initState = state;
  Record("init", state);
  return 1;
}

STAND_IN_API int SHA256_Update(void *state, const void *, size_t length) {
  std::uint64_t total = 0;
  std::memcpy(&total, state, sizeof(total));
  total += length;
  std::memcpy(state, &total, sizeof(total));
  char detail[32] = {};
  std::snprintf(detail, sizeof(detail), " %zu", length);
  Record("update", state, detail);
  return 1;
}

#ifdef CRYPTO_STAND_IN_RECORDING
STAND_IN_API int SHA256_Final(unsigned char *digest, void *state) {
  for (std::size_t i = 0; i < 32; i += sizeof(std::uint64_t)) {
    std::memcpy(digest + i, state, sizeof(std::uint64_t));
  }
  Record("final", state);
  return 1;
}
#endif

#endif
