// Boot file lists against the start files of this board: which records are this board's, the
// digest check of each, and verify sub-operation 2.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bootinit/verify.h"
#include "list_check_fixture.hpp"

using listtest::kAppName;
using listtest::kAppPath;
using listtest::kFileMissing;
using listtest::kKernelName;
using listtest::kNullParam;
using listtest::kPkgDir;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;
using testsupport::ReadFile;
using testsupport::RunOperation;
using testsupport::WriteFile;

namespace {

const std::string kListName = "filelist.txt";
const std::string kListPath = kPkgDir + "/" + kListName;
const std::string kMismatch = "[BOOT_INIT][ERROR]:Verify file hash value failed.";
const std::string kSafeSuccess = "[BOOT_INIT][SECURITY]verify file in filelist success";

class FileListCheckTest : public listtest::ListCheckTest {
 protected:
  // One boot file list line.
  static std::string Line(const std::string &hardType, const std::string &cpu,
                          const std::string &path, const std::string &kind,
                          const std::string &digest) {
    return hardType + " " + cpu + " " + path + " " + kind + " " + digest + "\n";
  }
  // A line of this board (type 0x1A2B, CPU 0) for a start file.
  static std::string Own(const std::string &path, const std::string &digest) {
    return Line("0x1A2B", "0x0", path, "app_boot", digest);
  }

  static testsupport::OperationOutput Verify(const std::string &text) {
    WriteFile(kListPath, text);
    return RunOperation(BOOT_INIT_VerifyFileInFileList, {kPkgDir, kListName});
  }
  static std::vector<std::string> Failed(uint32_t result) {
    return {"[BOOT_INIT][ERROR]:Verify file hash value failed, result = " + std::to_string(result)};
  }
  static std::string SafeFailed(uint32_t result) {
    return "[BOOT_INIT][SECURITY]verify file in filelist failed, result = " +
           std::to_string(result);
  }
};

TEST_F(FileListCheckTest, StartFilesOfThisBoardWithTheirDigests) {
  const auto op = Verify(Own(kAppName, appDigest_) + Own(kKernelName, kernelDigest_));
  EXPECT_EQ(op.result, 0u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(SafeLog(), ElementsAre(kSafeSuccess));
}

TEST_F(FileListCheckTest, RecordsInSubdirectories) {
  WriteFile(kPkgDir + "/bin/appboot", "start\n");
  const auto op = Verify(Own("bin/appboot", listtest::Sha256sumOf(kPkgDir + "/bin/appboot")));
  EXPECT_EQ(op.result, 0u);
}

TEST_F(FileListCheckTest, ChangedStartFile) {
  WriteFile(kAppPath, "application image, changed\n");
  const std::string list = Own(kAppName, appDigest_);
  const auto op = Verify(list);
  EXPECT_EQ(op.result, 1u);
  EXPECT_EQ(op.out, "");
  EXPECT_THAT(MainLog(), ElementsAre(kMismatch, Failed(1)[0]));
  EXPECT_THAT(SafeLog(), ElementsAre(SafeFailed(1)));
  // A failed check changes nothing on disk.
  EXPECT_EQ(ReadFile(kAppPath), "application image, changed\n");
  EXPECT_EQ(ReadFile(kListPath), list);
}

TEST_F(FileListCheckTest, DigestInOtherLetterCaseDoesNotMatch) {
  ASSERT_NE(listtest::Upper(appDigest_), appDigest_);
  const auto op = Verify(Own(kAppName, listtest::Upper(appDigest_)));
  EXPECT_EQ(op.result, 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kMismatch, Failed(1)[0]));
}

TEST_F(FileListCheckTest, FirstFailingRecordEndsTheCheck) {
  // The second record's file is missing, which would answer 0x10000003.
  const auto op = Verify(Own(kAppName, kernelDigest_) + Own("missing.bin", appDigest_));
  EXPECT_EQ(op.result, 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kMismatch, Failed(1)[0]));
}

