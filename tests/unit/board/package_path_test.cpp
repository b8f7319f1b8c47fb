// Where the boot packages are and whether a path may name one: a package lies directly in
// /opt/kytv8/home or directly in the backup partition (boot environment "homebak_path"), ends
// in the suffix of its kind and holds no shell-dangerous character in its name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "board_fixture.hpp"
#include "bootinit/board.h"

using testing::ElementsAre;
using testing::StartsWith;
using testsupport::MainLog;

namespace {

const std::string kPathCheckFailed = "[BOOT_INIT][ERROR]:Cc package path checked failed.";
const std::string kInvalidChar = "[BOOT_INIT][ERROR]:str include invalid character";
const std::string kDangerous = "|;&$<>()[]`\\\"'~?*!\n";

std::string PostfixError(const std::string &name) {
  return "[BOOT_INIT][ERROR]:Filename postfix error, ccFileName = " + name;
}
std::string FilenameError(const std::string &name) {
  return "[BOOT_INIT][ERROR]:Cc filename error, fileName = " + name;
}
std::string NotInPackageDir(const std::string &path) {
  return "[BOOT_INIT][ERROR]:Cc package path error, filePath = " + path +
         ",backuppath = /opt/kytv8/backup.";
}

class PackagePathTest : public boardtest::BoardTest {
 protected:
  char path_[384] = {};
};

// ---- file names ----

TEST_F(PackagePathTest, BasePackageNames) {
  EXPECT_EQ(BOOT_InitIsCCFileNameValid("a.cc", 0), 1u);
  EXPECT_EQ(BOOT_InitIsCCFileNameValid("a.CC", 0), 1u);
  EXPECT_EQ(BOOT_InitIsCCFileNameValid(".cc", 0), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
  for (const std::string name : {"a.Cc", "a.cC", "a.cch", "a.cc.bak", "acc", "a.c"}) {
    testsupport::ClearMainLog();
    EXPECT_EQ(BOOT_InitIsCCFileNameValid(name.c_str(), 0), 0u) << name;
    EXPECT_THAT(MainLog(), ElementsAre(PostfixError(name))) << name;
  }
}

TEST_F(PackagePathTest, HardwarePackageNames) {
  EXPECT_EQ(BOOT_InitIsCCFileNameValid("a.cch", 1), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
  for (const std::string name : {"a.CCH", "a.cc", "a.CC", "a.cchx"}) {
    testsupport::ClearMainLog();
    EXPECT_EQ(BOOT_InitIsCCFileNameValid(name.c_str(), 1), 0u) << name;
    EXPECT_THAT(MainLog(), ElementsAre(PostfixError(name))) << name;
  }
}

TEST_F(PackagePathTest, OtherKindsSkipTheSuffixTest) {
  EXPECT_EQ(BOOT_InitIsCCFileNameValid("anything.txt", 2), 1u);
  EXPECT_EQ(BOOT_InitIsCCFileNameValid("x", 0xFFFFFFFF), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
  EXPECT_EQ(BOOT_InitIsCCFileNameValid("a|b", 2), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kInvalidChar,
                                     "[BOOT_INIT][ERROR]:Filename include invalid "
                                     "character, ccFileName = a|b"));
}

TEST_F(PackagePathTest, SpaceIsAllowedSemicolonIsNot) {
  EXPECT_EQ(BOOT_InitIsCCFileNameValid("my pkg.cc", 0), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
  EXPECT_EQ(BOOT_InitIsCCFileNameValid("my;pkg.cc", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kInvalidChar,
                                     "[BOOT_INIT][ERROR]:Filename include invalid "
                                     "character, ccFileName = my;pkg.cc"));
}

TEST_F(PackagePathTest, EveryDangerousCharacterIsRefused) {
  ASSERT_EQ(kDangerous.size(), 19u);
  for (const char c : kDangerous) {
    const std::string name = std::string("a") + c + "b.cc";
    EXPECT_EQ(BOOT_InitIsCCFileNameValid(name.c_str(), 0), 0u) << static_cast<int>(c);
  }
  // Each refusal logs the screening message and the name message (the name holding a line
  // feed spreads over two lines of the log).
  int screened = 0;
  int named = 0;
  for (const auto &line : MainLog()) {
    screened += line == kInvalidChar ? 1 : 0;
    named +=
        line.rfind("[BOOT_INIT][ERROR]:Filename include invalid character, ccFileName = a", 0) == 0
            ? 1
            : 0;
  }
  EXPECT_EQ(screened, 19);
  EXPECT_EQ(named, 19);
}

TEST_F(PackagePathTest, SuffixIsCheckedFirst) {
  EXPECT_EQ(BOOT_InitIsCCFileNameValid("a;b.cch", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(PostfixError("a;b.cch")));
}

// ---- full paths ----

TEST_F(PackagePathTest, PackageDirectlyInHome) {
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/a.cc", 0), 1u);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/b.CC", 0), 1u);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/hw.cch", 1), 1u);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/with space.cc", 0), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, PackageDirectlyInTheBackupPartition) {
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/backup/a.cc", 0), 1u);
  testsupport::SetEnv("homebak_path", "/opt/kytv8/backup/");
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/backup/a.cc", 0), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, ExistingAndNewFilesAlike) {
  testsupport::Touch("/opt/kytv8/home/a.cc");
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/a.cc", 0), 1u);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/new.cc", 0), 1u);
}

