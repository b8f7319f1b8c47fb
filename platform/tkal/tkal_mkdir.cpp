// mkdir -p with owners: only the directories this call creates get the requested owner,
// group and mode; directories that already exist are never changed.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "tkal.h"

namespace {

// Owner and group used when a name is unknown on this board.
constexpr uid_t kFallbackUid = 2000;
constexpr gid_t kFallbackGid = 2000;
// Created private first; the final owner and mode follow once the whole chain exists, so the
// process umask never shapes the result and nobody else can use a half-made directory.
constexpr mode_t kCreateMode = 0700;

bool IsDirectory(const std::string &path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Every prefix of path that ends a component: "a", "a/b", "a/b/c" for "a//b/c/".
std::vector<std::string> ComponentPrefixes(const std::string &path) {
  std::vector<std::string> prefixes;
  size_t pos = 0;
  while ((pos = path.find_first_not_of('/', pos)) != std::string::npos) {
    pos = path.find('/', pos);
    if (pos == std::string::npos) {
      pos = path.size();
    }
    prefixes.push_back(path.substr(0, pos));
  }
  if (prefixes.empty()) {
    prefixes.push_back(path);  // only slashes: the root itself
  }
  return prefixes;
}

// The directories created by one call, deepest last.
class CreatedChain {
 public:
  explicit CreatedChain(size_t depth) { dirs_.reserve(depth); }  // no allocation after mkdir
  CreatedChain(const CreatedChain &) = delete;
  CreatedChain &operator=(const CreatedChain &) = delete;
  // A call that fails leaves no half-built chain behind; rmdir(2) only removes directories
  // that are still empty, so nothing another process put there is lost.
  ~CreatedChain() {
    const int saved = errno;
    for (auto it = dirs_.rbegin(); !kept_ && it != dirs_.rend(); ++it) {
      (void)rmdir(it->c_str());
    }
    errno = saved;
  }

  // Makes sure prefix is a directory, creating it when missing.
  bool Ensure(const std::string &prefix) {
    struct stat info {};
    if (stat(prefix.c_str(), &info) == 0) {
      if (S_ISDIR(info.st_mode)) {
        return true;
      }
      errno = ENOTDIR;  // a file or device is in the way
      return false;
    }
    if (errno != ENOENT) {
      return false;
    }
    if (mkdir(prefix.c_str(), kCreateMode) == 0) {
      dirs_.push_back(prefix);
      return true;
    }
    if (errno != EEXIST) {
      return false;
    }
    // Another process may have created it in between; that one is not ours to change.
    if (IsDirectory(prefix)) {
      return true;
    }
    errno = EEXIST;  // e.g. a dangling symbolic link
    return false;
  }

  // Deepest first: a restrictive mode on a parent must not stop the changes below it.
  bool ApplyOwnership(uid_t uid, gid_t gid, mode_t mode) const {
    for (auto it = dirs_.rbegin(); it != dirs_.rend(); ++it) {
      if (TKAL_SetFilePermission(it->c_str(), uid, gid, mode) != 0) {
        return false;
      }
    }
    return true;
  }

  void Keep() { kept_ = true; }

 private:
  std::vector<std::string> dirs_;
  bool kept_ = false;
};

uint32_t MakeChain(const std::string &path, uid_t uid, gid_t gid, mode_t mode) {
  const std::vector<std::string> prefixes = ComponentPrefixes(path);
  CreatedChain chain(prefixes.size());
  for (const std::string &prefix : prefixes) {
    if (!chain.Ensure(prefix)) {
      return 1;
    }
  }
  if (!chain.ApplyOwnership(uid, gid, mode)) {
    return 1;
  }
  chain.Keep();
  return 0;
}

}  // namespace

extern "C" uint32_t TKAL_MkDirWithUserGroup(const char *path, const char *userName,
                                            const char *groupName, mode_t mode) {
  if (path == nullptr || path[0] == '\0') {
    errno = path == nullptr ? EINVAL : ENOENT;
    return 1;
  }
  const uid_t uid = TKAL_GetUidByName(userName, kFallbackUid);
  const gid_t gid = TKAL_GetGidByName(groupName, kFallbackGid);
  try {
    return MakeChain(path, uid, gid, mode);
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;  // no exception may leave a C interface
    return 1;
  }
}
