// Writing records of the indexed package out as files: the whole record or the file's bytes, the
// directory and file they go to, what was there before, and every way the copy can fail. The
// expected bytes come from bootpkg's own extraction and from the input files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "bootinit/package.h"
#include "pkg_fixture.hpp"

using pkgtest::Bootpkg;
using pkgtest::Input;
using pkgtest::kError;
using pkgtest::kNotFound;
using pkgtest::kNullParam;
using pkgtest::kOutDir;
using pkgtest::kPkgPath;
using pkgtest::Listed;
using pkgtest::ListPackage;
using pkgtest::Record;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;
using testsupport::ReadFile;
using testsupport::StatOf;

namespace {

const std::string kKernel(5000, 'k');

std::string Extracting(const std::string &path) {
  return "[BOOT_INIT][INFO]:Extract file: " + path;
}

// The record as bootpkg writes it out whole (under its binName).
std::string WholeRecord(const std::string &binName) {
  const std::string dir = "/tmp/reference";
  const pkgtest::ToolRun run = Bootpkg({"extract", "--out", dir, "--whole", kPkgPath, binName});
  EXPECT_EQ(run.status, 0) << run.output;
  return ReadFile(dir + "/" + binName);
}

// A directory path of exactly length characters under /tmp, in components of at most 100.
std::string LongDir(std::size_t length) {
  std::string dir = "/tmp";
  while (dir.size() < length) {
    const std::size_t left = std::min<std::size_t>(length - dir.size(), 101);
    dir += "/" + std::string(left - 1, 'd');
  }
  return dir;
}

class PkgExtractTest : public pkgtest::PkgTest {
 protected:
  void SetUp() override {
    PkgTest::SetUp();
    BuildThree();
    records_ = ListPackage();
    ASSERT_EQ(Index(), 0u);
  }

  static std::string Out(const std::string &name) { return kOutDir + "/" + name; }

  std::vector<Listed> records_;
};

TEST_F(PkgExtractTest, TheWholeRecordGoesThroughTheCopyOfTheLibrary) {
  const Listed kernel = Record(records_, "kernel.bin");
  EXPECT_EQ(BOOT_ExtractBinFile("kernel.bin", kOutDir.c_str()), 0u);
  EXPECT_EQ(ReadFile(Out("kernel.bin")), WholeRecord("kernel.bin"));
  EXPECT_THAT(MainLog(), ElementsAre(Extracting(Out("kernel.bin"))));
  ASSERT_EQ(pkgfaults::Get().copies.size(), 1u);
  const pkgfaults::CopyCall &copy = pkgfaults::Get().copies[0];
  EXPECT_EQ(copy.src, BOOT_GetPkgInfo()->fd);
  EXPECT_EQ(copy.srcPosition, kernel.offset);
  EXPECT_EQ(copy.length, static_cast<int32_t>(kernel.length));
  EXPECT_EQ(StatOf(Out("kernel.bin")).st_mode & 07777, 0700u);
  // The directory was made for the files' owner.
  const struct stat dir = StatOf(kOutDir);
  EXPECT_EQ(dir.st_mode & 07777, 0750u);
  EXPECT_EQ(dir.st_uid, 2000u);
  EXPECT_EQ(dir.st_gid, 2000u);
}

TEST_F(PkgExtractTest, TheCopyIsNamedAsAsked) {
  EXPECT_EQ(BOOT_ExtractBinFile("kernel.img.gz", kOutDir.c_str()), 0u);
  EXPECT_EQ(ReadFile(Out("kernel.img.gz")), WholeRecord("kernel.bin"));
  EXPECT_FALSE(std::filesystem::exists(Out("kernel.bin")));
}

TEST_F(PkgExtractTest, TheFileBytesOnly) {
  const Listed kernel = Record(records_, "kernel.bin");
  EXPECT_EQ(BOOT_ExtractActualFile("kernel.img.gz", kOutDir.c_str()), 0u);
  EXPECT_EQ(ReadFile(Out("kernel.img.gz")), kKernel);
  ASSERT_EQ(pkgfaults::Get().copies.size(), 1u);
  EXPECT_EQ(pkgfaults::Get().copies[0].srcPosition, kernel.offset + 352);
  EXPECT_EQ(pkgfaults::Get().copies[0].length, 5000);
  EXPECT_EQ(BOOT_ExtractActualFile("app.bin", kOutDir.c_str()), 0u);
  EXPECT_EQ(ReadFile(Out("app.bin")), "application\n");
}

TEST_F(PkgExtractTest, AnEmptyFileNeedsNoCopy) {
  BOOT_DeinitPkgVerify();
  Input("empty", "");
  pkgtest::Build({"empty"}, {"--no-list"});
  ASSERT_EQ(Index(), 0u);
  EXPECT_EQ(BOOT_ExtractActualFile("empty", kOutDir.c_str()), 0u);
  EXPECT_TRUE(std::filesystem::is_regular_file(Out("empty")));
  EXPECT_EQ(ReadFile(Out("empty")), "");
  EXPECT_THAT(pkgfaults::Get().copies, IsEmpty());
}

TEST_F(PkgExtractTest, AFileThePackageDoesNotHold) {
  EXPECT_EQ(BOOT_ExtractBinFile("initrd.bin", kOutDir.c_str()), kNotFound);
  EXPECT_EQ(BOOT_ExtractActualFile("initrd.img", kOutDir.c_str()), kNotFound);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARN]:File initrd.bin will find traverse all.",
                                     "[BOOT_INIT][ERROR]:Get file(initrd.bin) info failed.",
                                     "[BOOT_INIT][WARN]:File initrd.img will find traverse all.",
                                     "[BOOT_INIT][ERROR]:Get file(initrd.img) info failed."));
  EXPECT_FALSE(std::filesystem::exists(kOutDir));
}

