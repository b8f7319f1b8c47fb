// Operation 3: the verify type in its first argument, the table of sub-operations, and the
// verdict logged for each result.
#include "verify/verify_oper.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bootinit/verify.h"
#include "list_check_fixture.hpp"

using listtest::kAppName;
using listtest::kAppPath;
using listtest::kPkgDir;
using listtest::kSigList;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testsupport::MainLog;
using testsupport::RunOperation;

namespace {

const std::string kReceived = "[BOOT_INIT][INFO]:Receive verify file request";
const std::string kSuccess = "[BOOT_INIT][INFO]:Verify file success";

class VerifyOperTest : public listtest::ListCheckTest {
 protected:
  void SetUp() override {
    ListCheckTest::SetUp();
    testsupport::WriteFile(kSigList, BothFiles());
  }
  // The lines every call starts with: the request and each argument.
  static std::vector<std::string> Request(const std::vector<std::string> &args) {
    std::vector<std::string> lines = {kReceived};
    for (std::size_t i = 0; i < args.size(); ++i) {
      lines.push_back("[BOOT_INIT][INFO]:ppacArgv[" + std::to_string(i) + "] = " + args[i]);
    }
    return lines;
  }
  static std::vector<std::string> Plus(std::vector<std::string> lines,
                                       const std::vector<std::string> &more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
  }
  static std::string Failed(int type, uint32_t result) {
    return "[BOOT_INIT][ERROR]:Verify file failed, verify type is " + std::to_string(type) +
           ", result is " + std::to_string(result);
  }
};

TEST_F(VerifyOperTest, TableOfSubOperations) {
  EXPECT_EQ(g_apfBootInitFileVerifyOperFunc[0], &BOOT_INIT_VerifyCmsFile);
  EXPECT_EQ(g_apfBootInitFileVerifyOperFunc[1], nullptr);
  EXPECT_EQ(g_apfBootInitFileVerifyOperFunc[2], &BOOT_INIT_VerifyFileInFileList);
  EXPECT_EQ(g_apfBootInitFileVerifyOperFunc[3], &BOOT_INIT_VerifyFileInSignatureFileList);
  EXPECT_EQ(g_apfBootInitFileVerifyOperFunc[4], nullptr);
  EXPECT_EQ(g_apfBootInitFileVerifyOperFunc[5], &BOOT_INIT_OperCrlSync);
  EXPECT_EQ(g_apfBootInitFileVerifyOperFunc[6], nullptr);
}

TEST_F(VerifyOperTest, SignatureFileList) {
  const std::vector<std::string> args = {"3", kPkgDir, kAppName, kSigList};
  const auto op = RunOperation(BOOT_InitOperVerifyFile, args);
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), ElementsAreArray(Plus(Request(args), {kSuccess})));
  EXPECT_THAT(SafeLog(),
              ElementsAre("[BOOT_INIT][SECURITY]verify specific file success, file = " + kAppPath));
}

TEST_F(VerifyOperTest, FailureOfASubOperationIsPassedOn) {
  testsupport::WriteFile(kAppPath, "application image, changed\n");
  const std::vector<std::string> args = {"3", kPkgDir, kAppName, kSigList};
  const auto op = RunOperation(BOOT_InitOperVerifyFile, args);
  EXPECT_EQ(op.result, 1u);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(Plus(
                  Request(args),
                  {"[BOOT_INIT][ERROR]:Verify file " + kAppPath + " hash value failed.",
                   "[BOOT_INIT][ERROR]:verify specific file failed, result = 1", Failed(3, 1)})));
}

TEST_F(VerifyOperTest, FileList) {
  testsupport::WriteFile(kPkgDir + "/filelist.txt",
                         "0x1A2B 0x0 " + kAppName + " app_boot " + appDigest_ + "\n");
  const std::vector<std::string> args = {"2", kPkgDir, "filelist.txt"};
  const auto op = RunOperation(BOOT_InitOperVerifyFile, args);
  EXPECT_EQ(op.result, 0u);
  EXPECT_THAT(MainLog(), ElementsAreArray(Plus(Request(args), {kSuccess})));
}

TEST_F(VerifyOperTest, SubOperationSeesTheArgumentsAfterTheType) {
  const std::vector<std::string> args = {"2", kPkgDir};
  const auto op = RunOperation(BOOT_InitOperVerifyFile, args);
  EXPECT_EQ(op.result, 0x10000001u);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(Plus(
                  Request(args), {"[BOOT_INIT][ERROR]:verify cms, para count is invalid, iArgc = 1",
                                  Failed(2, 0x10000001)})));
}

