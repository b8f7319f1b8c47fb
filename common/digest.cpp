// SHA-256 digests of whole files and of byte ranges of open descriptors, and their comparison
// with expected digest texts. The hashing itself is the system crypto library's: it is opened
// for each digest run and closed before the run returns, so nothing of it is linked in and
// nothing of it outlives a call.
#include <dlfcn.h>
#include <openssl/sha.h>  // the state layout only; nothing of the crypto library is linked
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <span>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "boundedstr.h"
#include "common/support/c_owners.hpp"
#include "common/support/crypto_run.hpp"
#include "common/support/dl_library.hpp"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "common/support/unique_fd.hpp"
#include "swm.h"
#include "tkal.h"

static_assert(sizeof(BOOT_INIT_SHA256_STATE_S) == sizeof(SHA256_CTX),
              "the hashing state is handed to the crypto library as its SHA256_CTX");
static_assert(BOOT_INIT_SHA256_LEN == SHA256_DIGEST_LENGTH);

namespace bootinit::digest {

uint32_t LoadCryptoSymbols(BOOT_INIT_CRYPTO_HANDLE_S &handle);

namespace {

constexpr const char *kCryptoLibrary = "libcrypto.so";
// The run-time name of older releases, for systems without the development name.
constexpr const char *kCryptoLibraryBackup = "libcrypto.so.1.0.0";
constexpr std::size_t kLibraryNameLen = 384;

// One buffer of this size per run, whatever the file size: memory stays constant.
constexpr std::size_t kReadChunk = 32768;

constexpr uint32_t kIntact = 0;
constexpr uint32_t kDamaged = 1;

using InitFunc = int (*)(BOOT_INIT_SHA256_STATE_S *);
using UpdateFunc = int (*)(BOOT_INIT_SHA256_STATE_S *, const void *, size_t);
using FinalFunc = int (*)(unsigned char *, BOOT_INIT_SHA256_STATE_S *);

using ReadBuffer = MallocPtr<unsigned char>;

void WarnMemset(void *dest, std::size_t size, const char *function, int line) {
  if (memset_s(dest, size, 0, size) != EOK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_MEMSET_FAILED, function, line);
  }
}

// Puts name into nameBuf and opens it; library stays empty when dlopen fails (its reason is
// then in dlerror). A formatting failure is logged and returned: the bounded formatter's only
// failure result, -1, reads as 0xFFFFFFFF.
uint32_t OpenByName(const char *name, std::span<char> nameBuf, LibraryHandle &library) {
  if (!FormatInto(nameBuf, "%s", name)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Load crypto, sprintf %s unsuccessfully", name);
    return BOOT_INIT_ERROR;
  }
  library.reset(::dlopen(nameBuf.data(), RTLD_LAZY));
  return BOOT_INIT_OK;
}

// Opens the crypto library under its usual name, else under the backup name. Only a failure of
// both is worth a message: a system without the first name is an ordinary one.
uint32_t OpenCryptoLibrary(std::span<char> nameBuf, LibraryHandle &library) {
  uint32_t ret = OpenByName(kCryptoLibrary, nameBuf, library);
  if (ret != BOOT_INIT_OK || library != nullptr) {
    return ret;
  }
  ret = OpenByName(kCryptoLibraryBackup, nameBuf, library);
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  if (library == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:dlopen backup so %s unsuccessfully, reason:%s",
                       nameBuf.data(), DlLibrary::LastError());
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

// A read buffer of one chunk, zeroed; empty (after the message) when there is no memory.
ReadBuffer NewReadBuffer(const char *function) {
  ReadBuffer buffer(static_cast<unsigned char *>(std::malloc(kReadChunk)));
  if (buffer == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Failed malloc memory!");
    return buffer;
  }
  WarnMemset(buffer.get(), kReadChunk, function, __LINE__);
  return buffer;
}

// The handle is value-initialised as well, so a failed zeroing costs only the warning.
void ZeroHandle(CryptoRun &run, const char *function) {
  WarnMemset(&run.handle(), sizeof(run.handle()), function, __LINE__);
}

void LogInvalidLen(uint32_t digestLen) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:Calculate file hash value, value len(%u) is invalid",
                     digestLen);
}

}  // namespace

uint32_t LoadCryptoSymbols(BOOT_INIT_CRYPTO_HANDLE_S &handle) {
  char name[kLibraryNameLen] = {};
  LibraryHandle library;
  const uint32_t ret = OpenCryptoLibrary(name, library);
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  void *init = ::dlsym(library.get(), "SHA256_Init");
  void *update = ::dlsym(library.get(), "SHA256_Update");
  void *final = ::dlsym(library.get(), "SHA256_Final");
  if (init == nullptr || update == nullptr || final == nullptr) {
    (void)::dlerror();
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:LoadCryptoSymbols,dlsym functions from %s "
                       "unsuccessfully.",
                       name);
    return BOOT_INIT_ERROR;
  }
  handle.init = AsFunction<InitFunc>(init);
  handle.update = AsFunction<UpdateFunc>(update);
  handle.final = AsFunction<FinalFunc>(final);
  handle.handle = library.release();
  return BOOT_INIT_OK;
}

