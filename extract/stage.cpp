// Writing one proven file: the package is opened, a staged file is made in the destination
// directory, the search proves the file and fills the staged file in the same read, and only
// then is the staged file put in place under the file's name. A file that fails its proof, or
// whose copy fails, never appears under that name, not even in part.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "common/support/fixed_text.hpp"
#include "common/support/owned_files.hpp"
#include "common/support/staged_file.hpp"
#include "common/support/unique_fd.hpp"
#include "extract/extract_support.hpp"
#include "swm.h"
#include "tkal.h"

namespace bootinit::extract {
namespace {

std::span<char> HiddenPath(BOOT_EXTRACT_TARGET_S &target) {
  return {target.stagedPath, BOOT_EXTRACT_PATH_LEN};
}

// Owns the staged file of one extraction: its descriptor, and the name of a named one, which
// is removed on every way out unless ExtractFile renamed it into place (and emptied the name).
class StagedFile {
 public:
  StagedFile(const char *dir, BOOT_EXTRACT_TARGET_S &target) : target_(target) {
    target_.outFd = -1;
    fd_.reset(OpenStagedFile(dir, kFileMode, HiddenPath(target_)));
    target_.outFd = fd_.get();
    target_.stageErrno = fd_.valid() ? 0 : errno;
  }
  StagedFile(const StagedFile &) = delete;
  StagedFile &operator=(const StagedFile &) = delete;
  ~StagedFile() {
    if (target_.stagedPath[0] != '\0') {
      (void)::unlink(target_.stagedPath);
      target_.stagedPath[0] = '\0';
    }
    target_.outFd = -1;
  }

 private:
  BOOT_EXTRACT_TARGET_S &target_;
  UniqueFd fd_;
};

void LogCreateFailed(const char *destPath, int error) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:ExtractFile: create file %s failed, errno=%d.", destPath,
                     error);
}

uint32_t PlaceFile(BOOT_EXTRACT_TARGET_S &target, const char *destPath) {
  RemoveIfPresent(destPath);
  if (target.outFd < 0) {
    LogCreateFailed(destPath, target.stageErrno);
    return BOOT_INIT_ERROR;
  }
  if (target.copyResult != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:ExtractFile: copy file failed, len:%u", target.length);
    return target.copyResult;
  }
  if (!PutStagedFile(target.outFd, HiddenPath(target), destPath)) {
    LogCreateFailed(destPath, errno);
    return BOOT_INIT_ERROR;
  }
  return BOOT_INIT_OK;
}

uint32_t ExtractInner(const char *package, const char *name, const char *destDir) {
  int raw = -1;
  if (SWM_Open(package, O_RDONLY, &raw) != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:ExtractFileInner: Open file failed, file path = %s, "
                       "errno=%d.",
                       package, errno);
    return BOOT_INIT_ERROR;
  }
  const UniqueFd packageFd(raw);
  BOOT_EXTRACT_TARGET_S target{};
  const StagedFile staged(destDir, target);
  uint32_t ret = FindTarget(packageFd.get(), name, &target);
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][WARNING]:ExtractFileInner: get file failed, name:%s", name);
    return ret;
  }
  PathText dest = {};
  if (!JoinPath(dest, destDir, name)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:ExtractFileInner: sprintf dest failed");
    return BOOT_INIT_ERROR;
  }
  ret = PlaceFile(target, dest.data());
  if (ret != BOOT_INIT_OK) {
    // Nothing partial is left under the name: the staged file goes with its owner.
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:ExtractFileInner: extract file %s failed", dest.data());
  }
  return ret;
}

}  // namespace
}  // namespace bootinit::extract

extern "C" {

uint32_t ExtractFile(BOOT_EXTRACT_TARGET_S *target, const char *destPath) {
  if (target == nullptr || destPath == nullptr) {
    return BOOT_INIT_ERROR;
  }
  return bootinit::extract::PlaceFile(*target, destPath);
}

uint32_t ExtractFileInner(const char *package, const char *name, const char *destDir) {
  if (package == nullptr || name == nullptr || destDir == nullptr) {
    return BOOT_INIT_ERROR;
  }
  return bootinit::extract::ExtractInner(package, name, destDir);
}

}  // extern "C"