TEST_F(PkgExtractTest, AFileThatWasThereIsReplaced) {
  testsupport::WriteFile(Out("rootfs"), std::string(10000, 'o'));
  EXPECT_EQ(BOOT_ExtractActualFile("rootfs", kOutDir.c_str()), 0u);
  EXPECT_EQ(ReadFile(Out("rootfs")), "root file system\n");
}

TEST_F(PkgExtractTest, ALinkThatWasThereIsReplacedAndItsTargetKept) {
  testsupport::WriteFile("/tmp/elsewhere", "keep me");
  testsupport::MakeDir(kOutDir);
  std::filesystem::create_symlink("/tmp/elsewhere", Out("rootfs"));
  EXPECT_EQ(BOOT_ExtractActualFile("rootfs", kOutDir.c_str()), 0u);
  EXPECT_FALSE(std::filesystem::is_symlink(Out("rootfs")));
  EXPECT_EQ(ReadFile(Out("rootfs")), "root file system\n");
  EXPECT_EQ(ReadFile("/tmp/elsewhere"), "keep me");
  // A link leading nowhere goes the same way.
  std::filesystem::remove(Out("app.bin"));
  std::filesystem::create_symlink("/tmp/nowhere", Out("app.bin"));
  EXPECT_EQ(BOOT_ExtractActualFile("app.bin", kOutDir.c_str()), 0u);
  EXPECT_EQ(ReadFile(Out("app.bin")), "application\n");
  EXPECT_FALSE(std::filesystem::exists("/tmp/nowhere"));
}

TEST_F(PkgExtractTest, AnExistingDirectoryIsLeftAsItIs) {
  testsupport::MakeDir(kOutDir);
  ::chmod(kOutDir.c_str(), 0755);
  EXPECT_EQ(BOOT_ExtractBinFile("rootfs.bin", kOutDir.c_str()), 0u);
  EXPECT_EQ(StatOf(kOutDir).st_mode & 07777, 0755u);
  EXPECT_EQ(StatOf(kOutDir).st_uid, 0u);
}

TEST_F(PkgExtractTest, ADirectoryThatCannotBeMade) {
  testsupport::WriteFile("/tmp/pkgfile", "a file");
  EXPECT_EQ(BOOT_ExtractBinFile("rootfs.bin", "/tmp/pkgfile/sub"), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Create dir /tmp/pkgfile/sub failed, "
                                     "ret=2."));
  EXPECT_THAT(pkgfaults::Get().copies, IsEmpty());
}

