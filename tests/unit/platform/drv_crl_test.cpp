// Tests of libdrv's CRL flash areas: the image files /etc/bootsim/flash/crl and pss_crl (a
// 32-bit little-endian length, the CRL, erased bytes up to 131072), areas never written, erased
// or damaged, the size limits, atomic replacement, forced failures and the minimal build.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "board_env_files.hpp"
#include "drv.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr const char *kFlashDir = "/etc/bootsim/flash";
constexpr const char *kClassicImage = "/etc/bootsim/flash/crl";
constexpr const char *kPssImage = "/etc/bootsim/flash/pss_crl";
constexpr size_t kImageSize = 131072;
constexpr uint32_t kMaxCrl = 131068;
constexpr uint32_t kUntouched = 0xA5A5A5A5u;

using ReadFn = uint32_t (*)(uint8_t *, uint32_t, uint32_t *);
using WriteFn = uint32_t (*)(const uint8_t *, uint32_t);

struct Area {
  const char *image;
  ReadFn read;
  WriteFn write;
  const char *readName;
  const char *writeName;
};

// Names the area in test names and messages.
void PrintTo(const Area &area, std::ostream *out) { *out << area.image; }

const Area kAreas[] = {
    {kClassicImage, drv_crl_read, drv_crl_write, "drv_crl_read", "drv_crl_write"},
    {kPssImage, drv_pss_crl_read, drv_pss_crl_write, "drv_pss_crl_read", "drv_pss_crl_write"},
};

Bytes Pattern(size_t size, uint8_t seed) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<uint8_t>(seed + i * 31);
  }
  return bytes;
}

Bytes ReadImage(const std::string &path) {
  const std::string text = boardtest::ReadFile(path);
  return Bytes(text.begin(), text.end());
}

void WriteImage(const std::string &path, const Bytes &bytes) {
  boardtest::WriteFile(path, std::string(bytes.begin(), bytes.end()));
}

// An image as the flash holds it: the length (little-endian), the CRL, then 0xFF.
Bytes Image(uint32_t length, const Bytes &crl, size_t size = kImageSize) {
  Bytes image(size, 0xFF);
  for (size_t i = 0; i < 4; ++i) {
    image[i] = static_cast<uint8_t>(length >> (8 * i));
  }
  std::copy(crl.begin(), crl.end(), image.begin() + 4);
  return image;
}

