// Writing the proven file: the staged file in the destination directory, its place under the
// file's name only after the proof, and what reaches that name when the package file is changed
// while it is read, when the copy is cut short, when no unnamed file can be made, and when the
// name cannot be had. Nothing partial or unproven ever appears under the name, and no staged
// file is left behind.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "extract_fixture.hpp"

namespace extracttest {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testsupport::MainLog;
using testsupport::ReadFile;

// 100 KiB of varied bytes: the digest reads it in four pieces (32 KiB each, then 4 KiB).
std::string LargeImage() {
  std::string bytes(102400, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
  }
  return bytes;
}

// Inverts one byte of the package file in place, as another process could.
void FlipPackageByte(std::size_t at) {
  std::fstream file(kPkgPath, std::ios::in | std::ios::out | std::ios::binary);
  file.seekg(static_cast<std::streamoff>(at));
  const char old = static_cast<char>(file.get());
  file.seekp(static_cast<std::streamoff>(at));
  file.put(static_cast<char>(old ^ 0xFF));
}

std::string ExtractFailed(const std::string &path) {
  return "[BOOT_INIT][ERROR]:ExtractFileInner: extract file " + path + " failed";
}
std::string CreateFailed(const std::string &path, int error) {
  return "[BOOT_INIT][ERROR]:ExtractFile: create file " + path +
         " failed, errno=" + std::to_string(error) + ".";
}

class ExtractStageTest : public ExtractTest {
 protected:
  void SetUp() override {
    ExtractTest::SetUp();
    Input("image.img", LargeImage());
    Input("rootfs", kRootfs);
    pkgtest::Build({"image.img", "rootfs"}, SignedBy("pss"));
    image_ = pkgtest::Record(pkgtest::ListPackage(), "image.bin");
    testsupport::WriteFile(Out("keep"), "was here");
  }

  // Loads the package's list first, so that the reads the test watches are the search's own.
  static void LoadList() {
    uint32_t freeAfter = 0;
    ASSERT_EQ(GetSignedFiles(kPkgPath.c_str(), &freeAfter), 0u);
    testsupport::ClearMainLog();
  }

  // After the n-th read of the package, change runs.
  static void ChangeAfterRead(int read, std::function<void()> change) {
    extractfaults::Get().package = kPkgPath;
    extractfaults::Get().changeAfterRead = read;
    extractfaults::Get().change = std::move(change);
  }

  // After the n-th read of the package, byte at of the package file is inverted.
  static void FlipAfterRead(int read, std::size_t at) {
    ChangeAfterRead(read, [at] { FlipPackageByte(at); });
  }

  // The reads of a search before its first entry's file header: the package header, then one
  // file header per record for the layout check (four records: image, rootfs, the PSS pair).
  static constexpr int kLayoutReads = 1 + 4;

  static std::map<std::string, std::string> OnlyKeep() { return {{"keep", "was here"}}; }

  Listed image_;
};

// Reads 1 to 5 are the package header and the layout check, read 6 the file header of the first
// entry, read 7 the first piece of its record. A byte changed on disk right after the file header
// was read is read with the record: the digest shows it and nothing is written.
TEST_F(ExtractStageTest, AChangeAfterTheFileHeaderWasReadIsCaught) {
  LoadList();
  FlipAfterRead(kLayoutReads + 1, image_.offset + 352 + 60000);
  EXPECT_EQ(ExtractFileInner(kPkgPath.c_str(), "image.img", kOutDir.c_str()), kNotFound);
  EXPECT_EQ(extractfaults::Get().changedAtRead, 352u);
  const std::string changed = pkgtest::Record(pkgtest::ListPackage(), "image.bin").recordDigest;
  ASSERT_NE(changed, image_.recordDigest);
  EXPECT_THAT(MainLog(), ElementsAre(Mismatch("image.img", changed, image_.recordDigest),
                                     NoSuchFile("image.img"), GetFileFailed("image.img")));
  EXPECT_EQ(DirState(kOutDir), OnlyKeep());
}

// A change behind the part already read, while the rest is still being read: caught as well.
TEST_F(ExtractStageTest, AChangeInTheMiddleOfTheRecordIsCaught) {
  LoadList();
  FlipAfterRead(kLayoutReads + 2, image_.offset + 352 + 90000);
  EXPECT_EQ(ExtractFileInner(kPkgPath.c_str(), "image.bin", kOutDir.c_str()), kNotFound);
  EXPECT_EQ(extractfaults::Get().changedAtRead, 32768u);
  EXPECT_EQ(DirState(kOutDir), OnlyKeep());
  EXPECT_EQ(MainLog().size(), 3u);
}

// A change after the last piece was read comes too late to matter: what is written is what was
// proven, not what the package holds now.
TEST_F(ExtractStageTest, AChangeAfterTheProofDoesNotReachTheFile) {
  LoadList();
  FlipAfterRead(kLayoutReads + 5, image_.offset + 352 + 100);  // pieces at reads 7 to 10
  EXPECT_EQ(ExtractFileInner(kPkgPath.c_str(), "image.img", kOutDir.c_str()), 0u);
  EXPECT_EQ(extractfaults::Get().changedAtRead, 352u + 102400u - 3u * 32768u);
  EXPECT_EQ(ReadFile(Out("image.img")), LargeImage());
  EXPECT_NE(pkgtest::PackageBytes().substr(image_.offset + 352, 102400), LargeImage());
  EXPECT_THAT(MainLog(), IsEmpty());
}

// A copy cut short (here by a file size limit, as a full file system would) leaves nothing under
// the name, neither the old file nor a part of the new one, and no staged file.
TEST_F(ExtractStageTest, AnInterruptedCopyLeavesNoPartialFile) {
  testsupport::WriteFile(Out("image.img"), "old image");
  LoadList();
  struct rlimit saved {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &saved), 0);
  const sighandler_t oldHandler = ::signal(SIGXFSZ, SIG_IGN);
  struct rlimit limited = saved;
  limited.rlim_cur = 65536;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
  const uint32_t ret = ExtractFileInner(kPkgPath.c_str(), "image.img", kOutDir.c_str());
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &saved), 0);
  ::signal(SIGXFSZ, oldHandler);
  EXPECT_EQ(ret, 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:ExtractFile: copy file failed, len:102400",
                                     ExtractFailed(Out("image.img"))));
  EXPECT_EQ(DirState(kOutDir), OnlyKeep());
}

