// Helpers of the label and attribute tests: the files they work on, the recording stand-in of
// the label library, owners and flags as the system sees them.
#pragma once

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "board_facts.hpp"
#include "board_files.hpp"
#include "dl_counter.hpp"

namespace attrtest {

inline const std::string kLabelLibrary = "libselinux.so.1";
inline const std::string kDir = "/opt/attr";
inline const std::string kStandinContext = "system_u:object_r:etc_t:s0";

inline std::string Path(const std::string &name) { return kDir + "/" + name; }

inline void MakeFile(const std::string &path, const std::string &content, mode_t mode,
                     uid_t uid = 0, gid_t gid = 0) {
  testsupport::WriteFile(path, content);
  ASSERT_EQ(::chown(path.c_str(), uid, gid), 0) << path;
  ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
}

inline struct stat LstatOf(const std::string &path) {
  struct stat info {};
  ::lstat(path.c_str(), &info);
  return info;
}

inline std::pair<uid_t, gid_t> OwnerOf(const std::string &path) {
  const struct stat info = testsupport::StatOf(path);
  return {info.st_uid, info.st_gid};
}

inline std::pair<uid_t, gid_t> LinkOwnerOf(const std::string &path) {
  const struct stat info = LstatOf(path);
  return {info.st_uid, info.st_gid};
}

// The file-system flags as the test itself reads them (-1 when the request fails).
inline long FlagsOf(const std::string &path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    return -1;
  }
  unsigned int flags = 0;
  const int rc = ::ioctl(fd, FS_IOC_GETFLAGS, &flags);
  ::close(fd);
  return rc == 0 ? static_cast<long>(flags) : -1;
}

// A UNIX socket bound at path: it exists, yet open(2) refuses it (ENXIO). The returned
// descriptor keeps it bound; the caller closes it.
inline int BindSocket(const std::string &path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0) << path;
  return fd;
}

// A directory mounted read-only into the board (the host's /usr/local entries are), with its
// owner: changing anything there fails with EROFS whatever the owner asked for. Empty when the
// board has none.
inline std::string ReadOnlyDir() {
  for (const char *candidate : {"/usr/local/bin", "/usr/local/lib", "/usr/local/share"}) {
    struct statvfs info {};
    if (::statvfs(candidate, &info) == 0 && (info.f_flag & ST_RDONLY) != 0) {
      return candidate;
    }
  }
  return {};
}

// The recording stand-in of the label library, placed first on the board's library path and
// held open by the test so that its record survives the calls under test.
class Standin {
 public:
  explicit Standin(const std::string &library) {
    testsupport::PointPlatformLibrary(kLabelLibrary, library);
    handle_ = dlcount::OpenUncounted(kLabelLibrary, RTLD_NOW);
    if (handle_ != nullptr) {
      reset_ = Find<void (*)()>("selinux_standin_reset");
      setEnabled_ = Find<void (*)(int)>("selinux_standin_set_enabled");
      setContext_ = Find<void (*)(const char *)>("selinux_standin_set_context");
      fail_ = Find<void (*)(const char *, int)>("selinux_standin_fail");
      calls_ = Find<const char *(*)()>("selinux_standin_calls");
      outstanding_ = Find<int (*)()>("selinux_standin_outstanding");
    }
  }
  Standin(const Standin &) = delete;
  Standin &operator=(const Standin &) = delete;
  ~Standin() {
    if (handle_ != nullptr) {
      (void)dlcount::CloseUncounted(handle_);
    }
  }

  // True when the library the name leads to is the stand-in with all its controls.
  [[nodiscard]] bool ready() const {
    return reset_ != nullptr && setEnabled_ != nullptr && setContext_ != nullptr &&
           fail_ != nullptr && calls_ != nullptr && outstanding_ != nullptr;
  }
  void Reset() const { reset_(); }
  void SetEnabled(int enabled) const { setEnabled_(enabled); }
  void SetContext(const std::string &context) const { setContext_(context.c_str()); }
  void Fail(const std::string &function, int error) const { fail_(function.c_str(), error); }
  [[nodiscard]] std::string Calls() const { return calls_(); }
  [[nodiscard]] int Outstanding() const { return outstanding_(); }

 private:
  template <typename Function>
  Function Find(const char *name) {
    return reinterpret_cast<Function>(::dlsym(handle_, name));
  }

  void *handle_ = nullptr;
  void (*reset_)() = nullptr;
  void (*setEnabled_)(int) = nullptr;
  void (*setContext_)(const char *) = nullptr;
  void (*fail_)(const char *, int) = nullptr;
  const char *(*calls_)() = nullptr;
  int (*outstanding_)() = nullptr;
};

// Every handle of the label library opened by the code under test has been closed again.
inline void ExpectNoLibraryHandleLeft(int expectedOpens) {
  const dlcount::Counts counts = dlcount::Get();
  EXPECT_EQ(counts.opened, expectedOpens);
  EXPECT_EQ(counts.closed, counts.opened);
  EXPECT_EQ(counts.live, 0);
}

}  // namespace attrtest