std::vector<std::string> FlashEntries() {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(kFlashDir)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

class DrvCrlTest : public ::testing::TestWithParam<Area> {
 protected:
  void SetUp() override {
    boardtest::WriteDescription("[board]\nname=demo\n");
    boardtest::RemovePath(kFlashDir);
  }

  // Reads the area into a buffer of bufLen bytes; status and length into the arguments.
  Bytes Read(uint32_t *status, uint32_t *len, uint32_t bufLen = kMaxCrl) {
    Bytes buf(bufLen, 0xEE);
    *len = kUntouched;
    *status = GetParam().read(buf.data(), bufLen, len);
    if (*status == 0) {
      buf.resize(*len);
    }
    return buf;
  }
  uint32_t Write(const Bytes &crl) {
    return GetParam().write(crl.data(), static_cast<uint32_t>(crl.size()));
  }
};

TEST_P(DrvCrlTest, AreaNeverWrittenHasNoCrl) {
  uint32_t status = 0;
  uint32_t len = 0;
  (void)Read(&status, &len);
  EXPECT_EQ(status, DRV_ERR_NOT_FOUND);
  EXPECT_EQ(len, kUntouched);
}

TEST_P(DrvCrlTest, WrittenCrlReadsBackAndTheImageHasTheFlashLayout) {
  const Bytes crl = Pattern(1234, 3);
  ASSERT_EQ(Write(crl), 0u);
  uint32_t status = 1;
  uint32_t len = 0;
  EXPECT_EQ(Read(&status, &len), crl);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(len, 1234u);
  EXPECT_EQ(ReadImage(GetParam().image), Image(1234, crl));
  struct stat info {};
  ASSERT_EQ(stat(GetParam().image, &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644u);
  // The other area is untouched.
  const char *other = GetParam().image == std::string(kClassicImage) ? kPssImage : kClassicImage;
  EXPECT_FALSE(std::filesystem::exists(other));
}

TEST_P(DrvCrlTest, SizeLimits) {
  const Bytes largest = Pattern(kMaxCrl, 9);
  EXPECT_EQ(Write(largest), 0u);
  uint32_t status = 1;
  uint32_t len = 0;
  EXPECT_EQ(Read(&status, &len), largest);
  EXPECT_EQ(status, 0u);
  const Bytes tooLarge = Pattern(kMaxCrl + 1, 1);
  EXPECT_EQ(Write(tooLarge), DRV_ERR_PARAM);
  EXPECT_EQ(GetParam().write(tooLarge.data(), 0), DRV_ERR_PARAM);
  EXPECT_EQ(GetParam().write(nullptr, 10), DRV_ERR_PARAM);
  EXPECT_EQ(Read(&status, &len), largest);  // refused writes changed nothing
  Bytes one = {0x30};
  EXPECT_EQ(Write(one), 0u);
  EXPECT_EQ(Read(&status, &len), one);
}

TEST_P(DrvCrlTest, BufferMustHoldTheCrl) {
  const Bytes crl = Pattern(100, 5);
  ASSERT_EQ(Write(crl), 0u);
  uint32_t status = 0;
  uint32_t len = 0;
  const Bytes buf = Read(&status, &len, 99);
  EXPECT_EQ(status, DRV_ERR_TOO_LONG);
  EXPECT_EQ(len, 100u);             // the room needed
  EXPECT_EQ(buf, Bytes(99, 0xEE));  // nothing copied
  EXPECT_EQ(Read(&status, &len, 100), crl);
  EXPECT_EQ(status, 0u);
}

TEST_P(DrvCrlTest, ReadParameters) {
  uint8_t buf[8] = {};
  uint32_t len = kUntouched;
  EXPECT_EQ(GetParam().read(nullptr, 8, &len), DRV_ERR_PARAM);
  EXPECT_EQ(GetParam().read(buf, 0, &len), DRV_ERR_PARAM);
  EXPECT_EQ(GetParam().read(buf, 8, nullptr), DRV_ERR_PARAM);
  EXPECT_EQ(len, kUntouched);
}

TEST_P(DrvCrlTest, ErasedAreaHoldsACrlOfLengthZero) {
  WriteImage(GetParam().image, Image(0, {}));
  uint32_t status = 1;
  uint32_t len = kUntouched;
  EXPECT_EQ(Read(&status, &len), Bytes{});
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(len, 0u);
}

TEST_P(DrvCrlTest, DamagedImages) {
  uint32_t status = 0;
  uint32_t len = kUntouched;
  for (const size_t size : {kImageSize - 1, kImageSize + 1}) {
    WriteImage(GetParam().image, Image(10, Pattern(10, 1), size));
    (void)Read(&status, &len);
    EXPECT_EQ(status, DRV_ERR_FLASH) << size;
  }
  for (const size_t size : {size_t{0}, size_t{4}}) {
    WriteImage(GetParam().image, Bytes(size, 0));
    (void)Read(&status, &len);
    EXPECT_EQ(status, DRV_ERR_FLASH) << size;
  }
  WriteImage(GetParam().image, Image(kMaxCrl + 1, {}));
  (void)Read(&status, &len);
  EXPECT_EQ(status, DRV_ERR_FLASH);
  WriteImage(GetParam().image, Image(0xFFFFFFFFu, {}));  // never-programmed flash
  (void)Read(&status, &len);
  EXPECT_EQ(status, DRV_ERR_FLASH);
  EXPECT_EQ(len, kUntouched);
  // The largest length is no damage.
  WriteImage(GetParam().image, Image(kMaxCrl, {}));
  EXPECT_EQ(Read(&status, &len), Bytes(kMaxCrl, 0xFF));
  EXPECT_EQ(status, 0u);
  boardtest::RemovePath(GetParam().image);
  std::filesystem::create_directories(GetParam().image);
  (void)Read(&status, &len);
  EXPECT_EQ(status, DRV_ERR_FLASH);
}

TEST_P(DrvCrlTest, WriteReplacesTheImageWhole) {
  ASSERT_EQ(Write(Pattern(5000, 1)), 0u);
  struct stat before {};
  ASSERT_EQ(stat(GetParam().image, &before), 0);
  const Bytes shorter = Pattern(10, 2);
  ASSERT_EQ(Write(shorter), 0u);
  struct stat after {};
  ASSERT_EQ(stat(GetParam().image, &after), 0);
  EXPECT_NE(after.st_ino, before.st_ino);                      // a new file renamed into place
  EXPECT_EQ(ReadImage(GetParam().image), Image(10, shorter));  // no rest of the longer CRL
  const std::string name = std::filesystem::path(GetParam().image).filename().string();
  EXPECT_EQ(FlashEntries(), std::vector<std::string>{name});  // no temporary file left
}

TEST_P(DrvCrlTest, FailedWriteLeavesTheOldContent) {
  const Bytes old = Pattern(300, 4);
  ASSERT_EQ(Write(old), 0u);
  // A file size limit below the image's makes the write itself fail (EFBIG), as a full or
  // failing flash would, in a child process.
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{65536, 65536};
    setrlimit(RLIMIT_FSIZE, &limit);
    const Bytes fresh = Pattern(200, 8);
    _exit(GetParam().write(fresh.data(), 200) == DRV_ERR_FLASH ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(ReadImage(GetParam().image), Image(300, old));
  const std::string name = std::filesystem::path(GetParam().image).filename().string();
  EXPECT_EQ(FlashEntries(), std::vector<std::string>{name});
}

TEST_P(DrvCrlTest, ForcedWriteFailureChangesNothing) {
  const Bytes old = Pattern(64, 6);
  ASSERT_EQ(Write(old), 0u);
  boardtest::WriteDescription(std::string("[fail]\n") + GetParam().writeName + "=0x66\n");
  EXPECT_EQ(Write(Pattern(32, 1)), 0x66u);
  EXPECT_EQ(ReadImage(GetParam().image), Image(64, old));
  // libdrv writes the image through libswm: a failing SWM_Write fails the write midway, and
  // the old image stays.
  boardtest::WriteDescription("[fail]\nSWM_Write=1\n");
  EXPECT_EQ(Write(Pattern(32, 1)), DRV_ERR_FLASH);
  EXPECT_EQ(ReadImage(GetParam().image), Image(64, old));
  const std::string name = std::filesystem::path(GetParam().image).filename().string();
  EXPECT_EQ(FlashEntries(), std::vector<std::string>{name});
}

TEST_P(DrvCrlTest, ForcedReadFailureStillReads) {
  const Bytes crl = Pattern(20, 7);
  ASSERT_EQ(Write(crl), 0u);
  boardtest::WriteDescription(std::string("[fail]\n") + GetParam().readName + "=420\n");
  uint32_t status = 0;
  uint32_t len = 0;
  Bytes buf(64, 0);
  EXPECT_EQ(GetParam().read(buf.data(), 64, &len), 420u);
  EXPECT_EQ(len, 20u);
  EXPECT_TRUE(std::equal(crl.begin(), crl.end(), buf.begin()));
  boardtest::WriteDescription(std::string("[fail]\n") + GetParam().readName + "=0\n");
  EXPECT_EQ(Read(&status, &len), crl);
  EXPECT_EQ(status, 0u);
}

TEST_P(DrvCrlTest, MissingFlashDirectoryIsCreated) {
  ASSERT_FALSE(std::filesystem::exists(kFlashDir));
  ASSERT_EQ(Write(Pattern(8, 0)), 0u);
  struct stat info {};
  ASSERT_EQ(stat(kFlashDir, &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_EQ(info.st_mode & 07777, 0755u);
}

INSTANTIATE_TEST_SUITE_P(Areas, DrvCrlTest, ::testing::ValuesIn(kAreas),
                         [](const ::testing::TestParamInfo<Area> &info) {
                           return std::string(info.param.image) == kClassicImage ? "Classic"
                                                                                 : "Pss";
                         });

TEST(DrvCrlBuilds, MinimalBuildHasTheFlashAreas) {
  boardtest::WriteDescription("[board]\nname=demo\n");
  boardtest::RemovePath(kFlashDir);
  void *minimal = dlopen(DRV_MINIMAL_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(minimal, nullptr) << dlerror();
  for (const char *name :
       {"drv_crl_read", "drv_crl_write", "drv_pss_crl_read", "drv_pss_crl_write"}) {
    EXPECT_NE(dlsym(minimal, name), nullptr) << name;
  }
  auto write = reinterpret_cast<WriteFn>(dlsym(minimal, "drv_pss_crl_write"));
  ASSERT_NE(write, nullptr);
  const Bytes crl = Pattern(77, 9);
  EXPECT_EQ(write(crl.data(), 77), 0u);
  dlclose(minimal);
  // The full build reads what the minimal one wrote: one image format.
  Bytes buf(100);
  uint32_t len = 0;
  EXPECT_EQ(drv_pss_crl_read(buf.data(), 100, &len), 0u);
  buf.resize(len);
  EXPECT_EQ(buf, crl);
}

}  // namespace