TEST_F(FileListCheckTest, StartFileMissing) {
  const auto op = Verify(Own(kAppName, appDigest_) + Own("missing.bin", appDigest_));
  EXPECT_EQ(op.result, 0x10000003u);
  EXPECT_THAT(MainLog(), ElementsAre(kFileMissing, Failed(0x10000003)[0]));
  EXPECT_THAT(SafeLog(), ElementsAre(SafeFailed(0x10000003)));
}

TEST_F(FileListCheckTest, RecordsOfOtherBoardsProcessorsAndKindsAreSkipped) {
  // Every one of these would fail if it were checked: wrong digest or no file.
  const std::string others = Line("0x2B3C", "0x0", kAppName, "app_boot", kernelDigest_) +
                             Line("0x1a2b", "0x0", kAppName, "app_boot", kernelDigest_) +
                             Line("0x1A2B", "0x1", kAppName, "app_boot", kernelDigest_) +
                             Line("0x1A2B", "0", kAppName, "app_boot", kernelDigest_) +
                             Line("0x1A2B", "0x0", kAppName, "App_boot", kernelDigest_) +
                             Line("0x1A2B", "0x0", kAppName, "app_boot_x", kernelDigest_) +
                             Line("0x1A2B", "0x0", "missing.bin", "kernel", appDigest_);
  const auto op = Verify(others + Own(kKernelName, kernelDigest_));
  EXPECT_EQ(op.result, 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(SafeLog(), ElementsAre(kSafeSuccess));
}

TEST_F(FileListCheckTest, NoStartFileOfThisBoardPasses) {
  const auto op = Verify(Line("0x2B3C", "0x0", kAppName, "app_boot", kernelDigest_) +
                         Line("0x1A2B", "0x0", kAppName, "kernel", kernelDigest_));
  EXPECT_EQ(op.result, 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(SafeLog(), ElementsAre(kSafeSuccess));
}

TEST_F(FileListCheckTest, EmptyListPasses) {
  const auto op = Verify("");
  EXPECT_EQ(op.result, 0u);
  EXPECT_THAT(SafeLog(), ElementsAre(kSafeSuccess));
}

TEST_F(FileListCheckTest, AnyTypeOfABoardOfSeveralTypes) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"board.hard_types", "0x1234,0x5678"}, {"board.logic_cpu_id", "2"}});
  // Neither the type of the single-type entry nor CPU 0 is this board any more.
  const auto op = Verify(Line("0x5678", "0x2", kAppName, "app_boot", kernelDigest_) +
                         Own(kKernelName, appDigest_));
  EXPECT_EQ(op.result, 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kMismatch, Failed(1)[0]));

  testsupport::ClearMainLog();
  const auto again = Verify(Line("0x1234", "0x2", kAppName, "app_boot", appDigest_) +
                            Own(kKernelName, appDigest_));
  EXPECT_EQ(again.result, 0u);
}

TEST_F(FileListCheckTest, BoardIdentityUnknown) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(),
                             {{"fail.SWM_GetBoardMultiHardType", "9"}});
  const auto op = Verify(Own(kAppName, appDigest_));
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get multi hard type failed, ret = 9.",
                                     "[BOOT_INIT][ERROR]:Get hardtype list and cpuId failed.",
                                     Failed(0xFFFFFFFF)[0]));
  EXPECT_THAT(SafeLog(), ElementsAre(SafeFailed(0xFFFFFFFF)));
}

TEST_F(FileListCheckTest, ProcessorUnknown) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"fail.SWM_GetLogicCpuId", "7"}});
  const auto op = Verify(Own(kAppName, appDigest_));
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get cpu id failed, ret is 7",
                                     "[BOOT_INIT][ERROR]:Get hardtype list and cpuId failed.",
                                     Failed(0xFFFFFFFF)[0]));
}

TEST_F(FileListCheckTest, ListMissing) {
  const auto op = RunOperation(BOOT_INIT_VerifyFileInFileList, {kPkgDir, "none.txt"});
  EXPECT_EQ(op.result, 0x10000003u);
  EXPECT_THAT(MainLog(), ElementsAre(kFileMissing));
  EXPECT_THAT(SafeLog(), IsEmpty());
}

