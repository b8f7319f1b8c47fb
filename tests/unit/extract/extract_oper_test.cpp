// Operations 0, 5 and 8, the unwrapping of ".bin" wrapper files, the name predicates and the
// guard for texts bound for a shell command line.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "extract_fixture.hpp"

namespace extracttest {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testsupport::CallOperation;
using testsupport::MainLog;
using testsupport::ReadFile;

const std::string kNullParam3 = "[BOOT_INIT][ERROR]:input param is null when check null 3";
const std::string kCheckFailed = "[BOOT_INIT][ERROR]:res is FALSE when check res.";
const std::string kWrapper = "/var/lib/sys_preloader/verity_table_info.bin";
const std::string kRealDir = "/var/lib/realdir";

std::vector<std::string> ArgLines(const std::vector<std::string> &args) {
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < args.size(); ++i) {
    lines.push_back("[BOOT_INIT][INFO]:ppacArgv[" + std::to_string(i) + "] = " + args[i]);
  }
  return lines;
}

// ---- operation 0 ----

class ExtractOperTest : public ExtractTest {};

TEST_F(ExtractOperTest, ExtractsByName) {
  BuildThree();
  EXPECT_EQ(CallOperation(BOOT_InitOperExtractFile, {"1", kPkgPath, "rootfs", kOutDir}), 0u);
  EXPECT_EQ(ReadFile(Out("rootfs")), kRootfs);
  // The type's low 32 bits count, as for operation numbers.
  EXPECT_EQ(CallOperation(BOOT_InitOperExtractFile, {"4294967297", kPkgPath, "app.bin", kOutDir}),
            0u);
  EXPECT_EQ(ReadFile(Out("app.bin")), RecordBytes("app.bin", true));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][INFO]:Extract file by fileName, result = 0x0, FileName = "
                          "rootfs",
                          "[BOOT_INIT][INFO]:Extract file by fileName, result = 0x0, FileName = "
                          "app.bin"));
}

TEST_F(ExtractOperTest, AFailedExtractionIsTheResult) {
  BuildThree();
  EXPECT_EQ(CallOperation(BOOT_InitOperExtractFile, {"1", kPkgPath, "initrd", kOutDir}), kNotFound);
  EXPECT_THAT(MainLog(),
              ElementsAreArray(Concat({Missing("initrd", kOutDir),
                                       {"[BOOT_INIT][INFO]:Extract file by fileName, result = "
                                        "0x10000007, FileName = initrd"}})));
}

TEST_F(ExtractOperTest, TheArgumentCount) {
  for (const std::vector<std::string> &args :
       {std::vector<std::string>{}, std::vector<std::string>{"1", kPkgPath, "rootfs"},
        std::vector<std::string>{"1", kPkgPath, "rootfs", kOutDir, "more"}}) {
    EXPECT_EQ(CallOperation(BOOT_InitOperExtractFile, args), 1u);
  }
  EXPECT_EQ(BOOT_InitOperExtractFile(4, nullptr), 1u);
  const std::string line = "[BOOT_INIT][ERROR]:Argv invalid. Argc num must be 4";
  EXPECT_THAT(MainLog(), ElementsAre(line, line, line));
  EXPECT_FALSE(std::filesystem::exists(kOutDir));
}

