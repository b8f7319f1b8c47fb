// The search and the proof on their own (FindTarget, IsTargetValid, BootCheckFileValid,
// CheckFileShaValid, GetSignedFile) over packages bootpkg writes unsigned and the test patches,
// with signed-file lists the test loads through the library's own list reader: every message of
// the search, where the file position is left, and what reaches the staged file.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
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

const std::string kStageDir = "/opt/stage";
const std::string kListPath = "/opt/lists/list.ini";

// One open descriptor, closed at the end of its scope.
class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  ~Fd() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  [[nodiscard]] int get() const { return fd_; }

 private:
  int fd_;
};

// The bytes written into a staged file so far.
std::string Staged(int fd) {
  std::string bytes;
  char chunk[4096];
  for (off_t at = 0;;) {
    const ssize_t got = ::pread(fd, chunk, sizeof(chunk), at);
    if (got <= 0) {
      return bytes;
    }
    bytes.append(chunk, static_cast<std::size_t>(got));
    at += got;
  }
}

// The digest text of bytes, by the board's sha256sum.
std::string DigestOf(const std::string &bytes) {
  testsupport::WriteFile("/opt/digest.in", bytes);
  return pkgtest::Sha256sum("/opt/digest.in");
}

class ExtractFindTest : public ExtractTest {
 protected:
  void SetUp() override {
    ExtractTest::SetUp();
    testsupport::RemovePath(kStageDir);
    testsupport::MakeDir(kStageDir);
  }

  // kernel.img.gz, rootfs and app.bin without any list.
  static void BuildUnsigned() {
    Input("kernel.img.gz", kKernel);
    Input("rootfs", kRootfs);
    Input("app.bin", kApp);
    pkgtest::Build({"kernel.img.gz", "rootfs", "app.bin"}, {"--no-list"});
  }

  // Loads a signed-file list of these {binName, digest} records with the library's reader.
  static void LoadList(const std::vector<std::pair<std::string, std::string>> &files) {
    std::vector<pkgtest::Section> sections;
    for (const auto &[name, digest] : files) {
      sections.push_back({name, "1", digest});
    }
    testsupport::WriteFile(kListPath, pkgtest::SignatureList(sections));
    ASSERT_EQ(BOOT_INIT_GetDigestInfoFromSignatureFileList(kListPath.c_str(), g_signedFiles), 0u);
  }

  // The list of the package's records as they are now on disk.
  static void ListRecordsAsTheyAre() {
    std::vector<std::pair<std::string, std::string>> files;
    for (const Listed &record : pkgtest::ListPackage()) {
      files.emplace_back(record.binName, record.recordDigest);
    }
    LoadList(files);
  }

  static int OpenPackage() { return ::open(kPkgPath.c_str(), O_RDONLY | O_CLOEXEC); }
  static int OpenStage() { return ::open(kStageDir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); }

  // FindTarget on a fresh descriptor of the package, into the staged file outFd.
  static uint32_t Find(const std::string &name, BOOT_EXTRACT_TARGET_S &target, int outFd,
                       off_t *position = nullptr) {
    const Fd package(OpenPackage());
    target = BOOT_EXTRACT_TARGET_S{};
    target.outFd = outFd;
    const uint32_t ret = FindTarget(package.get(), name.c_str(), &target);
    if (position != nullptr) {
      *position = ::lseek(package.get(), 0, SEEK_CUR);
    }
    return ret;
  }
};

TEST_F(ExtractFindTest, TheProvenBytesAreStagedAndThePositionLeftAtThem) {
  BuildUnsigned();
  ListRecordsAsTheyAre();
  const std::vector<Listed> records = pkgtest::ListPackage();
  const Listed kernel = pkgtest::Record(records, "kernel.bin");
  const Fd stage(OpenStage());
  BOOT_EXTRACT_TARGET_S target{};
  off_t position = -1;
  EXPECT_EQ(Find("kernel.img.gz", target, stage.get(), &position), 0u);
  EXPECT_EQ(target.length, 5000u);
  EXPECT_EQ(target.copyResult, 0u);
  EXPECT_EQ(Staged(stage.get()), kKernel);
  EXPECT_EQ(position, kernel.offset + 352);
  EXPECT_EQ(Find("kernel.bin", target, stage.get(), &position), 0u);
  EXPECT_EQ(target.length, kernel.length);
  EXPECT_EQ(Staged(stage.get()), RecordBytes("kernel.bin", true));  // the earlier bytes are gone
  EXPECT_EQ(position, kernel.offset);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(ExtractFindTest, ProvingWithoutStaging) {
  BuildUnsigned();
  ListRecordsAsTheyAre();
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("rootfs", target, -1), 0u);
  EXPECT_EQ(target.length, 17u);
  EXPECT_EQ(target.copyResult, 0u);
}

