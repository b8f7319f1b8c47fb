// Whole downloads against scripted servers: the dialogue, its failures at every step, what is
// left on disk and that no descriptor stays open.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "download_fixture.hpp"

using downloadtest::Delivers;
using downloadtest::kLocal;
using downloadtest::kMmb1Ip;
using downloadtest::kOwnIp;
using downloadtest::kPort;
using downloadtest::kRemote;
using downloadtest::kUser;
using downloadtest::LoggedIn;
using ftppeer::DataEnd;
using ftppeer::FtpPeer;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;

namespace {

const std::string kGenerateFailed = "[BOOT_INIT][ERROR]:Generate local file failed, reply code=1";

class FtpClientTest : public downloadtest::DownloadTest {
 protected:
  void SetUp() override {
    DownloadTest::SetUp();
    fdsBefore_ = testsupport::CountOpenFds();
  }
  // The download of kRemote into local from the main board 1 peer.
  static uint32_t Get(const std::string &local = kLocal) {
    const BOOT_INIT_FTP_FILE_INFO_S request = downloadtest::FileRequest(local);
    const BOOT_INIT_FTP_SOCK_ADDR_S addresses = downloadtest::Addresses();
    const BOOT_INIT_FTP_ACCOUNT_S account = downloadtest::Account();
    return BOOT_INIT_FTPCLIENT_Get(&request, &addresses, &account);
  }
  // The peer keeps no descriptor after Finish: the count must be as before the test.
  void ExpectNoDescriptorLeft() const { EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore_); }

  int fdsBefore_ = 0;
};

TEST_F(FtpClientTest, WholeDialogue) {
  FtpPeer peer(kMmb1Ip, kPort);
  Delivers(LoggedIn(peer.Session()), "the start file\n");
  peer.Start();
  EXPECT_EQ(Get(), 0u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_EQ(testsupport::ReadFile(kLocal), "the start file\n");
  EXPECT_THAT(peer.commands(), ElementsAre("USER k7user", "PASS k7user", "TYPE I", "PASV",
                                           "RETR " + kRemote, "QUIT"));
  EXPECT_THAT(peer.controlClients(), ElementsAre(kOwnIp));
  EXPECT_THAT(peer.dataClients(), ElementsAre(kOwnIp));
  EXPECT_THAT(MainLog(), IsEmpty());
  // The login commands were wiped right after each was sent; nothing else was.
  EXPECT_THAT(downloadfaults::Get().events,
              ElementsAre("send:USER k7user\r\n", "wipe259:USER k7user\r\n", "send:PASS k7user\r\n",
                          "wipe259:PASS k7user\r\n", "send:TYPE I\r\n", "send:PASV\r\n",
                          "send:RETR " + kRemote + "\r\n", "send:QUIT\r\n"));
}

TEST_F(FtpClientTest, LargeFile) {
  std::string content(1 << 20, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) {
    content[i] = static_cast<char>((i * 7919) >> 3);
  }
  FtpPeer peer(kMmb1Ip, kPort);
  Delivers(LoggedIn(peer.Session()), content);
  peer.Start();
  EXPECT_EQ(Get(), 0u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_EQ(testsupport::ReadFile(kLocal), content);
  ExpectNoDescriptorLeft();
}

TEST_F(FtpClientTest, EmptyRemoteFileGivesEmptyLocalFile) {
  testsupport::WriteFile(kLocal, "older content");
  FtpPeer peer(kMmb1Ip, kPort);
  Delivers(LoggedIn(peer.Session()), "");
  peer.Start();
  EXPECT_EQ(Get(), 0u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_TRUE(std::filesystem::exists(kLocal));
  EXPECT_EQ(testsupport::ReadFile(kLocal), "");
  EXPECT_THAT(MainLog(), IsEmpty());
  ExpectNoDescriptorLeft();
}

TEST_F(FtpClientTest, AnnouncedAddressIsIgnored) {
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session())
      .Pasv("10.0.0.9", 5001)
      .Expect("RETR " + kRemote, "150 Opening\r\n")
      .Data("via 5001")
      .Send("226 Transfer complete\r\n")
      .Expect("QUIT", "221 Goodbye\r\n")
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 0u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_EQ(testsupport::ReadFile(kLocal), "via 5001");
  EXPECT_THAT(peer.dataClients(), ElementsAre(kOwnIp));
  ExpectNoDescriptorLeft();
}

TEST_F(FtpClientTest, MultiLineGreetingFailsTheLogin) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session()
      .Send("220-Welcome\r\n220-to the main board\r\n220 ready\r\n")
      .Expect("USER " + kUser, "")  // the client has its "reply" already and goes
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:FTP CMD USER failed, login failed, the reply:220",
                          "[BOOT_INIT][ERROR]:Failed to login ftp server"));
}

