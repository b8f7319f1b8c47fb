// The account of a download: the platform user whose directory holds the remote file. The
// user's name serves as its password too; the FTP servers of the main boards are set up so.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>

#include "bootinit/download.h"
#include "bootinit/log.h"
#include "common/support/fixed_text.hpp"
#include "common/support/messages.hpp"
#include "download/wipe.hpp"
#include "swm.h"

namespace bootinit::ftp {
namespace {

// Only the first two users can own start files.
constexpr uint32_t kUsersSearched = 2;

static_assert(sizeof(SWM_USER_INFO_S) == 1924, "user records are frozen");
static_assert(offsetof(SWM_USER_INFO_S, name) == 0);
static_assert(offsetof(SWM_USER_INFO_S, homeDir) == 640);
static_assert(sizeof(BOOT_INIT_FTP_ACCOUNT_S) == 640, "the account is frozen");
static_assert(sizeof(BOOT_INIT_FTP_FILE_INFO_S) == 768, "the file request is frozen");

// The records hold names that serve as passwords: the first is wiped before the array goes.
class UserRecords {
 public:
  UserRecords() = default;
  UserRecords(const UserRecords &) = delete;
  UserRecords &operator=(const UserRecords &) = delete;
  ~UserRecords() {
    if (records_ != nullptr && count_ > 0) {
      Wipe(records_, sizeof(SWM_USER_INFO_S), "BOOT_INIT_GetFtpAccount", __LINE__);
    }
    std::free(records_);
  }

  uint32_t Load() { return SWM_GetMaxTenUsersInfo(&records_, &count_, nullptr); }

  // The first of the searched users whose directory begins the path, or nullptr.
  [[nodiscard]] const SWM_USER_INFO_S *OwnerOf(const char *path) const {
    const uint32_t searched = count_ < kUsersSearched ? count_ : kUsersSearched;
    for (uint32_t i = 0; i < searched; ++i) {
      const SWM_USER_INFO_S &user = records_[i];
      if (std::memchr(user.homeDir, '\0', sizeof(user.homeDir)) != nullptr &&
          BOOT_INIT_IsDirMatchByFile(path, user.homeDir) != 0) {
        return &user;
      }
    }
    return nullptr;
  }

 private:
  SWM_USER_INFO_S *records_ = nullptr;
  uint32_t count_ = 0;
};

// The record's field up to its terminator or its end, whichever comes first.
std::string_view Field(const char *field, std::size_t size) {
  const void *end = std::memchr(field, '\0', size);
  return {field,
          end != nullptr ? static_cast<std::size_t>(static_cast<const char *>(end) - field) : size};
}

// A field that does not fit is logged and left as the bounded print leaves it.
void PrintField(std::span<char> out, std::string_view text) {
  if (!FormatInto(out, "%.*s", static_cast<int>(text.size()), text.data())) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_SNPRINTF_FAILED,
                       "BOOT_INIT_GetFtpAccount");
  }
}

void FillAccount(const SWM_USER_INFO_S &user, BOOT_INIT_FTP_ACCOUNT_S &account) {
  const std::string_view name = Field(user.name, sizeof(user.name));
  PrintField(account.userName, name);
  PrintField(account.password, name);
  PrintField(account.directory, Field(user.homeDir, sizeof(user.homeDir)));
}

uint32_t GetAccount(BOOT_INIT_FTP_ACCOUNT_S &account, const char *remotePath) {
  UserRecords users;
  const uint32_t ret = users.Load();
  if (ret != SWM_OK) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, "[BOOT_INIT][ERROR]:Get ftp users failed(%#x).",
                       ret);
    return BOOT_INIT_ERROR;
  }
  const SWM_USER_INFO_S *owner = users.OwnerOf(remotePath);
  if (owner == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:file %s failed to get valid user.", remotePath);
    return BOOT_INIT_ERROR;
  }
  FillAccount(*owner, account);
  return BOOT_INIT_OK;
}

}  // namespace
}  // namespace bootinit::ftp

using namespace bootinit::ftp;

extern "C" {

uint32_t BOOT_INIT_GetFtpAccount(BOOT_INIT_FTP_ACCOUNT_S *account, const char *remotePath) {
  if (account == nullptr || remotePath == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERROR;
  }
  return GetAccount(*account, remotePath);
}

uint32_t BOOT_INIT_IsDirMatchByFile(const char *path, const char *directory) {
  if (path == nullptr || directory == nullptr) {
    return 0;
  }
  return std::strstr(path, directory) == path ? 1u : 0u;
}

}  // extern "C"
