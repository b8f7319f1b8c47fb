// What the board's FTP service is configured with: the port of an FTP server configuration file
// and the platform's FTP users, from the board description.
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "board_description.hpp"
#include "forced.h"
#include "owners.h"
#include "swm.h"

// The records are shared with the board's own library: their layout must never drift.
static_assert(sizeof(SWM_USER_INFO_S) == 1924);
static_assert(offsetof(SWM_USER_INFO_S, name) == 0);
static_assert(offsetof(SWM_USER_INFO_S, homeDir) == 640);
static_assert(sizeof(SWM_USER_INFO_S::name) == SWM_USER_NAME_LEN);
static_assert(sizeof(SWM_USER_INFO_S::homeDir) == SWM_USER_HOME_LEN);

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";
constexpr std::string_view kPortKey = "port";
constexpr const char *kFtpSection = "ftp";
constexpr size_t kMaxUsers = 10;

std::string_view Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Lines that hold no entry: blank, comments, and section headers (the file needs none, but a
// server's configuration may group its entries).
bool IsEntryLine(std::string_view line) {
  return !line.empty() && line.front() != '#' && line.front() != ';' && line.front() != '[';
}

// A line read by getline(3), released on every return path.
struct LineBuffer {
  LineBuffer() = default;
  LineBuffer(const LineBuffer &) = delete;
  LineBuffer &operator=(const LineBuffer &) = delete;
  ~LineBuffer() { std::free(data); }
  char *data = nullptr;
  size_t capacity = 0;
};

// The value of the first "port" entry of the stream; *value points into line.
uint32_t FindPort(FILE *stream, LineBuffer *line, std::string_view *value) {
  ssize_t got = 0;
  while ((got = getline(&line->data, &line->capacity, stream)) >= 0) {
    const std::string_view text = Trim(std::string_view(line->data, static_cast<size_t>(got)));
    const size_t equals = text.find('=');
    if (!IsEntryLine(text) || equals == std::string_view::npos ||
        Trim(text.substr(0, equals)) != kPortKey) {
      continue;
    }
    *value = Trim(text.substr(equals + 1));
    if (value->find('\0') != std::string_view::npos) {
      return SWM_ERR_FORMAT;  // the text could not be handed out whole
    }
    return value->empty() ? SWM_ERR_NOT_FOUND : SWM_OK;
  }
  return std::ferror(stream) != 0 ? SWM_ERR_IO : SWM_ERR_NOT_FOUND;
}

uint32_t ReadPort(const char *file, char *port, uint32_t len) {
  FILE *opened = nullptr;
  if (SWM_Fopen(file, "r", &opened) != SWM_OK) {
    return SWM_ERR_IO;
  }
  const swm::UniqueFile stream(opened);
  LineBuffer line;
  std::string_view value;
  const uint32_t status = FindPort(stream.get(), &line, &value);
  if (status != SWM_OK) {
    return status;
  }
  if (value.size() >= len) {
    return SWM_ERR_TOO_LONG;
  }
  std::memcpy(port, value.data(), value.size());
  port[value.size()] = '\0';
  return SWM_OK;
}

struct User {
  std::string_view name;
  std::string_view home;
};

// "name:directory" entries separated by blanks; false when one of them is not of that form.
bool ParseUsers(std::string_view text, std::vector<User> *users) {
  size_t pos = 0;
  while ((pos = text.find_first_not_of(kBlanks, pos)) != std::string_view::npos) {
    size_t end = text.find_first_of(kBlanks, pos);
    if (end == std::string_view::npos) {
      end = text.size();
    }
    const std::string_view entry = text.substr(pos, end - pos);
    const size_t colon = entry.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon + 1 == entry.size()) {
      return false;
    }
    users->push_back({entry.substr(0, colon), entry.substr(colon + 1)});
    pos = end;
  }
  return true;
}

void CopyField(char *field, std::string_view text) {
  std::memcpy(field, text.data(), text.size());
  field[text.size()] = '\0';
}

// The first ten users as records; *records is written only on success.
uint32_t MakeRecords(const std::vector<User> &users, SWM_USER_INFO_S **records, uint32_t *count) {
  const size_t taken = users.size() < kMaxUsers ? users.size() : kMaxUsers;
  if (taken == 0) {  // absent, empty or blank: no users
    return SWM_ERR_NOT_FOUND;
  }
  for (size_t i = 0; i < taken; ++i) {
    if (users[i].name.size() >= SWM_USER_NAME_LEN || users[i].home.size() >= SWM_USER_HOME_LEN) {
      return SWM_ERR_TOO_LONG;
    }
  }
  auto *made = static_cast<SWM_USER_INFO_S *>(std::calloc(taken, sizeof(SWM_USER_INFO_S)));
  if (made == nullptr) {
    return SWM_ERR_NOMEM;
  }
  for (size_t i = 0; i < taken; ++i) {
    CopyField(made[i].name, users[i].name);
    CopyField(made[i].homeDir, users[i].home);
  }
  *records = made;
  *count = static_cast<uint32_t>(taken);
  return SWM_OK;
}

uint32_t ReadUsers(SWM_USER_INFO_S **records, uint32_t *count) {
  const boarddesc::Entry<std::string> text = boarddesc::BoardValue(kFtpSection, "users");
  if (text.found == boarddesc::Found::kUnusable) {
    return SWM_ERR_FORMAT;
  }
  std::vector<User> users;
  if (!ParseUsers(text.value, &users)) {
    return SWM_ERR_FORMAT;
  }
  return MakeRecords(users, records, count);
}

}  // namespace

extern "C" uint32_t SWM_GetPortInfoReliable(const char *file, char *port, uint32_t len) {
  if (file == nullptr || port == nullptr || len == 0) {
    return SWM_ERR_PARAM;
  }
  return swm::ForcedAfter("SWM_GetPortInfoReliable", ReadPort(file, port, len));
}

extern "C" uint32_t SWM_GetMaxTenUsersInfo(SWM_USER_INFO_S **users, uint32_t *count,
                                           void *reserved) {
  if (users == nullptr || count == nullptr || reserved != nullptr) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_GetMaxTenUsersInfo", &forced)) {
    return forced;  // before anything is allocated: a failed call hands out nothing to free
  }
  try {
    return ReadUsers(users, count);
  } catch (const std::bad_alloc &) {
    return SWM_ERR_NOMEM;
  }
}
