// The file index of a package: opening and reading the package, the container layout rules on
// packages that bootpkg writes broken on purpose (or that the test patches), one node per
// record, the lookups with their prefix rule, exempt firmware, the hash and compare functions,
// the verity table, and the release of everything.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "bootinit/common.h"
#include "bootinit/package.h"
#include "pkg_fixture.hpp"

using pkgtest::Build;
using pkgtest::Expected;
using pkgtest::IndexNames;
using pkgtest::IndexNodes;
using pkgtest::Input;
using pkgtest::kBuildFailed;
using pkgtest::kError;
using pkgtest::kMpuFirmware;
using pkgtest::kMpuFirmwareBin;
using pkgtest::kNotFound;
using pkgtest::kNullParam;
using pkgtest::kPkgPath;
using pkgtest::Listed;
using pkgtest::ListPackage;
using pkgtest::NodeView;
using pkgtest::PackageBytes;
using pkgtest::PutBe32;
using pkgtest::PutName;
using pkgtest::Record;
using pkgtest::VerityNames;
using pkgtest::WalkOrder;
using pkgtest::WritePackage;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testsupport::MainLog;

namespace {

const std::string kNextFailed = "[BOOT_INIT][ERROR]:get next file failed";
const std::string kHeaderFailed = "[BOOT_INIT][ERROR]:get file header failed";

std::string Traverse(const std::string &name) {
  return "[BOOT_INIT][WARN]:File " + name + " will find traverse all.";
}

std::string NotAtEnd(uint32_t runningEnd, uint32_t offset) {
  return "[BOOT_INIT][ERROR]:GetNextFile: Package is invalid, current len = " +
         std::to_string(runningEnd) + ", current offset = " + std::to_string(offset);
}

std::string NoProgress(uint32_t runningEnd, uint32_t offset, uint32_t length) {
  return NotAtEnd(runningEnd, offset) + ", filelen = " + std::to_string(length);
}

std::string SizeMismatch(uint32_t recordSize, uint64_t realSize) {
  return "[BOOT_INIT][ERROR]:package size verify failed, record size:" +
         std::to_string(recordSize) + ", real size:" + std::to_string(realSize);
}

std::string Exempt(const std::string &name) {
  return "[BOOT_INIT][INFO]:file " + name + " in whitelist";
}

std::vector<NodeView> ExpectedNodes(const std::vector<Listed> &records) {
  std::vector<NodeView> nodes;
  for (const Listed &record : records) {
    nodes.push_back(Expected(record));
  }
  return nodes;
}

std::string Name(const BOOT_PKG_FILE_NODE_S *node) {
  return node == nullptr ? "<none>" : pkgtest::FieldText(node->key.binName, 96);
}

class PkgIndexTest : public pkgtest::PkgTest {};

// ---- packages that keep every rule ----

TEST_F(PkgIndexTest, OneNodePerRecordWithTheFieldsOfItsEntryAndHeader) {
  BuildThree({"--kind", "rootfs=2", "--kind", "app.bin=0x30000"});
  const std::vector<Listed> records = ListPackage();
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(Record(records, "rootfs.bin").kind, 2u);
  EXPECT_EQ(Index(), 0u);
  EXPECT_THAT(IndexNodes(), ElementsAreArray(WalkOrder(ExpectedNodes(records))));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgIndexTest, APackageWithoutFilesIsExactlyItsHeader) {
  pkgtest::WriteEmptyPackage();
  EXPECT_EQ(Index(), 0u);
  EXPECT_THAT(IndexNodes(), IsEmpty());
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgIndexTest, APackageWithoutFilesRefusesAnyByteAfterItsHeader) {
  pkgtest::WriteEmptyPackage(1);
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre(SizeMismatch(6180, 6181), kBuildFailed));
}

TEST_F(PkgIndexTest, TwoHundredFiftySixFilesAreAccepted) {
  std::vector<std::string> names;
  for (int i = 0; i < 256; ++i) {
    char name[8];
    std::snprintf(name, sizeof(name), "f%03d", i);
    Input(name, std::to_string(i));
    names.emplace_back(name);
  }
  Build(names, {"--no-list"});
  const std::vector<Listed> records = ListPackage();
  ASSERT_EQ(records.size(), 256u);
  EXPECT_EQ(Index(), 0u);
  EXPECT_THAT(IndexNodes(), ElementsAreArray(WalkOrder(ExpectedNodes(records))));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgIndexTest, AFileCountOf257IsRefused) {
  BuildThree({"--break", "count-257"});
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(IndexNodes(), IsEmpty());
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:File number(257) is exceed max.", kBuildFailed));
}

// ---- layout faults ----

TEST_F(PkgIndexTest, AGapBetweenTwoRecordsIsRefused) {
  BuildThree({"--break", "gap"});
  const std::vector<Listed> records = ListPackage();
  ASSERT_EQ(records.at(1).offset, 6180 + records.at(0).length + 16);
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre(NotAtEnd(6180 + records[0].length, records[1].offset),
                                     kNextFailed, kBuildFailed));
  // What was indexed before the fault stays until the index is released.
  EXPECT_THAT(IndexNames(), ElementsAre("kernel.bin"));
}

