// Operation 2 on a line card whose main boards are scripted servers: server order, the account,
// what one server's failure means for the other, the wiping of the account at every exit.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "bootinit/dispatch.h"
#include "download_fixture.hpp"

using downloadtest::Delivers;
using downloadtest::kLocal;
using downloadtest::kMmb1Ip;
using downloadtest::kMmb2Ip;
using downloadtest::kOwnIp;
using downloadtest::kPort;
using downloadtest::kRemote;
using downloadtest::kUser;
using downloadtest::LoggedIn;
using ftppeer::FtpPeer;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;

namespace {

const std::string kMmb1Ok =
    "[BOOT_INIT][INFO]:Init Mmb1 ftp server sock addr success, mmbIp1:127.0.0.11.";
const std::string kMmb2Ok =
    "[BOOT_INIT][INFO]:Init Mmb2 ftp server sock addr success, mmbIp2:127.0.0.12.";
const std::string kParamCount = "[BOOT_INIT][ERROR]:Param count is not right for ftp getting file";

std::string Succeeded(int index) {
  return "[BOOT_INIT][INFO]:Succeed to download file[/opt/start.bin] to local[/opt/dl/start.bin] "
         "from MMB, uiSockAddrIndex:" +
         std::to_string(index) + ".";
}

std::string TryAnother(int index) {
  return "[BOOT_INIT][WARNING]:Download file[/opt/start.bin] to local[/opt/dl/start.bin] from MMB "
         "unsuccessfully,try to download file from another MMB, uiSockAddrIndex:" +
         std::to_string(index) + ".";
}

// A server that refuses RETR with reply (every attempt when it is retried).
void Refuses(ftppeer::FtpSession &session, const std::string &reply, int attempts) {
  LoggedIn(session);
  for (int i = 0; i < attempts; ++i) {
    session.Pasv().Expect("RETR " + kRemote, reply + "\r\n");
  }
  session.ExpectClose();
}

class DownloadOperTest : public downloadtest::DownloadTest {
 protected:
  void SetUp() override {
    DownloadTest::SetUp();
    fdsBefore_ = testsupport::CountOpenFds();
  }
  static uint32_t Download(const std::string &remote = kRemote, const std::string &local = kLocal) {
    return testsupport::CallOperation(BOOT_InitOperDownloadFile, {remote, local});
  }
  // The account was wiped once, whole, and held the user before.
  static void ExpectAccountWipedOnce(const std::string &held = kUser) {
    const auto wipes = downloadfaults::WipesOfSize(sizeof(BOOT_INIT_FTP_ACCOUNT_S));
    ASSERT_EQ(wipes.size(), 1u);
    EXPECT_EQ(wipes[0].before, held);
    EXPECT_TRUE(wipes[0].zeroAfter);
  }
  void ExpectNoDescriptorLeft() const { EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore_); }

  int fdsBefore_ = 0;
};

