// Directory chains: creates a directory and its missing parents, owning only what it creates.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "swm.h"

namespace {

// Created private first; the final owner and mode follow once the whole chain exists, so the
// process umask never shapes the result and nobody else can use a half-made directory.
constexpr mode_t kCreateMode = 0700;

enum class Component { kPresent, kCreated, kFailed };

// Makes one prefix of the chain exist as a directory.
Component EnsureDirectory(const std::string &dir) {
  struct stat info {};
  if (stat(dir.c_str(), &info) == 0) {
    if (S_ISDIR(info.st_mode)) {
      return Component::kPresent;
    }
    errno = ENOTDIR;
    return Component::kFailed;
  }
  if (errno != ENOENT) {
    return Component::kFailed;
  }
  if (mkdir(dir.c_str(), kCreateMode) == 0) {
    return Component::kCreated;
  }
  // A concurrent creator won the race: the directory exists but is not ours to change.
  if (errno == EEXIST && stat(dir.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
    return Component::kPresent;
  }
  return Component::kFailed;
}

// Every prefix of dir ending a component: "a", "a/b", "a/b/c" for "a//b/c/".
std::vector<std::string> ComponentPrefixes(const std::string &dir) {
  std::vector<std::string> prefixes;
  size_t pos = 0;
  while ((pos = dir.find_first_not_of('/', pos)) != std::string::npos) {
    pos = dir.find('/', pos);
    if (pos == std::string::npos) {
      pos = dir.size();
    }
    prefixes.push_back(dir.substr(0, pos));
  }
  if (prefixes.empty()) {
    prefixes.push_back(dir);  // only slashes: the root itself
  }
  return prefixes;
}

// Owner and mode go deepest first, so a restrictive parent mode cannot block its children.
bool ApplyOwnership(const std::vector<std::string> &created, uid_t uid, gid_t gid, mode_t mode) {
  for (auto it = created.rbegin(); it != created.rend(); ++it) {
    // chown(2) may clear set-id bits, so the mode comes after the owner.
    if (chown(it->c_str(), uid, gid) != 0 || chmod(it->c_str(), mode) != 0) {
      return false;
    }
  }
  return true;
}

// A failed call takes back what it created; rmdir(2) spares directories others filled.
void RemoveCreated(const std::vector<std::string> &created) {
  const int saved = errno;
  for (auto it = created.rbegin(); it != created.rend(); ++it) {
    (void)rmdir(it->c_str());
  }
  errno = saved;
}

uint32_t MakeChain(const std::string &dir, uid_t uid, gid_t gid, mode_t mode) {
  const std::vector<std::string> prefixes = ComponentPrefixes(dir);
  std::vector<std::string> created;
  created.reserve(prefixes.size());  // no allocation can fail once directories exist
  for (const std::string &prefix : prefixes) {
    const Component state = EnsureDirectory(prefix);
    if (state == Component::kFailed) {
      RemoveCreated(created);
      return SWM_ERR_IO;
    }
    if (state == Component::kCreated) {
      created.push_back(prefix);
    }
  }
  if (!ApplyOwnership(created, uid, gid, mode)) {
    RemoveCreated(created);
    return SWM_ERR_IO;
  }
  return SWM_OK;
}

}  // namespace

extern "C" uint32_t SWM_MkParentDir(const char *dir, uid_t uid, gid_t gid, mode_t mode) {
  if (dir == nullptr || dir[0] == '\0') {
    return SWM_ERR_PARAM;
  }
  try {
    return MakeChain(dir, uid, gid, mode);
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;  // no exception may leave a C interface
    return SWM_ERR_NOMEM;
  }
}