TEST_F(ExtractOperTest, TheExtractType) {
  for (const std::string type : {"1x", "a1", "-1", "", " 1", "0x1", "1 "}) {
    testsupport::ClearMainLog();
    EXPECT_EQ(CallOperation(BOOT_InitOperExtractFile, {type, kPkgPath, "rootfs", kOutDir}), 1u);
    EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Extract file, extract type should only "
                                       "contain digit, type = " +
                                       type));
  }
  testsupport::ClearMainLog();
  for (const std::string type : {"2", "4294967295", "4294967298"}) {
    EXPECT_EQ(CallOperation(BOOT_InitOperExtractFile, {type, kPkgPath, "rootfs", kOutDir}), 1u);
  }
  for (const std::string type : {"0", "000", "4294967296"}) {
    EXPECT_EQ(CallOperation(BOOT_InitOperExtractFile, {type, kPkgPath, "rootfs", kOutDir}), 1u);
  }
  const std::string byId = "[BOOT_INIT][ERROR]:Not support extract file by id";
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Extract type is invalid, type = 2",
                  "[BOOT_INIT][ERROR]:Extract type is invalid, type = 4294967295",
                  "[BOOT_INIT][ERROR]:Extract type is invalid, type = 2", byId, byId, byId));
  EXPECT_FALSE(std::filesystem::exists(kOutDir));
}

TEST_F(ExtractOperTest, ExtractTypes) {
  EXPECT_EQ(BOOT_INIT_IsExtractTypeValid(0), 1u);
  EXPECT_EQ(BOOT_INIT_IsExtractTypeValid(1), 1u);
  EXPECT_EQ(BOOT_INIT_IsExtractTypeValid(2), 0u);
  EXPECT_EQ(BOOT_INIT_IsExtractTypeValid(0xFFFFFFFFu), 0u);
}

// ---- operation 8 ----

TEST_F(ExtractOperTest, UntarAlwaysSucceedsAndTouchesNothing) {
  const std::vector<std::string> args = {kPkgPath, "rootfs", kOutDir};
  EXPECT_EQ(CallOperation(BOOT_InitOperUntarFile, args), 0u);
  EXPECT_EQ(CallOperation(BOOT_InitOperUntarFile, {kPkgPath, "rootfs"}), 0u);
  EXPECT_EQ(CallOperation(BOOT_InitOperUntarFile, {}), 0u);
  EXPECT_EQ(BOOT_InitOperUntarFile(3, nullptr), 0u);
  const std::string start = "[BOOT_INIT][INFO]:Untar file from package start";
  const std::string wrongCount = "[BOOT_INIT][INFO]:Argv invalid, Argc num must be 3";
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(Concat(
          {{start},
           ArgLines(args),
           {"[BOOT_INIT][INFO]:Untar file from cc package, FileName = rootfs, result = 0", start},
           ArgLines({kPkgPath, "rootfs"}),
           {wrongCount,
            "[BOOT_INIT][INFO]:Untar file from cc package, FileName = rootfs, result = 0", start,
            wrongCount, "[BOOT_INIT][INFO]:Untar file from cc package, FileName = , result = 0",
            start, "[BOOT_INIT][INFO]:Untar file from cc package, FileName = , result = 0"}})));
  EXPECT_FALSE(std::filesystem::exists(kOutDir));
  EXPECT_EQ(BOOT_INIT_UntarFileByFileName(nullptr, nullptr, nullptr), 0u);
}

// ---- operation 5 and the unwrapping ----

class TransBinTest : public ExtractTest {
 protected:
  // The wrapper is app.bin's record as bootpkg writes it out whole.
  void SetUp() override {
    ExtractTest::SetUp();
    testsupport::RemovePath(kRealDir);
    BuildThree();
    testsupport::WriteFile(kWrapper, RecordBytes("app.bin", true));
  }
  static uint32_t Trans(const std::string &wrapper, const std::string &name,
                        const std::string &dir = kRealDir) {
    return BOOT_INIT_TransBinFile2RealName(wrapper.c_str(), name.c_str(), dir.c_str());
  }
  static std::string Real(const std::string &name) { return kRealDir + "/" + name; }
};