TEST_F(ExtractFindTest, AnEmptyListProvesNothing) {
  BuildUnsigned();
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("rootfs", target, -1), kNotFound);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:File rootfs.bin not in signature file list.",
                          NoSuchFile("rootfs")));
}

TEST_F(ExtractFindTest, APipeCannotBeSearched) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe(ends), 0);
  const Fd reader(ends[0]);
  const Fd writer(ends[1]);
  BOOT_EXTRACT_TARGET_S target{};
  target.outFd = -1;
  EXPECT_EQ(FindTarget(reader.get(), "rootfs", &target), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:FindTarget: lseek failed, errno:29"));
}

TEST_F(ExtractFindTest, APackageShorterThanItsHeader) {
  testsupport::WriteFile(kPkgPath, std::string(6000, '\0'));
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("rootfs", target, -1), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:FindTarget: Read package header failed, "
                                     "read len = 6000, head len = 6180."));
}

TEST_F(ExtractFindTest, ACountOf256IsSearchedWhole) {
  std::vector<std::string> names;
  for (int i = 0; i < 256; ++i) {
    names.push_back("f" + std::to_string(i));
    Input(names.back(), std::to_string(i));
  }
  pkgtest::Build(names, {"--no-list"});
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("nothing", target, -1), kNotFound);
  EXPECT_EQ(Find("f255", target, -1), kNotFound);  // the last entry is tried (and not listed)
  EXPECT_THAT(MainLog(), ElementsAre(NoSuchFile("nothing"),
                                     "[BOOT_INIT][ERROR]:File f255.bin not in signature file list.",
                                     NoSuchFile("f255")));
}

// The layout check before the search: a package cut inside a file header, and an entry that
// does not continue the chain of records, are refused as a whole.
TEST_F(ExtractFindTest, ALayoutFaultStopsTheSearchBeforeItBegins) {
  BuildUnsigned();
  ListRecordsAsTheyAre();
  std::string bytes = pkgtest::PackageBytes();
  const Listed app = pkgtest::Record(pkgtest::ListPackage(), "app.bin");
  bytes.resize(app.offset + 100);  // only 100 bytes of the last header are left
  pkgtest::WritePackage(bytes);
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("kernel.img.gz", target, -1), kError);
  pkgtest::PutBe32(bytes, pkgtest::kEntryOffsetAt + 24, 100000);  // rootfs's entry
  pkgtest::WritePackage(bytes);
  EXPECT_EQ(Find("kernel.img.gz", target, -1), kError);
  const std::string invalid = "[BOOT_INIT][ERROR]:FindTarget: package layout is invalid.";
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Read file head failed, read len = 100, errno:0",
                          "[BOOT_INIT][ERROR]:get file header failed", invalid,
                          "[BOOT_INIT][ERROR]:GetNextFile: Package is invalid, current len = " +
                              std::to_string(app.offset - 352 - 17) + ", current offset = 100000",
                          "[BOOT_INIT][ERROR]:get next file failed", invalid));
}

// A package of 4 GiB or more has no 32-bit size for its records to end at (a sparse file).
TEST_F(ExtractFindTest, APackageOf4GiBIsNotSearched) {
  BuildUnsigned();
  ListRecordsAsTheyAre();
  std::filesystem::resize_file(kPkgPath, UINT64_C(0x100000000));
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("rootfs", target, -1), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:FindTarget: get package size failed, errno:0"));
}

// The package cut after the layout check passed, as another process could
// do while the search runs: the search's own reads report it. Reads 1 to 4 are the package
// header and the layout check's three file headers.
TEST_F(ExtractFindTest, AFileHeaderPastTheEnd) {
  BuildUnsigned();
  const std::string intact = pkgtest::PackageBytes();
  const Listed app = pkgtest::Record(pkgtest::ListPackage(), "app.bin");
  std::string cut = intact;
  cut.resize(app.offset + 100);  // only 100 bytes of the last header are left
  std::string noHeader = intact;
  noHeader.resize(app.offset);  // nothing of it
  extractfaults::Get().package = kPkgPath;
  extractfaults::Get().changeAfterRead = 4;
  BOOT_EXTRACT_TARGET_S target{};
  for (const std::string *changed : {&cut, &noHeader}) {
    pkgtest::WritePackage(intact);
    extractfaults::Get().packageReads = 0;
    extractfaults::Get().change = [changed] { pkgtest::WritePackage(*changed); };
    EXPECT_EQ(Find("app.bin", target, -1), kError);
  }
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:FindTarget: Read file head failed, read len = 100, "
                          "errno:0",
                          "[BOOT_INIT][ERROR]:FindTarget: Read file head failed, read len = 0, "
                          "errno:0"));
}