TEST_F(PackagePathTest, CanonicalFormDecides) {
  std::filesystem::create_directory_symlink(testsupport::kHomeDir, "/opt/homelink");
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/homelink/a.cc", 0), 1u);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/../home/./a.cc", 0), 1u);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home//a.cc", 0), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, LinkInHomeToAPackageElsewhereIsElsewhere) {
  testsupport::MakeDir("/opt/elsewhere");
  testsupport::Touch("/opt/elsewhere/x.cc");
  std::filesystem::create_symlink("/opt/elsewhere/x.cc", "/opt/kytv8/home/x.cc");
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/x.cc", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(StartsWith("[BOOT_INIT][ERROR]:Cc package path error, "
                                                "filePath = ")));
}

TEST_F(PackagePathTest, SubdirectoryOfHomeIsRefused) {
  testsupport::MakeDir("/opt/kytv8/home/sub");
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/sub/a.cc", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(NotInPackageDir("/opt/kytv8/home/sub/a.cc")));
}

TEST_F(PackagePathTest, SubdirectoryOfTheBackupPartitionIsRefused) {
  testsupport::MakeDir("/opt/kytv8/backup/sub");
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/backup/sub/a.cc", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(NotInPackageDir("/opt/kytv8/backup/sub/a.cc")));
}

TEST_F(PackagePathTest, TheHomeDirectoryItselfIsNoPackage) {
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(NotInPackageDir("/opt/kytv8/home")));
}

TEST_F(PackagePathTest, OtherDirectoryWithoutBackupPartition) {
  testsupport::UnsetEnv("homebak_path");
  testsupport::MakeDir("/opt/other");
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/other/a.cc", 0), 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Cc package path error, filePath = /opt/other/a.cc"));
  // The home directory needs no backup partition.
  testsupport::ClearMainLog();
  testsupport::MakeDir(testsupport::kHomeDir);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/a.cc", 0), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, OtherDirectoryWithAMissingBackupPartition) {
  testsupport::SetEnv("homebak_path", "/opt/none");
  testsupport::MakeDir("/opt/other");
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/other/a.cc", 0), 0u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Invalid backup area path, path:/opt/none.",
                          "[BOOT_INIT][ERROR]:Cc package path error, filePath = /opt/other/a.cc"));
}

TEST_F(PackagePathTest, EmptyPath) {
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("", 0), 0u);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid(nullptr, 0), 0u);
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Get Cc package path failed, file length is null or 0",
                  "[BOOT_INIT][ERROR]:Get Cc package path failed, file length is null or 0"));
}

TEST_F(PackagePathTest, MissingDirectory) {
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/nodir/a.cc", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Cc package path trans to realpath "
                                     "failed, ccFilePath = /opt/kytv8/nodir/a.cc"));
}

TEST_F(PackagePathTest, NameOfAtMost127Characters) {
  const std::string name127 = std::string(124, 'a') + ".cc";
  testsupport::Touch(testsupport::kHomeDir + "/" + name127);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid((testsupport::kHomeDir + "/" + name127).c_str(), 0), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
  // An existing file whose name does not fit the 128-byte name buffer.
  const std::string path128 = testsupport::kHomeDir + "/a" + name127;
  testsupport::Touch(path128);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid(path128.c_str(), 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get cc filepath and filename failed, "
                                     "ccRealPath = " +
                                     path128));
}