TEST_F(PkgIndexTest, AnOverlapOfTwoRecordsIsRefused) {
  BuildThree({"--break", "overlap", "--size", "20"});
  const std::vector<Listed> records = ListPackage();
  ASSERT_EQ(records.at(1).offset, 6180 + records.at(0).length - 20);
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre(NotAtEnd(6180 + records[0].length, records[1].offset),
                                     kNextFailed, kBuildFailed));
}

TEST_F(PkgIndexTest, TheFirstRecordMustStartRightAfterThePackageHeader) {
  BuildThree({"--no-list"});
  std::string bytes = PackageBytes();
  PutBe32(bytes, pkgtest::kEntryOffsetAt, 6184);
  WritePackage(bytes);
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre(NotAtEnd(6180, 6184), kNextFailed, kBuildFailed));
  EXPECT_THAT(IndexNodes(), IsEmpty());
}

TEST_F(PkgIndexTest, AZeroLengthRecordIsRefused) {
  BuildThree({"--break", "zero-length", "--target", "rootfs"});
  const std::vector<Listed> records = ListPackage();
  const uint32_t rootfsAt = Record(records, "rootfs.bin").offset;
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre(NoProgress(rootfsAt, rootfsAt, 0), kNextFailed, kBuildFailed));
  EXPECT_THAT(IndexNames(), ElementsAre("kernel.bin"));
}

TEST_F(PkgIndexTest, ARecordWhoseEndWrapsPast4GiBIsRefused) {
  BuildThree({"--break", "wrap"});
  const Listed last = ListPackage().back();
  ASSERT_EQ(last.length, 0xFFFFFFFFu);
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre(NoProgress(last.offset, last.offset, 0xFFFFFFFFu), kNextFailed,
                                     kBuildFailed));
}

TEST_F(PkgIndexTest, ARecordEndingExactlyAt4GiBWrapsToo) {
  BuildThree({"--no-list"});
  const Listed last = ListPackage().back();
  std::string bytes = PackageBytes();
  PutBe32(bytes, pkgtest::kEntryLengthAt + 24 * last.index, 0u - last.offset);
  WritePackage(bytes);
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre(NoProgress(last.offset, last.offset, 0u - last.offset),
                                     kNextFailed, kBuildFailed));
}

TEST_F(PkgIndexTest, BytesAfterTheLastRecordAreRefused) {
  BuildThree({"--break", "trailing-bytes"});
  const Listed last = ListPackage().back();
  const uint32_t end = last.offset + last.length;
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre(SizeMismatch(end, end + 16), kBuildFailed));
  EXPECT_EQ(IndexNodes().size(), 4u);
}

TEST_F(PkgIndexTest, AFileHeaderPastTheEndOfThePackageIsAShortRead) {
  Input("tiny", "abc");
  Build({"tiny"}, {"--no-list"});
  std::string bytes = PackageBytes();
  PutBe32(bytes, pkgtest::kEntryLengthAt, 100);
  bytes.resize(6180 + 100);
  WritePackage(bytes);
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Read file head failed, read len = 100, errno:0",
                          kHeaderFailed, kBuildFailed));
}

TEST_F(PkgIndexTest, TwoRecordsOfOneBinNameAreRefused) {
  BuildThree({"--break", "duplicate-binname", "--target", "rootfs"});
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:package is invalid, has duplicate file:rootfs.bin",
                          kBuildFailed));
  EXPECT_THAT(IndexNames(), testing::UnorderedElementsAre("kernel.bin", "rootfs.bin"));
}

TEST_F(PkgIndexTest, TwoRecordsOfOneExemptNameAreRefusedToo) {
  Input("kernel.img.gz", "kernel");
  Input(kMpuFirmware, "fpga bitstream");
  Build({"kernel.img.gz", kMpuFirmware},
        {"--break", "duplicate-exempt", "--firmware", kMpuFirmware});
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre(Exempt(kMpuFirmwareBin),
                                     "[BOOT_INIT][ERROR]:package is invalid, has duplicate file:" +
                                         kMpuFirmwareBin,
                                     kBuildFailed));
  EXPECT_THAT(IndexNames(), ElementsAre("kernel.bin"));
}

TEST_F(PkgIndexTest, NamesWithoutTerminatorAreCutAtTheLastByteOfTheirField) {
  BuildThree({"--break", "no-terminator", "--target", "kernel.img.gz"});
  EXPECT_EQ(Index(), 0u);
  const std::string bin = "kernel.bin" + std::string(85, 'X');
  const std::string actual = "kernel.img.gz" + std::string(114, 'X');
  std::vector<Listed> records = ListPackage();
  records.at(0).binName = bin;
  records.at(0).actualName = actual;
  EXPECT_THAT(IndexNodes(), ElementsAreArray(WalkOrder(ExpectedNodes(records))));
  EXPECT_EQ(Name(BootGetFileTravHashTable(bin.c_str())), bin);
  EXPECT_EQ(Name(BootGetFileTravHashTable(actual.c_str())), bin);
  EXPECT_EQ(BootGetFileTravHashTable((bin + "X").c_str()), nullptr);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgIndexTest, AnUnterminatedBinNameOnlyIsCutToo) {
  BuildThree({"--break", "no-terminator-bin", "--target", "rootfs"});
  EXPECT_EQ(Index(), 0u);
  EXPECT_THAT(IndexNames(), testing::Contains("rootfs.bin" + std::string(85, 'X')));
}

