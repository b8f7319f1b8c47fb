// The CRL in the driver's flash: reading (PSS area first), storing a CRL file in the area of
// its signature scheme, and copying a CRL file over an existing file. The real driver keeps
// the areas as image files of the board; its failures are forced through the board
// description. Short reads and refused opens come from sysfs attributes, a full disk from
// /dev/full; only a refused allocation goes through a seam.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "alloc_faults.hpp"
#include "board_facts.hpp"
#include "bootinit/board.h"
#include "crl_fixture.hpp"

using crltest::Area;
using crltest::AreaContent;
using crltest::PkiBytes;
using crltest::StoreInArea;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;

namespace {

const std::string kDir = "/opt/crl";
const std::string kFile = kDir + "/crl_upgrade";
const std::string kDst = kDir + "/kernel_crl";
// A sysfs attribute that claims 4096 bytes and delivers a few: a real short read.
const std::string kShortFile = "/sys/devices/system/cpu/online";
// A write-only sysfs attribute: opening it for reading fails even for root.
const std::string kWriteOnlyFile = "/sys/bus/platform/drivers_probe";

const std::string kPssRead = "[BOOT_INIT][INFO]:Read pss crl from drv, ret=0";
const std::string kWriteFailed = "[BOOT_INIT][ERROR]:write crl to flash failed";

class CrlFlashTest : public testing::Test {
 protected:
  void SetUp() override {
    allocfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::DescribeBoard(testsupport::ActiveMainBoard());
    crltest::ForgetFlash();
    testsupport::RemovePath(kDir);
    testsupport::MakeDir(kDir);
    fdsBefore_ = testsupport::CountOpenFds();
  }
  void TearDown() override {
    allocfaults::Reset();
    EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore_);
  }

  static void Fail(const std::string &function, const std::string &code) {
    testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"fail." + function, code}});
  }

  // The result of ReadFlashCrl and what it put into the caller's buffer.
  struct Read {
    uint32_t result = 0xDEADBEEF;
    uint32_t len = 0xDEADBEEF;
    std::string bytes;
  };
  static Read ReadFlash() {
    std::vector<uint8_t> buf(BOOT_INIT_CRL_MAX_LEN, 0);
    Read read;
    EXPECT_EQ(allocfaults::BlocksLeftBy(
                  [&] { read.result = BOOT_INIT_ReadFlashCrl(buf.data(), &read.len); }),
              0u);
    if (read.result == 0) {
      read.bytes.assign(reinterpret_cast<const char *>(buf.data()), read.len);
    }
    return read;
  }

  // Calls under test must give back every block they take.
  static uint32_t WriteFlash(const std::string &path) {
    uint32_t result = 0xDEADBEEF;
    EXPECT_EQ(
        allocfaults::BlocksLeftBy([&] { result = BOOT_INIT_WriteFlashCrlFile(path.c_str()); }), 0u);
    return result;
  }
  static uint32_t WriteKernel(const std::string &src, const std::string &dst) {
    uint32_t result = 0xDEADBEEF;
    EXPECT_EQ(allocfaults::BlocksLeftBy(
                  [&] { result = BOOT_INIT_WriteKernelCrlFile(src.c_str(), dst.c_str()); }),
              0u);
    return result;
  }

  int fdsBefore_ = 0;
};

// ---- reading ----

TEST_F(CrlFlashTest, PssAreaIsReadFirst) {
  StoreInArea(Area::kClassic, PkiBytes("crl_newer.der"));
  StoreInArea(Area::kPss, PkiBytes("crl_pss_empty.der"));
  const Read read = ReadFlash();
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.bytes, PkiBytes("crl_pss_empty.der"));
  EXPECT_EQ(read.len, PkiBytes("crl_pss_empty.der").size());
  EXPECT_THAT(MainLog(), ElementsAre(kPssRead));
}

TEST_F(CrlFlashTest, OnlyTheClassicAreaHoldsACrl) {
  StoreInArea(Area::kClassic, PkiBytes("crl_newer.der"));
  const Read read = ReadFlash();
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.bytes, PkiBytes("crl_newer.der"));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlFlashTest, NeitherAreaHoldsACrl) {
  const Read read = ReadFlash();
  EXPECT_EQ(read.result, 0xFFFFFFFFu);
  EXPECT_EQ(read.len, 0xDEADBEEFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:crl flash read failed, ret 2"));
}

// An erased PSS area holds a CRL of length 0, and that is the answer: the classic area is not
// asked.
TEST_F(CrlFlashTest, ErasedPssAreaIsAnEmptyCrl) {
  StoreInArea(Area::kClassic, PkiBytes("crl_newer.der"));
  crltest::EraseArea(Area::kPss);
  const Read read = ReadFlash();
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.len, 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kPssRead));
}

