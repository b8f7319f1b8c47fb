// The control session against scripted servers on the board's loopback: socket options,
// connecting with retries and pauses, the greeting, login, binary type and QUIT.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "download_fixture.hpp"

using downloadtest::Addresses;
using downloadtest::kMmb1Ip;
using downloadtest::kPort;
using downloadtest::kUser;
using ftppeer::FtpPeer;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::MatchesRegex;
using testsupport::MainLog;

namespace {

const std::string kGiveUp = "[BOOT_INIT][ERROR]:Establish ctrl connection unsuccessfully.";

// One failed attempt's info line; errno as a pattern where the failing call leaves it open.
testing::Matcher<const std::string &> AttemptFailed(int attempt, const std::string &errnoText) {
  return MatchesRegex(R"(\[BOOT_INIT\]\[INFO\]:Failed to establish ctrl connection, uiRet:1, )"
                      "errno:" +
                      errnoText + ", try times:" + std::to_string(attempt));
}

// The log of five failed attempts, each with its own message lines first.
std::vector<testing::Matcher<const std::string &>> FiveAttempts(
    const std::vector<std::string> &messages, const std::string &errnoText) {
  std::vector<testing::Matcher<const std::string &>> lines;
  for (int attempt = 0; attempt < 5; ++attempt) {
    for (const std::string &message : messages) {
      lines.emplace_back(testing::Eq(message));
    }
    lines.push_back(AttemptFailed(attempt, errnoText));
  }
  lines.emplace_back(testing::Eq(kGiveUp));
  return lines;
}

int IntOption(int fd, int level, int name) {
  int value = -1;
  socklen_t length = sizeof(value);
  getsockopt(fd, level, name, &value, &length);
  return value;
}

timeval TimeOption(int fd, int name) {
  timeval value{};
  socklen_t length = sizeof(value);
  getsockopt(fd, SOL_SOCKET, name, &value, &length);
  return value;
}

linger LingerOption(int fd) {
  linger value{-1, -1};
  socklen_t length = sizeof(value);
  getsockopt(fd, SOL_SOCKET, SO_LINGER, &value, &length);
  return value;
}

class FtpSessionTest : public downloadtest::DownloadTest {
 protected:
  int ctrlFd_ = -1;
  void TearDown() override {
    if (ctrlFd_ >= 0) {
      close(ctrlFd_);
    }
    DownloadTest::TearDown();
  }
  uint32_t Start(const BOOT_INIT_FTP_SOCK_ADDR_S &addresses = Addresses()) {
    const BOOT_INIT_FTP_ACCOUNT_S account = downloadtest::Account();
    return BOOT_INIT_FTPCLIENT_Start(&addresses, &account, &ctrlFd_);
  }
  // A socket connected to peer, as the client's control connection would be.
  int Connected(const FtpPeer &peer) {
    const BOOT_INIT_FTP_SOCK_ADDR_S addresses = Addresses(peer.address(), peer.port());
    ctrlFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(ctrlFd_, reinterpret_cast<const sockaddr *>(&addresses.server),
                      sizeof(sockaddr_in)),
              0);
    return ctrlFd_;
  }
};

TEST_F(FtpSessionTest, ControlSocketOptions) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SetFtpCtrlSockOpt(fd), 0u);
  const linger lingerValue = LingerOption(fd);
  EXPECT_EQ(lingerValue.l_onoff, 1);
  EXPECT_EQ(lingerValue.l_linger, 0);
  EXPECT_EQ(IntOption(fd, SOL_SOCKET, SO_KEEPALIVE), 1);
  EXPECT_EQ(TimeOption(fd, SO_RCVTIMEO).tv_sec, 5);
  EXPECT_EQ(TimeOption(fd, SO_RCVTIMEO).tv_usec, 0);
  EXPECT_EQ(TimeOption(fd, SO_SNDTIMEO).tv_sec, 5);
  EXPECT_EQ(TimeOption(fd, SO_SNDTIMEO).tv_usec, 0);
  close(fd);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpSessionTest, DataSocketOptionsHaveNoLinger) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SetFtpDataSockOpt(fd), 0u);
  EXPECT_EQ(LingerOption(fd).l_onoff, 0);
  EXPECT_EQ(IntOption(fd, SOL_SOCKET, SO_KEEPALIVE), 1);
  EXPECT_EQ(TimeOption(fd, SO_RCVTIMEO).tv_sec, 5);
  EXPECT_EQ(TimeOption(fd, SO_SNDTIMEO).tv_sec, 5);
  close(fd);
  EXPECT_THAT(MainLog(), IsEmpty());
}

