// The startup mode and the backup path, asked of the platform support library. The library is
// opened for each request and closed again: nothing of it is kept between calls.
#include <dlfcn.h>

#include <memory>

#include "bootinit/log.h"
#include "bootinit/startup.h"
#include "common/support/dl_library.hpp"
#include "common/support/fixed_text.hpp"
#include "tkal.h"

namespace bootinit::startup {
namespace {

constexpr const char *kSupportLibrary = "libsupport_linux.so";
constexpr std::size_t kLibraryNameLen = 384;

using SetModeFunc = uint32_t (*)(uint32_t);
using GetModeFunc = uint32_t (*)(uint32_t *);
using GetBackupFunc = uint32_t (*)(char *, uint32_t);

// One request's way to its entry point; the texts name the request in the log.
struct Request {
  const char *what;    // "set startup mode", "get startup mode", "get backup path"
  const char *symbol;  // the entry point
  bool logSuccess;     // set and get mode also log their successful steps
};

constexpr Request kSetMode = {"set startup mode", "PSSP_SetStartupMode", true};
constexpr Request kGetMode = {"get startup mode", "PSSP_GetStartupMode", true};
constexpr Request kGetBackup = {"get backup path", "PSSP_GetBackUpPath", false};

// Opens the support library and finds the request's entry point. On failure the reason is
// logged and nullptr returned; the caller's DlLibrary closes whatever was opened.
void *LoadEntry(const Request &request, std::unique_ptr<DlLibrary> &library) {
  char name[kLibraryNameLen] = {};
  if (!FormatInto(name, "%s", kSupportLibrary)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][WARNING]:%s sprintf %s unsuccessful.",
                       request.what, kSupportLibrary);
    return nullptr;
  }
  library = std::make_unique<DlLibrary>(name, RTLD_NOW | RTLD_GLOBAL);
  if (!library->loaded()) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:%s dlopen %s unsuccessful, err(%s)", request.what,
                       name, DlLibrary::LastError());
    return nullptr;
  }
  if (request.logSuccess) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:dlopen %s success.", name);
  }
  void *entry = library->Symbol(request.symbol);
  if (entry == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:load %s failed, err(%s)",
                       request.symbol, DlLibrary::LastError());
    return nullptr;
  }
  if (request.logSuccess) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:load %s success.",
                       request.symbol);
  }
  return entry;
}

void LogCallFailed(const Request &request) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:call %s failed.", request.symbol);
}

}  // namespace

uint32_t SetStartupMode(uint32_t mode) {
  std::unique_ptr<DlLibrary> library;
  void *entry = LoadEntry(kSetMode, library);
  if (entry == nullptr) {
    return BOOT_INIT_ERROR;
  }
  const uint32_t ret = AsFunction<SetModeFunc>(entry)(mode);
  if (ret != 0) {
    LogCallFailed(kSetMode);
  }
  return ret;
}

void GetStartupMode(uint32_t *mode) {
  // Every failure from here on reads as network.
  *mode = BOOT_INIT_STARTUP_MODE_NETWORK;
  std::unique_ptr<DlLibrary> library;
  void *entry = LoadEntry(kGetMode, library);
  if (entry != nullptr && AsFunction<GetModeFunc>(entry)(mode) != 0) {
    LogCallFailed(kGetMode);
  }
}

uint32_t GetBackUpPath(char *buffer, uint32_t size) {
  {
    std::unique_ptr<DlLibrary> library;
    void *entry = LoadEntry(kGetBackup, library);
    if (entry == nullptr) {
      return BOOT_INIT_ERROR;
    }
    if (AsFunction<GetBackupFunc>(entry)(buffer, size) != 0) {
      LogCallFailed(kGetBackup);
    }
  }
  // A usable directory counts, not the call's code.
  if (TKAL_IsDirExist(buffer) == 1) {
    return BOOT_INIT_OK;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:GetBackUpPath: highMemPath(%s) is not exist", buffer);
  return BOOT_INIT_ERROR;
}

}  // namespace bootinit::startup

extern "C" {

uint32_t BOOT_INIT_SetStartupMode(uint32_t mode) { return bootinit::startup::SetStartupMode(mode); }

void BOOT_INIT_GetStartupMode(uint32_t *mode) {
  if (mode != nullptr) {
    bootinit::startup::GetStartupMode(mode);
  }
}

uint32_t BOOT_INIT_GetBackUpPath(char *buffer, uint32_t size) {
  if (buffer == nullptr || size == 0) {
    return BOOT_INIT_ERROR;
  }
  return bootinit::startup::GetBackUpPath(buffer, size);
}

}  // extern "C"
