// The list checks on boards without any crypto library: the digest of a file cannot be had, and
// each check ends with the digest run's result.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "bootinit/verify.h"
#include "list_check_fixture.hpp"

using listtest::kAppName;
using listtest::kAppPath;
using listtest::kPkgDir;
using listtest::kSigList;
using testing::ElementsAre;
using testsupport::MainLog;
using testsupport::RunOperation;

namespace {

class ListCheckHiddenCryptoTest : public listtest::ListCheckTest {
 protected:
  void SetUp() override {
    ListCheckTest::SetUp();
    ASSERT_NE(testsupport::DlopenReason("libcrypto.so", RTLD_LAZY), "<opened>");
    ASSERT_NE(testsupport::DlopenReason("libcrypto.so.1.0.0", RTLD_LAZY), "<opened>");
  }
  // What the digest run logs before it gives up.
  static std::vector<std::string> DigestRunFailed() {
    return {"[BOOT_INIT][ERROR]:dlopen backup so libcrypto.so.1.0.0 unsuccessfully, reason:" +
                testsupport::DlopenReason("libcrypto.so.1.0.0", RTLD_LAZY),
            "[BOOT_INIT][ERROR]:load crypto symbols failed",
            "[BOOT_INIT][ERROR]:Get file hash value failed, result is 4294967295"};
  }
};

TEST_F(ListCheckHiddenCryptoTest, SignatureFileList) {
  testsupport::WriteFile(kSigList, BothFiles());
  const auto op =
      RunOperation(BOOT_INIT_VerifyFileInSignatureFileList, {kPkgDir, kAppName, kSigList});
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  std::vector<std::string> expected = DigestRunFailed();
  expected.push_back("[BOOT_INIT][ERROR]:verify specific file failed, result = 4294967295");
  EXPECT_THAT(MainLog(), testing::ElementsAreArray(expected));
  EXPECT_THAT(SafeLog(),
              ElementsAre("[BOOT_INIT][SECURITY]verify specific file failed, file = " + kAppPath +
                              ", result = 4294967295",
                          "[BOOT_INIT][SECURITY]verify specific file success, file = " + kAppPath));
}

TEST_F(ListCheckHiddenCryptoTest, FileList) {
  testsupport::WriteFile(kPkgDir + "/filelist.txt",
                         "0x1A2B 0x0 " + kAppName + " app_boot " + appDigest_ + "\n");
  const auto op = RunOperation(BOOT_INIT_VerifyFileInFileList, {kPkgDir, "filelist.txt"});
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  std::vector<std::string> expected = DigestRunFailed();
  expected.push_back("[BOOT_INIT][ERROR]:Verify file hash value failed, result = 4294967295");
  EXPECT_THAT(MainLog(), testing::ElementsAreArray(expected));
  EXPECT_THAT(SafeLog(), ElementsAre("[BOOT_INIT][SECURITY]verify file in filelist failed, "
                                     "result = 4294967295"));
}

}  // namespace