// Each option's failure stops the setting at that option. A failure forced through the board
// description leaves errno EIO (5).
TEST_F(FtpSessionTest, ControlSocketOptionFailures) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"SWM_SockSetLinger", "[BOOT_INIT][ERROR]:Failed to set ctrl conn linger"},
      {"SWM_SockSetKeepAlive", "[BOOT_INIT][ERROR]:Failed to set ctrl conn keep alive"},
      {"SWM_SockSetRcvTimeout", "[BOOT_INIT][ERROR]:Failed to set ctrl conn rcv timeout"},
      {"SWM_SockSetSndTimeout", "[BOOT_INIT][ERROR]:Failed to set ctrl conn snd timeout"}};
  for (const auto &[function, message] : cases) {
    testsupport::ClearMainLog();
    ForceFailure(function, "7");
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(BOOT_INIT_FTPCLIENT_SetFtpCtrlSockOpt(fd), 1u) << function;
    close(fd);
    EXPECT_THAT(MainLog(), ElementsAre(message));
  }
}

TEST_F(FtpSessionTest, DataSocketOptionFailures) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"SWM_SockSetLinger", ""},
      {"SWM_SockSetKeepAlive", "[BOOT_INIT][ERROR]:Failed to set data sock keep alive"},
      {"SWM_SockSetRcvTimeout", "[BOOT_INIT][ERROR]:Failed to set data sock rcv timeout"},
      {"SWM_SockSetSndTimeout", "[BOOT_INIT][ERROR]:Failed to set data sock snd timeout"}};
  for (const auto &[function, message] : cases) {
    testsupport::ClearMainLog();
    ForceFailure(function, "7");
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(BOOT_INIT_FTPCLIENT_SetFtpDataSockOpt(fd), message.empty() ? 0u : 1u) << function;
    close(fd);
    if (message.empty()) {
      EXPECT_THAT(MainLog(), IsEmpty());
    } else {
      EXPECT_THAT(MainLog(), ElementsAre(message));
    }
  }
}

TEST_F(FtpSessionTest, StartConnectsLogsInAndSetsBinaryType) {
  FtpPeer peer(kMmb1Ip, kPort);
  downloadtest::LoggedIn(peer.Session()).ExpectClose();
  peer.Start();
  EXPECT_EQ(Start(), 0u);
  ASSERT_GE(ctrlFd_, 0);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(peer.commands(), ElementsAre("USER k7user", "PASS k7user", "TYPE I"));
  // The control connection is bound to the board's own address.
  EXPECT_THAT(peer.controlClients(), ElementsAre(downloadtest::kOwnIp));
  EXPECT_THAT(MainLog(), IsEmpty());
  EXPECT_THAT(downloadfaults::Get().sleeps, IsEmpty());
}

TEST_F(FtpSessionTest, LoginCommandsAreWipedAfterSendingOnly) {
  FtpPeer peer(kMmb1Ip, kPort);
  downloadtest::LoggedIn(peer.Session()).ExpectClose();
  peer.Start();
  EXPECT_EQ(Start(), 0u);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(downloadfaults::Get().events,
              ElementsAre("send:USER k7user\r\n", "wipe259:USER k7user\r\n", "send:PASS k7user\r\n",
                          "wipe259:PASS k7user\r\n", "send:TYPE I\r\n"));
  for (const auto &wipe : downloadfaults::WipesOfSize(259)) {
    EXPECT_TRUE(wipe.zeroAfter);
  }
}

TEST_F(FtpSessionTest, EstablishOneConnection) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().Send("220 ready\r\n").ExpectClose();
  peer.Start();
  const BOOT_INIT_FTP_SOCK_ADDR_S addresses = Addresses();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_EstablishFtpCtrlConnect(&addresses, &ctrlFd_), 0u);
  ASSERT_GE(ctrlFd_, 0);
  EXPECT_EQ(LingerOption(ctrlFd_).l_onoff, 1);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(), IsEmpty());
}