TEST_F(CrlFlashTest, ErasedClassicAreaIsAnEmptyCrl) {
  crltest::EraseArea(Area::kClassic);
  const Read read = ReadFlash();
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.len, 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlFlashTest, FailingPssAreaFallsBackToTheClassicOne) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  StoreInArea(Area::kPss, PkiBytes("crl_pss_revoking.der"));
  Fail("drv_pss_crl_read", "0x5");
  const Read read = ReadFlash();
  EXPECT_EQ(read.result, 0u);
  EXPECT_EQ(read.bytes, PkiBytes("crl_older.der"));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlFlashTest, FailingClassicAreaIsReportedWithItsCode) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  Fail("drv_crl_read", "0x55");
  const Read read = ReadFlash();
  EXPECT_EQ(read.result, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:crl flash read failed, ret 85"));
}

TEST_F(CrlFlashTest, EmptyArguments) {
  uint8_t byte = 0;
  uint32_t len = 0;
  EXPECT_EQ(BOOT_INIT_ReadFlashCrl(nullptr, &len), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_ReadFlashCrl(&byte, nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_WriteFlashCrlFile(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_WriteBuf2File(nullptr, 1, kDst.c_str()), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_WriteBuf2File(&byte, 1, nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_WriteKernelCrlFile(nullptr, kDst.c_str()), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_WriteKernelCrlFile(kFile.c_str(), nullptr), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), IsEmpty());
}

// ---- storing a CRL file in flash ----

TEST_F(CrlFlashTest, ClassicCrlGoesToTheClassicArea) {
  testsupport::WriteFile(kFile, PkiBytes("crl_newer.der"));
  EXPECT_EQ(WriteFlash(kFile), 0u);
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_newer.der"));
  EXPECT_EQ(AreaContent(Area::kPss), std::nullopt);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlFlashTest, PssCrlGoesToThePssArea) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  testsupport::WriteFile(kFile, PkiBytes("crl_pss_revoking.der"));
  EXPECT_EQ(WriteFlash(kFile), 0u);
  EXPECT_EQ(AreaContent(Area::kPss), PkiBytes("crl_pss_revoking.der"));
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_older.der"));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlFlashTest, CrlOfTheLargestSizeIsStored) {
  crltest::WritePaddedPemCrl(kFile, "crl_newer.der", crltest::kCrlMaxLen);
  ASSERT_EQ(std::filesystem::file_size(kFile), 131068u);
  EXPECT_EQ(WriteFlash(kFile), 0u);
  EXPECT_EQ(AreaContent(Area::kClassic), testsupport::ReadFile(kFile));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlFlashTest, CrlOneByteLongerIsRefused) {
  crltest::WritePaddedPemCrl(kFile, "crl_newer.der", crltest::kCrlMaxLen + 1);
  EXPECT_EQ(WriteFlash(kFile), 0xFFFFFFFFu);
  EXPECT_EQ(AreaContent(Area::kClassic), std::nullopt);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:crl file size too long, size:131069"));
}

TEST_F(CrlFlashTest, EmptyFileIsRefused) {
  testsupport::WriteFile(kFile, "");
  EXPECT_EQ(WriteFlash(kFile), 0xFFFFFFFFu);
  EXPECT_EQ(AreaContent(Area::kClassic), std::nullopt);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:crl file size too long, size:0"));
}

TEST_F(CrlFlashTest, FileOfUnknownSchemeIsNotStored) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  testsupport::WriteFile(kFile, "not a revocation list\n");
  EXPECT_EQ(WriteFlash(kFile), 0xFFFFFFFFu);
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_older.der"));
  EXPECT_EQ(AreaContent(Area::kPss), std::nullopt);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:get crl alg failed", kWriteFailed));
}

