// Boot file lists: one "<hardware type> <cpu id> <path> <type> <sha256>" record a line. The
// lists come from packages and from the main board, so a line is never trusted to hold all
// five fields.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "common/support/c_owners.hpp"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "swm.h"

namespace bootinit::filelist {
namespace {

using Record = BOOT_INIT_FILELIST_TXT_RECORD_S;

constexpr uint32_t kFieldCount = 5;
// Lines are read through one buffer of this size: longer lines arrive in pieces.
constexpr int kLineBufferSize = 512;

constexpr const char *kNullParam2 = "[BOOT_INIT][ERROR]:input param is null when check null 2";
constexpr const char *kSplitFailed = "[BOOT_INIT][ERROR]:Trans string to array failed, result = %u";

// Copies one field; a field that does not fit is reported and the record is kept, since no
// reader relies on an over-long field's content.
void CopyField(std::span<char> out, const char *field) {
  if (!FormatInto(out, "%s", field)) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BOOT_INIT_Trans2FilelistTxtRecord");
  }
}

uint32_t FillRecord(std::span<char *const> fields, Record *record) {
  if (fields.size() < kFieldCount) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:File list line has %zu fields, %u needed", fields.size(),
                       kFieldCount);
    return BOOT_INIT_ERROR;
  }
  CopyField(record->hardType, fields[0]);
  CopyField(record->cpuId, fields[1]);
  CopyField(record->filePath, fields[2]);
  CopyField(record->fileType, fields[3]);
  CopyField(record->sha256, fields[4]);
  return BOOT_INIT_OK;
}

}  // namespace

uint32_t ParseLine(char *line, Record *record) {
  if (SWM_StringTrim(line) != SWM_OK) {
    return BOOT_INIT_ERROR;
  }
  char **array = nullptr;
  uint32_t count = 0;
  const uint32_t split = SWM_TransString2Array(line, " ", &array, &count, 0);
  if (split != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kSplitFailed, split);
    return BOOT_INIT_ERROR;
  }
  const MallocPtr<char *> owner(array);
  return FillRecord(std::span<char *const>(array, count), record);
}

// Reads records until the end of the stream or the first line that cannot be parsed. Whether
// the stream reached its end decides the result, so a bad last line without a final line
// feed is dropped quietly while a bad line before it fails the read.
uint32_t ReadRecords(FILE *stream, BOOT_INIT_DLL_HEAD_S *head) {
  char line[kLineBufferSize] = {};
  while (std::fgets(line, kLineBufferSize, stream) != nullptr) {
    if (SWM_IsSpaceString(line) != 0) {
      continue;
    }
    auto *record = static_cast<Record *>(std::calloc(1, sizeof(Record)));
    if (record == nullptr) {
      return BOOT_INIT_ERR_NO_MEMORY;
    }
    const uint32_t parsed = ParseLine(line, record);
    if (parsed != BOOT_INIT_OK) {
      BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, kSplitFailed, parsed);
      std::free(record);
      break;
    }
    BOOT_InitDllInsertInMiddle(head, head->links.prev, &record->node, &head->links);
    line[0] = '\0';
    if (std::feof(stream) != 0) {
      break;
    }
  }
  return std::feof(stream) != 0 ? BOOT_INIT_OK : BOOT_INIT_ERROR;
}

uint32_t ReadFile(const char *path, BOOT_INIT_DLL_HEAD_S *head) {
  FILE *raw = nullptr;
  const uint32_t opened = SWM_Fopen(path, "r", &raw);
  if (opened != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:can't open file[%s], uiRet = %u, errno = %d", path,
                       opened, errno);
    return BOOT_INIT_ERR_OPEN_FILE;
  }
  const FileStream stream(raw);
  return ReadRecords(stream.get(), head);
}

}  // namespace bootinit::filelist

extern "C" {

uint32_t BOOT_INIT_Trans2FilelistTxtRecord(char *line, BOOT_INIT_FILELIST_TXT_RECORD_S *record) {
  if (line == nullptr || record == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, bootinit::filelist::kNullParam2);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  return bootinit::filelist::ParseLine(line, record);
}

uint32_t BOOT_INIT_GetAllRecordFromFilelistTxt(const char *path, BOOT_INIT_DLL_HEAD_S *head) {
  if (path == nullptr || head == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, bootinit::filelist::kNullParam2);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  return bootinit::filelist::ReadFile(path, head);
}

}  // extern "C"