// The seeks of a search: the package header, then each entry's file header; for a candidate
// the record (to hash it) and where its bytes begin. A seek that fails on a regular file is
// forced.
TEST_F(ExtractFindTest, AFailedSeekToAnEntryStopsTheSearch) {
  BuildUnsigned();
  ListRecordsAsTheyAre();
  const Fd package(OpenPackage());
  pkgfaults::Get().lseekFailFd = package.get();
  pkgfaults::Get().lseekFailAt = 6;  // the second entry (after the layout check's three)
  pkgfaults::Get().lseekErrno = EIO;
  BOOT_EXTRACT_TARGET_S target{};
  target.outFd = -1;
  EXPECT_EQ(FindTarget(package.get(), "app.bin", &target), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:FindTarget: lseek failed, errno:5"));
  pkgfaults::Get().lseekFailAt = 1;
  pkgfaults::Get().lseekSeen = 0;
  testsupport::ClearMainLog();
  EXPECT_EQ(FindTarget(package.get(), "app.bin", &target), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:FindTarget: lseek failed, errno:5"));
  pkgfaults::Get().lseekFailAt = 2;  // the layout check's first file header
  pkgfaults::Get().lseekSeen = 0;
  testsupport::ClearMainLog();
  EXPECT_EQ(FindTarget(package.get(), "app.bin", &target), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:lseek failed, errno:5",
                                     "[BOOT_INIT][ERROR]:get file header failed",
                                     "[BOOT_INIT][ERROR]:FindTarget: package layout is invalid."));
}

TEST_F(ExtractFindTest, FailedSeeksOfACandidateFailOnlyThatEntry) {
  BuildUnsigned();
  ListRecordsAsTheyAre();
  const Fd package(OpenPackage());
  BOOT_EXTRACT_TARGET_S target{};
  target.outFd = -1;
  pkgfaults::Get().lseekFailFd = package.get();
  pkgfaults::Get().lseekErrno = EIO;
  pkgfaults::Get().lseekFailAt = 6;  // header, layout check, entry 0, record of entry 0
  EXPECT_EQ(FindTarget(package.get(), "kernel.bin", &target), kNotFound);
  pkgfaults::Get().lseekSeen = 0;
  pkgfaults::Get().lseekFailAt = 7;  // ... then where its bytes begin
  EXPECT_EQ(FindTarget(package.get(), "kernel.bin", &target), kNotFound);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:change offset to file header failed, errno:5",
                          NoSuchFile("kernel.bin"),
                          "[BOOT_INIT][ERROR]:change offset to file body failed, errno:5",
                          NoSuchFile("kernel.bin")));
  EXPECT_EQ(pkgfaults::Get().lseekFailed, 2);
}

TEST_F(ExtractFindTest, NoBufferForTheDigest) {
  BuildUnsigned();
  ListRecordsAsTheyAre();
  pkgfaults::Get().mallocFailSize = 32768;
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("kernel.bin", target, -1), kNotFound);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Failed malloc memory!",
                                     "[BOOT_INIT][ERROR]:Get file(kernel.bin 5352) sha256 failed, "
                                     "ret=268435461.",
                                     NoSuchFile("kernel.bin")));
}

// A file length that reaches past its record: the bytes beyond the record were never proven, so
// the file is refused by that name, while the whole record (which the digest covers) passes.
TEST_F(ExtractFindTest, AFileLongerThanItsRecord) {
  BuildUnsigned();
  const Listed rootfs = pkgtest::Record(pkgtest::ListPackage(), "rootfs.bin");
  std::string bytes = pkgtest::PackageBytes();
  pkgtest::PutBe32(bytes, rootfs.offset + 340, 1000);
  pkgtest::WritePackage(bytes);
  const std::string record = bytes.substr(rootfs.offset, rootfs.length);
  LoadList({{"rootfs.bin", DigestOf(record)}});
  const Fd stage(OpenStage());
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("rootfs", target, stage.get()), kNotFound);
  EXPECT_EQ(Find("rootfs.bin", target, stage.get()), 0u);
  EXPECT_EQ(Staged(stage.get()), record);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:File rootfs of 1000 bytes at 352 lies "
                                     "outside its record of 369 bytes.",
                                     NoSuchFile("rootfs")));
}