TEST_F(DownloadOperTest, DownloadsFromMainBoard1) {
  FtpPeer mmb1(kMmb1Ip, kPort);
  FtpPeer mmb2(kMmb2Ip, kPort);
  Delivers(LoggedIn(mmb1.Session()), "start file");
  mmb1.Start();
  EXPECT_EQ(Download(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_THAT(mmb2.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_EQ(testsupport::ReadFile(kLocal), "start file");
  EXPECT_THAT(mmb1.controlClients(), ElementsAre(kOwnIp));
  EXPECT_THAT(MainLog(), ElementsAre(kMmb1Ok, kMmb2Ok, Succeeded(0)));
  ExpectAccountWipedOnce();
}

TEST_F(DownloadOperTest, RunsThroughTheOperationTable) {
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(LoggedIn(mmb1.Session()), "via the table");
  mmb1.Start();
  EXPECT_EQ(testsupport::CallOperation(BOOT_INIT_DoOperation, {"2", kRemote, kLocal}), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(testsupport::ReadFile(kLocal), "via the table");
  EXPECT_EQ(testsupport::CallOperation(BOOT_INIT_DoOperation, {"2", kRemote}), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kMmb1Ok, kMmb2Ok, Succeeded(0), kParamCount));
}

TEST_F(DownloadOperTest, ArgumentCount) {
  EXPECT_EQ(testsupport::CallOperation(BOOT_InitOperDownloadFile, {kRemote}), 1u);
  EXPECT_EQ(testsupport::CallOperation(BOOT_InitOperDownloadFile, {kRemote, kLocal, "extra"}), 1u);
  EXPECT_EQ(testsupport::CallOperation(BOOT_InitOperDownloadFile, {}), 1u);
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(), ElementsAre(kParamCount, kParamCount, kParamCount));
  EXPECT_THAT(downloadfaults::WipesOfSize(640), IsEmpty());
}

TEST_F(DownloadOperTest, MasterMainBoardTouchesNoFile) {
  LineCardWith({{"board.ha_role", "0"}, {"board.mmb", "1"}, {"net.address", kMmb1Ip}});
  testsupport::WriteFile(kLocal, "kept");
  FtpPeer mmb2(kMmb2Ip, kPort);
  EXPECT_EQ(Download(), 1u);
  EXPECT_THAT(mmb2.Finish(), IsEmpty());
  EXPECT_EQ(testsupport::ReadFile(kLocal), "kept");
  EXPECT_FALSE(std::filesystem::exists("/opt/dl/other.bin"));
  EXPECT_EQ(Download(kRemote, "/opt/dl/other.bin"), 1u);
  EXPECT_FALSE(std::filesystem::exists("/opt/dl/other.bin"));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:My role is master, do not need to download.",
                          "[BOOT_INIT][ERROR]:Failed to get ftp sock addr",
                          "[BOOT_INIT][ERROR]:My role is master, do not need to download.",
                          "[BOOT_INIT][ERROR]:Failed to get ftp sock addr"));
  // The account was never fetched.
  EXPECT_THAT(downloadfaults::WipesOfSize(640), IsEmpty());
}

TEST_F(DownloadOperTest, StandbyMainBoardDownloadsFromItsPeer) {
  LineCardWith({{"board.ha_role", "1"}, {"board.mmb", "1"}, {"net.address", kMmb1Ip}});
  FtpPeer mmb2(kMmb2Ip, kPort);
  Delivers(LoggedIn(mmb2.Session()), "from the peer");
  mmb2.Start();
  EXPECT_EQ(Download(), 0u);
  EXPECT_THAT(mmb2.Finish(), IsEmpty());
  EXPECT_THAT(mmb2.controlClients(), ElementsAre(kMmb1Ip));
  EXPECT_EQ(testsupport::ReadFile(kLocal), "from the peer");
  EXPECT_THAT(MainLog(), ElementsAre(kMmb2Ok, Succeeded(0)));
  ExpectAccountWipedOnce();
}