TEST_F(PkgIndexTest, ATwoRecordPrefixCollisionInOneBucketIsRefused) {
  Input("one", "first");
  Input("two", "second");
  Build({"one", "two"}, {"--no-list"});
  const std::vector<Listed> records = ListPackage();
  ASSERT_EQ(pkgtest::BucketOf("app.bin.000_"), pkgtest::BucketOf("app.bin"));
  std::string bytes = PackageBytes();
  PutName(bytes, records.at(0).offset + pkgtest::kBinNameAt, 96, "app.bin.000_");
  PutName(bytes, records.at(1).offset + pkgtest::kBinNameAt, 96, "app.bin");
  WritePackage(bytes);
  const std::size_t left = pkgfaults::BlocksLeftBy([&] {
    EXPECT_EQ(Index(), kError);
    EXPECT_THAT(IndexNames(), ElementsAre("app.bin.000_"));
    BOOT_DeinitPkgVerify();
  });
  EXPECT_EQ(left, 0u) << "the refused node or the index was not released";
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Add file(app.bin) into list failed.", kBuildFailed));
}

// ---- reading the package ----

TEST_F(PkgIndexTest, AMissingPackageCannotBeOpened) {
  EXPECT_EQ(Index("/opt/kytv8/home/none.cc"), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Open package(/opt/kytv8/home/none.cc) "
                                     "failed, errno=2."));
  EXPECT_EQ(BOOT_GetPkgInfo()->fd, -1);
}

TEST_F(PkgIndexTest, AHeaderCutShortIsAShortRead) {
  BuildThree({"--break", "truncated-header"});
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Read package header failed, read len = "
                                     "6179, head len = 6180."));
  // The descriptor stays open for the release to close.
  EXPECT_GE(BOOT_GetPkgInfo()->fd, 0);
}

TEST_F(PkgIndexTest, AnEmptyFileIsAShortRead) {
  WritePackage("");
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Read package header failed, read len = "
                                     "0, head len = 6180."));
}

TEST_F(PkgIndexTest, ADirectoryOpensButCannotBeRead) {
  testsupport::MakeDir("/opt/kytv8/home/dir.cc");
  EXPECT_EQ(Index("/opt/kytv8/home/dir.cc"), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Read package header failed, read len = "
                                     "-1, head len = 6180."));
}

TEST_F(PkgIndexTest, ADeviceHasNoPackageSize) {
  EXPECT_EQ(Index("/dev/zero"), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:get package /dev/zero size failed"));
}

// A 32-bit size cut from 4 GiB + 6180 bytes would be 6180: the header alone would pass.
TEST_F(PkgIndexTest, APackageOf4GiBOrMoreHasNoPackageSize) {
  pkgtest::WriteEmptyPackage();
  std::filesystem::resize_file(kPkgPath, (uint64_t{1} << 32) + 6180);
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:get package " + kPkgPath + " size failed"));
  testsupport::RemovePath(kPkgPath);
}

TEST_F(PkgIndexTest, AFailedSeekToAFileHeader) {
  BuildThree();
  ASSERT_EQ(BOOT_InitPkgVerify(), 0u);
  // The package will get the lowest free descriptor.
  const int next = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::close(next);
  pkgfaults::Get().lseekFailFd = next;
  pkgfaults::Get().lseekFailAt = 1;
  pkgfaults::Get().lseekErrno = EIO;
  EXPECT_EQ(BOOT_GetPkgAndFilesHeader(kPkgPath.c_str()), kError);
  EXPECT_EQ(pkgfaults::Get().lseekFailed, 1);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:lseek failed, errno:5", kHeaderFailed, kBuildFailed));
}

TEST_F(PkgIndexTest, AFailedZeroingOfTheNameTable) {
  BuildThree();
  pkgfaults::Get().memsetFailDestMax = 256 * 128;
  EXPECT_EQ(Index(), kError);
  EXPECT_EQ(pkgfaults::Get().memsetFailed, 1);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:memset error", kBuildFailed));
}

TEST_F(PkgIndexTest, AFailedCopyIntoTheNameTable) {
  BuildThree();
  pkgfaults::Get().strcpyFailDestMax = 128;
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:BootGetAllFilesHeader: strcpy failed", kBuildFailed));
}

TEST_F(PkgIndexTest, NoMemoryForANode) {
  BuildThree();
  pkgfaults::Get().mallocFailSize = sizeof(BOOT_PKG_FILE_NODE_S);
  EXPECT_EQ(Index(), kError);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Create file(kernel.bin) info failed.", kBuildFailed));
}

TEST_F(PkgIndexTest, NoMemoryForTheIndex) {
  BuildThree();
  pkgfaults::Get().callocFailSize = sizeof(BOOT_INIT_HASH_TABLE_S);
  EXPECT_EQ(BOOT_InitPkgVerify(), kError);
  EXPECT_EQ(BOOT_GetPkgInfo()->index, nullptr);
  EXPECT_EQ(BOOT_GetPkgInfo()->fd, -1);
  pkgfaults::Get().callocFailSize = 0;
  // Without an index every node is refused.
  EXPECT_EQ(BOOT_GetPkgAndFilesHeader(kPkgPath.c_str()), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Add file(kernel.bin) into list failed.",
                                     kBuildFailed));
}

