// Placing the digests of a signature file list into the file index: the package's own list as
// bootpkg writes it, and lists written here for every rule of the reader (section order, the
// main section, key order in a file section, exempt and missing files, bounded values).
#include <string>
#include <vector>

#include "bootinit/package.h"
#include "pkg_fixture.hpp"

using pkgtest::Build;
using pkgtest::FileSection;
using pkgtest::Input;
using pkgtest::kError;
using pkgtest::kMpuFirmware;
using pkgtest::kMpuFirmwareBin;
using pkgtest::kNullParam;
using pkgtest::Listed;
using pkgtest::ListPackage;
using pkgtest::MainSection;
using pkgtest::Record;
using pkgtest::Section;
using pkgtest::SignatureList;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;

namespace {

const std::string kListDir = "/tmp/list";
const std::string kList = kListDir + "/signature_list.ini";

std::string Exempt(const std::string &name) {
  return "[BOOT_INIT][INFO]:file " + name + " in whitelist";
}

std::string Traverse(const std::string &name) {
  return "[BOOT_INIT][WARN]:File " + name + " will find traverse all.";
}

std::string HashValueFailed(const std::string &path = kList) {
  return "[BOOT_INIT][ERROR]:Get files hash value from " + path + " failed.";
}

std::string DigestOf(const char *name) {
  const BOOT_PKG_FILE_NODE_S *node = BootGetFileInfo(name);
  return node == nullptr ? "<no node>" : pkgtest::FieldText(node->digest, sizeof(node->digest));
}

// A package of kernel.img.gz, rootfs, app.bin and the main boards' FPGA image (exempt here),
// with its list, indexed; the log starts empty after that.
class PkgDigestsTest : public pkgtest::PkgTest {
 protected:
  void SetUp() override {
    PkgTest::SetUp();
    Input("kernel.img.gz", std::string(5000, 'k'));
    Input("rootfs", "root file system\n");
    Input("app.bin", "application\n");
    Input(kMpuFirmware, "fpga bitstream");
    Build({"kernel.img.gz", "rootfs", "app.bin", kMpuFirmware}, {"--kind", "rootfs=2"});
    records_ = ListPackage();
    ASSERT_EQ(Index(), 0u);
    testsupport::ClearMainLog();
    kernel_ = Record(records_, "kernel.bin").recordDigest;
    rootfs_ = Record(records_, "rootfs.bin").recordDigest;
    app_ = Record(records_, "app.bin").recordDigest;
  }

  static uint32_t Read(const std::string &text) {
    testsupport::WriteFile(kList, text);
    return BOOT_ReadSignatureFileList(kList.c_str());
  }

  // A list whose main section is good, followed by these sections as written.
  static uint32_t ReadSections(const std::string &sections) {
    return Read(MainSection("3") + sections);
  }

  std::vector<Listed> records_;
  std::string kernel_;
  std::string rootfs_;
  std::string app_;
};

TEST_F(PkgDigestsTest, ThePackagesOwnListGivesEveryRecordItsDigest) {
  ASSERT_EQ(BOOT_ExtractActualFile("signature_filelist", kListDir.c_str()), 0u);
  const std::string list = kListDir + "/signature_filelist";
  EXPECT_EQ(BOOT_ReadSignatureFileList(list.c_str()), 0u);
  EXPECT_EQ(DigestOf("kernel.bin"), kernel_);
  EXPECT_EQ(DigestOf("rootfs.bin"), rootfs_);
  EXPECT_EQ(DigestOf("app.bin"), app_);
  EXPECT_EQ(DigestOf("signature_filelist.bin"), "");  // a list never names itself
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][INFO]:Extract file: " + list, Exempt(kMpuFirmwareBin)));
}

TEST_F(PkgDigestsTest, ASectionMayNameTheRecordOrTheBareFile) {
  EXPECT_EQ(
      Read(SignatureList(
          {{"kernel.img.gz", "1", kernel_}, {"rootfs", "2", rootfs_}, {"app.bin", "1", app_}})),
      0u);
  EXPECT_EQ(DigestOf("kernel.bin"), kernel_);
  EXPECT_EQ(DigestOf("rootfs.bin"), rootfs_);
  EXPECT_EQ(DigestOf("app.bin"), app_);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgDigestsTest, OfTwoSectionsReachingOneRecordTheLaterWins) {
  EXPECT_EQ(Read(SignatureList({{"kernel.bin", "1", "first"}, {"kernel.img.gz", "1", "second"}})),
            0u);
  EXPECT_EQ(DigestOf("kernel.bin"), "second");
}