TEST_F(PackagePathTest, DirectoryOfAtMost127Characters) {
  // A backup partition whose name fills the 128-byte directory buffer holds no valid package.
  const std::string dir127 = "/opt/" + std::string(122, 'd');
  const std::string dir128 = dir127 + "d";
  testsupport::MakeDir(dir127);
  testsupport::MakeDir(dir128);
  testsupport::SetEnv("homebak_path", dir127);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid((dir127 + "/a.cc").c_str(), 0), 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
  testsupport::SetEnv("homebak_path", dir128);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid((dir128 + "/a.cc").c_str(), 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get cc filepath and filename failed, "
                                     "ccRealPath = " +
                                     dir128 + "/a.cc"));
}

TEST_F(PackagePathTest, WrongSuffixInTheRightPlace) {
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/a.txt", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(PostfixError("a.txt"), FilenameError("a.txt")));
}

TEST_F(PackagePathTest, KindDecidesTheSuffix) {
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/hw.cch", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(PostfixError("hw.cch"), FilenameError("hw.cch")));
  testsupport::ClearMainLog();
  testsupport::MakeDir(testsupport::kHomeDir);
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/a.cc", 1), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(PostfixError("a.cc"), FilenameError("a.cc")));
}

TEST_F(PackagePathTest, DangerousNameInTheRightPlace) {
  EXPECT_EQ(BOOT_InitIsCCFullNameValid("/opt/kytv8/home/a;b.cc", 0), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kInvalidChar,
                                     "[BOOT_INIT][ERROR]:Filename include invalid character, "
                                     "ccFileName = a;b.cc",
                                     FilenameError("a;b.cc")));
}

// ---- the CC package ----

