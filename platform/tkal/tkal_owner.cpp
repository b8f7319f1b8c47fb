// User and group lookups and owner/mode changes.
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>

#include "tkal.h"

namespace {

constexpr size_t kFirstBufferSize = 1024;
// Group entries carry their member list; a megabyte is far beyond any sane database entry
// and stops the doubling below from running away.
constexpr size_t kLargestBufferSize = size_t{1} << 20;

// getpwnam_r/getgrnam_r need caller storage whose right size is only a hint (or unknown),
// so the buffer doubles while the call answers ERANGE. Only numeric fields of the entry are
// read afterwards: its strings point into the buffer released here.
template <typename Entry, typename Lookup>
bool FindEntry(const char *name, int sizeHint, Lookup lookup, Entry &entry) {
  if (name == nullptr || name[0] == '\0') {
    return false;
  }
  const long hint = sysconf(sizeHint);
  size_t size = hint > 0 ? static_cast<size_t>(hint) : kFirstBufferSize;
  for (; size <= kLargestBufferSize; size *= 2) {
    const std::unique_ptr<char[]> buffer(new (std::nothrow) char[size]);
    if (!buffer) {
      return false;
    }
    Entry *found = nullptr;
    const int rc = lookup(name, &entry, buffer.get(), size, &found);
    if (rc != ERANGE) {
      return rc == 0 && found != nullptr;
    }
  }
  return false;
}

}  // namespace

extern "C" uid_t TKAL_GetUidByName(const char *name, uid_t fallback) {
  struct passwd entry {};
  return FindEntry(name, _SC_GETPW_R_SIZE_MAX, getpwnam_r, entry) ? entry.pw_uid : fallback;
}

extern "C" gid_t TKAL_GetGidByName(const char *name, gid_t fallback) {
  struct group entry {};
  return FindEntry(name, _SC_GETGR_R_SIZE_MAX, getgrnam_r, entry) ? entry.gr_gid : fallback;
}

extern "C" uint32_t TKAL_SetFilePermission(const char *path, uid_t uid, gid_t gid, mode_t mode) {
  if (path == nullptr) {
    errno = EINVAL;
    return 1;
  }
  // The owner goes first: chown(2) clears set-user-id and set-group-id bits, so a mode that
  // holds them must be applied afterwards to survive.
  if (chown(path, uid, gid) != 0 || chmod(path, mode) != 0) {
    return 1;
  }
  return 0;
}
