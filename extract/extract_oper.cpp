// Operations 0, 5 and 8: a proven file out of a package, the file inside a ".bin" wrapper, and
// the package unpacking that this system does not need (it answers success).
#include <cstdint>
#include <cstdlib>

#include "bootinit/extract.h"
#include "bootinit/log.h"
#include "common/support/oper_args.hpp"
#include "swm.h"

namespace bootinit::extract {
namespace {

constexpr uint32_t kOperFailed = 1;
constexpr int32_t kExtractArgs = 4;
constexpr int32_t kUntarArgs = 3;
constexpr int32_t kTransArgs = 3;

// argv[index] when the operation was given that many arguments, else NULL.
const char *Arg(int32_t argc, char **argv, int32_t index) {
  return argv != nullptr && index < argc ? argv[index] : nullptr;
}

const char *Shown(const char *text) { return text != nullptr ? text : ""; }

// The extract type: decimal digits, its low 32 bits as the number (as for operation numbers).
bool ReadExtractType(const char *text, uint32_t &type) {
  if (SWM_IsDigitString(text) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Extract file, extract type should only contain digit, "
                       "type = %s",
                       Shown(text));
    return false;
  }
  type = static_cast<uint32_t>(std::strtol(text, nullptr, 10));
  if (BOOT_INIT_IsExtractTypeValid(type) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Extract type is invalid, type = %u", type);
    return false;
  }
  return true;
}

uint32_t OperExtractFile(int32_t argc, char **argv) {
  if (!ArgCountIs(argc, kExtractArgs) || argv == nullptr) {
    return kOperFailed;
  }
  uint32_t type = 0;
  if (!ReadExtractType(argv[0], type)) {
    return kOperFailed;
  }
  if (type == BOOT_EXTRACT_TYPE_BY_ID) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Not support extract file by id");
    return kOperFailed;
  }
  const uint32_t ret = BOOT_INIT_ExtractFileByFileName(argv[2], argv[1], argv[3]);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][INFO]:Extract file by fileName, result = 0x%x, FileName = %s",
                     ret, argv[2]);
  return ret;
}

// A wrong count is only noted: the call is made all the same, with the arguments there are.
uint32_t OperUntarFile(int32_t argc, char **argv) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Untar file from package start");
  if (argv != nullptr) {
    LogOperArgs(argc, argv);
  }
  if (argc != kUntarArgs) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][INFO]:Argv invalid, Argc num must be %u",
                       static_cast<uint32_t>(kUntarArgs));
  }
  const char *fileName = Arg(argc, argv, 1);
  const uint32_t ret =
      BOOT_INIT_UntarFileByFileName(fileName, Arg(argc, argv, 0), Arg(argc, argv, 2));
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][INFO]:Untar file from cc package, FileName = %s, result = %u",
                     Shown(fileName), ret);
  return ret;
}

uint32_t OperBinFileTrans(int32_t argc, char **argv) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:File trans from bin file start");
  if (argv != nullptr) {
    LogOperArgs(argc, argv);
  }
  if (argc != kTransArgs || argv == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Trans bin file to real file, para num(%u) is invalid",
                       static_cast<uint32_t>(argc));
    return kOperFailed;
  }
  const uint32_t ret = BOOT_INIT_TransBinFile2RealName(argv[0], argv[1], argv[2]);
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][INFO]:Trans bin file to real name, result = 0x%x, FileName = %s",
                     ret, argv[1]);
  return ret;
}

}  // namespace
}  // namespace bootinit::extract

using namespace bootinit::extract;

extern "C" {

uint32_t BOOT_InitOperExtractFile(int32_t argc, char **argv) { return OperExtractFile(argc, argv); }

uint32_t BOOT_InitOperUntarFile(int32_t argc, char **argv) { return OperUntarFile(argc, argv); }

uint32_t BOOT_InitOperBinFIleTrans2RealFile(int32_t argc, char **argv) {
  return OperBinFileTrans(argc, argv);
}

// Packages are read in place by the extraction above; there is nothing to unpack.
uint32_t BOOT_INIT_UntarFileByFileName(const char * /*fileName*/, const char * /*packagePath*/,
                                       const char * /*destDir*/) {
  return BOOT_INIT_OK;
}

}  // extern "C"