TEST_F(DownloadOperTest, ServiceNotAvailableOnMainBoard1TriesMainBoard2) {
  FtpPeer mmb1(kMmb1Ip, kPort);
  FtpPeer mmb2(kMmb2Ip, kPort);
  Refuses(mmb1.Session(), "421 Service not available", 1);
  Delivers(LoggedIn(mmb2.Session()), "from board 2");
  mmb1.Start();
  mmb2.Start();
  EXPECT_EQ(Download(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_THAT(mmb2.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_EQ(testsupport::ReadFile(kLocal), "from board 2");
  EXPECT_THAT(
      MainLog(),
      ElementsAre(kMmb1Ok, kMmb2Ok,
                  "[BOOT_INIT][INFO]:Reply was 421 - RPM_FTP_PRELIM - #0 attempt in 3 ticks.",
                  "[BOOT_INIT][ERROR]:Response 421 - aborting transfer.",
                  "[BOOT_INIT][WARNING]:Request server prepare to trans remote "
                  "file[/opt/start.bin] unsuccessful",
                  TryAnother(0), Succeeded(1)));
  ExpectAccountWipedOnce();
}

TEST_F(DownloadOperTest, FileMissingOnMainBoard1EndsTheOperation) {
  FtpPeer mmb1(kMmb1Ip, kPort);
  FtpPeer mmb2(kMmb2Ip, kPort);  // must not be asked
  Refuses(mmb1.Session(), "550 No such file or directory", 3);
  mmb1.Start();
  EXPECT_EQ(Download(), 550u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_THAT(mmb2.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  const std::vector<std::string> log = MainLog();
  ASSERT_EQ(log.size(), 7u);
  EXPECT_EQ(log[5],
            "[BOOT_INIT][WARNING]:Request server prepare to trans remote "
            "file[/opt/start.bin] unsuccessful");
  EXPECT_EQ(log[6], "[BOOT_INIT][INFO]:[/opt/start.bin] not exit in MMB");
  ExpectAccountWipedOnce();
}

TEST_F(DownloadOperTest, BothMainBoardsFailAndTheLastCodeIsTheResult) {
  FtpPeer mmb1(kMmb1Ip, kPort);
  FtpPeer mmb2(kMmb2Ip, kPort);
  Refuses(mmb1.Session(), "421 Service not available", 1);
  Refuses(mmb2.Session(), "452 Insufficient storage", 1);
  mmb1.Start();
  mmb2.Start();
  EXPECT_EQ(Download(), 452u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_THAT(mmb2.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  const std::vector<std::string> log = MainLog();
  ASSERT_EQ(log.size(), 10u);
  EXPECT_EQ(log[5], TryAnother(0));
  EXPECT_EQ(log[6], "[BOOT_INIT][INFO]:Reply was 452 - RPM_FTP_PRELIM - #0 attempt in 3 ticks.");
  EXPECT_EQ(log[9], TryAnother(1));
  ExpectAccountWipedOnce();
}

// Neither main board answers at all: every attempt of both fails, with its pauses.
TEST_F(DownloadOperTest, NoMainBoardAnswers) {
  EXPECT_EQ(Download(), 1u);
  ExpectNoDescriptorLeft();
  EXPECT_EQ(downloadfaults::Get().sleeps.size(), 10u);
  const std::vector<std::string> log = MainLog();
  ASSERT_EQ(log.size(), 2u + 11u + 1u + 11u + 1u);
  EXPECT_EQ(log[13], TryAnother(0));
  EXPECT_EQ(log[25], TryAnother(1));
  ExpectAccountWipedOnce();
}

TEST_F(DownloadOperTest, RemotePathOfNoUserFailsBeforeAnyConnection) {
  FtpPeer mmb1(kMmb1Ip, kPort);
  FtpPeer mmb2(kMmb2Ip, kPort);
  EXPECT_EQ(Download("/usr/local/start.bin"), 1u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_THAT(mmb2.Finish(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(),
              ElementsAre(kMmb1Ok, kMmb2Ok,
                          "[BOOT_INIT][ERROR]:file /usr/local/start.bin failed to get valid user.",
                          "[BOOT_INIT][ERROR]:Failed to get ftp account info for sswm"));
  ExpectAccountWipedOnce("");
}

TEST_F(DownloadOperTest, UsersQueryFailure) {
  ForceFailure("SWM_GetMaxTenUsersInfo", "0x4");
  FtpPeer mmb1(kMmb1Ip, kPort);
  EXPECT_EQ(Download(), 1u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(),
              ElementsAre(kMmb1Ok, kMmb2Ok, "[BOOT_INIT][ERROR]:Get ftp users failed(0x4).",
                          "[BOOT_INIT][ERROR]:Failed to get ftp account info for sswm"));
  ExpectAccountWipedOnce("");
}

TEST_F(DownloadOperTest, SecondUsersDirectoryUsesTheSecondAccount) {
  FtpPeer mmb1(kMmb1Ip, kPort);
  mmb1.Session()
      .Send("220 ready\r\n")
      .Expect("USER swmdata", "331 Password required\r\n")
      .Expect("PASS swmdata", "230 Logged in\r\n")
      .Expect("TYPE I", "200 ok\r\n")
      .Pasv()
      .Expect("RETR /var/lib/data.bin", "150 Opening\r\n")
      .Data("data")
      .Send("226 done\r\n")
      .Expect("QUIT", "221 bye\r\n")
      .ExpectClose();
  mmb1.Start();
  EXPECT_EQ(Download("/var/lib/data.bin"), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(testsupport::ReadFile(kLocal), "data");
  ExpectAccountWipedOnce("swmdata");
  EXPECT_THAT(downloadtest::LogLinesWith("swmdata"), IsEmpty());
}

// Zeroing cannot fail for real; the wrapped memset_s reports failures, which are warnings only.
TEST_F(DownloadOperTest, FailedWipesAreWarningsOnly) {
  downloadfaults::Get().failWipes = true;
  EXPECT_EQ(Download("/usr/local/start.bin"), 1u);
  const std::string wipeFailed = R"(\[BOOT_INIT\]\[WARNING\]:memset unsuccessfully: )";
  EXPECT_THAT(
      MainLog(),
      ElementsAre(
          kMmb1Ok, kMmb2Ok,
          "[BOOT_INIT][ERROR]:file /usr/local/start.bin failed to get valid user.",
          testing::MatchesRegex(wipeFailed + "BOOT_INIT_GetFtpAccount, line: [0-9]+"),
          "[BOOT_INIT][ERROR]:Failed to get ftp account info for sswm",
          testing::MatchesRegex(wipeFailed + "BOOT_InitOperDownloadFileOper, line: [0-9]+")));
}

TEST_F(DownloadOperTest, BothMainBoardAddressesAreTheBoardsOwn) {
  LineCardWith({{"net.mmb1_address", kOwnIp}, {"net.mmb2_address", kOwnIp}});
  EXPECT_EQ(Download(), 1u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][INFO]:Init Mmb ftp server sock addr unsuccessfully.",
                          "[BOOT_INIT][ERROR]:Failed to get ftp sock addr"));
}

TEST_F(DownloadOperTest, MissingServerConfigurationMeansPort21) {
  testsupport::RemovePath(downloadtest::kFtpServerConf);
  FtpPeer mmb1(kMmb1Ip, 21);
  Delivers(LoggedIn(mmb1.Session()), "on port 21");
  mmb1.Start();
  EXPECT_EQ(Download(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(testsupport::ReadFile(kLocal), "on port 21");
  const std::vector<std::string> log = MainLog();
  EXPECT_THAT(log, ElementsAre("[BOOT_INIT][WARNING]:Get portinfo reliable failed from file "
                               "/etc/conf/ftpserver.conf, uiRet:2.",
                               kMmb1Ok, kMmb2Ok, Succeeded(0)));
}

TEST_F(DownloadOperTest, PathsLongerThanTheirFieldsAreCut) {
  BOOT_INIT_FTP_FILE_INFO_S request;
  std::memset(&request, 0x5A, sizeof(request));
  const std::string fits = "/opt/" + std::string(378, 'f');  // 383 characters
  EXPECT_EQ(BOOT_INIT_GetFtpFileInfo(fits.c_str(), "/opt/l", &request), 0u);
  EXPECT_EQ(std::string(request.remotePath), fits);
  EXPECT_EQ(std::string(request.localPath), "/opt/l");
  EXPECT_EQ(request.localPath[sizeof(request.localPath) - 1], '\0');
  EXPECT_THAT(MainLog(), IsEmpty());
  const std::string tooLong = fits + "g";
  EXPECT_EQ(BOOT_INIT_GetFtpFileInfo("/opt/r", tooLong.c_str(), &request), 0u);
  EXPECT_EQ(std::string(request.localPath), fits);
  EXPECT_EQ(std::string(request.remotePath), "/opt/r");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:snprintf unsuccessfully: BOOT_INIT_GetFtpFileInfo"));
}

TEST_F(DownloadOperTest, EmptyArguments) {
  BOOT_INIT_FTP_FILE_INFO_S request{};
  EXPECT_EQ(BOOT_InitOperDownloadFileOper(nullptr, "/opt/l"), 0x10000002u);
  EXPECT_EQ(BOOT_InitOperDownloadFileOper("/opt/r", nullptr), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_GetFtpFileInfo(nullptr, "/opt/l", &request), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_GetFtpFileInfo("/opt/r", "/opt/l", nullptr), 0x10000002u);
  EXPECT_EQ(MainLog().size(), 4u);
  EXPECT_THAT(
      MainLog(),
      testing::Each(std::string("[BOOT_INIT][ERROR]:input param is null when check null 1")));
}

}  // namespace