TEST_F(PackagePathTest, CcPackageFromTheBootEnvironment) {
  testsupport::SetEnv("next_bootfile", "/opt/kytv8/home/a.cc");
  testsupport::WriteStartupIni("[package]\ncc=/opt/kytv8/home/stub.cc\n");
  EXPECT_EQ(BOOT_InitGetCCPackage(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/home/a.cc");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, CcPackageFromTheStub) {
  testsupport::WriteStartupIni("[package]\ncc=/opt/kytv8/backup/stub.CC\n");
  EXPECT_EQ(BOOT_InitGetCCPackage(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/backup/stub.CC");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get cc package full path from drv, "
                                     "result = 0x2"));
}

TEST_F(PackagePathTest, CcPackageNowhere) {
  EXPECT_EQ(BOOT_InitGetCCPackage(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][INFO]:Get cc package full path from drv, result = 0x2",
                          "[BOOT_INIT][WARNING]:Get cc package full path from stub failed, "
                          "result = 0xffffffff",
                          kPathCheckFailed));
}

TEST_F(PackagePathTest, CcPackageDriverCodeIsLogged) {
  MainBoardWith({{"fail.drv_env_get", "0x77"}});
  testsupport::WriteStartupIni("[package]\ncc=/opt/kytv8/home/stub.cc\n");
  EXPECT_EQ(BOOT_InitGetCCPackage(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/home/stub.cc");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get cc package full path from drv, "
                                     "result = 0x77"));
}

TEST_F(PackagePathTest, CcPackageInTheWrongPlace) {
  testsupport::MakeDir("/opt/kytv8/home/sub");
  testsupport::SetEnv("next_bootfile", "/opt/kytv8/home/sub/a.cc");
  EXPECT_EQ(BOOT_InitGetCCPackage(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre(NotInPackageDir("/opt/kytv8/home/sub/a.cc"), kPathCheckFailed));
}

TEST_F(PackagePathTest, CcPackageOfTheWrongKind) {
  testsupport::SetEnv("next_bootfile", "/opt/kytv8/home/hw.cch");
  EXPECT_EQ(BOOT_InitGetCCPackage(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre(PostfixError("hw.cch"), FilenameError("hw.cch"), kPathCheckFailed));
}

TEST_F(PackagePathTest, CcPackageEmptyInTheBootEnvironment) {
  // The boot loader left the variable with an empty value: no stub is asked.
  testsupport::WriteRawEnvironment(
      {{"homebak_path", testsupport::kBackupDir}, {"next_bootfile", ""}, {"startup_mode", "0"}});
  testsupport::WriteStartupIni("[package]\ncc=/opt/kytv8/home/stub.cc\n");
  EXPECT_EQ(BOOT_InitGetCCPackage(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre(kPathCheckFailed));
}

TEST_F(PackagePathTest, StubPackages) {
  char path[64] = "old";
  EXPECT_EQ(BOOT_INIT_StubGetCCPackage(path, sizeof(path)), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_StubGetLastPackage(path, sizeof(path)), 0xFFFFFFFFu);
  testsupport::WriteStartupIni("[package]\ncc=any text\nlast_cc=/x/old.cc\n");
  EXPECT_EQ(BOOT_INIT_StubGetCCPackage(path, sizeof(path)), 0u);
  EXPECT_STREQ(path, "any text");
  EXPECT_EQ(BOOT_INIT_StubGetLastPackage(path, sizeof(path)), 0u);
  EXPECT_STREQ(path, "/x/old.cc");
  testsupport::WriteStartupIni("[package]\ncc=\nlast_cc=\n");
  EXPECT_EQ(BOOT_INIT_StubGetCCPackage(path, sizeof(path)), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_StubGetLastPackage(path, sizeof(path)), 0xFFFFFFFFu);
  testsupport::WriteStartupIni("[board]\ncc=/x/a.cc\nlast_cc=/x/b.cc\n");
  EXPECT_EQ(BOOT_INIT_StubGetCCPackage(path, sizeof(path)), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_StubGetLastPackage(path, sizeof(path)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre());
}

// ---- the last package ----

TEST_F(PackagePathTest, LastPackageFromTheBootEnvironment) {
  testsupport::SetEnv("last_bootfile", "/opt/kytv8/backup/old.cc");
  EXPECT_EQ(BOOT_INIT_GetLastPackage(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/backup/old.cc");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, LastPackageFromTheStub) {
  testsupport::WriteStartupIni("[package]\nlast_cc=/opt/kytv8/home/old.CC\n");
  EXPECT_EQ(BOOT_INIT_GetLastPackage(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/home/old.CC");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get last package full path from drv, "
                                     "result = 0x2"));
}

TEST_F(PackagePathTest, LastPackageNowhere) {
  EXPECT_EQ(BOOT_INIT_GetLastPackage(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][INFO]:Get last package full path from drv, result = 0x2",
                          "[BOOT_INIT][ERROR]:Get last package full path from stub failed"));
  testsupport::ClearMainLog();
  testsupport::WriteStartupIni("[package]\nlast_cc=\n");
  EXPECT_EQ(BOOT_INIT_GetLastPackage(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][INFO]:Get last package full path from drv, result = 0x2",
                          "[BOOT_INIT][ERROR]:Get last package full path from stub failed"));
}

TEST_F(PackagePathTest, LastPackageEmptyInTheBootEnvironment) {
  testsupport::WriteRawEnvironment(
      {{"homebak_path", testsupport::kBackupDir}, {"last_bootfile", ""}, {"startup_mode", "0"}});
  testsupport::WriteStartupIni("[package]\nlast_cc=/opt/kytv8/home/old.cc\n");
  EXPECT_EQ(BOOT_INIT_GetLastPackage(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Get last package path failed, file length is 0"));
}

TEST_F(PackagePathTest, LastPackageInTheWrongPlace) {
  testsupport::SetEnv("last_bootfile", "/opt/kytv8/home/old.txt");
  EXPECT_EQ(BOOT_INIT_GetLastPackage(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre(PostfixError("old.txt"), FilenameError("old.txt"), kPathCheckFailed));
}

TEST_F(PackagePathTest, LastPackageWithoutBuffer) {
  EXPECT_EQ(BOOT_INIT_GetLastPackage(nullptr, 384), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:param error"));
}

// ---- hardware packages ----

TEST_F(PackagePathTest, HardwarePackageByNumber) {
  testsupport::SetEnv("next_bootfile_ex1", "/opt/kytv8/home/hw1.cch");
  testsupport::SetEnv("next_bootfile_ex12", "/opt/kytv8/backup/hw12.cch");
  EXPECT_EQ(BOOT_InitGetHardwarePackage("next_bootfile_ex", 1, path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/home/hw1.cch");
  EXPECT_EQ(BOOT_InitGetHardwarePackage("next_bootfile_ex", 12, path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/backup/hw12.cch");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, HardwarePackageVariableIsPrefixAndNumber) {
  testsupport::SetEnv("other_3", "/opt/kytv8/home/hw3.cch");
  EXPECT_EQ(BOOT_InitGetHardwarePackage("other_", 3, path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/home/hw3.cch");
}

TEST_F(PackagePathTest, HardwarePackageHasNoStub) {
  testsupport::WriteStartupIni("[package]\ncc=/opt/kytv8/home/a.cc\nnext_bootfile_ex2=x.cch\n");
  EXPECT_EQ(BOOT_InitGetHardwarePackage("next_bootfile_ex", 2, path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Get hardware package full path from drv, "
                                     "ret = 0x2, num = 2, filePath = ."));
}

TEST_F(PackagePathTest, HardwarePackageOfTheWrongKind) {
  testsupport::SetEnv("next_bootfile_ex1", "/opt/kytv8/home/a.cc");
  EXPECT_EQ(BOOT_InitGetHardwarePackage("next_bootfile_ex", 1, path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre(PostfixError("a.cc"), FilenameError("a.cc"),
                          "[BOOT_INIT][WARNING]:Hardware package path checked failed, num = 1, "
                          "filePath = /opt/kytv8/home/a.cc."));
}

TEST_F(PackagePathTest, HardwarePackageVariableNameOfAtMost63Characters) {
  const std::string prefix62(62, 'v');
  testsupport::SetEnv(prefix62 + "1", "/opt/kytv8/home/hw.cch");
  EXPECT_EQ(BOOT_InitGetHardwarePackage(prefix62.c_str(), 1, path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/home/hw.cch");
  EXPECT_THAT(MainLog(), ElementsAre());
  // 64 characters: the formatter fails and its result is returned.
  EXPECT_EQ(BOOT_InitGetHardwarePackage(prefix62.c_str(), 10, path_, sizeof(path_)),
            static_cast<uint32_t>(-1));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:sprintf_s failed, ret = -1, env = "
                                     "next_bootfile_ex10."));
}

// ---- the backup partition ----

TEST_F(PackagePathTest, BackupPartition) {
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/backup");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, BackupPartitionLosesOneTrailingSlash) {
  testsupport::SetEnv("homebak_path", "/opt/kytv8/backup/");
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/backup");
  testsupport::SetEnv("homebak_path", "/opt/kytv8/backup//");
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/kytv8/backup/");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, BackupPartitionOfASingleSlashStays) {
  testsupport::SetEnv("homebak_path", "/");
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/");
  testsupport::SetEnv("homebak_path", "//");
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/");
}

TEST_F(PackagePathTest, BackupPartitionSlashRuleUpTo383Characters) {
  const std::string dir382 = "/opt/" + std::string(200, 'd') + "/" + std::string(176, 'e');
  const std::string dir383 = dir382 + "e";
  ASSERT_EQ(dir383.size(), 383u);
  testsupport::MakeDir(dir382);
  testsupport::MakeDir(dir383);
  char big[512] = {};
  testsupport::SetEnv("homebak_path", dir382 + "/");  // 383 characters: the slash goes
  EXPECT_EQ(BOOT_InitGetBackupPartition(big, sizeof(big)), 0u);
  EXPECT_EQ(std::string(big), dir382);
  testsupport::SetEnv("homebak_path", dir383 + "/");  // 384 characters: the slash stays
  EXPECT_EQ(BOOT_InitGetBackupPartition(big, sizeof(big)), 0u);
  EXPECT_EQ(std::string(big), dir383 + "/");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, BackupPartitionMustBeADirectory) {
  testsupport::SetEnv("homebak_path", "/opt/none/");
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Invalid backup area path, path:/opt/none."));
  testsupport::ClearMainLog();
  testsupport::Touch("/opt/file");
  testsupport::SetEnv("homebak_path", "/opt/file");
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Invalid backup area path, path:/opt/file."));
}

TEST_F(PackagePathTest, BackupPartitionIsTestedByThePlatformLibrary) {
  // The platform's directory test decides, whatever the file system says.
  MainBoardWith({{"fail.SWM_IsDirExist", "0"}});
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Invalid backup area path, "
                                     "path:/opt/kytv8/backup."));
  testsupport::ClearMainLog();
  MainBoardWith({{"fail.SWM_IsDirExist", "1"}});
  testsupport::SetEnv("homebak_path", "/opt/none");
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0u);
  EXPECT_STREQ(path_, "/opt/none");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, BackupPartitionUnreadable) {
  testsupport::UnsetEnv("homebak_path");
  EXPECT_EQ(BOOT_InitGetBackupPartition(path_, sizeof(path_)), 0xFFFFFFFFu);
  char small[8] = {};
  testsupport::SetEnv("homebak_path", testsupport::kBackupDir);
  EXPECT_EQ(BOOT_InitGetBackupPartition(small, sizeof(small)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre());
}

// ---- the backup copy of a package ----

TEST_F(PackagePathTest, BackupPackageIsTheNameInTheBackupPartition) {
  char out[384] = {};
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/opt/kytv8/home/a.cc", out, sizeof(out)), 0u);
  EXPECT_STREQ(out, "/opt/kytv8/backup/a.cc");
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("b.cc", out, sizeof(out)), 0u);
  EXPECT_STREQ(out, "/opt/kytv8/backup/b.cc");
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/x/y/", out, sizeof(out)), 0u);  // POSIX basename
  EXPECT_STREQ(out, "/opt/kytv8/backup/y");
  // Only the name is screened.
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/opt/a;b/c.cc", out, sizeof(out)), 0u);
  EXPECT_STREQ(out, "/opt/kytv8/backup/c.cc");
  testsupport::SetEnv("homebak_path", "/opt/kytv8/backup/");
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/opt/kytv8/home/a.cc", out, sizeof(out)), 0u);
  EXPECT_STREQ(out, "/opt/kytv8/backup/a.cc");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, BackupPackageWithADangerousName) {
  char out[384] = "old";
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/opt/kytv8/home/a;b.cc", out, sizeof(out)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre(kInvalidChar, "[BOOT_INIT][ERROR]:package name include invalid char"));
}

TEST_F(PackagePathTest, BackupPackageWithoutBackupPartition) {
  testsupport::UnsetEnv("homebak_path");
  char out[384] = {};
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/opt/kytv8/home/a.cc", out, sizeof(out)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, BackupPackagePartitionReadIntoTwoHundredFiftySixBytes) {
  const std::string dir255 = "/opt/" + std::string(200, 'd') + "/" + std::string(49, 'e');
  ASSERT_EQ(dir255.size(), 255u);
  testsupport::MakeDir(dir255);
  testsupport::MakeDir(dir255 + "e");
  testsupport::SetEnv("homebak_path", dir255);
  char out[384] = {};
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/opt/kytv8/home/a.cc", out, sizeof(out)), 0u);
  EXPECT_EQ(std::string(out), dir255 + "/a.cc");
  testsupport::SetEnv("homebak_path", dir255 + "e");
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/opt/kytv8/home/a.cc", out, sizeof(out)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(PackagePathTest, BackupPackageThatDoesNotFitItsBufferStillSucceeds) {
  char out[16] = {};
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/opt/kytv8/home/a.cc", out, sizeof(out)), 0u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_GetBackupPackage"));
}

TEST_F(PackagePathTest, BackupPackageOfAPathTooLongToCopy) {
  // The copy into 384 bytes fails and leaves nothing; the POSIX name of nothing is ".".
  const std::string path = "/opt/kytv8/home/" + std::string(380, 'x') + ".cc";
  char out[384] = {};
  EXPECT_EQ(BOOT_INIT_GetBackupPackage(path.c_str(), out, sizeof(out)), 0u);
  EXPECT_STREQ(out, "/opt/kytv8/backup/.");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:strcpy unsuccessfully: "
                                     "BOOT_INIT_GetBackupPackage"));
}

TEST_F(PackagePathTest, BackupPackageWithoutArguments) {
  char out[384] = {};
  EXPECT_EQ(BOOT_INIT_GetBackupPackage(nullptr, out, sizeof(out)), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetBackupPackage("/opt/kytv8/home/a.cc", nullptr, 384), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:param error", "[BOOT_INIT][ERROR]:param error"));
}

}  // namespace
