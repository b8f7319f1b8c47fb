// Operation 3: one verification of a delivery, chosen by the verify type in its first argument.
// Types whose slot is empty are not offered by this build; type 4 is accepted and does nothing.
#include "verify/verify_oper.hpp"

#include <cstdint>
#include <cstdlib>

#include "bootinit/log.h"
#include "bootinit/verify.h"
#include "common/support/oper_args.hpp"
#include "swm.h"

namespace bootinit::verifyoper {
namespace {

constexpr uint32_t kPackageCheck = 1;
constexpr uint32_t kNothingToVerify = 4;
// The package check answers 200 for a package it accepts.
constexpr uint32_t kPackageAccepted = 200;

constexpr const char *kVerifySuccess = "[BOOT_INIT][INFO]:Verify file success";

uint32_t RunVerify(int32_t argc, char **argv) {
  if (SWM_IsDigitString(argv[0]) == 0) {
    BOOT_INIT_LogWrite(
        BOOT_INIT_LOG_TYPE_MAIN,
        "[BOOT_INIT][ERROR]:Verify file, verify type should only contain digit, perType = %s",
        argv[0]);
    return BOOT_INIT_ERR_GENERAL;
  }
  // As for the operation number, the low 32 bits of the decimal number are the type.
  const auto verifyType = static_cast<uint32_t>(std::strtoul(argv[0], nullptr, 10));
  if (verifyType >= BOOT_INIT_VERIFY_OPER_NUM) {
    return BOOT_INIT_ERR_PARAM;
  }
  if (verifyType == kNothingToVerify) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kVerifySuccess);
    return BOOT_INIT_OK;
  }
  const BOOT_INIT_VERIFY_OPER_FUNC verify = g_apfBootInitFileVerifyOperFunc[verifyType];
  const uint32_t result = verify == nullptr ? BOOT_INIT_ERR_PARAM : verify(argc - 1, argv + 1);
  return FinishVerify(verifyType, result);
}

}  // namespace

uint32_t FinishVerify(uint32_t verifyType, uint32_t result) {
  if (result == BOOT_INIT_OK || (verifyType == kPackageCheck && result == kPackageAccepted)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kVerifySuccess);
    return result;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                     "[BOOT_INIT][ERROR]:Verify file failed, verify type is %d, result is %u",
                     static_cast<int>(verifyType), result);
  return result;
}

}  // namespace bootinit::verifyoper

extern "C" {

// Indexed by verify type. 1 (package check) and 6 are not built yet; 4 stays empty for good.
const BOOT_INIT_VERIFY_OPER_FUNC g_apfBootInitFileVerifyOperFunc[BOOT_INIT_VERIFY_OPER_NUM] = {
    BOOT_INIT_VerifyCmsFile,
    nullptr,
    BOOT_INIT_VerifyFileInFileList,
    BOOT_INIT_VerifyFileInSignatureFileList,
    nullptr,
    BOOT_INIT_OperCrlSync,
    nullptr,
};

uint32_t BOOT_InitOperVerifyFile(int32_t argc, char **argv) {
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Receive verify file request");
  if (argv != nullptr) {
    bootinit::LogOperArgs(argc, argv);
  }
  if (argc <= 0 || argv == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][INFO]:Verify file, Argc %d is invalid",
                       argc);
    return BOOT_INIT_ERR_PARAM;
  }
  return bootinit::verifyoper::RunVerify(argc, argv);
}

}  // extern "C"
