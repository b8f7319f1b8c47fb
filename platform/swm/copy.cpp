// Whole-file copies and permission changes by path.
//
// A copy never leaves a half-written destination: the content goes into a new file beside the
// destination, which is flushed to disk and then renamed over the destination in one step. A
// reader (or a reset in the middle) sees the old file or the complete new one.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "forced.h"
#include "swm.h"
#include "write_all.h"

namespace {

constexpr size_t kCopyChunk = 65536;
constexpr mode_t kPermissionBits = 07777;
// Set-id and sticky bits are privileges of the source, not content: the copy does not get them.
constexpr mode_t kCopyModeBits = 0777;
constexpr const char *kTempSuffix = "/.swm_copy.XXXXXX";

class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  ~Fd() { Close(); }

  [[nodiscard]] int get() const { return fd_; }

  // Closes now; false (errno kept) when close(2) reports an error, which for a file just
  // written may mean that data was lost.
  bool Close() {
    if (fd_ < 0) {
      return true;
    }
    const int rc = close(std::exchange(fd_, -1));
    return rc == 0 || errno == EINTR;
  }

 private:
  int fd_;
};

int OpenRetrying(const char *path, int flags) {
  int fd = -1;
  do {
    fd = open(path, flags | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// The directory part of path ("." for a bare name, "/" for a name in the root).
std::string DirectoryOf(const std::string &path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Copies everything readable from in to out through buffer (files whose stat size is 0 but which
// have content, as in /proc, included).
bool CopyContent(int in, int out, std::vector<char> &buffer) {
  for (;;) {
    const ssize_t got = read(in, buffer.data(), buffer.size());
    if (got == 0) {
      return true;
    }
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    if (!swm::WriteAll(out, buffer.data(), static_cast<size_t>(got))) {
      return false;
    }
  }
}

// A new, empty file in dir with a unique name; *tempPath receives its name.
int CreateTemp(const std::string &dir, std::string *tempPath) {
  std::string name = dir + kTempSuffix;
  const int fd = mkostemp(name.data(), O_CLOEXEC);
  if (fd >= 0) {
    *tempPath = std::move(name);
  }
  return fd;
}

// The source and what the copy needs, all had before the temporary file exists: nothing can
// throw while it does.
struct Source {
  int fd;
  mode_t mode;
  std::vector<char> &buffer;
};

// Fills the temporary file and puts it in place of dst. On failure the temporary file is
// removed again and errno names the step that failed.
bool FillAndRename(const Source &source, const std::string &tempPath, Fd &out, const char *dst) {
  const bool done = CopyContent(source.fd, out.get(), source.buffer) &&
                    fchmod(out.get(), source.mode) == 0 && fsync(out.get()) == 0 && out.Close() &&
                    rename(tempPath.c_str(), dst) == 0;
  if (!done) {
    const int saved = errno;
    (void)unlink(tempPath.c_str());
    errno = saved;
  }
  return done;
}

uint32_t CopyRegularFile(const char *src, const char *dst) {
  // Non-blocking only while the kind of file is not known: a FIFO without a writer must be
  // refused, not waited for. Regular files are then read blocking, as usual.
  const Fd in(OpenRetrying(src, O_RDONLY | O_NONBLOCK | O_NOCTTY));
  if (in.get() < 0) {
    return SWM_ERR_IO;
  }
  struct stat info {};
  if (fstat(in.get(), &info) != 0) {
    return SWM_ERR_IO;
  }
  if (!S_ISREG(info.st_mode)) {
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    return SWM_ERR_IO;
  }
  const int statusFlags = fcntl(in.get(), F_GETFL);
  if (statusFlags < 0 || fcntl(in.get(), F_SETFL, statusFlags & ~O_NONBLOCK) != 0) {
    return SWM_ERR_IO;
  }
  std::vector<char> buffer(kCopyChunk);
  const Source source{in.get(), info.st_mode & kCopyModeBits, buffer};
  std::string tempPath;
  Fd out(CreateTemp(DirectoryOf(dst), &tempPath));
  if (out.get() < 0) {
    return SWM_ERR_IO;
  }
  return FillAndRename(source, tempPath, out, dst) ? SWM_OK : SWM_ERR_IO;
}

}  // namespace

extern "C" uint32_t SWM_CopyFile(const char *src, const char *dst) {
  if (src == nullptr || dst == nullptr || src[0] == '\0' || dst[0] == '\0') {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_CopyFile", &forced)) {
    return forced;
  }
  try {
    return CopyRegularFile(src, dst);
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return SWM_ERR_NOMEM;
  }
}

extern "C" uint32_t SWM_FchmodPath(const char *path, mode_t mode) {
  if (path == nullptr) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_FchmodPath", &forced)) {
    return forced;
  }
  return fchmodat(AT_FDCWD, path, mode & kPermissionBits, 0) == 0 ? SWM_OK : SWM_ERR_IO;
}