TEST_F(PkgIndexTest, AnEmptyPathIsNoPackage) {
  EXPECT_EQ(BOOT_GetPkgAndFilesHeader(nullptr), kError);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam));
}

// ---- the public building steps ----

TEST_F(PkgIndexTest, TheEntriesOfAHeaderIndexIntoAnyTable) {
  BuildThree();
  const std::vector<Listed> records = ListPackage();
  BOOT_PKG_HEADER_S header;
  const std::string bytes = PackageBytes();
  std::memcpy(&header, bytes.data(), sizeof(header));
  BOOT_PKG_INFO_S info = {};
  info.fd = ::open(kPkgPath.c_str(), O_RDONLY | O_CLOEXEC);
  info.index = HashTableCreate(BootBKDRHash, BootCmpHashNode, BootFreeHashNode, nullptr, 128);
  ASSERT_NE(info.index, nullptr);
  EXPECT_EQ(BootGetAllFilesHeader(&header, &info, static_cast<uint32_t>(bytes.size())), 0u);
  std::set<std::string> names;
  for (uint32_t bucket = 0; bucket < 128; ++bucket) {
    for (auto *link = info.index->buckets[bucket]; link != nullptr; link = link->next) {
      names.insert(Name(reinterpret_cast<BOOT_PKG_FILE_NODE_S *>(link)));
    }
  }
  EXPECT_THAT(names, ElementsAre("app.bin", "kernel.bin", "rootfs.bin", "signature_filelist.bin"));
  HashTableDestroy(info.index);
  ::close(info.fd);
  EXPECT_EQ(BootGetAllFilesHeader(nullptr, &info, 0), kError);
}

TEST_F(PkgIndexTest, ANodeTakesItsFieldsFromRawStructures) {
  ASSERT_EQ(BOOT_InitPkgVerify(), 0u);
  BOOT_PKG_FILE_ENTRY_S entry = {};
  BOOT_PKG_FILE_HEADER_S header = {};
  std::string raw(sizeof(entry), '\0');
  PutBe32(raw, 4, 0x01020304u);
  PutBe32(raw, 8, 0x00000500u);
  std::memcpy(&entry, raw.data(), sizeof(entry));
  std::string headerRaw(sizeof(header), '\0');
  headerRaw.replace(8, 4, std::string("\x11\x22\x33\x44", 4));
  headerRaw.replace(116, 128, std::string(128, 'a'));
  headerRaw.replace(244, 96, std::string(96, 'b'));
  PutBe32(headerRaw, 340, 0x000001A4u);
  std::memcpy(&header, headerRaw.data(), sizeof(header));
  EXPECT_EQ(BootAddFileInfo(&entry, &header, BOOT_GetPkgInfo()), 0u);
  uint32_t kind = 0;
  std::memcpy(&kind, "\x11\x22\x33\x44", 4);
  const std::string bin(95, 'b');
  EXPECT_THAT(IndexNodes(), ElementsAre(NodeView{pkgtest::BucketOf(bin), bin, std::string(127, 'a'),
                                                 kind, 0x01020304u, 0x500u, 0x1A4u, ""}));
  EXPECT_EQ(BootAddFileInfo(nullptr, &header, BOOT_GetPkgInfo()), kError);
}

// ---- lookups ----

TEST_F(PkgIndexTest, ANameTakesItsBinForm) {
  const std::vector<std::pair<std::string, std::string>> cases = {{"kernel.img.gz", "kernel.bin"},
                                                                  {"kernel", "kernel.bin"},
                                                                  {"boot.bin", "boot.bin"},
                                                                  {"a.b.c", "a.bin"},
                                                                  {".profile", ".bin"},
                                                                  {"x.bin.old", "x.bin"},
                                                                  {"", ".bin"},
                                                                  {"a.bin.bin", "a.bin.bin"},
                                                                  {"BOOT.BIN", "BOOT.bin"}};
  for (const auto &[name, expected] : cases) {
    char out[96] = "unchanged";
    BOOT_GetFileName(name.c_str(), out, sizeof(out));
    EXPECT_EQ(std::string(out), expected) << name;
  }
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgIndexTest, ABinFormThatDoesNotFitIsEmpty) {
  char out[96] = "unchanged";
  BOOT_GetFileName(std::string(91, 'n').c_str(), out, sizeof(out));
  EXPECT_EQ(std::string(out), std::string(91, 'n') + ".bin");
  BOOT_GetFileName((std::string(92, 'n') + ".x").c_str(), out, sizeof(out));
  EXPECT_EQ(std::string(out), "");
  BOOT_GetFileName((std::string(96, 'n') + ".bin").c_str(), out, sizeof(out));
  EXPECT_EQ(std::string(out), "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: BOOT_GetFileName",
                                     "[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_GetFileName"));
}

