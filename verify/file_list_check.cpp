// Verify sub-operation 2: the start files of this board, as a boot file list of a delivery names
// them, must have the digests the list gives. Records of other boards, other processors and
// other kinds of file are not this board's to check.
#include <array>
#include <cstdint>

#include "bootinit/board.h"
#include "bootinit/common.h"
#include "bootinit/log.h"
#include "bootinit/verify.h"
#include "swm.h"
#include "tkal.h"
#include "verify/list_check_support.hpp"

namespace bootinit::filelistcheck {
namespace {

using namespace bootinit::listcheck;

using FileRecord = BOOT_INIT_FILELIST_TXT_RECORD_S;

constexpr uint32_t kHardTypeCapacity = 8;
constexpr uint32_t kCpuTextLen = 32;
constexpr const char *kStartFileKind = "app_boot";
constexpr int32_t kFileListArgs = 2;

// What identifies this board in a record: its hardware types and its processor.
struct BoardIdentity {
  std::array<uint32_t, kHardTypeCapacity> hardTypes = {};
  uint32_t hardTypeCount = kHardTypeCapacity;
  std::array<char, kCpuTextLen> cpu = {};

  [[nodiscard]] bool Owns(const FileRecord &record) const {
    return BOOT_INIT_IsHardtypeMatch(record.hardType, hardTypes.data(), hardTypeCount) != 0 &&
           SWM_IsStringEqual(record.cpuId, cpu.data()) != 0 &&
           SWM_IsStringEqual(record.fileType, kStartFileKind) != 0;
  }
};

uint32_t CheckRecord(const char *dir, const FileRecord &record) {
  PathText path = {};
  JoinPath(path, dir, record.filePath, "BOOT_INIT_VerifyFileListFileHashValue");
  DigestText actual = {};
  const uint32_t ret = FileDigestText(path.data(), actual);
  if (ret != BOOT_INIT_OK) {
    return ret;
  }
  if (SWM_IsStringEqual(actual.data(), record.sha256) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Verify file hash value failed.");
    return BOOT_INIT_ERR_GENERAL;
  }
  return BOOT_INIT_OK;
}

// Stops at the first record of this board that fails; no record of this board passes too.
uint32_t CheckRecords(const char *dir, BOOT_INIT_DLL_HEAD_S *records) {
  BoardIdentity board;
  if (BOOT_INIT_GetHardTypeListAndCpu(board.hardTypes.data(), &board.hardTypeCount,
                                      board.cpu.data(), kCpuTextLen) != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][%s]:Get hardtype list and cpuId failed.", "ERROR");
    return BOOT_INIT_ERROR;
  }
  for (const BOOT_INIT_DLL_NODE_S *node = records->links.next;
       node != nullptr && node != &records->links; node = node->next) {
    const auto &record = *reinterpret_cast<const FileRecord *>(node);
    if (!board.Owns(record)) {
      continue;
    }
    const uint32_t ret = CheckRecord(dir, record);
    if (ret != BOOT_INIT_OK) {
      return ret;
    }
  }
  return BOOT_INIT_OK;
}

uint32_t VerifyFileList(const char *dir, const char *listName) {
  PathText listPath = {};
  JoinPath(listPath, dir, listName, "BOOT_INIT_VerifyFileInFileList");
  if (TKAL_IsFileExist(listPath.data()) == 0) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kFileMissing);
    return BOOT_INIT_ERR_FILE_NOT_EXIST;
  }
  OwnedList records;
  uint32_t ret = BOOT_INIT_GetAllRecordFromFilelistTxt(listPath.data(), records.get());
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Get all record failed from file lis, result = %u", ret);
    return ret;
  }
  ret = BOOT_INIT_VerifyFileListFileHashValue(dir, records.get());
  if (ret != BOOT_INIT_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Verify file hash value failed, result = %u", ret);
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                       "[BOOT_INIT][SECURITY]verify file in filelist failed, result = %u", ret);
    return ret;
  }
  BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_SAFE,
                     "[BOOT_INIT][SECURITY]verify file in filelist success");
  return BOOT_INIT_OK;
}

}  // namespace
}  // namespace bootinit::filelistcheck

extern "C" {

uint32_t BOOT_INIT_VerifyFileListFileHashValue(const char *dir, BOOT_INIT_DLL_HEAD_S *records) {
  if (dir == nullptr || records == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_PARAM;
  }
  return bootinit::filelistcheck::CheckRecords(dir, records);
}

uint32_t BOOT_INIT_VerifyFileInFileList(int32_t argc, char **argv) {
  if (argc != bootinit::filelistcheck::kFileListArgs || argv == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:verify cms, para count is invalid, iArgc = %d", argc);
    return BOOT_INIT_ERR_PARAM;
  }
  return bootinit::filelistcheck::VerifyFileList(argv[0], argv[1]);
}

}  // extern "C"