TEST_F(PkgExtractTest, AFileThatCannotBeMade) {
  testsupport::MakeDir(Out("rootfs.bin") + "/inside");
  EXPECT_EQ(BOOT_ExtractBinFile("rootfs.bin", kOutDir.c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre(Extracting(Out("rootfs.bin")),
                                     "[BOOT_INIT][ERROR]:Create file " + Out("rootfs.bin") +
                                         " failed, errno=21."));
  EXPECT_TRUE(std::filesystem::is_directory(Out("rootfs.bin") + "/inside"));
}

TEST_F(PkgExtractTest, APathThatDoesNotFit) {
  const std::string dir = LongDir(373);  // with "/" and "kernel.bin" 384 characters
  EXPECT_EQ(BOOT_ExtractBinFile("kernel.bin", dir.c_str()), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: BootExtractFile"));
  const std::string shorter = LongDir(372);
  EXPECT_EQ(BOOT_ExtractBinFile("kernel.bin", shorter.c_str()), 0u);
}

// Records are checked when the index is built; bytes can still go missing afterwards.
TEST_F(PkgExtractTest, APackageCutShortAfterIndexing) {
  const Listed kernel = Record(records_, "kernel.bin");
  std::filesystem::resize_file(kPkgPath, kernel.offset + 1000);
  EXPECT_EQ(BOOT_ExtractBinFile("kernel.bin", kOutDir.c_str()), 1u);
  EXPECT_THAT(MainLog(),
              ElementsAre(Extracting(Out("kernel.bin")),
                          "[BOOT_INIT][ERROR]:Copy file " + Out("kernel.bin") + " failed."));
}

// The file length of a header is not one of the layout rules: a length past the end of the
// package fails when the bytes are copied.
TEST_F(PkgExtractTest, AFileLengthPastTheEndOfThePackage) {
  BOOT_DeinitPkgVerify();
  const Listed app = Record(records_, "app.bin");
  std::string bytes = pkgtest::PackageBytes();
  pkgtest::PutBe32(bytes, app.offset + 340, 100000);
  pkgtest::WritePackage(bytes);
  ASSERT_EQ(Index(), 0u);
  EXPECT_EQ(BOOT_ExtractActualFile("app.bin", kOutDir.c_str()), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(Extracting(Out("app.bin")), "[BOOT_INIT][ERROR]:Copy file " +
                                                                     Out("app.bin") + " failed."));
}

TEST_F(PkgExtractTest, AFailedSeekInThePackage) {
  pkgfaults::Get().lseekFailFd = BOOT_GetPkgInfo()->fd;
  pkgfaults::Get().lseekFailAt = 1;
  pkgfaults::Get().lseekErrno = EINVAL;
  EXPECT_EQ(BOOT_ExtractBinFile("kernel.bin", kOutDir.c_str()), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre(Extracting(Out("kernel.bin")),
                          "[BOOT_INIT][ERROR]:Copy file " + Out("kernel.bin") + " failed."));
  EXPECT_THAT(pkgfaults::Get().copies, IsEmpty());
}

TEST_F(PkgExtractTest, AnyRangeOfAnyDescriptor) {
  const std::string source = Input("source", "0123456789");
  const int fd = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(BootExtractFile(fd, 2, "part", 5, kOutDir.c_str()), 0u);
  EXPECT_EQ(ReadFile(Out("part")), "23456");
  EXPECT_EQ(BootExtractFile(fd, 8, "tail", 5, kOutDir.c_str()), 1u);
  ::close(fd);
  EXPECT_EQ(BootExtractFile(-1, 0, "closed", 1, kOutDir.c_str()), kError);
  EXPECT_EQ(BootExtractFile(fd, 0, nullptr, 1, kOutDir.c_str()), kError);
  EXPECT_EQ(BOOT_ExtractBinFile("kernel.bin", nullptr), kError);
  EXPECT_THAT(MainLog(), ElementsAre(Extracting(Out("part")), Extracting(Out("tail")),
                                     "[BOOT_INIT][ERROR]:Copy file " + Out("tail") + " failed.",
                                     Extracting(Out("closed")),
                                     "[BOOT_INIT][ERROR]:Copy file " + Out("closed") + " failed.",
                                     kNullParam, kNullParam));
}

TEST_F(PkgExtractTest, RemovingAnExtractedFile) {
  testsupport::WriteFile(Out("copy"), "x");
  testsupport::WriteFile("/tmp/elsewhere", "keep me");
  std::filesystem::create_symlink("/tmp/elsewhere", Out("link"));
  testsupport::MakeDir(Out("dir"));
  BootRemoveFile(kOutDir.c_str(), "copy");
  BootRemoveFile(kOutDir.c_str(), "link");
  BootRemoveFile(kOutDir.c_str(), "dir");
  BootRemoveFile(kOutDir.c_str(), "missing");
  EXPECT_FALSE(std::filesystem::exists(Out("copy")));
  EXPECT_FALSE(std::filesystem::is_symlink(Out("link")));
  EXPECT_EQ(ReadFile("/tmp/elsewhere"), "keep me");
  EXPECT_TRUE(std::filesystem::is_directory(Out("dir")));
  EXPECT_THAT(MainLog(), IsEmpty());
  BootRemoveFile(LongDir(380).c_str(), "copy");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: BootRemoveFile"));
}

}  // namespace