TEST_F(PkgIndexTest, LookupsByBinNameAndByFileName) {
  BuildThree();
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(Name(BootGetFileInfo("kernel.bin")), "kernel.bin");
  EXPECT_EQ(Name(BootGetFileInfo("kernel.img.gz")), "kernel.bin");
  EXPECT_EQ(Name(BootGetFileInfo("kernel")), "kernel.bin");
  EXPECT_EQ(Name(BootGetFileInfo("rootfs")), "rootfs.bin");
  EXPECT_EQ(Name(BootGetFileInfo("app.bin")), "app.bin");
  EXPECT_EQ(BootFileExistCheck("signature_filelist"), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_EQ(BootGetFileInfo("initrd.img"), nullptr);
  EXPECT_EQ(BootFileExistCheck("initrd"), kNotFound);
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("initrd.img"), Traverse("initrd")));
}

TEST_F(PkgIndexTest, ALookupOfABCSearchesForABin) {
  Input("a.img", "a");
  Build({"a.img"}, {"--no-list"});
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(Name(BootGetFileInfo("a.b.c")), "a.bin");
  EXPECT_THAT(MainLog(), IsEmpty());
}

// app.bin.000_ lies in the bucket of app.bin, so the hash search's prefix comparison finds it.
TEST_F(PkgIndexTest, ALookupFindsALongerNameInItsBucketByPrefix) {
  Input("one", "first");
  Build({"one"}, {"--no-list"});
  std::string bytes = PackageBytes();
  PutName(bytes, 6180 + pkgtest::kBinNameAt, 96, "app.bin.000_");
  WritePackage(bytes);
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(Name(BootGetFileInfo("app.bin")), "app.bin.000_");
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgIndexTest, ALookupFindsALongerNameInAnotherBucketByTheFullWalk) {
  Input("one", "first");
  Build({"one"}, {"--no-list"});
  ASSERT_NE(pkgtest::BucketOf("app.bin.old"), pkgtest::BucketOf("app.bin"));
  std::string bytes = PackageBytes();
  PutName(bytes, 6180 + pkgtest::kBinNameAt, 96, "app.bin.old");
  WritePackage(bytes);
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(Name(BootGetFileInfo("app.bin")), "app.bin.old");
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("app.bin")));
}

// Of two names in one bucket, the one indexed last stands first in its chain and wins.
TEST_F(PkgIndexTest, AShorterNameIndexedFirstIsHiddenByALongerOne) {
  Input("one", "first");
  Input("two", "second");
  Build({"one", "two"}, {"--no-list"});
  const std::vector<Listed> records = ListPackage();
  std::string bytes = PackageBytes();
  PutName(bytes, records.at(0).offset + pkgtest::kBinNameAt, 96, "app.bin");
  PutName(bytes, records.at(1).offset + pkgtest::kBinNameAt, 96, "app.bin.000_");
  WritePackage(bytes);
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(Name(BootGetFileInfo("app.bin")), "app.bin.000_");
  EXPECT_EQ(Name(BootGetFileInfo("app.bin.000_.bin")), "<none>");
}

TEST_F(PkgIndexTest, TheFullWalkMatchesBinNamesAndFileNamesByPrefix) {
  BuildThree();
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(Name(BootGetFileTravHashTable("kernel.img")), "kernel.bin");
  EXPECT_EQ(Name(BootGetFileTravHashTable("roo")), "rootfs.bin");
  EXPECT_EQ(Name(BootGetFileTravHashTable("signature_filelist.bin")), "signature_filelist.bin");
  EXPECT_EQ(BootGetFileTravHashTable("kernel.img.gz.old"), nullptr);
  EXPECT_EQ(BootGetFileTravHashTable(""), nullptr);
  EXPECT_EQ(BootGetFileTravHashTable(nullptr), nullptr);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam));
}

TEST_F(PkgIndexTest, TheFullWalkFindsNothingWithoutItsLock) {
  BuildThree();
  EXPECT_EQ(Index(), 0u);
  pkgfaults::Get().rdlockFailAt = 1;
  EXPECT_EQ(BootGetFileTravHashTable("kernel"), nullptr);
  EXPECT_EQ(pkgfaults::Get().rdlockFailed, 1);
  EXPECT_EQ(Name(BootGetFileTravHashTable("kernel")), "kernel.bin");
}

TEST_F(PkgIndexTest, ANameTooLongForItsBinFormIsLookedForByTheFullWalk) {
  BuildThree();
  EXPECT_EQ(Index(), 0u);
  const std::string name(100, 'k');
  EXPECT_EQ(BootGetFileInfo(name.c_str()), nullptr);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: BOOT_GetFileName",
                                     Traverse(name)));
}

