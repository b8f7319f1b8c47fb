// Board facts of libswm: directory test, logical CPU id, slot and hardware types, from the
// board description.
#include <sys/stat.h>

#include <cstdint>
#include <new>
#include <optional>
#include <vector>

#include "board_description.hpp"
#include "swm.h"

namespace {

constexpr const char *kBoardSection = "board";
constexpr uint32_t kDefaultLogicCpuId = 0;
constexpr uint32_t kDefaultSlot = 1;

// [board] key as a number into *out, fallback when not described; SWM_ERR_FORMAT (*out
// untouched) when the value is not a number or the description is malformed.
uint32_t ReadFact(const char *key, uint32_t fallback, uint32_t *out) {
  const boarddesc::Entry<uint32_t> fact = boarddesc::BoardNumber(kBoardSection, key);
  switch (fact.found) {
    case boarddesc::Found::kValue:
      *out = fact.value;
      return SWM_OK;
    case boarddesc::Found::kAbsent:
      *out = fallback;
      return SWM_OK;
    case boarddesc::Found::kUnusable:
      break;
  }
  return SWM_ERR_FORMAT;
}

// The hardware types: [board] hard_types, else the single [board] hard_type, else none.
boarddesc::Entry<std::vector<uint32_t>> HardTypes() {
  boarddesc::Entry<std::vector<uint32_t>> types =
      boarddesc::BoardNumberList(kBoardSection, "hard_types");
  if (types.found != boarddesc::Found::kAbsent) {
    return types;
  }
  const boarddesc::Entry<uint32_t> single = boarddesc::BoardNumber(kBoardSection, "hard_type");
  if (single.found == boarddesc::Found::kValue) {
    return {boarddesc::Found::kValue, {single.value}};
  }
  return {single.found == boarddesc::Found::kAbsent ? boarddesc::Found::kValue : single.found, {}};
}

uint32_t ListHardTypes(uint32_t *list, uint32_t *count) {
  const boarddesc::Entry<std::vector<uint32_t>> types = HardTypes();
  if (types.found != boarddesc::Found::kValue) {
    *count = 0;
    return SWM_ERR_FORMAT;
  }
  uint32_t filled = 0;
  for (const uint32_t type : types.value) {
    if (filled == *count) {
      break;  // the caller's capacity bounds the answer
    }
    list[filled++] = type;
  }
  *count = filled;
  return SWM_OK;
}

}  // namespace

extern "C" int SWM_IsDirExist(const char *dir) {
  int isDir = 0;
  if (dir != nullptr) {
    struct stat info {};
    isDir = stat(dir, &info) == 0 && S_ISDIR(info.st_mode) ? 1 : 0;
  }
  // The answer is no status: a forced code replaces it as it is (0 hides an existing
  // directory, 1 shows a missing one).
  const std::optional<uint32_t> forced = boarddesc::ForcedFailure("SWM_IsDirExist");
  return forced ? static_cast<int>(*forced) : isDir;
}

extern "C" uint32_t SWM_GetLogicCpuId(uint32_t *cpuId) {
  if (cpuId == nullptr) {
    return SWM_ERR_PARAM;
  }
  return boarddesc::ForcedResult("SWM_GetLogicCpuId",
                                 ReadFact("logic_cpu_id", kDefaultLogicCpuId, cpuId));
}

extern "C" uint32_t SWM_GetSlotId(uint32_t *slotId) {
  if (slotId == nullptr) {
    return SWM_ERR_PARAM;
  }
  return boarddesc::ForcedResult("SWM_GetSlotId", ReadFact("slot", kDefaultSlot, slotId));
}

extern "C" uint32_t SWM_GetBoardMultiHardType(uint32_t *list, uint32_t *count) {
  if (list == nullptr || count == nullptr) {
    return SWM_ERR_PARAM;
  }
  uint32_t status = SWM_ERR_NOMEM;
  try {
    status = ListHardTypes(list, count);
  } catch (const std::bad_alloc &) {
    *count = 0;  // no exception may leave a C interface
  }
  return boarddesc::ForcedResult("SWM_GetBoardMultiHardType", status);
}