// The one run that waits for real: five attempts, each followed by a pause of 2 seconds.
TEST_F(FtpSessionTest, GreetingOtherThan220IsTriedFiveTimesWithRealPauses) {
  downloadfaults::Get().realSleep = true;
  const int fdsBefore = testsupport::CountOpenFds();
  FtpPeer peer(kMmb1Ip, kPort);
  for (int i = 0; i < 5; ++i) {
    peer.Session().Send("421 Too many users\r\n").ExpectClose();
  }
  peer.Start();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Start(), 1u);
  const auto elapsed = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(elapsed, std::chrono::seconds(10));
  EXPECT_LT(elapsed, std::chrono::seconds(14));
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore);
  EXPECT_THAT(downloadfaults::Get().sleeps, ElementsAre(2u, 2u, 2u, 2u, 2u));
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(FiveAttempts(
          {"[BOOT_INIT][ERROR]:Failed to establlish ctrl conn, FTP the unexpected reply: 421"},
          "-?[0-9]+")));
  EXPECT_THAT(peer.commands(), IsEmpty());
}

TEST_F(FtpSessionTest, ServerClosingBeforeTheGreeting) {
  FtpPeer peer(kMmb1Ip, kPort);
  for (int i = 0; i < 5; ++i) {
    peer.Session().Close();
  }
  peer.Start();
  EXPECT_EQ(Start(), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(
      MainLog(),
      ElementsAreArray(FiveAttempts(
          {"[BOOT_INIT][ERROR]:Ctrl conn unexpected eof.",
           "[BOOT_INIT][ERROR]:Failed to establlish ctrl conn, FTP the unexpected reply: 1"},
          "-?[0-9]+")));
}

TEST_F(FtpSessionTest, LaterAttemptMaySucceed) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().Send("120 Service ready in a minute\r\n").ExpectClose();
  downloadtest::LoggedIn(peer.Session()).ExpectClose();
  peer.Start();
  EXPECT_EQ(Start(), 0u);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(downloadfaults::Get().sleeps, ElementsAre(2u));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Failed to establlish ctrl conn, FTP the unexpected "
                          "reply: 120",
                          AttemptFailed(0, "-?[0-9]+")));
}

TEST_F(FtpSessionTest, NobodyListening) {
  EXPECT_EQ(Start(), 1u);
  EXPECT_EQ(ctrlFd_, -1);
  EXPECT_THAT(downloadfaults::Get().sleeps, ElementsAre(2u, 2u, 2u, 2u, 2u));
  EXPECT_THAT(MainLog(), ElementsAreArray(FiveAttempts(
                             {"[BOOT_INIT][ERROR]:Conn to server unsuccessfully."}, "111")));
}

TEST_F(FtpSessionTest, ClientAddressThatIsNotTheBoards) {
  EXPECT_EQ(Start(Addresses(kMmb1Ip, kPort, "10.9.9.9")), 1u);
  EXPECT_THAT(MainLog(), ElementsAreArray(FiveAttempts(
                             {"[BOOT_INIT][ERROR]:Failed to bind client ip to ctrl conn"}, "99")));
}

TEST_F(FtpSessionTest, NoSocket) {
  ForceFailure("SWM_SockGetTcpSock", "7");
  const int fdsBefore = testsupport::CountOpenFds();
  EXPECT_EQ(Start(), 1u);
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore);
  EXPECT_THAT(MainLog(), ElementsAreArray(FiveAttempts(
                             {"[BOOT_INIT][ERROR]:Failed to get ctrl conn tcp socket"}, "5")));
}

TEST_F(FtpSessionTest, SocketOptionFailureClosesTheSocket) {
  ForceFailure("SWM_SockSetRcvTimeout", "7");
  const int fdsBefore = testsupport::CountOpenFds();
  EXPECT_EQ(Start(), 1u);
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore);
  EXPECT_THAT(MainLog(), ElementsAreArray(
                             FiveAttempts({"[BOOT_INIT][ERROR]:Failed to set ctrl conn rcv timeout",
                                           "[BOOT_INIT][ERROR]:Failed to set ctrl sock opt"},
                                          "5")));
}

TEST_F(FtpSessionTest, ForcedBindAndConnectFailures) {
  ForceFailure("SWM_SockBind", "7");
  EXPECT_EQ(Start(), 1u);
  EXPECT_THAT(MainLog(), ElementsAreArray(FiveAttempts(
                             {"[BOOT_INIT][ERROR]:Failed to bind client ip to ctrl conn"}, "5")));
  testsupport::ClearMainLog();
  FtpPeer peer(kMmb1Ip, kPort);  // listening, but the connect fails before reaching it
  ForceFailure("SWM_SockConnect", "7");
  EXPECT_EQ(Start(), 1u);
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(), ElementsAreArray(FiveAttempts(
                             {"[BOOT_INIT][ERROR]:Conn to server unsuccessfully."}, "5")));
}

