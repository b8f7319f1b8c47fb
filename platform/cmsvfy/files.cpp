// Reading certificate, CRL and signature files whole.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "cmsvfy_core.hpp"

namespace cmsvfy {

namespace {

constexpr size_t kReadChunk = 65536;

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  // A close after reading cannot lose data; its result does not matter.
  ~Descriptor() {
    if (fd_ >= 0) {
      (void)close(fd_);
    }
  }
  [[nodiscard]] int get() const { return fd_; }

 private:
  int fd_;
};

// Everything up to end of file; more than kMaxDerFile bytes give tooLarge.
uint32_t ReadAll(int fd, uint32_t tooLarge, std::vector<uint8_t> *bytes) {
  std::vector<uint8_t> content;
  for (;;) {
    const size_t used = content.size();
    content.resize(used + kReadChunk);
    const ssize_t got = read(fd, content.data() + used, kReadChunk);
    if (got < 0 && errno == EINTR) {
      content.resize(used);
      continue;
    }
    if (got < 0) {
      return CMSVFY_ERR_IO;
    }
    content.resize(used + static_cast<size_t>(got));
    if (content.size() > kMaxDerFile) {
      return tooLarge;
    }
    if (got == 0) {
      *bytes = std::move(content);
      return CMSVFY_OK;
    }
  }
}

}  // namespace

int OpenRegularFile(const char *path) {
  int fd = -1;
  do {
    // Non-blocking until the kind of file is known: a FIFO without a writer is refused, not
    // waited for (regular files ignore the flag).
    fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) {
    return -1;
  }
  struct stat info {};
  int error = 0;
  if (fstat(fd, &info) != 0) {
    error = errno;
  } else if (!S_ISREG(info.st_mode)) {
    error = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
  }
  if (error != 0) {
    (void)close(fd);
    errno = error;
    return -1;
  }
  return fd;
}

uint32_t ReadFile(const char *path, uint32_t tooLarge, std::vector<uint8_t> *bytes) {
  const Descriptor file(OpenRegularFile(path));
  if (file.get() < 0) {
    return CMSVFY_ERR_IO;
  }
  return ReadAll(file.get(), tooLarge, bytes);
}

}  // namespace cmsvfy