TEST_F(PkgDigestsTest, AListThatCannotBeOpened) {
  EXPECT_EQ(BOOT_ReadSignatureFileList("/tmp/none.ini"), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Open file /tmp/none.ini failed, errno=2."));
  EXPECT_EQ(BOOT_ReadSignatureFileList(nullptr), kError);
}

TEST_F(PkgDigestsTest, AListThatCannotBeRead) {
  EXPECT_EQ(Read("FILENAME=kernel.bin\n[FILE1]\n"), kError);
  EXPECT_EQ(Read(""), kError);
  EXPECT_EQ(Read("# only a comment\n"), kError);
  const std::string failed = "[BOOT_INIT][ERROR]:Read file " + kList + " failed.";
  EXPECT_THAT(MainLog(), ElementsAre(failed, failed, failed));
}

TEST_F(PkgDigestsTest, AnotherCreatorFailsTheList) {
  EXPECT_EQ(Read(MainSection("1", "Other Inc.") + FileSection(1, {"kernel.bin", "1", kernel_})),
            kError);
  EXPECT_EQ(Read(MainSection("1", "velmor technology inc.")), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Verify key create by(Other Inc.) failed.", HashValueFailed(),
                  "[BOOT_INIT][ERROR]:Verify key create by(velmor technology inc.) "
                  "failed.",
                  HashValueFailed()));
  EXPECT_EQ(DigestOf("kernel.bin"), "");
}

TEST_F(PkgDigestsTest, FileCountsOutOfRange) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"0", "0"},           {"257", "257"},
      {"0x101", "257"},     {"abc", "0"},
      {"-1", "4294967295"}, {"99999999999", "4294967295"},
      {"0401", "257"},      {"", "0"}};
  std::vector<std::string> expected;
  for (const auto &[text, value] : cases) {
    EXPECT_EQ(Read(MainSection(text)), kError) << text;
    expected.push_back("[BOOT_INIT][ERROR]:File number(" + value +
                       ") is invalid, NumStr = " + text + ".");
    expected.push_back(HashValueFailed());
  }
  EXPECT_THAT(MainLog(), testing::ElementsAreArray(expected));
}

TEST_F(PkgDigestsTest, FileCountsInRange) {
  for (const std::string count : {"1", "256", "0x100", "0X1", "0400", "12 files", "7abc"}) {
    EXPECT_EQ(Read(MainSection(count)), 0u) << count;
  }
  EXPECT_THAT(MainLog(), IsEmpty());
}

// The list reader of the signature check requires both keys; this one checks what is there.
TEST_F(PkgDigestsTest, TheMainSectionIsCheckedForWhatItHolds) {
  const std::string files = FileSection(1, {"kernel.bin", "1", kernel_});
  EXPECT_EQ(Read("[MAIN FILE INFO]\nFILENUM=1\n" + files), 0u);
  EXPECT_EQ(Read("[MAIN FILE INFO]\nCreate By=" + pkgtest::kCreator + "\n" + files), 0u);
  EXPECT_EQ(Read("[MAIN FILE INFO]\n" + files), 0u);
  EXPECT_EQ(Read(files), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_EQ(DigestOf("kernel.bin"), kernel_);
}

TEST_F(PkgDigestsTest, TheMainSectionIsReadUntilBothKeysWereMet) {
  EXPECT_EQ(Read(MainSection("1") + "Create By=Other Inc.\nFILENUM=0\n"), 0u);
  EXPECT_EQ(Read("[MAIN FILE INFO]\nCreate By=" + pkgtest::kCreator +
                 "\nCreate By=Other Inc.\nFILENUM=1\n"),
            kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Verify key create by(Other Inc.) failed.",
                                     HashValueFailed()));
}

// Sections are read in file order, so the files before a bad main section keep their digests.
TEST_F(PkgDigestsTest, TheMainSectionMayComeAnywhere) {
  EXPECT_EQ(Read(FileSection(1, {"kernel.bin", "1", kernel_}) + MainSection("2") +
                 FileSection(2, {"rootfs.bin", "2", rootfs_})),
            0u);
  EXPECT_EQ(DigestOf("rootfs.bin"), rootfs_);
  EXPECT_EQ(Read(FileSection(1, {"app.bin", "1", app_}) + MainSection("0") +
                 FileSection(2, {"rootfs.bin", "2", "later"})),
            kError);
  EXPECT_EQ(DigestOf("app.bin"), app_);
  EXPECT_EQ(DigestOf("rootfs.bin"), rootfs_);
}