// Where unnamed files are refused, the staged file gets a hidden name and is renamed into place.
TEST_F(ExtractStageTest, WithoutUnnamedFilesANamedStagedFileIsUsed) {
  for (const int error : {EOPNOTSUPP, EISDIR}) {
    testsupport::RemovePath(Out("image.img"));
    extractfaults::Get().tmpfileErrno = error;
    EXPECT_EQ(Extract("image.img"), 0u);
    EXPECT_EQ(Extract("rootfs.bin"), 0u);
    EXPECT_EQ(ReadFile(Out("image.img")), LargeImage());
    EXPECT_EQ(ReadFile(Out("rootfs.bin")), RecordBytes("rootfs.bin", true));
    EXPECT_EQ(testsupport::StatOf(Out("image.img")).st_mode & 07777, 0700u);
    EXPECT_EQ(DirState(kOutDir).size(), 3u);  // keep, image.img, rootfs.bin: nothing hidden
    EXPECT_GE(extractfaults::Get().tmpfileRefused, 2);
  }
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(ExtractStageTest, ANamedStagedFileIsRemovedOnFailure) {
  extractfaults::Get().tmpfileErrno = EOPNOTSUPP;
  LoadList();
  // A proof that fails...
  FlipAfterRead(2, image_.offset + 400);
  EXPECT_EQ(ExtractFileInner(kPkgPath.c_str(), "image.img", kOutDir.c_str()), kNotFound);
  EXPECT_EQ(DirState(kOutDir), OnlyKeep());
  // ...and a name that cannot be had (a directory stands there).
  testsupport::MakeDir(Out("rootfs") + "/inside");
  EXPECT_EQ(ExtractFileInner(kPkgPath.c_str(), "rootfs", kOutDir.c_str()), kError);
  EXPECT_EQ(DirState(kOutDir).size(), 2u);
  EXPECT_TRUE(std::filesystem::is_directory(Out("rootfs") + "/inside"));
  const std::vector<std::string> log = MainLog();
  ASSERT_EQ(log.size(), 5u);
  EXPECT_EQ(log[3], CreateFailed(Out("rootfs"), EISDIR));
  EXPECT_EQ(log[4], ExtractFailed(Out("rootfs")));
}

// Other reasons for refusing an unnamed file are failures of their own.
TEST_F(ExtractStageTest, OtherRefusalsOfAnUnnamedFileFail) {
  LoadList();
  extractfaults::Get().tmpfileErrno = EACCES;
  EXPECT_EQ(ExtractFileInner(kPkgPath.c_str(), "rootfs", kOutDir.c_str()), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre(CreateFailed(Out("rootfs"), EACCES), ExtractFailed(Out("rootfs"))));
  EXPECT_EQ(DirState(kOutDir), OnlyKeep());
}

TEST_F(ExtractStageTest, ADestinationDirectoryThatIsNotThere) {
  LoadList();
  const std::string missing = "/var/lib/nodir";
  EXPECT_EQ(ExtractFileInner(kPkgPath.c_str(), "rootfs", missing.c_str()), kError);
  extractfaults::Get().tmpfileErrno = EOPNOTSUPP;  // the named staged file cannot be made either
  EXPECT_EQ(ExtractFileInner(kPkgPath.c_str(), "rootfs", missing.c_str()), kError);
  EXPECT_THAT(
      MainLog(),
      ElementsAre(CreateFailed(missing + "/rootfs", ENOENT), ExtractFailed(missing + "/rootfs"),
                  CreateFailed(missing + "/rootfs", ENOENT), ExtractFailed(missing + "/rootfs")));
  EXPECT_FALSE(std::filesystem::exists(missing));
}

// A directory at the name is not removed, and the file cannot be linked in.
TEST_F(ExtractStageTest, ADirectoryAtTheName) {
  testsupport::MakeDir(Out("rootfs") + "/inside");
  EXPECT_EQ(Extract("rootfs"), kError);
  EXPECT_THAT(MainLog(), ElementsAre(CreateFailed(Out("rootfs"), EEXIST),
                                     ExtractFailed(Out("rootfs")), NotOk("rootfs", kOutDir)));
  EXPECT_TRUE(std::filesystem::is_directory(Out("rootfs") + "/inside"));
  EXPECT_EQ(DirState(kOutDir).size(), 2u);
}

TEST_F(ExtractStageTest, APackageThatCannotBeOpened) {
  EXPECT_EQ(ExtractFileInner("/opt/kytv8/home/none.cc", "rootfs", kOutDir.c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:ExtractFileInner: Open file failed, file "
                                     "path = /opt/kytv8/home/none.cc, errno=2."));
  EXPECT_EQ(ExtractFileInner(nullptr, "rootfs", kOutDir.c_str()), kError);
  EXPECT_EQ(ExtractFile(nullptr, "/opt/x"), kError);
}

TEST_F(ExtractStageTest, ADirectoryAsPackage) {
  LoadList();
  EXPECT_EQ(ExtractFileInner("/opt/kytv8/home", "rootfs", kOutDir.c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:FindTarget: Read package header failed, "
                                     "read len = -1, head len = 6180.",
                                     GetFileFailed("rootfs")));
}

// A destination path of 384 characters or more is refused after the proof, never cut.
TEST_F(ExtractStageTest, ADestinationPathThatDoesNotFit) {
  std::string dir = "/var/lib";
  while (dir.size() < 377) {
    dir += "/" + std::string(std::min<std::size_t>(376 - dir.size(), 100), 'd');
  }
  ASSERT_EQ(dir.size() + 1 + std::string("rootfs").size(), 384u);
  EXPECT_EQ(Extract("rootfs", dir), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:ExtractFileInner: sprintf dest failed",
                                     NotOk("rootfs", dir)));
  EXPECT_THAT(DirState(dir), IsEmpty());
  const std::string shorter = dir.substr(0, dir.size() - 1);
  EXPECT_EQ(Extract("rootfs", shorter), 0u);
  EXPECT_EQ(ReadFile(shorter + "/rootfs"), kRootfs);
}