TEST_F(PkgIndexTest, LookupsWithoutAnIndexFindNothing) {
  EXPECT_EQ(BootGetFileInfo("kernel.bin"), nullptr);
  EXPECT_EQ(BootGetFileInfo(nullptr), nullptr);
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("kernel.bin"), kNullParam));
}

// ---- exempt firmware ----

TEST_F(PkgIndexTest, AnExemptFileIsNotIndexedAndLookupsOfItFindNothing) {
  Input("kernel.img.gz", "kernel");
  Input(kMpuFirmware, "fpga bitstream");
  Build({"kernel.img.gz", kMpuFirmware});
  EXPECT_EQ(Index(), 0u);
  EXPECT_THAT(IndexNames(), testing::UnorderedElementsAre("kernel.bin", "signature_filelist.bin"));
  EXPECT_EQ(BootGetFileInfo(kMpuFirmwareBin.c_str()), nullptr);
  EXPECT_EQ(BootFileExistCheck(kMpuFirmware.c_str()), kNotFound);
  EXPECT_THAT(MainLog(), ElementsAre(Exempt(kMpuFirmwareBin), Traverse(kMpuFirmwareBin),
                                     Traverse(kMpuFirmware)));
}

TEST_F(PkgIndexTest, FirmwareOfMainBoardsIsIndexedOnALineCard) {
  testsupport::DescribeBoard(testsupport::LineCard());
  Input(kMpuFirmware, "fpga bitstream");
  Input("lc_fpga.img", "line card bitstream");
  Build({kMpuFirmware, "lc_fpga.img"}, {"--no-list"});
  EXPECT_EQ(Index(), 0u);
  EXPECT_THAT(IndexNames(), ElementsAre(kMpuFirmwareBin));
  EXPECT_THAT(MainLog(), ElementsAre(Exempt("lc_fpga.bin")));
}

TEST_F(PkgIndexTest, WithoutAHardwareTypeNothingIsExempt) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"fail.drv_board_get_type", "5"}});
  Input(kMpuFirmware, "fpga bitstream");
  Build({kMpuFirmware}, {"--no-list"});
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(BOOT_GetPkgInfo()->exemptCount, 0u);
  EXPECT_THAT(IndexNames(), ElementsAre(kMpuFirmwareBin));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:get board hardtype failed."));
}

TEST_F(PkgIndexTest, ABoardTypeWithoutARowExemptsNothing) {
  testsupport::DescribeBoard(testsupport::ActiveMainBoard(), {{"board.hard_type", "0x7777"}});
  ASSERT_EQ(BOOT_InitPkgVerify(), 0u);
  EXPECT_EQ(BOOT_GetPkgInfo()->exemptCount, 0u);
  EXPECT_EQ(BootFileInBlackList(kMpuFirmwareBin.c_str()), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(PkgIndexTest, TheBoardTakesItsRowOfTheTable) {
  ASSERT_EQ(BOOT_InitPkgVerify(), 0u);
  const BOOT_PKG_INFO_S *info = BOOT_GetPkgInfo();
  EXPECT_EQ(info->exemptNames, g_whiteList[0].names);
  EXPECT_EQ(info->exemptCount, g_whiteList[0].count);
  EXPECT_EQ(BootFileInBlackList("mpu_fpga.bin"), 1u);
  EXPECT_EQ(BootFileInBlackList("mpu_cpld.bin"), 1u);
  EXPECT_EQ(BootFileInBlackList("mpu_fpga"), 0u);
  EXPECT_EQ(BootFileInBlackList("mpu_fpga.img"), 0u);
  EXPECT_EQ(BootFileInBlackList("mpu_fpga.bin.old"), 0u);
  EXPECT_EQ(BootFileInBlackList("MPU_FPGA.BIN"), 0u);
  EXPECT_EQ(BootFileInBlackList("lc_fpga.bin"), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(Exempt("mpu_fpga.bin"), Exempt("mpu_cpld.bin")));
}

TEST_F(PkgIndexTest, TheTableHasARowForEachOfFifteenBoardTypes) {
  std::set<uint32_t> types;
  for (const BOOT_PKG_WHITELIST_ROW_S &row : g_whiteList) {
    types.insert(row.hardType);
    ASSERT_GT(row.count, 0u);
    ASSERT_NE(row.names, nullptr);
    std::set<std::string> names;
    for (uint32_t i = 0; i < row.count; ++i) {
      const std::string name = row.names[i];
      EXPECT_TRUE(name.size() > 4 && name.size() < 96 &&
                  name.compare(name.size() - 4, 4, ".bin") == 0)
          << name;
      names.insert(name);
    }
    EXPECT_EQ(names.size(), row.count) << "a name twice in row " << row.hardType;
  }
  EXPECT_EQ(types.size(), 15u);
  EXPECT_EQ(g_whiteList[0].hardType, 0x1A2Bu);
  EXPECT_EQ(g_whiteList[3].hardType, 0x2B3Cu);
  EXPECT_THAT(std::vector<std::string>(g_whiteList[3].names, g_whiteList[3].names + 4),
              ElementsAre("lc_fpga.bin", "lc_cpld.bin", "np_ucode.bin", "phy_fw.bin"));
}

// ---- digests stored in nodes ----

TEST_F(PkgIndexTest, ADigestIsStoredInTheNodeANameReaches) {
  BuildThree();
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(BootUpdateFileInfo("kernel.img.gz", 1, "abc"), 0u);
  EXPECT_EQ(std::string(BootGetFileInfo("kernel.bin")->digest), "abc");
  const std::string longDigest(70, 'd');
  EXPECT_EQ(BootUpdateFileInfo("rootfs.bin", 1, longDigest.c_str()), 0u);
  EXPECT_EQ(std::string(BootGetFileInfo("rootfs.bin")->digest), std::string(64, 'd'));
  EXPECT_EQ(BootUpdateFileInfo("initrd.bin", 1, "abc"), kNotFound);
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("initrd.bin")));
}