TEST_F(VerifyOperTest, TypeFourDoesNothing) {
  const std::vector<std::string> args = {"4", kPkgDir, "anything"};
  const auto op = RunOperation(BOOT_InitOperVerifyFile, args);
  EXPECT_EQ(op.result, 0u);
  EXPECT_THAT(MainLog(), ElementsAreArray(Plus(Request(args), {kSuccess})));
  EXPECT_THAT(SafeLog(), testing::IsEmpty());
}

TEST_F(VerifyOperTest, TypesThisBuildDoesNotOffer) {
  for (const std::string type : {"1", "6"}) {
    testsupport::ClearMainLog();
    const std::vector<std::string> args = {type, kPkgDir};
    const auto op = RunOperation(BOOT_InitOperVerifyFile, args);
    EXPECT_EQ(op.result, 0x10000001u) << type;
    EXPECT_THAT(MainLog(),
                ElementsAreArray(Plus(Request(args), {Failed(std::stoi(type), 0x10000001)})));
  }
}

TEST_F(VerifyOperTest, TypeBeyondTheTable) {
  for (const std::string type : {"7", "007", "100", "4294967295", "18446744073709551616"}) {
    testsupport::ClearMainLog();
    const std::vector<std::string> args = {type, kPkgDir, kAppName, kSigList};
    const auto op = RunOperation(BOOT_InitOperVerifyFile, args);
    EXPECT_EQ(op.result, 0x10000001u) << type;
    EXPECT_THAT(MainLog(), ElementsAreArray(Request(args))) << type;
  }
  EXPECT_THAT(SafeLog(), testing::IsEmpty());
}

TEST_F(VerifyOperTest, TypeIsTheLow32BitsOfTheNumber) {
  // As for the operation number: 4294967299 is 2^32 + 3.
  const std::vector<std::string> args = {"4294967299", kPkgDir, kAppName, kSigList};
  const auto op = RunOperation(BOOT_InitOperVerifyFile, args);
  EXPECT_EQ(op.result, 0u);
  EXPECT_THAT(MainLog(), ElementsAreArray(Plus(Request(args), {kSuccess})));
  const auto leadingZeros =
      RunOperation(BOOT_InitOperVerifyFile, {"003", kPkgDir, kAppName, kSigList});
  EXPECT_EQ(leadingZeros.result, 0u);
}

TEST_F(VerifyOperTest, TypeMustBeDigits) {
  for (const std::string type : {"a1", "1a", "-1", " 3", "+3", "", "0x3"}) {
    testsupport::ClearMainLog();
    const std::vector<std::string> args = {type, kPkgDir, kAppName, kSigList};
    const auto op = RunOperation(BOOT_InitOperVerifyFile, args);
    EXPECT_EQ(op.result, 1u) << type;
    EXPECT_THAT(MainLog(), ElementsAreArray(Plus(
                               Request(args),
                               {"[BOOT_INIT][ERROR]:Verify file, verify type should only contain "
                                "digit, perType = " +
                                type})))
        << type;
  }
}

TEST_F(VerifyOperTest, NoArgument) {
  const auto op = RunOperation(BOOT_InitOperVerifyFile, {});
  EXPECT_EQ(op.result, 0x10000001u);
  EXPECT_THAT(MainLog(),
              ElementsAre(kReceived, "[BOOT_INIT][INFO]:Verify file, Argc 0 is invalid"));
  EXPECT_EQ(BOOT_InitOperVerifyFile(1, nullptr), 0x10000001u);
}

// ---- the verdict ----

TEST_F(VerifyOperTest, PackageCheckAcceptsWith200) {
  EXPECT_EQ(bootinit::verifyoper::FinishVerify(1, 200), 200u);
  EXPECT_EQ(bootinit::verifyoper::FinishVerify(1, 0), 0u);
  EXPECT_EQ(bootinit::verifyoper::FinishVerify(1, 201), 201u);
  EXPECT_THAT(MainLog(), ElementsAre(kSuccess, kSuccess, Failed(1, 201)));
}

TEST_F(VerifyOperTest, OnlyThePackageCheckAnswers200) {
  for (const uint32_t type : {0u, 2u, 3u, 5u, 6u}) {
    testsupport::ClearMainLog();
    EXPECT_EQ(bootinit::verifyoper::FinishVerify(type, 200), 200u);
    EXPECT_THAT(MainLog(), ElementsAre(Failed(static_cast<int>(type), 200)));
  }
  testsupport::ClearMainLog();
  EXPECT_EQ(bootinit::verifyoper::FinishVerify(2, 0xFFFFFFFF), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre(Failed(2, 0xFFFFFFFF)));
}

}  // namespace
