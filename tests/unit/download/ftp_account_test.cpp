// The account of a download: the first of the platform's first two users whose directory
// begins the remote path; its name is user name and password.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "download_fixture.hpp"

using downloadtest::kUser;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;

namespace {

class FtpAccountTest : public downloadtest::DownloadTest {
 protected:
  BOOT_INIT_FTP_ACCOUNT_S account_{};
  uint32_t AccountFor(const std::string &remote) {
    return BOOT_INIT_GetFtpAccount(&account_, remote.c_str());
  }
};

TEST_F(FtpAccountTest, FirstUserOwnsItsDirectory) {
  EXPECT_EQ(AccountFor("/opt/start.bin"), 0u);
  EXPECT_STREQ(account_.userName, kUser.c_str());
  EXPECT_STREQ(account_.password, kUser.c_str());
  EXPECT_STREQ(account_.directory, "/opt");
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpAccountTest, SecondUserOwnsItsDirectory) {
  EXPECT_EQ(AccountFor("/var/lib/files/a.bin"), 0u);
  EXPECT_STREQ(account_.userName, "swmdata");
  EXPECT_STREQ(account_.password, "swmdata");
  EXPECT_STREQ(account_.directory, "/var/lib");
}

TEST_F(FtpAccountTest, FirstMatchWins) {
  LineCardWith({{"ftp.users", "first:/opt second:/opt"}});
  EXPECT_EQ(AccountFor("/opt/start.bin"), 0u);
  EXPECT_STREQ(account_.userName, "first");
}

TEST_F(FtpAccountTest, DirectoryIsAPlainPrefix) {
  EXPECT_EQ(AccountFor("/optional/file"), 0u);
  EXPECT_STREQ(account_.userName, kUser.c_str());
}

TEST_F(FtpAccountTest, NoUserOwnsThePath) {
  EXPECT_EQ(AccountFor("/usr/local/file"), 0xFFFFFFFFu);
  EXPECT_STREQ(account_.userName, "");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file /usr/local/file failed to get valid user."));
}

TEST_F(FtpAccountTest, OnlyTheFirstTwoUsersAreSearched) {
  LineCardWith({{"ftp.users", "a:/a b:/b c:/opt"}});
  EXPECT_EQ(AccountFor("/opt/start.bin"), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:file /opt/start.bin failed to get valid user."));
}

TEST_F(FtpAccountTest, SingleUser) {
  LineCardWith({{"ftp.users", "only:/opt"}});
  EXPECT_EQ(AccountFor("/var/lib/x"), 0xFFFFFFFFu);
  EXPECT_EQ(AccountFor("/opt/x"), 0u);
  EXPECT_STREQ(account_.userName, "only");
}

TEST_F(FtpAccountTest, UsersQueryFails) {
  ForceFailure("SWM_GetMaxTenUsersInfo", "0x55");
  EXPECT_EQ(AccountFor("/opt/start.bin"), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get ftp users failed(0x55)."));
}

TEST_F(FtpAccountTest, FirstRecordIsWipedBeforeItIsFreed) {
  EXPECT_EQ(AccountFor("/var/lib/x"), 0u);
  const auto wipes = downloadfaults::WipesOfSize(1924);
  ASSERT_EQ(wipes.size(), 1u);
  EXPECT_EQ(wipes[0].before, kUser);
  EXPECT_TRUE(wipes[0].zeroAfter);
  downloadfaults::Reset();
  EXPECT_EQ(AccountFor("/usr/x"), 0xFFFFFFFFu);
  EXPECT_EQ(downloadfaults::WipesOfSize(1924).size(), 1u);
}

TEST_F(FtpAccountTest, NameLongerThanTheUserNameField) {
  const std::string longName(130, 'n');
  LineCardWith({{"ftp.users", longName + ":/opt"}});
  EXPECT_EQ(AccountFor("/opt/start.bin"), 0u);
  // The password field holds it; the user name field keeps the cut text of the bounded print.
  EXPECT_EQ(std::string(account_.password), longName);
  EXPECT_EQ(std::string(account_.userName), longName.substr(0, 127));
  EXPECT_EQ(std::string(account_.directory), "/opt");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: BOOT_INIT_GetFtpAccount"));
}

TEST_F(FtpAccountTest, EmptyArguments) {
  EXPECT_EQ(BOOT_INIT_GetFtpAccount(nullptr, "/opt/x"), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetFtpAccount(&account_, nullptr), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

TEST_F(FtpAccountTest, DirectoryMatch) {
  EXPECT_EQ(BOOT_INIT_IsDirMatchByFile("/opt/x", "/opt"), 1u);
  EXPECT_EQ(BOOT_INIT_IsDirMatchByFile("/opt", "/opt"), 1u);
  EXPECT_EQ(BOOT_INIT_IsDirMatchByFile("/optional", "/opt"), 1u);
  EXPECT_EQ(BOOT_INIT_IsDirMatchByFile("/x/opt/y", "/opt"), 0u);
  EXPECT_EQ(BOOT_INIT_IsDirMatchByFile("/op", "/opt"), 0u);
  EXPECT_EQ(BOOT_INIT_IsDirMatchByFile("/opt/x", ""), 1u);
  EXPECT_EQ(BOOT_INIT_IsDirMatchByFile(nullptr, "/opt"), 0u);
  EXPECT_EQ(BOOT_INIT_IsDirMatchByFile("/opt", nullptr), 0u);
}

}  // namespace
