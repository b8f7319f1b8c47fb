// The checks of package files on boards without any crypto library, where no digest can be had:
// the walk stops at the first file it must hash, and an extracted copy that cannot be hashed is
// deleted like one that does not match.
#include <dlfcn.h>

#include <filesystem>
#include <string>
#include <vector>

#include "bootinit/package.h"
#include "pkg_fixture.hpp"

using pkgtest::kError;
using pkgtest::kStaging;
using pkgtest::Listed;
using pkgtest::ListPackage;
using testing::ElementsAre;
using testsupport::MainLog;

namespace {

const std::string kList = "/tmp/list/signature_filelist";

std::vector<std::string> NoCrypto() {
  return {"[BOOT_INIT][ERROR]:dlopen backup so libcrypto.so.1.0.0 unsuccessfully, reason:" +
              testsupport::DlopenReason("libcrypto.so.1.0.0", RTLD_LAZY),
          "[BOOT_INIT][ERROR]:load crypto symbols failed"};
}

class PkgHiddenCryptoTest : public pkgtest::PkgTest {
 protected:
  void SetUp() override {
    PkgTest::SetUp();
    ASSERT_EQ(testsupport::DlopenReason("libcrypto.so", RTLD_LAZY).find("<opened>"),
              std::string::npos);
    BuildThree();
    records_ = ListPackage();
    ASSERT_EQ(Index(), 0u);
    ASSERT_EQ(BOOT_ExtractActualFile("signature_filelist", "/tmp/list"), 0u);
    ASSERT_EQ(BOOT_ReadSignatureFileList(kList.c_str()), 0u);
    testsupport::ClearMainLog();
  }

  std::vector<Listed> records_;
};

TEST_F(PkgHiddenCryptoTest, AnExtractedCopyThatCannotBeHashedIsDeleted) {
  EXPECT_EQ(BOOT_VerifyFileInExtract("kernel.bin", 1), kError);
  EXPECT_FALSE(std::filesystem::exists(kStaging + "/kernel.bin"));
  std::vector<std::string> expected = {"[BOOT_INIT][INFO]:Extract file: " + kStaging +
                                       "/kernel.bin"};
  for (const std::string &line : NoCrypto()) {
    expected.push_back(line);
  }
  expected.push_back("[BOOT_INIT][ERROR]:Verify one file, cacl file " + kStaging +
                     "/kernel.bin hash value failed.");
  EXPECT_THAT(MainLog(), testing::ElementsAreArray(expected));
}

TEST_F(PkgHiddenCryptoTest, AFileThatCannotBeHashedFromThePackage) {
  const Listed rootfs = pkgtest::Record(records_, "rootfs.bin");
  EXPECT_EQ(BOOT_VerifyFileInBuffer("rootfs.bin"), kError);
  std::vector<std::string> expected = NoCrypto();
  expected.push_back("[BOOT_INIT][ERROR]:Get file(rootfs.bin " + std::to_string(rootfs.offset) +
                     " " + std::to_string(rootfs.length) + ") sha256 failed(4294967295).");
  EXPECT_THAT(MainLog(), testing::ElementsAreArray(expected));
}

}  // namespace