// A signature file comes out unchecked but staged the same way: a copy that runs out of package
// leaves nothing under its name.
TEST_F(ExtractStageTest, ASignatureFileCutShort) {
  const Listed cms = pkgtest::Record(pkgtest::ListPackage(), "signature_pss_cms.bin");
  // Cut once the layout check has passed: a package cut before it is refused as a whole.
  ChangeAfterRead(kLayoutReads,
                  [&cms] { std::filesystem::resize_file(kPkgPath, cms.offset + 352 + 100); });
  EXPECT_EQ(Extract("signature_pss_cms"), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:ExtractFile: copy file failed, len:" +
                                         std::to_string(cms.actualLength),
                                     ExtractFailed(Out("signature_pss_cms")),
                                     NotOk("signature_pss_cms", kOutDir)));
  EXPECT_EQ(DirState(kOutDir), OnlyKeep());
}

// No buffer for the copy of a signature file: the copy's code, and nothing under the name.
TEST_F(ExtractStageTest, NoBufferForASignatureFile) {
  pkgfaults::Get().callocFailSize = 32768;
  EXPECT_EQ(Extract("signature_pss_filelist"), 0x10000005u);
  const Listed list = pkgtest::Record(pkgtest::ListPackage(), "signature_pss_filelist.bin");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:ExtractFile: copy file failed, len:" +
                                         std::to_string(list.actualLength),
                                     ExtractFailed(Out("signature_pss_filelist")),
                                     NotOk("signature_pss_filelist", kOutDir)));
  EXPECT_EQ(DirState(kOutDir), OnlyKeep());
}

}  // namespace
}  // namespace extracttest
