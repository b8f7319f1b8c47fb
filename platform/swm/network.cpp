// High-availability and network facts of the board, from the board description: HA role, main
// management board, stacking, and the IPv4 addresses of this board, the main boards and the
// stack master.
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "board_description.hpp"
#include "forced.h"
#include "swm.h"

namespace {

constexpr const char *kBoardSection = "board";
constexpr const char *kNetSection = "net";
constexpr uint32_t kMasterRole = 0;
constexpr uint32_t kStandbyRole = 1;
constexpr uint32_t kMainBoardRole = 1;  // [board] role of a main management board

// [board] ha_role; when absent, what the board's active state implies.
boarddesc::Entry<uint32_t> HaRole() {
  const boarddesc::Entry<uint32_t> role = boarddesc::BoardNumber(kBoardSection, "ha_role");
  if (role.found != boarddesc::Found::kAbsent) {
    return role;
  }
  const boarddesc::Entry<uint32_t> state = boarddesc::BoardNumber(kBoardSection, "active_state");
  if (state.found == boarddesc::Found::kUnusable) {
    return state;
  }
  const bool active = state.found == boarddesc::Found::kAbsent || state.value == 0;
  return {boarddesc::Found::kValue, active ? kMasterRole : kStandbyRole};
}

// A yes/no fact: key as a number (non-zero is yes), else fallback(); a value that is not a
// number, or a malformed description, answers no.
template <typename Fallback>
int Flag(const char *section, const char *key, Fallback fallback) {
  const boarddesc::Entry<uint32_t> flag = boarddesc::BoardNumber(section, key);
  switch (flag.found) {
    case boarddesc::Found::kValue:
      return flag.value != 0 ? 1 : 0;
    case boarddesc::Found::kAbsent:
      return fallback();
    case boarddesc::Found::kUnusable:
      break;
  }
  return 0;
}

int IsMainBoard() {
  return Flag(kBoardSection, "mmb", [] {
    const boarddesc::Entry<uint32_t> role = boarddesc::BoardNumber(kBoardSection, "role");
    return role.found == boarddesc::Found::kAbsent ||
                   (role.found == boarddesc::Found::kValue && role.value == kMainBoardRole)
               ? 1
               : 0;
  });
}

// A yes/no answer, or the code [fail] forces on the function as it is (0 included).
int ForcedAnswer(const char *function, int answer) {
  const std::optional<uint32_t> forced = boarddesc::ForcedFailure(function);
  return forced ? static_cast<int>(*forced) : answer;
}

// An address of [net] as text; an empty value is no address.
struct Address {
  uint32_t status = SWM_OK;
  std::string text;
};

Address NetAddress(const char *key) {
  boarddesc::Entry<std::string> entry = boarddesc::BoardValue(kNetSection, key);
  switch (entry.found) {
    case boarddesc::Found::kValue:
      if (!entry.value.empty()) {
        return {SWM_OK, std::move(entry.value)};
      }
      break;
    case boarddesc::Found::kAbsent:
      break;
    case boarddesc::Found::kUnusable:
      return {SWM_ERR_FORMAT, {}};
  }
  return {SWM_ERR_NOT_FOUND, {}};
}

// SWM_OK when the address and its terminator fit len bytes.
uint32_t Fits(const Address &address, uint32_t len) {
  if (address.status != SWM_OK) {
    return address.status;
  }
  return address.text.size() < len ? SWM_OK : SWM_ERR_TOO_LONG;
}

void CopyAddress(const Address &address, char *out) {
  std::memcpy(out, address.text.c_str(), address.text.size() + 1);
}

// One [net] address into out[len]; out is written only when the whole address fits.
uint32_t ReadAddress(const char *key, char *out, uint32_t len) {
  const Address address = NetAddress(key);
  const uint32_t status = Fits(address, len);
  if (status == SWM_OK) {
    CopyAddress(address, out);
  }
  return status;
}

uint32_t ReadMainBoardAddresses(char *mmbIp1, uint32_t len1, char *mmbIp2, uint32_t len2) {
  const Address first = NetAddress("mmb1_address");
  const Address second = NetAddress("mmb2_address");
  uint32_t status = Fits(first, len1);
  if (status == SWM_OK) {
    status = Fits(second, len2);
  }
  if (status == SWM_OK) {  // both or neither: a caller never sees one board's address alone
    CopyAddress(first, mmbIp1);
    CopyAddress(second, mmbIp2);
  }
  return status;
}

// Runs a reader that may allocate; no exception may leave a C interface.
template <typename Reader>
uint32_t Guarded(Reader reader) {
  try {
    return reader();
  } catch (const std::bad_alloc &) {
    return SWM_ERR_NOMEM;
  }
}

}  // namespace

extern "C" uint32_t SWM_GetSystemHaRole(uint32_t *role) {
  if (role == nullptr) {
    return SWM_ERR_PARAM;
  }
  const boarddesc::Entry<uint32_t> found = HaRole();
  uint32_t status = SWM_ERR_FORMAT;
  if (found.found == boarddesc::Found::kValue) {
    *role = found.value;
    status = SWM_OK;
  }
  return swm::ForcedAfter("SWM_GetSystemHaRole", status);
}

extern "C" int SWM_BoardIsMMB(void) { return ForcedAnswer("SWM_BoardIsMMB", IsMainBoard()); }

extern "C" int SWM_IsStackEnabled(void) {
  return ForcedAnswer("SWM_IsStackEnabled", Flag(kNetSection, "stack", [] { return 0; }));
}

extern "C" uint32_t SWM_GetStackMasterIp(char *ip, uint32_t len) {
  if (ip == nullptr || len == 0) {
    return SWM_ERR_PARAM;
  }
  const uint32_t status = Guarded([&] { return ReadAddress("stack_master", ip, len); });
  return swm::ForcedAfter("SWM_GetStackMasterIp", status);
}

extern "C" uint32_t SWM_GetServerIpByBoardRole(char *mmbIp1, uint32_t len1, char *mmbIp2,
                                               uint32_t len2) {
  if (mmbIp1 == nullptr || mmbIp2 == nullptr || len1 == 0 || len2 == 0) {
    return SWM_ERR_PARAM;
  }
  const uint32_t status =
      Guarded([&] { return ReadMainBoardAddresses(mmbIp1, len1, mmbIp2, len2); });
  return swm::ForcedAfter("SWM_GetServerIpByBoardRole", status);
}

extern "C" uint32_t SWM_GetBoardLocalIp(char *ip, uint32_t len) {
  if (ip == nullptr || len == 0) {
    return SWM_ERR_PARAM;
  }
  const uint32_t status = Guarded([&] { return ReadAddress("address", ip, len); });
  return swm::ForcedAfter("SWM_GetBoardLocalIp", status);
}