TEST_F(PkgIndexTest, ADigestIsStoredOnlyAfterTypeAndName) {
  BuildThree();
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(BootUpdateFileDigest("kernel.bin", 1, "d1", BOOT_PKG_SEEN_FILETYPE), 0u);
  EXPECT_EQ(BootUpdateFileDigest("kernel.bin", 1, "d2", BOOT_PKG_SEEN_FILENAME | 4u), 0u);
  EXPECT_EQ(std::string(BootGetFileInfo("kernel.bin")->digest), "");
  EXPECT_EQ(BootUpdateFileDigest("kernel.bin", 1, "d3", 3u), 0u);
  EXPECT_EQ(std::string(BootGetFileInfo("kernel.bin")->digest), "d3");
  EXPECT_EQ(BootUpdateFileDigest("rootfs.bin", 1, "d4", 7u), 0u);
  EXPECT_EQ(std::string(BootGetFileInfo("rootfs.bin")->digest), "d4");
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_EQ(BootUpdateFileDigest("initrd.bin", 16, "d5", 7u), kError);
  EXPECT_EQ(BootUpdateFileDigest("initrd.bin", 16, "d6", 1u), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(Traverse("initrd.bin"),
                                     "[BOOT_INIT][ERROR]:Update file(initrd.bin 16 d5) failed."));
}

// ---- removal, release ----

TEST_F(PkgIndexTest, ARemovedNodeIsFreedAndNoLongerFound) {
  BuildThree();
  pkgfaults::Get().watching = true;
  EXPECT_EQ(Index(), 0u);
  const std::size_t held = pkgfaults::Get().held.size();
  BOOT_RemoveFilesNode("rootfs.bin");
  EXPECT_EQ(pkgfaults::Get().held.size(), held - 1);
  BOOT_RemoveFilesNode("initrd.bin");
  BOOT_RemoveFilesNode(std::string(100, 'r').c_str());
  EXPECT_EQ(pkgfaults::Get().held.size(), held - 1);
  pkgfaults::Get().watching = false;
  EXPECT_THAT(IndexNames(),
              testing::UnorderedElementsAre("kernel.bin", "app.bin", "signature_filelist.bin"));
  EXPECT_EQ(BootGetFileInfo("rootfs.bin"), nullptr);
}

TEST_F(PkgIndexTest, TheReleaseFreesEveryNodeAndClosesThePackage) {
  BuildThree();
  const std::size_t left = pkgfaults::BlocksLeftBy([&] {
    EXPECT_EQ(Index(), 0u);
    EXPECT_EQ(testsupport::CountOpenFds(), fds_ + 1);
    BOOT_DeinitPkgVerify();
  });
  EXPECT_EQ(left, 0u);
  EXPECT_EQ(testsupport::CountOpenFds(), fds_);
  EXPECT_EQ(BOOT_GetPkgInfo()->fd, -1);
  EXPECT_EQ(BOOT_GetPkgInfo()->index, nullptr);
  BOOT_DeinitPkgVerify();  // a second release does nothing
}

TEST_F(PkgIndexTest, ASecondInitialisationReleasesWhatTheFirstHeld) {
  BuildThree();
  const std::size_t left = pkgfaults::BlocksLeftBy([&] {
    EXPECT_EQ(Index(), 0u);
    EXPECT_EQ(BOOT_InitPkgVerify(), 0u);
    EXPECT_EQ(testsupport::CountOpenFds(), fds_);
    EXPECT_THAT(IndexNodes(), IsEmpty());
    BOOT_DeinitPkgVerify();
  });
  EXPECT_EQ(left, 0u);
}

// The index is built once per initialisation: a second build finds every name present.
TEST_F(PkgIndexTest, ASecondBuildReplacesTheDescriptorButNotTheNodes) {
  BuildThree();
  EXPECT_EQ(Index(), 0u);
  EXPECT_EQ(BOOT_GetPkgAndFilesHeader(kPkgPath.c_str()), kError);
  EXPECT_EQ(testsupport::CountOpenFds(), fds_ + 1);
  EXPECT_EQ(IndexNodes().size(), 4u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Add file(kernel.bin) into list failed.",
                                     kBuildFailed));
}

// ---- the hash and compare functions ----