TEST_F(FtpClientTest, StartFailureLeavesAnOlderFileAlone) {
  testsupport::WriteFile(kLocal, "older content");
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session()
      .Send("220 ready\r\n")
      .Expect("USER " + kUser, "331 Password required\r\n")
      .Expect("PASS " + kUser, "530 Login incorrect\r\n")
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_EQ(testsupport::ReadFile(kLocal), "older content");
}

TEST_F(FtpClientTest, FileUnavailableThreeTimes) {
  testsupport::WriteFile(kLocal, "older content");
  FtpPeer peer(kMmb1Ip, kPort);
  auto &session = LoggedIn(peer.Session());
  for (int i = 0; i < 3; ++i) {
    session.Pasv().Expect("RETR " + kRemote, "550 No such file or directory\r\n");
  }
  session.ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 550u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_EQ(testsupport::ReadFile(kLocal), "older content");
  EXPECT_THAT(
      MainLog(),
      ElementsAre(
          "[BOOT_INIT][INFO]:Reply was 550 - RPM_FTP_PRELIM - #0 attempt in 3 ticks.",
          "[BOOT_INIT][INFO]:Reply was 550 - RPM_FTP_PRELIM - #1 attempt in 3 ticks.",
          "[BOOT_INIT][INFO]:Reply was 550 - RPM_FTP_PRELIM - #2 attempt in 3 ticks.",
          "[BOOT_INIT][WARNING]:Request server prepare to trans remote file[/opt/start.bin] "
          "unsuccessful"));
}

TEST_F(FtpClientTest, LocalErrorAbortsAtOnce) {
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session())
      .Pasv()
      .Expect("RETR " + kRemote, "451 Requested action aborted: local error\r\n")
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 451u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_THAT(
      MainLog(),
      ElementsAre(
          "[BOOT_INIT][INFO]:Reply was 451 - RPM_FTP_PRELIM - #0 attempt in 3 ticks.",
          "[BOOT_INIT][ERROR]:Response 451 - aborting transfer.",
          "[BOOT_INIT][WARNING]:Request server prepare to trans remote file[/opt/start.bin] "
          "unsuccessful"));
}

TEST_F(FtpClientTest, ConnectionResetInTheMiddleOfTheTransfer) {
  testsupport::WriteFile(kLocal, "older content");
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session())
      .Pasv()
      .Expect("RETR " + kRemote, "150 Opening\r\n")
      .Data(std::string(300000, 'p'), DataEnd::kReset)
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  // Neither the older file nor the part that arrived is left.
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:FTPCLIENT read data from server failed.",
                          "[BOOT_INIT][ERROR]:Failed to open file /opt/dl/start.bin, errno:104.",
                          kGenerateFailed));
}

