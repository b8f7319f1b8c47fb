// Real file-system flags: every board of this binary has a fresh ext4 file system at /opt/ext4
// (board description [filesystems]). Flags are checked against the test's own request and
// against lsattr.
#include <linux/magic.h>
#include <sys/statfs.h>

#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "attr_fixture.hpp"
#include "bootinit/common.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace attrtest {
namespace {

constexpr uint32_t kError = 0xFFFFFFFFu;
const std::string kExt4 = "/opt/ext4";
// Flags an owner may set without privileges: no dump, no access time updates.
constexpr unsigned int kOwnerFlags = FS_NODUMP_FL | FS_NOATIME_FL;

std::string OnExt4(const std::string &name) { return kExt4 + "/" + name; }

std::string Disabled(const std::string &path) {
  return "[BOOT_INIT][INFO]:SELinux disabled, no need get " + path + " context";
}

// The flags column of lsattr for path ("------dA------e-------").
std::string LsattrFlags(const std::string &path) {
  struct Closer {
    void operator()(FILE *stream) const { ::pclose(stream); }
  };
  const std::unique_ptr<FILE, Closer> out(::popen(("lsattr -d " + path).c_str(), "r"));
  std::array<char, 512> line{};
  if (out == nullptr || std::fgets(line.data(), line.size(), out.get()) == nullptr) {
    return "<lsattr failed>";
  }
  const std::string text(line.data());
  return text.substr(0, text.find(' '));
}

bool SetFlagsOurselves(const std::string &path, unsigned int flags) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool done = fd >= 0 && ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
  if (fd >= 0) {
    ::close(fd);
  }
  return done;
}

class Ext4FlagsTest : public AttrTest {
 protected:
  void SetUp() override {
    AttrTest::SetUp();
    struct statfs info {};
    ASSERT_EQ(::statfs(kExt4.c_str(), &info), 0) << "the board has no " << kExt4;
    ASSERT_EQ(info.f_type, EXT4_SUPER_MAGIC) << kExt4 << " is no ext4 file system";
    MakeFile(OnExt4("file"), "content", 0644);
  }

  void TearDown() override {
    if (!immutable_.empty()) {
      EXPECT_TRUE(SetFlagsOurselves(immutable_, static_cast<unsigned int>(FlagsOf(immutable_)) &
                                                    ~static_cast<unsigned int>(FS_IMMUTABLE_FL)));
    }
    AttrTest::TearDown();
  }

  // Makes path immutable (undone after the test): neither its owner nor its name can change.
  void MakeImmutable(const std::string &path) {
    ASSERT_TRUE(SetFlagsOurselves(path, static_cast<unsigned int>(FlagsOf(path)) |
                                            static_cast<unsigned int>(FS_IMMUTABLE_FL)));
    immutable_ = path;
  }

  std::string immutable_;
};