TEST_F(CrlFlashTest, MissingFile) {
  EXPECT_EQ(WriteFlash(kFile), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:get file size failed"));
}

TEST_F(CrlFlashTest, DirectoryIsNoCrlFile) {
  EXPECT_EQ(WriteFlash(kDir), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:get file size failed"));
}

TEST_F(CrlFlashTest, FileThatCannotBeOpened) {
  EXPECT_EQ(WriteFlash(kWriteOnlyFile), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:open crl file failed, file " + kWriteOnlyFile));
}

TEST_F(CrlFlashTest, ShortRead) {
  EXPECT_EQ(WriteFlash(kShortFile), 0xFFFFFFFFu);
  EXPECT_EQ(AreaContent(Area::kClassic), std::nullopt);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:read crl file failed, file " + kShortFile +
                                     ", errno:0"));
}

TEST_F(CrlFlashTest, BufferOfTheFileSizeCannotBeHad) {
  testsupport::WriteFile(kFile, PkiBytes("crl_newer.der"));
  allocfaults::FailMallocOfSize(PkiBytes("crl_newer.der").size());
  EXPECT_EQ(WriteFlash(kFile), 0xFFFFFFFFu);
  EXPECT_EQ(allocfaults::Failures(), 1);
  EXPECT_EQ(AreaContent(Area::kClassic), std::nullopt);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:malloc crl buffer failed, errno 12"));
}

TEST_F(CrlFlashTest, ClassicAreaWriteFails) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  Fail("drv_crl_write", "5");
  testsupport::WriteFile(kFile, PkiBytes("crl_newer.der"));
  EXPECT_EQ(WriteFlash(kFile), 0xFFFFFFFFu);
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_older.der"));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:crl flash write failed, ret=5", kWriteFailed));
}

TEST_F(CrlFlashTest, ErasedAreaTakesACrl) {
  crltest::EraseArea(Area::kClassic);
  testsupport::WriteFile(kFile, PkiBytes("crl_empty.der"));
  EXPECT_EQ(WriteFlash(kFile), 0u);
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_empty.der"));
}

TEST_F(CrlFlashTest, PssAreaWriteFails) {
  Fail("drv_pss_crl_write", "0x1234");
  testsupport::WriteFile(kFile, PkiBytes("crl_pss_empty.der"));
  EXPECT_EQ(WriteFlash(kFile), 0xFFFFFFFFu);
  EXPECT_EQ(AreaContent(Area::kPss), std::nullopt);
  EXPECT_EQ(AreaContent(Area::kClassic), std::nullopt);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:crl flash write failed, ret=4660", kWriteFailed));
}

// ---- writing over an existing file ----

TEST_F(CrlFlashTest, BufferGoesOverTheStartOfTheFile) {
  testsupport::WriteFile(kDst, "0123456789");
  const std::string crl = "abc";
  EXPECT_EQ(BOOT_INIT_WriteBuf2File(reinterpret_cast<const uint8_t *>(crl.data()), 3, kDst.c_str()),
            0u);
  // The old tail stays: the file is neither truncated nor appended to.
  EXPECT_EQ(testsupport::ReadFile(kDst), "abc3456789");
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlFlashTest, DestinationIsNeverCreated) {
  const uint8_t byte = 1;
  EXPECT_EQ(BOOT_INIT_WriteBuf2File(&byte, 1, kDst.c_str()), 0xFFFFFFFFu);
  EXPECT_FALSE(std::filesystem::exists(kDst));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:open crl dst file failed, file " + kDst +
                                     ", errno:2"));
}

TEST_F(CrlFlashTest, DestinationIsADirectory) {
  const uint8_t byte = 1;
  EXPECT_EQ(BOOT_INIT_WriteBuf2File(&byte, 1, kDir.c_str()), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:open crl dst file failed, file " + kDir +
                                     ", errno:21"));
}