// A record name without ".bin": by that name its length is the record's, but its bytes are
// taken from behind the header, which would run past the record.
TEST_F(ExtractFindTest, ARecordNameWithoutBinSuffix) {
  BuildUnsigned();
  const Listed rootfs = pkgtest::Record(pkgtest::ListPackage(), "rootfs.bin");
  std::string bytes = pkgtest::PackageBytes();
  pkgtest::PutName(bytes, rootfs.offset + pkgtest::kBinNameAt, 96, "rootfs-image");
  pkgtest::WritePackage(bytes);
  LoadList({{"rootfs-image", DigestOf(bytes.substr(rootfs.offset, rootfs.length))}});
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("rootfs-image", target, -1), kNotFound);
  EXPECT_EQ(Find("rootfs", target, -1), 0u);  // the file bytes by the inner name pass
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:File rootfs-image of 369 bytes at 352 "
                                     "lies outside its record of 369 bytes.",
                                     NoSuchFile("rootfs-image")));
}

// The digest compared is the list's text as it stands: an upper-case digest never matches.
TEST_F(ExtractFindTest, DigestsAreComparedAsText) {
  BuildUnsigned();
  const Listed app = pkgtest::Record(pkgtest::ListPackage(), "app.bin");
  std::string upper = app.recordDigest;
  for (char &c : upper) {
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  LoadList({{"app.bin", upper}});
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("app.bin", target, -1), kNotFound);
  EXPECT_THAT(MainLog(),
              ElementsAre(Mismatch("app.bin", app.recordDigest, upper), NoSuchFile("app.bin")));
}

TEST_F(ExtractFindTest, TheFirstListedRecordOfANameCounts) {
  BuildUnsigned();
  const Listed app = pkgtest::Record(pkgtest::ListPackage(), "app.bin");
  const std::string wrong(64, '0');
  LoadList({{"app.bin", wrong}, {"app.bin", app.recordDigest}});
  EXPECT_EQ(GetSignedFile("app.bin")->digest, wrong);
  EXPECT_EQ(GetSignedFile("app.bi"), nullptr);
  EXPECT_EQ(GetSignedFile("app.bin "), nullptr);
  EXPECT_EQ(GetSignedFile(nullptr), nullptr);
  BOOT_EXTRACT_TARGET_S target{};
  EXPECT_EQ(Find("app.bin", target, -1), kNotFound);
}

TEST_F(ExtractFindTest, TheStepsOnTheirOwn) {
  BuildUnsigned();
  ListRecordsAsTheyAre();
  const Listed rootfs = pkgtest::Record(pkgtest::ListPackage(), "rootfs.bin");
  const Fd package(OpenPackage());
  const Fd stage(OpenStage());
  BOOT_EXTRACT_TARGET_S target{};
  target.outFd = stage.get();
  target.length = 5;
  // CheckFileShaValid hashes from the current position and stages bytes [skip, skip + length).
  ASSERT_EQ(::lseek(package.get(), rootfs.offset, SEEK_SET), rootfs.offset);
  EXPECT_EQ(CheckFileShaValid(package.get(), rootfs.length, "rootfs.bin",
                              rootfs.recordDigest.c_str(), 352, &target),
            0u);
  EXPECT_EQ(Staged(stage.get()), "root ");
  ASSERT_EQ(::lseek(package.get(), rootfs.offset, SEEK_SET), rootfs.offset);
  EXPECT_EQ(CheckFileShaValid(package.get(), rootfs.length - 1, "rootfs.bin",
                              rootfs.recordDigest.c_str(), 0, &target),
            kError);
  BOOT_PKG_FILE_ENTRY_S entry{};
  BOOT_PKG_FILE_HEADER_S header{};
  EXPECT_EQ(IsTargetValid(package.get(), nullptr, &header, "rootfs", &target), kError);
  EXPECT_EQ(IsTargetValid(package.get(), &entry, nullptr, "rootfs", &target), kError);
  EXPECT_EQ(IsTargetValid(package.get(), &entry, &header, nullptr, &target), kError);
  EXPECT_EQ(IsTargetValid(package.get(), &entry, &header, "rootfs", nullptr), kError);
  EXPECT_EQ(BootCheckFileValid(package.get(), nullptr, "rootfs.bin", "rootfs", &target), kError);
  EXPECT_EQ(CheckFileShaValid(package.get(), 1, nullptr, "x", 0, &target), kError);
  EXPECT_EQ(FindTarget(package.get(), nullptr, &target), kError);
  EXPECT_EQ(FindTarget(package.get(), "rootfs", nullptr), kError);
  // An entry of another name fails without a word.
  EXPECT_EQ(IsTargetValid(package.get(), &entry, &header, "rootfs", &target), kError);
  const std::string rootfsDigest = rootfs.recordDigest;
  const std::string tooShort = DigestOf(RecordBytes("rootfs.bin", true).substr(0, 368));
  EXPECT_THAT(MainLog(), ElementsAre(Mismatch("rootfs.bin", tooShort, rootfsDigest)));
}

}  // namespace
}  // namespace extracttest