uint32_t Sha256Get(const char *path, uint8_t *digest, uint32_t digestLen) {
  // A shorter length is accepted, yet the whole digest is written: digest holds 32 bytes.
  if (digestLen > BOOT_INIT_SHA256_LEN) {
    LogInvalidLen(digestLen);
    return BOOT_INIT_ERR_PARAM;
  }
  CryptoRun run;
  ZeroHandle(run, "BOOT_INIT_Sha256Get");
  if (!run.Load()) {
    return BOOT_INIT_ERROR;
  }
  int rawFd = -1;
  const uint32_t openRet = SWM_Open(path, 0, &rawFd);
  if (openRet != SWM_OK) {
    const int openErrno = errno;
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:open file %s failed, ret=%u, errno=%d.", path, openRet,
                       openErrno);
    return BOOT_INIT_ERR_OPEN_FILE;
  }
  const UniqueFd fd(rawFd);
  const ReadBuffer buffer = NewReadBuffer("BOOT_INIT_Sha256Get");
  if (buffer == nullptr) {
    return BOOT_INIT_ERR_NO_MEMORY;
  }
  run.Init();
  // A read error ends the file like its end: the digest then covers only what was read, and a
  // comparison with the expected digest fails.
  for (ssize_t got = TKAL_FdRead(fd.get(), buffer.get(), kReadChunk); got > 0;
       got = TKAL_FdRead(fd.get(), buffer.get(), kReadChunk)) {
    run.Update(buffer.get(), static_cast<std::size_t>(got));
  }
  run.Final(digest);
  return BOOT_INIT_OK;
}

uint32_t Sha256GetWithFd(int fd, uint32_t length, uint8_t *digest, uint32_t digestLen) {
  if (digestLen != BOOT_INIT_SHA256_LEN) {
    LogInvalidLen(digestLen);
    return BOOT_INIT_ERR_PARAM;
  }
  CryptoRun run;
  ZeroHandle(run, "BOOT_INIT_Sha256GetWithFd");
  if (!run.Load()) {
    return BOOT_INIT_ERROR;
  }
  const ReadBuffer buffer = NewReadBuffer("BOOT_INIT_Sha256GetWithFd");
  if (buffer == nullptr) {
    return BOOT_INIT_ERR_NO_MEMORY;
  }
  run.Init();
  // Every read must deliver exactly what is asked, so the range must lie within the file. A
  // length of 0 still makes one read, of nothing.
  std::size_t done = 0;
  do {
    const std::size_t chunk = std::min<std::size_t>(length - done, kReadChunk);
    if (TKAL_FdRead(fd, buffer.get(), chunk) != static_cast<ssize_t>(chunk)) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Read file failed");
      return BOOT_INIT_ERROR;
    }
    run.Update(buffer.get(), chunk);
    done += chunk;
  } while (done < length);
  run.Final(digest);
  return BOOT_INIT_OK;
}

void TransHashValueToString(const uint8_t *digest, uint32_t digestLen, char *text,
                            uint32_t textLen) {
  const std::span<char> out(text, textLen);
  for (std::size_t i = 0; i < digestLen && 2 * i < out.size(); ++i) {
    // A pair that does not fit is cut rather than refused: a short buffer gets the text's
    // beginning.
    (void)FormatInto(out.subspan(2 * i), "%02x", static_cast<unsigned int>(digest[i]));
  }
}

uint32_t IsFileDamaged(const char *path, const char *expectedHex) {
  if (SWM_IsSpaceString(path) != 0 || SWM_IsSpaceString(expectedHex) != 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Calculate file hash value, have space string. "
                       "pcFilePath:%s, pcRightShaVal:%s.",
                       path, expectedHex);
    return kDamaged;
  }
  uint8_t digest[BOOT_INIT_SHA256_LEN] = {};
  const uint32_t ret = Sha256Get(path, digest, BOOT_INIT_SHA256_LEN);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Calculate file hash value failed, result = %u", ret);
    return kDamaged;
  }
  char text[BOOT_INIT_SHA256_TEXT_LEN] = {};
  TransHashValueToString(digest, BOOT_INIT_SHA256_LEN, text, BOOT_INIT_SHA256_TEXT_LEN);
  // Exact text equality: an expected digest in upper case never matches.
  if (SWM_IsStringEqual(expectedHex, text) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Calculate file hash value, not equal. "
                       "pcRightShaVal:%s, acShaStrVal:%s.",
                       expectedHex, text);
    return kDamaged;
  }
  return kIntact;
}

}  // namespace bootinit::digest

namespace {

bool AnyNull(std::initializer_list<const void *> pointers) {
  for (const void *pointer : pointers) {
    if (pointer == nullptr) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" {

uint32_t BOOT_INIT_LoadCryptoSymbols(BOOT_INIT_CRYPTO_HANDLE_S *handle) {
  if (AnyNull({handle})) {
    return BOOT_INIT_ERROR;
  }
  return bootinit::digest::LoadCryptoSymbols(*handle);
}

uint32_t BOOT_INIT_Sha256Get(const char *path, uint8_t *digest, uint32_t digestLen) {
  if (AnyNull({path, digest})) {
    return BOOT_INIT_ERROR;
  }
  return bootinit::digest::Sha256Get(path, digest, digestLen);
}

uint32_t BOOT_INIT_Sha256GetWithFd(int fd, uint32_t length, uint8_t *digest, uint32_t digestLen) {
  if (AnyNull({digest})) {
    return BOOT_INIT_ERROR;
  }
  return bootinit::digest::Sha256GetWithFd(fd, length, digest, digestLen);
}

void BOOT_INIT_TransHashValueToString(const uint8_t *digest, uint32_t digestLen, char *text,
                                      uint32_t textLen) {
  if (digestLen == 0 || AnyNull({digest, text})) {
    return;
  }
  bootinit::digest::TransHashValueToString(digest, digestLen, text, textLen);
}

uint32_t BOOT_INIT_SHA_IsFileDamaged(const char *path, const char *expectedHex) {
  if (AnyNull({path, expectedHex})) {
    return 1;
  }
  return bootinit::digest::IsFileDamaged(path, expectedHex);
}

}  // extern "C"