TEST_F(CrlFlashTest, DestinationOnAFullDevice) {
  const uint8_t byte = 1;
  EXPECT_EQ(BOOT_INIT_WriteBuf2File(&byte, 1, "/dev/full"), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:write crl to dst failed, file /dev/full, errno:28"));
}

// ---- copying a CRL file to the kernel ----

TEST_F(CrlFlashTest, KernelCopyKeepsTheOldTail) {
  testsupport::WriteFile(kFile, PkiBytes("crl_empty.der"));
  const std::string old(PkiBytes("crl_empty.der").size() + 10, 'x');
  testsupport::WriteFile(kDst, old);
  EXPECT_EQ(WriteKernel(kFile, kDst), 0u);
  EXPECT_EQ(testsupport::ReadFile(kDst), PkiBytes("crl_empty.der") + std::string(10, 'x'));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(CrlFlashTest, KernelCrlFileOfTheBoard) {
  ASSERT_TRUE(std::filesystem::exists(crltest::kKernelCrl));
  testsupport::WriteFile(kFile, PkiBytes("crl_newer.der"));
  EXPECT_EQ(WriteKernel(kFile, crltest::kKernelCrl), 0u);
  EXPECT_EQ(testsupport::ReadFile(crltest::kKernelCrl), PkiBytes("crl_newer.der"));
  EXPECT_THAT(MainLog(), IsEmpty());
}

// Any bytes are copied: the kernel's file is not asked for a scheme.
TEST_F(CrlFlashTest, KernelCopyDoesNotLookAtTheContent) {
  testsupport::WriteFile(kFile, "plain bytes");
  testsupport::WriteFile(kDst, "");
  EXPECT_EQ(WriteKernel(kFile, kDst), 0u);
  EXPECT_EQ(testsupport::ReadFile(kDst), "plain bytes");
}

TEST_F(CrlFlashTest, KernelCopyToAMissingDestination) {
  testsupport::WriteFile(kFile, PkiBytes("crl_newer.der"));
  EXPECT_EQ(WriteKernel(kFile, kDst), 0xFFFFFFFFu);
  EXPECT_FALSE(std::filesystem::exists(kDst));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:open crl dst file failed, file " + kDst + ", errno:2",
                          "[BOOT_INIT][ERROR]:Write crl to kernel file " + kFile + ", errno:2"));
}

TEST_F(CrlFlashTest, KernelCopyToAFullDevice) {
  testsupport::WriteFile(kFile, PkiBytes("crl_newer.der"));
  EXPECT_EQ(WriteKernel(kFile, "/dev/full"), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:write crl to dst failed, file /dev/full, errno:28",
                          "[BOOT_INIT][ERROR]:Write crl to kernel file " + kFile + ", errno:28"));
}

TEST_F(CrlFlashTest, KernelCopySizeLimits) {
  testsupport::WriteFile(kDst, "");
  crltest::WritePaddedPemCrl(kFile, "crl_newer.der", crltest::kCrlMaxLen);
  EXPECT_EQ(WriteKernel(kFile, kDst), 0u);
  EXPECT_EQ(testsupport::ReadFile(kDst), testsupport::ReadFile(kFile));
  crltest::WritePaddedPemCrl(kFile, "crl_newer.der", crltest::kCrlMaxLen + 1);
  EXPECT_EQ(WriteKernel(kFile, kDst), 0xFFFFFFFFu);
  testsupport::WriteFile(kFile, "");
  EXPECT_EQ(WriteKernel(kFile, kDst), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:crl file size too long, size:131069",
                                     "[BOOT_INIT][ERROR]:crl file size too long, size:0"));
}

TEST_F(CrlFlashTest, KernelCopyOfAMissingOrUnreadableSource) {
  testsupport::WriteFile(kDst, "kept");
  EXPECT_EQ(WriteKernel(kFile, kDst), 0xFFFFFFFFu);
  EXPECT_EQ(WriteKernel(kWriteOnlyFile, kDst), 0xFFFFFFFFu);
  EXPECT_EQ(WriteKernel(kShortFile, kDst), 0xFFFFFFFFu);
  EXPECT_EQ(testsupport::ReadFile(kDst), "kept");
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:get file size failed",
                  "[BOOT_INIT][ERROR]:open crl file failed, file " + kWriteOnlyFile,
                  "[BOOT_INIT][ERROR]:read crl src file failed, file " + kShortFile + ", errno:0"));
}

TEST_F(CrlFlashTest, KernelCopyBufferCannotBeHad) {
  testsupport::WriteFile(kFile, PkiBytes("crl_newer.der"));
  testsupport::WriteFile(kDst, "kept");
  allocfaults::FailMallocOfSize(PkiBytes("crl_newer.der").size());
  EXPECT_EQ(WriteKernel(kFile, kDst), 0xFFFFFFFFu);
  EXPECT_EQ(testsupport::ReadFile(kDst), "kept");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:malloc crl buffer failed, errno 12"));
}

}  // namespace