TEST_F(TransBinTest, TheBodyComesOutUnderTheNameAsked) {
  EXPECT_EQ(Trans(kWrapper, "verity_table_info"), 0u);
  EXPECT_EQ(ReadFile(Real("verity_table_info")), kApp);
  EXPECT_EQ(testsupport::StatOf(Real("verity_table_info")).st_mode & 07777, 0700u);
  const struct stat dir = testsupport::StatOf(kRealDir);
  EXPECT_EQ(dir.st_mode & 07777, 0750u);
  EXPECT_EQ(dir.st_uid, 2000u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(TransBinTest, WhatLayAtTheNameIsReplaced) {
  testsupport::WriteFile(Real("one"), std::string(500, 'o'));
  testsupport::WriteFile("/opt/elsewhere", "keep me");
  std::filesystem::create_symlink("/opt/elsewhere", Real("two"));
  EXPECT_EQ(Trans(kWrapper, "one"), 0u);
  EXPECT_EQ(Trans(kWrapper, "two"), 0u);
  EXPECT_EQ(ReadFile(Real("one")), kApp);
  EXPECT_FALSE(std::filesystem::is_symlink(Real("two")));
  EXPECT_EQ(ReadFile(Real("two")), kApp);
  EXPECT_EQ(ReadFile("/opt/elsewhere"), "keep me");
}

TEST_F(TransBinTest, AnEmptyBody) {
  testsupport::WriteFile(kWrapper,
                         RecordBytes("app.bin", true).substr(0, 340) + std::string(12, '\0'));
  EXPECT_EQ(Trans(kWrapper, "empty"), 0u);
  EXPECT_EQ(ReadFile(Real("empty")), "");
}

TEST_F(TransBinTest, EmptyArgumentsAndNoWrapper) {
  EXPECT_EQ(BOOT_INIT_TransBinFile2RealName(nullptr, "a", "/opt"), kNullPtr);
  EXPECT_EQ(BOOT_INIT_TransBinFile2RealName("/opt/a", nullptr, "/opt"), kNullPtr);
  EXPECT_EQ(BOOT_INIT_TransBinFile2RealName("/opt/a", "a", nullptr), kNullPtr);
  EXPECT_EQ(Trans("/opt/none.bin", "a"), kNoFile);
  EXPECT_THAT(MainLog(), ElementsAre(kNullParam3, kNullParam3, kNullParam3, kCheckFailed));
  EXPECT_FALSE(std::filesystem::exists(kRealDir));
}

TEST_F(TransBinTest, ADirectoryThatCannotBeMade) {
  testsupport::WriteFile("/var/lib/afile", "a file");
  EXPECT_EQ(Trans(kWrapper, "a", "/var/lib/afile/sub"), 1u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Create dir /var/lib/afile/sub failed(0x2)."));
}

// A socket file exists but cannot be opened (ENXIO).
TEST_F(TransBinTest, AWrapperThatCannotBeOpened) {
  const std::string path = "/opt/wrapper.sock";
  const int sock = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(sock, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  ASSERT_EQ(::bind(sock, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
  EXPECT_EQ(Trans(path, "a"), 1u);
  ::close(sock);
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Open file failed(0x2), file path = " + path + ", errno=6."));
}

TEST_F(TransBinTest, AShortOrUnreadableHeader) {
  testsupport::WriteFile("/opt/short.bin", std::string(100, 'h'));
  EXPECT_EQ(Trans("/opt/short.bin", "a"), 1u);
  EXPECT_EQ(Trans("/opt/kytv8/home", "a"), 1u);  // a directory reads as an error
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Read bin file head failed, FileLen = 100.",
                          "[BOOT_INIT][ERROR]:Read bin file head failed, FileLen = -1."));
  EXPECT_THAT(DirState(kRealDir), IsEmpty());
}

// A path that does not fit is not cut: the file cannot be created at all.
TEST_F(TransBinTest, APathThatDoesNotFit) {
  const std::string name(110, 'n');
  std::string dir = "/var/lib";
  while (dir.size() < 273) {
    dir += "/" + std::string(std::min<std::size_t>(272 - dir.size(), 99), 'd');
  }
  ASSERT_EQ(dir.size() + 1 + name.size(), 384u);
  EXPECT_EQ(Trans(kWrapper, name, dir), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: "
                                     "BOOT_INIT_TransBinFile2RealName",
                                     "[BOOT_INIT][ERROR]:Creat file  failed, ret=2, errno=2."));
  EXPECT_THAT(DirState(dir), IsEmpty());
  EXPECT_EQ(Trans(kWrapper, name.substr(1), dir), 0u);
}

TEST_F(TransBinTest, ADirectoryAtTheName) {
  testsupport::MakeDir(Real("a") + "/inside");
  EXPECT_EQ(Trans(kWrapper, "a"), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Creat file " + Real("a") +
                                     " failed, ret=2, errno=21."));
}

// The body length reaches past the wrapper's end: the copy fails and leaves what it wrote.
TEST_F(TransBinTest, ABodyLongerThanTheWrapper) {
  std::string bytes = RecordBytes("kernel.bin", true);
  bytes.resize(352 + 1000);
  testsupport::WriteFile(kWrapper, bytes);
  EXPECT_EQ(Trans(kWrapper, "kernel"), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:Copy file result = 0x1"));
  EXPECT_TRUE(std::filesystem::exists(Real("kernel")));
}

TEST_F(TransBinTest, NoBufferForTheCopy) {
  pkgfaults::Get().callocFailSize = 32768;
  EXPECT_EQ(Trans(kWrapper, "a"), 0x10000005u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][WARNING]:Copy file result = 0x10000005"));
}

TEST_F(TransBinTest, Operation5) {
  const std::vector<std::string> args = {kWrapper, "verity_table_info", kRealDir};
  EXPECT_EQ(CallOperation(BOOT_InitOperBinFIleTrans2RealFile, args), 0u);
  EXPECT_EQ(ReadFile(Real("verity_table_info")), kApp);
  const std::vector<std::string> missing = {"/opt/none.bin", "x", kRealDir};
  EXPECT_EQ(CallOperation(BOOT_InitOperBinFIleTrans2RealFile, missing), kNoFile);
  const std::string start = "[BOOT_INIT][INFO]:File trans from bin file start";
  EXPECT_THAT(MainLog(),
              ElementsAreArray(Concat(
                  {{start},
                   ArgLines(args),
                   {"[BOOT_INIT][INFO]:Trans bin file to real name, result = 0x0, FileName = "
                    "verity_table_info",
                    start},
                   ArgLines(missing),
                   {kCheckFailed,
                    "[BOOT_INIT][INFO]:Trans bin file to real name, result = 0x10000003, "
                    "FileName = x"}})));
}

TEST_F(TransBinTest, Operation5NeedsThreeArguments) {
  EXPECT_EQ(CallOperation(BOOT_InitOperBinFIleTrans2RealFile, {kWrapper, "x"}), 1u);
  EXPECT_EQ(BOOT_InitOperBinFIleTrans2RealFile(3, nullptr), 1u);
  const std::string start = "[BOOT_INIT][INFO]:File trans from bin file start";
  EXPECT_THAT(MainLog(),
              ElementsAreArray(Concat(
                  {{start},
                   ArgLines({kWrapper, "x"}),
                   {"[BOOT_INIT][ERROR]:Trans bin file to real file, para num(2) is invalid", start,
                    "[BOOT_INIT][ERROR]:Trans bin file to real file, para num(3) is invalid"}})));
  EXPECT_FALSE(std::filesystem::exists(kRealDir));
}

// ---- predicates and the command-text guard ----

class ExtractNamesTest : public ExtractTest {};

TEST_F(ExtractNamesTest, SignatureFiles) {
  for (const std::string &name : kSigFiles) {
    EXPECT_EQ(IsSignature(name.c_str()), 1u) << name;
  }
  for (const char *name : {"signature_filelist.bin", "Signature_cms", "signature_cms ", "",
                           "signature", "hardtype_info.txt"}) {
    EXPECT_EQ(IsSignature(name), 0u) << name;
  }
  EXPECT_EQ(IsSignature(nullptr), 0u);
}

TEST_F(ExtractNamesTest, HardwareTypeInfo) {
  for (const char *name : {"hardtype_info.txt", "hardtype_info.txt.cms", "hardtype_info.txt.crl"}) {
    EXPECT_EQ(IsHardTypeInfo(name), 1u) << name;
  }
  for (const char *name : {"hardtype_info.txt.pss.cms", "hardtype_info", "hardtype_info.bin", ""}) {
    EXPECT_EQ(IsHardTypeInfo(name), 0u) << name;
  }
  EXPECT_EQ(IsHardTypeInfo(nullptr), 0u);
}

TEST_F(ExtractNamesTest, MatchingAListOfNames) {
  const char *const names[] = {"a", "bc", nullptr};
  EXPECT_EQ(MatchFile("a", names), 1u);
  EXPECT_EQ(MatchFile("bc", names), 1u);
  EXPECT_EQ(MatchFile("b", names), 0u);
  EXPECT_EQ(MatchFile("abc", names), 0u);
  const char *const none[] = {nullptr};
  EXPECT_EQ(MatchFile("a", none), 0u);
  EXPECT_EQ(MatchFile("a", nullptr), 0u);
  EXPECT_EQ(MatchFile(nullptr, names), 0u);
}

TEST_F(ExtractNamesTest, BinNames) {
  for (const char *name : {"a.bin", ".bin", "kernel.img.bin"}) {
    EXPECT_EQ(IsFileNameWithBin(name), 1u) << name;
  }
  for (const char *name : {"a.BIN", "a.bin.gz", "abin", "bin", ""}) {
    EXPECT_EQ(IsFileNameWithBin(name), 0u) << name;
  }
  EXPECT_EQ(IsFileNameWithBin(nullptr), 0u);
}

TEST_F(ExtractNamesTest, EveryForbiddenCharacterIsNamed) {
  const std::string forbidden = "|;&$<>()[]`\\\"'~?*!\n";
  ASSERT_EQ(forbidden.size(), 19u);
  std::vector<std::string> expected;
  for (const char c : forbidden) {
    const std::string text = std::string("ls /opt") + c + "x";
    EXPECT_EQ(BOOT_INIT_SysCmdCommandFilter(text.c_str(), 64), kError) << c;
    // The line feed breaks its own log line in two.
    const std::string line =
        "[BOOT_INIT][ERROR]:find illegal char in cmd string, illegal char:" + std::string(1, c) +
        ".";
    if (c == '\n') {
      expected.push_back("[BOOT_INIT][ERROR]:find illegal char in cmd string, illegal char:");
      expected.push_back("<no time stamp>.");
    } else {
      expected.push_back(line);
    }
  }
  EXPECT_THAT(MainLog(), ElementsAreArray(expected));
}

TEST_F(ExtractNamesTest, TheFirstForbiddenCharacterIsNamed) {
  EXPECT_EQ(BOOT_INIT_SysCmdCommandFilter("a;b|c", 5), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:find illegal char in cmd string, "
                                     "illegal char:;."));
}

TEST_F(ExtractNamesTest, WhatPasses) {
  EXPECT_EQ(BOOT_INIT_SysCmdCommandFilter("cp /opt/a b\t-r_.+=,:@%^{}#", 64), 0u);
  EXPECT_EQ(BOOT_INIT_SysCmdCommandFilter("", 64), 0u);
  EXPECT_EQ(BOOT_INIT_SysCmdCommandFilter(";", 0), 0u);     // nothing looked at
  EXPECT_EQ(BOOT_INIT_SysCmdCommandFilter("abc;", 3), 0u);  // beyond the maximum
  const char text[] = {'a', '\0', ';', '\0'};
  EXPECT_EQ(BOOT_INIT_SysCmdCommandFilter(text, 4), 0u);  // beyond the terminator
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_EQ(BOOT_INIT_SysCmdCommandFilter(nullptr, 4), kError);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

}  // namespace
}  // namespace extracttest