// The data socket's receive time-out: a server that stops sending for 5 seconds fails the
// transfer.
TEST_F(FtpClientTest, DataStreamThatStalls) {
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session())
      .Pasv()
      .Expect("RETR " + kRemote, "150 Opening\r\n")
      .Data("the first bytes", DataEnd::kHold)
      .ExpectClose();
  peer.Start();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Get(), 1u);
  const auto elapsed = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(elapsed, std::chrono::milliseconds(4900));
  EXPECT_LT(elapsed, std::chrono::seconds(8));
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:FTPCLIENT read data from server failed.",
                          "[BOOT_INIT][ERROR]:Failed to open file /opt/dl/start.bin, errno:11.",
                          kGenerateFailed));
}

TEST_F(FtpClientTest, ConnectionClosedInsteadOfTheCompletionReply) {
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session())
      .Pasv()
      .Expect("RETR " + kRemote, "150 Opening\r\n")
      .Data("only a part")
      .Close();
  peer.Start();
  EXPECT_EQ(Get(), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Ctrl conn unexpected eof.",
                  "[BOOT_INIT][ERROR]:Get Ftp Server Connect Response Failed, retcode [1]"));
}

TEST_F(FtpClientTest, TransferAbortedByTheServer) {
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session())
      .Pasv()
      .Expect("RETR " + kRemote, "150 Opening\r\n")
      .Data("only a part")
      .Send("426 Connection closed; transfer aborted\r\n")
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 426u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get Ftp Server Connect Response Failed, "
                                     "retcode [426]"));
}

TEST_F(FtpClientTest, QuitAnsweredOtherwiseIsOnlyAWarning) {
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session())
      .Pasv()
      .Expect("RETR " + kRemote, "150 Opening\r\n")
      .Data("complete")
      .Send("226 Transfer complete\r\n")
      .Expect("QUIT", "500 Unknown command\r\n")
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 0u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_EQ(testsupport::ReadFile(kLocal), "complete");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:FTP CMD QUIT failed, the reply:500",
                                     "[BOOT_INIT][WARNING]:Break ctrl conn unsuccessfully"));
}

TEST_F(FtpClientTest, QuitAnsweredByClosing) {
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session())
      .Pasv()
      .Expect("RETR " + kRemote, "150 Opening\r\n")
      .Data("complete")
      .Send("226 Transfer complete\r\n")
      .Expect("QUIT", "")
      .Close();
  peer.Start();
  EXPECT_EQ(Get(), 0u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_EQ(testsupport::ReadFile(kLocal), "complete");
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Failed to get status code from response msg",
                          "[BOOT_INIT][ERROR]:FTP CMD QUIT failed, the reply:1",
                          "[BOOT_INIT][WARNING]:Break ctrl conn unsuccessfully"));
}

TEST_F(FtpClientTest, FullLocalFileSystem) {
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session())
      .Pasv()
      .Expect("RETR " + kRemote, "150 Opening\r\n")
      .Data("does not fit")
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Get("/dev/full"), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  // The device is a mount point in the board: removing it fails, and it stays.
  EXPECT_TRUE(std::filesystem::exists("/dev/full"));
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Final write local file failed, errno = 28.",
                  "[BOOT_INIT][ERROR]:Failed to open file /dev/full, errno:28.", kGenerateFailed));
}

TEST_F(FtpClientTest, LocalFileCannotBeOpened) {
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session()).Pasv().Expect("RETR " + kRemote, "150 Opening\r\n").ExpectClose();
  peer.Start();
  EXPECT_EQ(Get("/opt/dl/none/start.bin"), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Failed to open file "
                                     "/opt/dl/none/start.bin, ret=2, errno=2.",
                                     kGenerateFailed));
}