TEST_F(PkgIndexTest, TheHashIsTheSystemsOwnSumOfTheNameBytes) {
  BOOT_PKG_FILE_KEY_S key = {};
  std::strcpy(key.binName, "a");  // 97 * 16 + 6 * 11 = 1618, and 1618 & 127 = 82
  EXPECT_EQ(BootBKDRHash(128, &key), 82);
  std::strcpy(key.binName, "\xff");  // 255 * 16 + 15 * 11 = 4245, and 4245 & 127 = 21
  EXPECT_EQ(BootBKDRHash(128, &key), 21);
  EXPECT_EQ(BootBKDRHash(2, &key), 1);
  EXPECT_EQ(BootBKDRHash(1, &key), 0);
  std::strcpy(key.binName, "kernel.bin");
  EXPECT_EQ(BootBKDRHash(128, &key), static_cast<int32_t>(pkgtest::BucketOf("kernel.bin")));
  key.fileKind = 7;  // the kind plays no part
  EXPECT_EQ(BootBKDRHash(128, &key), static_cast<int32_t>(pkgtest::BucketOf("kernel.bin")));
  std::memset(key.binName, 'z', sizeof(key.binName));  // no terminator: all 96 bytes count
  EXPECT_EQ(BootBKDRHash(128, &key), static_cast<int32_t>(pkgtest::BucketOf(std::string(96, 'z'))));
  key.binName[0] = '\0';
  EXPECT_EQ(BootBKDRHash(128, &key), 0);
  EXPECT_EQ(BootBKDRHash(0, &key), 0);
  EXPECT_EQ(BootBKDRHash(128, nullptr), 0);
}

TEST_F(PkgIndexTest, AKeyEqualsEveryNodeWhoseNameBeginsWithIt) {
  BOOT_PKG_FILE_KEY_S key = {1, "app.bin"};
  BOOT_PKG_FILE_NODE_S node = {};
  std::strcpy(node.key.binName, "app.bin.old");
  node.key.fileKind = 2;
  EXPECT_EQ(BootCmpHashNode(&key, &node.link), 0);
  std::strcpy(node.key.binName, "app.bin");
  EXPECT_EQ(BootCmpHashNode(&key, &node.link), 0);
  std::strcpy(node.key.binName, "app.bi");
  EXPECT_EQ(BootCmpHashNode(&key, &node.link), -1);
  std::strcpy(key.binName, "app.bin.old");
  std::strcpy(node.key.binName, "app.bin");
  EXPECT_EQ(BootCmpHashNode(&key, &node.link), -1);
  EXPECT_EQ(BootCmpHashNode(nullptr, &node.link), -1);
  EXPECT_EQ(BootCmpHashNode(&key, nullptr), -1);
}

// ---- names of packages, the verity table ----

TEST_F(PkgIndexTest, ABasePackageEndsInCcOrCC) {
  EXPECT_EQ(BOOT_CcIsBasePkg("/opt/kytv8/home/base.cc"), 1u);
  EXPECT_EQ(BOOT_CcIsBasePkg("base.CC"), 1u);
  EXPECT_EQ(BOOT_CcIsBasePkg(".cc"), 1u);
  EXPECT_EQ(BOOT_CcIsBasePkg("base.Cc"), 0u);
  EXPECT_EQ(BOOT_CcIsBasePkg("base.cc.bak"), 0u);
  EXPECT_EQ(BOOT_CcIsBasePkg("basecc"), 0u);
  EXPECT_EQ(BOOT_CcIsBasePkg(""), 0u);
  EXPECT_EQ(BOOT_CcIsBasePkg(nullptr), 0u);
}

TEST_F(PkgIndexTest, TheVerityTableIsAnEmptyRingAfterInitialisation) {
  EXPECT_EQ(BOOT_IsFileInVerityTable("rootfs.bin"), 0u);  // never initialised in this process
  ASSERT_EQ(BOOT_InitPkgVerify(), 0u);
  BOOT_PKG_NAME_LIST_S &list = BOOT_GetPkgInfo()->verityTable;
  EXPECT_EQ(static_cast<void *>(list.first), static_cast<void *>(&list));
  EXPECT_EQ(static_cast<void *>(list.last), static_cast<void *>(&list));
  EXPECT_EQ(BOOT_IsFileInVerityTable("rootfs.bin"), 0u);
}

TEST_F(PkgIndexTest, TheVerityTableAnswersForExactNamesOnly) {
  ASSERT_EQ(BOOT_InitPkgVerify(), 0u);
  VerityNames verity;
  verity.Add("rootfs.bin");
  verity.Add("app.bin");
  EXPECT_EQ(BOOT_IsFileInVerityTable("rootfs.bin"), 1u);
  EXPECT_EQ(BOOT_IsFileInVerityTable("app.bin"), 1u);
  EXPECT_EQ(BOOT_IsFileInVerityTable("rootfs"), 0u);
  EXPECT_EQ(BOOT_IsFileInVerityTable("rootfs.bin.old"), 0u);
  EXPECT_EQ(BOOT_IsFileInVerityTable("kernel.bin"), 0u);
  EXPECT_EQ(BOOT_IsFileInVerityTable(nullptr), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam));
}

}  // namespace
