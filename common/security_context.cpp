// Security labels (SELinux contexts) of files. The label library is not linked: each call opens
// "libselinux.so.1", uses it and closes it again before returning, so a board without the
// library still boots and nothing of it stays mapped between two calls.
#include <dlfcn.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <span>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "common/support/c_owners.hpp"
#include "common/support/dl_library.hpp"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "tkal.h"

namespace bootinit::selinux {
namespace {

constexpr const char *kLibraryName = "libselinux.so.1";
constexpr std::size_t kLibraryNameLen = 384;

using LibraryOwner = LibraryHandle;

// The library and its entry points for the length of one call.
class SecurityLibrary {
 public:
  SecurityLibrary() : loaded_(BOOT_INIT_LoadSecuritySymbols(&symbols_) == BOOT_INIT_OK) {}
  SecurityLibrary(const SecurityLibrary &) = delete;
  SecurityLibrary &operator=(const SecurityLibrary &) = delete;
  ~SecurityLibrary() {
    if (loaded_) {
      (void)BOOT_INIT_FreeSecuritySymbols(&symbols_);
    }
  }

  [[nodiscard]] bool loaded() const { return loaded_; }
  [[nodiscard]] bool enabled() const { return symbols_.isSelinuxEnabled() != 0; }
  [[nodiscard]] const BOOT_INIT_SECURITY_HANDLE_S &symbols() const { return symbols_; }

 private:
  BOOT_INIT_SECURITY_HANDLE_S symbols_{};
  bool loaded_;
};

// A context handed out by the library, given back through its own freecon.
class Context {
 public:
  explicit Context(void (*freeCon)(char *)) : freeCon_(freeCon) {}
  Context(const Context &) = delete;
  Context &operator=(const Context &) = delete;
  ~Context() {
    if (text_ != nullptr) {
      freeCon_(text_);
    }
  }

  char **out() { return &text_; }
  [[nodiscard]] const char *get() const { return text_; }

 private:
  void (*freeCon_)(char *);
  char *text_ = nullptr;
};

}  // namespace

uint32_t LoadSymbols(BOOT_INIT_SECURITY_HANDLE_S *handle) {
  *handle = {};
  char name[kLibraryNameLen] = {};
  if (!FormatInto(name, "%s", kLibraryName)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Load security symbols, sprintf %s unsuccessfully.",
                       kLibraryName);
    return BOOT_INIT_ERROR;
  }
  LibraryOwner library(::dlopen(name, RTLD_NOW | RTLD_GLOBAL));
  if (library == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:dlopen %s unsuccessfully, reason: %s", name,
                       DlLibrary::LastError());
    return BOOT_INIT_ERROR;
  }
  BOOT_INIT_SECURITY_HANDLE_S found{};
  found.isSelinuxEnabled = AsFunction<int (*)()>(::dlsym(library.get(), "is_selinux_enabled"));
  found.freeCon = AsFunction<void (*)(char *)>(::dlsym(library.get(), "freecon"));
  found.getFileCon =
      AsFunction<int (*)(const char *, char **)>(::dlsym(library.get(), "getfilecon"));
  found.setFileCon =
      AsFunction<int (*)(const char *, const char *)>(::dlsym(library.get(), "setfilecon"));
  found.lsetFileCon =
      AsFunction<int (*)(const char *, const char *)>(::dlsym(library.get(), "lsetfilecon"));
  if (found.isSelinuxEnabled == nullptr || found.freeCon == nullptr ||
      found.getFileCon == nullptr || found.setFileCon == nullptr || found.lsetFileCon == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:Load security symbols, dlsym functions from %s "
                       "failed.",
                       name);
    return BOOT_INIT_ERROR;
  }
  found.handle = library.release();
  *handle = found;
  return BOOT_INIT_OK;
}

uint32_t FreeSymbols(BOOT_INIT_SECURITY_HANDLE_S *handle) {
  void *library = handle->handle;
  *handle = {};
  return ::dlclose(library) == 0 ? BOOT_INIT_OK : BOOT_INIT_ERROR;
}

uint32_t GetContext(const char *path, std::span<char> buf) {
  if (TKAL_IsFileExist(path) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:file %s, file not exists",
                       path);
    return BOOT_INIT_ERROR;
  }
  const SecurityLibrary library;
  if (!library.loaded()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:load selinux symbols failed");
    return BOOT_INIT_ERROR;
  }
  if (!library.enabled()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:SELinux disabled, no need get %s context", path);
    return BOOT_INIT_OK;
  }
  Context context(library.symbols().freeCon);
  if (library.symbols().getFileCon(path, context.out()) < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file:%s, get context failed, errno:%d", path, errno);
    return BOOT_INIT_ERROR;
  }
  // A context longer than the buffer leaves the buffer empty; the call still counts as done.
  if (!CopyInto(buf, context.get())) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_STRCPY_FAILED,
                       "BOOT_INIT_GetSecurityContext");
  }
  return BOOT_INIT_OK;
}

uint32_t SetContext(const char *path, const char *context) {
  if (TKAL_IsFileExist(path) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:file %s not exists", path);
    return BOOT_INIT_ERROR;
  }
  const SecurityLibrary library;
  if (!library.loaded()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:load security symbols failed");
    return BOOT_INIT_ERROR;
  }
  if (library.enabled() && library.symbols().setFileCon(path, context) < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file:%s, set context failed, errno:%d", path, errno);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t LinkContext(const char *srcPath, const char *dstPath) {
  if (TKAL_IsFileExist(srcPath) == 0 || TKAL_IsFileExist(dstPath) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:src or dst not exists");
    return BOOT_INIT_ERROR;
  }
  // The loader's own warning says why the library could not be had.
  const SecurityLibrary library;
  if (!library.loaded()) {
    return BOOT_INIT_ERROR;
  }
  if (!library.enabled()) {
    return BOOT_INIT_OK;
  }
  Context context(library.symbols().freeCon);
  if (library.symbols().getFileCon(srcPath, context.out()) < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file:%s, get context failed, errno:%d", srcPath, errno);
    return BOOT_INIT_ERROR;
  }
  if (library.symbols().lsetFileCon(dstPath, context.get()) < 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file:%s, lset context failed, errno:%d", dstPath, errno);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::selinux

using namespace bootinit::selinux;

extern "C" {

uint32_t BOOT_INIT_LoadSecuritySymbols(BOOT_INIT_SECURITY_HANDLE_S *handle) {
  if (handle == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:param error");
    return BOOT_INIT_ERROR;
  }
  return LoadSymbols(handle);
}

uint32_t BOOT_INIT_FreeSecuritySymbols(BOOT_INIT_SECURITY_HANDLE_S *handle) {
  if (handle == nullptr || handle->handle == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:param error");
    return BOOT_INIT_ERROR;
  }
  return FreeSymbols(handle);
}

uint32_t BOOT_INIT_GetSecurityContext(const char *path, char *buf, uint32_t len) {
  if (path == nullptr || buf == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return GetContext(path, std::span<char>(buf, len));
}

uint32_t BOOT_INIT_SetSecurityContext(const char *path, const char *context) {
  if (path == nullptr || context == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return SetContext(path, context);
}

uint32_t BOOT_INIT_LinkSecurityContext(const char *srcPath, const char *dstPath) {
  if (srcPath == nullptr || dstPath == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:param error");
    return BOOT_INIT_ERROR;
  }
  return LinkContext(srcPath, dstPath);
}

}  // extern "C"