TEST_F(PkgDigestsTest, ADigestBeforeTheNameIsDropped) {
  EXPECT_EQ(
      ReadSections("[FILE1]\nSHA256-DIGEST=" + kernel_ + "\nFILENAME=kernel.bin\nFILETYPE=1\n" +
                   FileSection(2, {"rootfs.bin", "2", rootfs_})),
      0u);
  EXPECT_EQ(DigestOf("kernel.bin"), "");
  EXPECT_EQ(DigestOf("rootfs.bin"), rootfs_);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgDigestsTest, ADigestBeforeTheTypeIsDropped) {
  EXPECT_EQ(
      ReadSections("[FILE1]\nFILENAME=kernel.bin\nSHA256-DIGEST=" + kernel_ + "\nFILETYPE=1\n"),
      0u);
  EXPECT_EQ(DigestOf("kernel.bin"), "");
  // Even for a file the package lacks: nothing is looked up.
  EXPECT_EQ(ReadSections("[FILE1]\nFILENAME=initrd.bin\nSHA256-DIGEST=" + kernel_ + "\n"), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgDigestsTest, ASectionOfAnExemptFileStoresNothing) {
  EXPECT_EQ(ReadSections(FileSection(1, {kMpuFirmwareBin, "1", "a digest"}) +
                         "[FILE2]\nFILENAME=" + kMpuFirmwareBin + "\nSHA256-DIGEST=\n"),
            0u);
  EXPECT_THAT(pkgtest::IndexNodes(), testing::Each(testing::Field(&pkgtest::NodeView::digest, "")));
  EXPECT_THAT(MainLog(), ElementsAre(Exempt(kMpuFirmwareBin), Exempt(kMpuFirmwareBin)));
}

TEST_F(PkgDigestsTest, AFileThePackageLacksFailsThePlacement) {
  EXPECT_EQ(Read(SignatureList({{"kernel.bin", "1", kernel_},
                                {"initrd.bin", "0x10", "abc"},
                                {"rootfs.bin", "2", rootfs_}})),
            kError);
  EXPECT_EQ(DigestOf("kernel.bin"), kernel_);
  EXPECT_EQ(DigestOf("rootfs.bin"), "");
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("initrd.bin"),
                                     "[BOOT_INIT][ERROR]:Update file(initrd.bin 16 abc) failed.",
                                     HashValueFailed()));
}

TEST_F(PkgDigestsTest, TypesAreNumbersInAnyBase) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"7", "7"}, {"0x10", "16"}, {"010", "8"}, {"abc", "0"}, {"-1", "4294967295"}};
  std::vector<std::string> expected;
  for (const auto &[text, value] : cases) {
    EXPECT_EQ(ReadSections(FileSection(1, {"initrd.bin", text, "d"})), kError);
    expected.push_back(Traverse("initrd.bin"));
    expected.push_back("[BOOT_INIT][ERROR]:Update file(initrd.bin " + value + " d) failed.");
    expected.push_back(HashValueFailed());
  }
  EXPECT_THAT(MainLog(), testing::ElementsAreArray(expected));
}

TEST_F(PkgDigestsTest, AnEmptyNameOrDigestFailsTheSection) {
  EXPECT_EQ(ReadSections("[FILE1]\nFILENAME=\nFILETYPE=1\nSHA256-DIGEST=" + kernel_ + "\n"),
            kError);
  EXPECT_EQ(ReadSections("[FILE1]\nFILENAME=kernel.bin\nFILETYPE=1\nSHA256-DIGEST=\n"), kError);
  EXPECT_EQ(ReadSections("[FILE1]\nSHA256-DIGEST=\nFILENAME=kernel.bin\n"), kError);
  EXPECT_THAT(MainLog(), ElementsAre(HashValueFailed(), HashValueFailed(), HashValueFailed()));
  EXPECT_EQ(DigestOf("kernel.bin"), "");
}

TEST_F(PkgDigestsTest, SectionsWithoutKeysAreIgnored) {
  EXPECT_EQ(ReadSections("[EMPTY]\n[FILE1]\nFILENAME=kernel.bin\nFILETYPE=1\nSHA256-DIGEST=" +
                         kernel_ + "\n[ALSO EMPTY]\n"),
            0u);
  EXPECT_EQ(DigestOf("kernel.bin"), kernel_);
}

TEST_F(PkgDigestsTest, ACompleteSectionIgnoresWhatFollows) {
  EXPECT_EQ(ReadSections("[FILE1]\nCOMMENT=first\nFILENAME=kernel.bin\nFILETYPE=1\n"
                         "SHA256-DIGEST=d1\nSHA256-DIGEST=d2\nFILENAME=initrd.bin\n"
                         "SHA256-DIGEST=\n"),
            0u);
  EXPECT_EQ(DigestOf("kernel.bin"), "d1");
  EXPECT_THAT(MainLog(), IsEmpty());
}

// Until a section is complete every digest is stored: the last one before completion stays.
TEST_F(PkgDigestsTest, RepeatedKeysOfAnIncompleteSection) {
  EXPECT_EQ(ReadSections("[FILE1]\nFILENAME=rootfs.bin\nFILENAME=kernel.bin\nFILETYPE=1\n"
                         "SHA256-DIGEST=d1\n"),
            0u);
  EXPECT_EQ(DigestOf("kernel.bin"), "d1");
  EXPECT_EQ(DigestOf("rootfs.bin"), "");
}

TEST_F(PkgDigestsTest, ValuesAreKeptWithinTheirFields) {
  EXPECT_EQ(ReadSections(FileSection(1, {"kernel.bin", "1", std::string(70, 'e')})), 0u);
  EXPECT_EQ(DigestOf("kernel.bin"), std::string(64, 'e'));
  EXPECT_EQ(ReadSections(FileSection(1, {"rootfs" + std::string(200, 's'), "1", "d"})), kError);
  // The name kept is 95 characters long; its ".bin" form does not fit, so only the full walk
  // can look for it.
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: BOOT_GetFileName",
                                     Traverse("rootfs" + std::string(89, 's')),
                                     "[BOOT_INIT][ERROR]:Update file(rootfs" +
                                         std::string(89, 's') + " 1 d) failed.",
                                     HashValueFailed()));
}

}  // namespace