TEST_F(FileListCheckTest, ListWithABadLine) {
  const auto op =
      Verify(Own(kAppName, appDigest_) + "0x1A2B 0x0 short\n" + Own(kKernelName, kernelDigest_));
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:File list line has 3 fields, 5 needed",
                          "[BOOT_INIT][ERROR]:Trans string to array failed, result = 4294967295",
                          "[BOOT_INIT][ERROR]:Get all record failed from file lis, result = "
                          "4294967295"));
  EXPECT_THAT(SafeLog(), IsEmpty());
}

TEST_F(FileListCheckTest, ListThatCannotBeOpened) {
  // A directory of that name exists, but cannot be read as a list.
  testsupport::MakeDir(kPkgDir + "/list.d");
  const auto op = RunOperation(BOOT_INIT_VerifyFileInFileList, {kPkgDir, "list.d"});
  EXPECT_EQ(op.result, 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get all record failed from file lis, "
                                     "result = 4294967295"));
}

TEST_F(FileListCheckTest, ListPathThatDoesNotFit) {
  const std::string dir = listtest::LongDir(375);
  WriteFile(dir + "/" + kListName.substr(0, 7), Own(kAppName, appDigest_));
  const auto op = RunOperation(BOOT_INIT_VerifyFileInFileList, {dir, kListName});
  EXPECT_EQ(op.result, 0x10000003u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_VerifyFileInFileList",
                                     kFileMissing));
}

TEST_F(FileListCheckTest, StartFilePathThatDoesNotFit) {
  // The list's own path fits; the record's file name makes the path one character too long.
  const std::string dir = listtest::LongDir(370);
  const std::string name = std::string(13, 'f');
  ASSERT_EQ(dir.size() + 1 + kListName.size(), 383u);
  ASSERT_EQ(dir.size() + 1 + name.size(), 384u);
  WriteFile(dir + "/" + kListName, Own(name, appDigest_));
  WriteFile(dir + "/" + name.substr(0, 12), "application image\n");
  const auto op = RunOperation(BOOT_INIT_VerifyFileInFileList, {dir, kListName});
  EXPECT_EQ(op.result, 0x10000003u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_VerifyFileListFileHashValue",
                                     kFileMissing, Failed(0x10000003)[0]));
}

TEST_F(FileListCheckTest, ArgumentCount) {
  for (const std::vector<std::string> &args :
       {std::vector<std::string>{}, {kPkgDir}, {kPkgDir, kListName, "x"}}) {
    testsupport::ClearMainLog();
    const auto op = RunOperation(BOOT_INIT_VerifyFileInFileList, args);
    EXPECT_EQ(op.result, 0x10000001u);
    EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:verify cms, para count is invalid, "
                                       "iArgc = " +
                                       std::to_string(args.size())));
  }
}

// ---- the records alone ----

TEST_F(FileListCheckTest, RecordsReadByTheCaller) {
  WriteFile(kListPath, Own(kAppName, appDigest_));
  listtest::Digests records;  // released with the same release function
  ASSERT_EQ(BOOT_INIT_GetAllRecordFromFilelistTxt(kListPath.c_str(), records.get()), 0u);
  EXPECT_EQ(BOOT_INIT_VerifyFileListFileHashValue(kPkgDir.c_str(), records.get()), 0u);
  EXPECT_EQ(BOOT_INIT_VerifyFileListFileHashValue("/opt", records.get()), 0x10000003u);
  EXPECT_THAT(MainLog(), ElementsAre(kFileMissing));
  EXPECT_THAT(SafeLog(), IsEmpty());
}

TEST_F(FileListCheckTest, EmptyArguments) {
  listtest::Digests records;
  EXPECT_EQ(BOOT_INIT_VerifyFileListFileHashValue(nullptr, records.get()), 0x10000001u);
  EXPECT_EQ(BOOT_INIT_VerifyFileListFileHashValue(kPkgDir.c_str(), nullptr), 0x10000001u);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam, kNullParam));
}

}  // namespace
