// CRL flash areas of libdrv. The host build keeps each area as an image file of the board, laid
// out as the flash area: a 32-bit little-endian length, the CRL, and erased bytes (0xFF) up to
// the area's size. A write replaces the whole image in one rename, as a device rewrites its
// area only after the new content is complete: a reader (or a reset) sees the old CRL or the
// new one, never a mix.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "board_description.hpp"
#include "drv.h"
#include "swm.h"

namespace {

constexpr const char *kFlashDir = "/etc/bootsim/flash";
constexpr size_t kLengthBytes = 4;
constexpr size_t kAreaSize = 131072;
static_assert(kLengthBytes + DRV_CRL_MAX_LEN == kAreaSize);
constexpr uint8_t kErased = 0xFF;
constexpr mode_t kImageMode = 0644;
constexpr mode_t kFlashDirMode = 0755;

struct Area {
  const char *name;  // file name of the image in kFlashDir
  const char *readFunction;
  const char *writeFunction;
};
constexpr Area kClassicArea{"crl", "drv_crl_read", "drv_crl_write"};
constexpr Area kPssArea{"pss_crl", "drv_pss_crl_read", "drv_pss_crl_write"};

std::string ImagePath(const Area &area) { return std::string(kFlashDir) + "/" + area.name; }

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  ~Descriptor() { (void)Close(); }
  [[nodiscard]] int get() const { return fd_; }
  // Closes now; false when close(2) reports that written data may be lost.
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

bool ReadExactly(int fd, uint8_t *buf, size_t len, off_t offset) {
  while (len > 0) {
    const ssize_t got = pread(fd, buf, len, offset);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return false;
    }
    buf += got;
    len -= static_cast<size_t>(got);
    offset += got;
  }
  return true;
}

// The stored length, after the checks that the image is one of this area.
uint32_t StoredLength(int fd, uint32_t *stored) {
  struct stat info {};
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) ||
      static_cast<size_t>(info.st_size) != kAreaSize) {
    return DRV_ERR_FLASH;
  }
  std::array<uint8_t, kLengthBytes> field{};
  if (!ReadExactly(fd, field.data(), field.size(), 0)) {
    return DRV_ERR_FLASH;
  }
  const uint32_t length = static_cast<uint32_t>(field[0]) | static_cast<uint32_t>(field[1]) << 8 |
                          static_cast<uint32_t>(field[2]) << 16 |
                          static_cast<uint32_t>(field[3]) << 24;
  if (length > DRV_CRL_MAX_LEN) {
    return DRV_ERR_FLASH;
  }
  *stored = length;
  return 0;
}

uint32_t ReadArea(const Area &area, uint8_t *buf, uint32_t bufLen, uint32_t *len) {
  int fd = -1;
  if (SWM_Open(ImagePath(area).c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK, &fd) != SWM_OK) {
    return errno == ENOENT ? DRV_ERR_NOT_FOUND : DRV_ERR_FLASH;  // no image: never written
  }
  const Descriptor image(fd);
  uint32_t stored = 0;
  const uint32_t status = StoredLength(image.get(), &stored);
  if (status != 0) {
    return status;
  }
  if (stored > bufLen) {
    *len = stored;  // how much room the caller needs
    return DRV_ERR_TOO_LONG;
  }
  if (!ReadExactly(image.get(), buf, stored, static_cast<off_t>(kLengthBytes))) {
    return DRV_ERR_FLASH;
  }
  *len = stored;
  return 0;
}

// The whole image of an area holding crl.
std::vector<uint8_t> MakeImage(const uint8_t *crl, uint32_t len) {
  std::vector<uint8_t> image(kAreaSize, kErased);
  for (size_t i = 0; i < kLengthBytes; ++i) {
    image[i] = static_cast<uint8_t>(len >> (8 * i));
  }
  std::memcpy(image.data() + kLengthBytes, crl, len);
  return image;
}

// Writes image to a new file beside the area's image and renames it over the image. On failure
// the new file is removed and the old image stays.
bool ReplaceImage(const Area &area, const std::vector<uint8_t> &image) {
  if (SWM_MkParentDir(kFlashDir, geteuid(), getegid(), kFlashDirMode) != SWM_OK) {
    return false;
  }
  std::string temp = std::string(kFlashDir) + "/." + area.name + ".XXXXXX";
  Descriptor out(mkostemp(temp.data(), O_CLOEXEC));
  if (out.get() < 0) {
    return false;
  }
  const bool done =
      fchmod(out.get(), kImageMode) == 0 &&
      SWM_Write(out.get(), image.data(), image.size()) == static_cast<ssize_t>(image.size()) &&
      fsync(out.get()) == 0 && out.Close() && rename(temp.c_str(), ImagePath(area).c_str()) == 0;
  if (!done) {
    (void)unlink(temp.c_str());
  }
  return done;
}

uint32_t WriteArea(const Area &area, const uint8_t *crl, uint32_t len) {
  try {
    return ReplaceImage(area, MakeImage(crl, len)) ? 0 : DRV_ERR_FLASH;
  } catch (const std::bad_alloc &) {
    return DRV_ERR_FLASH;
  }
}

uint32_t Read(const Area &area, uint8_t *buf, uint32_t bufLen, uint32_t *len) {
  if (buf == nullptr || bufLen == 0 || len == nullptr) {
    return DRV_ERR_PARAM;
  }
  uint32_t status = DRV_ERR_FLASH;
  try {
    status = ReadArea(area, buf, bufLen, len);
  } catch (const std::bad_alloc &) {
  }
  return boarddesc::ForcedResult(area.readFunction, status);
}

uint32_t Write(const Area &area, const uint8_t *buf, uint32_t len) {
  if (buf == nullptr || len == 0 || len > DRV_CRL_MAX_LEN) {
    return DRV_ERR_PARAM;
  }
  // A forced failure fails before anything is written: the area keeps its content.
  const uint32_t forced = boarddesc::ForcedResult(area.writeFunction, 0);
  return forced != 0 ? forced : WriteArea(area, buf, len);
}

}  // namespace

extern "C" uint32_t drv_crl_read(uint8_t *buf, uint32_t bufLen, uint32_t *len) {
  return Read(kClassicArea, buf, bufLen, len);
}

extern "C" uint32_t drv_crl_write(const uint8_t *buf, uint32_t len) {
  return Write(kClassicArea, buf, len);
}

extern "C" uint32_t drv_pss_crl_read(uint8_t *buf, uint32_t bufLen, uint32_t *len) {
  return Read(kPssArea, buf, bufLen, len);
}

extern "C" uint32_t drv_pss_crl_write(const uint8_t *buf, uint32_t len) {
  return Write(kPssArea, buf, len);
}