TEST_F(FtpSessionTest, MultiLineGreetingLeavesItsContinuationForUser) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session()
      .Send("220-Welcome\r\n220-to the main board\r\n220 ready\r\n")
      .Expect("USER " + kUser, "")  // the client has its "reply" already and goes
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Start(), 1u);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:FTP CMD USER failed, login failed, the reply:220",
                          "[BOOT_INIT][ERROR]:Failed to login ftp server"));
}

TEST_F(FtpSessionTest, UserRefused) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session()
      .Send("220 ready\r\n")
      .Expect("USER " + kUser, "530 Not logged in\r\n")
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Start(), 1u);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:FTP CMD USER failed, login failed, the reply:530",
                          "[BOOT_INIT][ERROR]:Failed to login ftp server"));
  // The password never went out.
  EXPECT_THAT(downloadfaults::Get().events,
              ElementsAre("send:USER k7user\r\n", "wipe259:USER k7user\r\n"));
}

TEST_F(FtpSessionTest, PasswordRefused) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session()
      .Send("220 ready\r\n")
      .Expect("USER " + kUser, "331 Password required\r\n")
      .Expect("PASS " + kUser, "530 Login incorrect\r\n")
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Start(), 1u);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:FTP CMD PASS failed, login failed, the reply:530",
                          "[BOOT_INIT][ERROR]:Failed to login ftp server"));
  EXPECT_EQ(downloadfaults::WipesOfSize(259).size(), 2u);
}

// A server that stays silent: the 5 second receive time-out ends the read.
TEST_F(FtpSessionTest, NoReplyWithinFiveSeconds) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().Send("220 ready\r\n").Expect("USER " + kUser, "").ExpectClose();
  peer.Start();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Start(), 1u);
  const auto elapsed = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(elapsed, std::chrono::milliseconds(4900));
  EXPECT_LT(elapsed, std::chrono::seconds(8));
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Read failed, errno 11.",
                          "[BOOT_INIT][ERROR]:FTP CMD USER failed, login failed, the reply:1",
                          "[BOOT_INIT][ERROR]:Failed to login ftp server"));
}

TEST_F(FtpSessionTest, EmptyAccount) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().Send("220 ready\r\n").ExpectClose();
  peer.Start();
  const BOOT_INIT_FTP_SOCK_ADDR_S addresses = Addresses();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Start(&addresses, nullptr, &ctrlFd_), 1u);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Input para is NULL.",
                                     "[BOOT_INIT][ERROR]:Failed to login ftp server"));
}

TEST_F(FtpSessionTest, BinaryTypeRefused) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session()
      .Send("220 ready\r\n")
      .Expect("USER " + kUser, "331 Password required\r\n")
      .Expect("PASS " + kUser, "230 Logged in\r\n")
      .Expect("TYPE I", "504 Command not implemented for that parameter\r\n")
      .ExpectClose();
  peer.Start();
  EXPECT_EQ(Start(), 1u);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:FTP CMD TYPE I failed, the reply:504",
                                     "[BOOT_INIT][ERROR]:Failed to set binary mode"));
}

TEST_F(FtpSessionTest, GoodBye) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().Expect("QUIT", "221 Goodbye\r\n").Expect("QUIT", "500 What?\r\n").ExpectClose();
  peer.Start();
  const int fd = Connected(peer);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GoodBye(fd), 0u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GoodBye(fd), 1u);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:FTP CMD QUIT failed, the reply:500"));
}

TEST_F(FtpSessionTest, OpenBinModeAlone) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().Expect("TYPE I", "200 ok\r\n").ExpectClose();
  peer.Start();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_OpenBinMode(Connected(peer)), 0u);
  close(ctrlFd_);
  ctrlFd_ = -1;
  EXPECT_THAT(peer.Finish(), IsEmpty());
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpSessionTest, EmptyArguments) {
  const BOOT_INIT_FTP_SOCK_ADDR_S addresses = Addresses();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_EstablishFtpCtrlConnect(nullptr, &ctrlFd_), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_EstablishFtpCtrlConnect(&addresses, nullptr), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Start(nullptr, nullptr, &ctrlFd_), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Login(3, nullptr), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Input para is NULL.",
                                     "[BOOT_INIT][ERROR]:Input para is NULL.",
                                     "[BOOT_INIT][ERROR]:Input para is NULL.",
                                     "[BOOT_INIT][ERROR]:Input para is NULL."));
}

}  // namespace