// No attempt reached RETR: the retrieval reports success and the transfer's first read fails.
TEST_F(FtpClientTest, NoDataConnectionFailsInTheTransfer) {
  testsupport::WriteFile(kLocal, "older content");
  FtpPeer peer(kMmb1Ip, kPort);
  auto &session = LoggedIn(peer.Session());
  for (int i = 0; i < 3; ++i) {
    session.PasvReply("421 Service not available\r\n");
  }
  session.ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  std::vector<std::string> expected;
  for (int i = 0; i < 3; ++i) {
    expected.push_back("[BOOT_INIT][ERROR]:Failed to set passive mode, ftp reply=421");
    expected.push_back("[BOOT_INIT][ERROR]:Failed to data conn ip addr");
    expected.push_back("[BOOT_INIT][ERROR]:Failed to get ftp data conn, return [1].");
  }
  expected.push_back("[BOOT_INIT][ERROR]:FTPCLIENT read data from server failed.");
  expected.push_back("[BOOT_INIT][ERROR]:Failed to open file /opt/dl/start.bin, errno:9.");
  expected.push_back(kGenerateFailed);
  EXPECT_THAT(MainLog(), testing::ElementsAreArray(expected));
}

// The data socket's options fail from the moment the server has set binary type: every
// attempt fails before RETR, and the transfer fails on its first read.
TEST_F(FtpClientTest, DataSocketOptionsFailInTheMiddleOfTheSession) {
  FtpPeer peer(kMmb1Ip, kPort);
  auto &session = peer.Session()
                      .Send("220 ready\r\n")
                      .Expect("USER " + kUser, "331 Password required\r\n")
                      .Expect("PASS " + kUser, "230 Logged in\r\n")
                      .Do([] { ForceFailure("SWM_SockSetKeepAlive", "7"); })
                      .Expect("TYPE I", "200 Type set to I\r\n");
  for (int i = 0; i < 3; ++i) {
    session.Pasv();
  }
  session.ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  std::vector<std::string> expected;
  for (int i = 0; i < 3; ++i) {
    expected.push_back("[BOOT_INIT][ERROR]:Failed to set data sock keep alive");
    expected.push_back("[BOOT_INIT][ERROR]:Failed to set data sock opt");
    expected.push_back("[BOOT_INIT][ERROR]:Failed to get ftp data conn, return [1].");
  }
  expected.push_back("[BOOT_INIT][ERROR]:FTPCLIENT read data from server failed.");
  expected.push_back("[BOOT_INIT][ERROR]:Failed to open file /opt/dl/start.bin, errno:9.");
  expected.push_back(kGenerateFailed);
  EXPECT_THAT(MainLog(), testing::ElementsAreArray(expected));
}

TEST_F(FtpClientTest, NoTransferBuffer) {
  downloadfaults::Get().failTransferBuffer = true;
  FtpPeer peer(kMmb1Ip, kPort);
  LoggedIn(peer.Session()).Pasv().Expect("RETR " + kRemote, "150 Opening\r\n").ExpectClose();
  peer.Start();
  EXPECT_EQ(Get(), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  ExpectNoDescriptorLeft();
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(),
              ElementsAre(testing::MatchesRegex(R"(\[BOOT_INIT\]\[ERROR\]:Failed to open file )"
                                                R"(/opt/dl/start\.bin, errno:-?[0-9]+\.)"),
                          kGenerateFailed));
}

TEST_F(FtpClientTest, NobodyListening) {
  EXPECT_EQ(Get(), 1u);
  ExpectNoDescriptorLeft();
  EXPECT_EQ(MainLog().size(), 11u);
  EXPECT_EQ(MainLog().back(), "[BOOT_INIT][ERROR]:Establish ctrl connection unsuccessfully.");
}

TEST_F(FtpClientTest, EmptyArguments) {
  const BOOT_INIT_FTP_FILE_INFO_S request = downloadtest::FileRequest();
  const BOOT_INIT_FTP_SOCK_ADDR_S addresses = downloadtest::Addresses();
  const BOOT_INIT_FTP_ACCOUNT_S account = downloadtest::Account();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Get(nullptr, &addresses, &account), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Get(&request, nullptr, &account), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Get(&request, &addresses, nullptr), 0x10000002u);
  EXPECT_THAT(
      MainLog(),
      testing::Each(std::string("[BOOT_INIT][ERROR]:input param is null when check null 1")));
  EXPECT_EQ(MainLog().size(), 3u);
}

}  // namespace