TEST_F(Ext4FlagsTest, GetReadsTheFlagsTheFileHas) {
  ASSERT_TRUE(SetFlagsOurselves(OnExt4("file"),
                                static_cast<unsigned int>(FlagsOf(OnExt4("file"))) | kOwnerFlags));
  uint32_t flags = 0;
  uint32_t fatal = 1;
  EXPECT_EQ(BOOT_INIT_GetFileFlags(OnExt4("file").c_str(), &flags, &fatal), 0u);
  EXPECT_EQ(flags, static_cast<uint32_t>(FlagsOf(OnExt4("file"))));
  EXPECT_EQ(flags & kOwnerFlags, kOwnerFlags);
  EXPECT_EQ(fatal, 1u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(Ext4FlagsTest, SetWritesRealFlags) {
  const std::string path = OnExt4("file");
  ASSERT_EQ(LsattrFlags(path).find_first_of("dA"), std::string::npos) << LsattrFlags(path);
  const auto before = static_cast<uint32_t>(FlagsOf(path));
  uint32_t fatal = 1;
  EXPECT_EQ(BOOT_INIT_SetFileFlags(path.c_str(), before | kOwnerFlags, &fatal), 0u);
  EXPECT_EQ(fatal, 1u);
  EXPECT_EQ(static_cast<uint32_t>(FlagsOf(path)), before | kOwnerFlags);
  const std::string shown = LsattrFlags(path);
  EXPECT_NE(shown.find('d'), std::string::npos) << shown;
  EXPECT_NE(shown.find('A'), std::string::npos) << shown;
  // And away again.
  EXPECT_EQ(BOOT_INIT_SetFileFlags(path.c_str(), before, &fatal), 0u);
  EXPECT_EQ(LsattrFlags(path).find_first_of("dA"), std::string::npos);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(Ext4FlagsTest, RecordHoldsTheFlags) {
  ASSERT_TRUE(SetFlagsOurselves(OnExt4("file"),
                                static_cast<unsigned int>(FlagsOf(OnExt4("file"))) | kOwnerFlags));
  BOOT_INIT_FILE_ATTR_S record{};
  EXPECT_EQ(BOOT_INIT_GetAttr(OnExt4("file").c_str(), &record), 0u);
  EXPECT_EQ(record.flags, static_cast<uint32_t>(FlagsOf(OnExt4("file"))));
  EXPECT_EQ(record.mode, S_IFREG | 0644u);
  EXPECT_THAT(MainLog(), ElementsAre(Disabled(OnExt4("file"))));
}

TEST_F(Ext4FlagsTest, CopyAttrCarriesTheFlags) {
  MakeFile(OnExt4("src"), "s", 0640, 2000, 2001);
  ASSERT_TRUE(SetFlagsOurselves(OnExt4("src"),
                                static_cast<unsigned int>(FlagsOf(OnExt4("src"))) | kOwnerFlags));
  EXPECT_EQ(BOOT_INIT_CopyAttr(OnExt4("src").c_str(), OnExt4("file").c_str()), 0u);
  EXPECT_EQ(FlagsOf(OnExt4("file")), FlagsOf(OnExt4("src")));
  EXPECT_EQ(LsattrFlags(OnExt4("file")), LsattrFlags(OnExt4("src")));
  EXPECT_EQ(OwnerOf(OnExt4("file")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(testsupport::StatOf(OnExt4("file")).st_mode, S_IFREG | 0640u);
  EXPECT_THAT(MainLog(), ElementsAre(Disabled(OnExt4("src"))));
}

TEST_F(Ext4FlagsTest, SourceWithoutFlagsLeavesTheDestinationFlagsAlone) {
  const std::string path = OnExt4("file");
  ASSERT_TRUE(SetFlagsOurselves(path, static_cast<unsigned int>(FlagsOf(path)) | kOwnerFlags));
  const long flags = FlagsOf(path);
  EXPECT_EQ(BOOT_INIT_CopyAttr("/proc/version", path.c_str()), 0u);
  // The source's flags read as 0, and flags 0 are not set: the destination keeps its own.
  EXPECT_EQ(FlagsOf(path), flags);
  EXPECT_EQ(testsupport::StatOf(path).st_mode, S_IFREG | 0444u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:file:/proc/version, get flags "
                                     "unsuccessful, errno:25, ignore it",
                                     Disabled("/proc/version")));
}

TEST_F(Ext4FlagsTest, BackupCarriesContentOwnerModeAndFlags) {
  MakeFile(OnExt4("src"), "package bytes", 0640, 2000, 2001);
  ASSERT_TRUE(SetFlagsOurselves(OnExt4("src"),
                                static_cast<unsigned int>(FlagsOf(OnExt4("src"))) | kOwnerFlags));
  EXPECT_EQ(BOOT_INIT_BackupFile(OnExt4("src").c_str(), OnExt4("backup").c_str()), 0u);
  EXPECT_EQ(testsupport::ReadFile(OnExt4("backup")), "package bytes");
  EXPECT_EQ(FlagsOf(OnExt4("backup")), FlagsOf(OnExt4("src")));
  EXPECT_EQ(OwnerOf(OnExt4("backup")), std::make_pair(uid_t{2000}, gid_t{2001}));
  EXPECT_EQ(testsupport::StatOf(OnExt4("backup")).st_mode, S_IFREG | 0640u);
  EXPECT_THAT(MainLog(), ElementsAre(Disabled(OnExt4("src"))));
}

TEST_F(Ext4FlagsTest, ImmutableDestinationRefusesItsNewOwner) {
  MakeImmutable(OnExt4("file"));
  const BOOT_INIT_FILE_ATTR_S record{2000, 2000, S_IFREG | 0600, 0, {}};
  EXPECT_EQ(BOOT_INIT_SetAttr(OnExt4("file").c_str(), &record), kError);
  EXPECT_EQ(OwnerOf(OnExt4("file")), std::make_pair(uid_t{0}, gid_t{0}));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:file:/opt/ext4/file, change own failed, "
                                     "errno:1"));
}

TEST_F(Ext4FlagsTest, ImmutableBackupIsNotReplaced) {
  MakeFile(OnExt4("src"), "new", 0644);
  MakeImmutable(OnExt4("file"));
  EXPECT_EQ(BOOT_INIT_BackupFile(OnExt4("src").c_str(), OnExt4("file").c_str()), kError);
  EXPECT_EQ(testsupport::ReadFile(OnExt4("file")), "content");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:backup file /opt/ext4/src to "
                                     "/opt/ext4/file failed"));
  // No temporary file is left beside it.
  std::size_t entries = 0;
  for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(kExt4)) {
    ++entries;
  }
  EXPECT_EQ(entries, 3u);  // file, src, lost+found
}

}  // namespace
}  // namespace attrtest
