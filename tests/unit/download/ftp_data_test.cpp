// The passive data connection and RETR with its retries, against scripted servers. The test
// opens the control connection itself, bound to the board's own address as the client would.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "download_fixture.hpp"

using downloadtest::kMmb1Ip;
using downloadtest::kOwnIp;
using downloadtest::kPort;
using downloadtest::kRemote;
using downloadtest::Show;
using ftppeer::FtpPeer;
using ftppeer::PasvText;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testsupport::MainLog;

namespace {

const std::string kNoDataAddr = "[BOOT_INIT][ERROR]:Failed to data conn ip addr";
const std::string kNoDataConn = "[BOOT_INIT][ERROR]:Failed to get ftp data conn, return [1].";

std::string ReplyWas(uint32_t reply, int attempt) {
  return "[BOOT_INIT][INFO]:Reply was " + std::to_string(reply) + " - RPM_FTP_PRELIM - #" +
         std::to_string(attempt) + " attempt in 3 ticks.";
}

class FtpDataTest : public downloadtest::DownloadTest {
 protected:
  BOOT_INIT_FTP_CONN_S connection_{-1, -1};

  void TearDown() override {
    BOOT_INIT_FTPCLIENT_ReleaseFtpConn(&connection_);
    DownloadTest::TearDown();
  }

  // The control connection, from the board's own address to peer.
  void Connect(const FtpPeer &peer) {
    const BOOT_INIT_FTP_SOCK_ADDR_S addresses =
        downloadtest::Addresses(peer.address(), peer.port());
    connection_.ctrlFd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(connection_.ctrlFd, reinterpret_cast<const sockaddr *>(&addresses.client),
                   sizeof(sockaddr_in)),
              0);
    ASSERT_EQ(connect(connection_.ctrlFd, reinterpret_cast<const sockaddr *>(&addresses.server),
                      sizeof(sockaddr_in)),
              0);
  }

  // Ends the client's side and returns what went against the script.
  std::vector<std::string> Finish(FtpPeer &peer) {
    BOOT_INIT_FTPCLIENT_ReleaseFtpConn(&connection_);
    return peer.Finish();
  }
};

// The reply names 10.0.0.9, but the data connection goes to the control connection's peer.
TEST_F(FtpDataTest, DataAddressesComeFromTheControlConnection) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().PasvReply("227 Entering Passive Mode (10,0,0,9,19,137).\r\n").ExpectClose();
  peer.Start();
  Connect(peer);
  BOOT_INIT_FTP_SOCK_ADDR_S data;
  std::memset(&data, 0x5A, sizeof(data));
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetFtpDataConnIPAddr(&connection_, &data), 0u);
  EXPECT_EQ(Show(data.server), kMmb1Ip + ":5001");
  EXPECT_EQ(Show(data.client), kOwnIp + ":0");
  // Everything but the family, port and address is cleared.
  const auto *server = reinterpret_cast<const sockaddr_in *>(&data.server);
  EXPECT_THAT(std::vector<unsigned char>(server->sin_zero, server->sin_zero + 8), testing::Each(0));
  EXPECT_THAT(Finish(peer), IsEmpty());
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpDataTest, DataConnectionGoesToTheControlPeerWhateverTheReplySays) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().Pasv("10.0.0.9", 5001).Data("").ExpectClose();
  peer.Start();
  Connect(peer);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_EstablishFtpDataConnect(&connection_), 0u);
  ASSERT_GE(connection_.dataFd, 0);
  sockaddr_in remote{};
  socklen_t length = sizeof(remote);
  getpeername(connection_.dataFd, reinterpret_cast<sockaddr *>(&remote), &length);
  EXPECT_EQ(ntohs(remote.sin_port), 5001);
  EXPECT_THAT(Finish(peer), IsEmpty());
  EXPECT_THAT(peer.dataClients(), ElementsAre(kOwnIp));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpDataTest, PassiveModeRefused) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().PasvReply("500 PASV not understood\r\n").ExpectClose();
  peer.Start();
  Connect(peer);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_EstablishFtpDataConnect(&connection_), 1u);
  EXPECT_EQ(connection_.dataFd, -1);
  EXPECT_THAT(Finish(peer), IsEmpty());
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Failed to set passive mode, ftp reply=500",
                                     kNoDataAddr));
}

TEST_F(FtpDataTest, MalformedPassiveReplies) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"227 Entering Passive Mode 127,0,0,11,4,1", "PASV response without '('"},
      {"227 Entering Passive Mode (127,0,0,11,4)", "PASV response with invalid address or port"},
      {"227 Entering Passive Mode (127,0,0,11,x,1)", "PASV response with invalid address or port"},
  };
  for (const auto &[reply, message] : cases) {
    testsupport::ClearMainLog();
    FtpPeer peer(kMmb1Ip, kPort);
    peer.Session().PasvReply(reply + "\r\n").ExpectClose();
    peer.Start();
    Connect(peer);
    EXPECT_EQ(BOOT_INIT_FTPCLIENT_EstablishFtpDataConnect(&connection_), 1u);
    EXPECT_THAT(Finish(peer), IsEmpty());
    EXPECT_THAT(
        MainLog(),
        ElementsAre("[BOOT_INIT][ERROR]:" + message + ", reply msg = " + reply,
                    "[BOOT_INIT][ERROR]:Failed to get data conn server port, reply msg=" + reply,
                    kNoDataAddr));
  }
}

// The reply is read into 255 characters and the terminator.
TEST_F(FtpDataTest, PassiveReplyOf255CharactersFitsItsBuffer) {
  const std::string head = "227 Entering Passive Mode (127,0,0,11,4,1).";
  const std::string fits = head + std::string(255 - head.size(), 'y');
  const std::string tooLong = fits + "y";
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().PasvReply(fits + "\r\n").PasvReply(tooLong + "\r\n").ExpectClose();
  peer.Start();
  Connect(peer);
  BOOT_INIT_FTP_SOCK_ADDR_S data{};
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetFtpDataConnIPAddr(&connection_, &data), 0u);
  EXPECT_EQ(Show(data.server), kMmb1Ip + ":1025");
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetFtpDataConnIPAddr(&connection_, &data), 1u);
  EXPECT_THAT(Finish(peer), IsEmpty());
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Msg buff is not enough, replymsg len = 256, bufflen = 256",
                  "[BOOT_INIT][ERROR]:Failed to set passive mode, ftp reply=1"));
}

TEST_F(FtpDataTest, DataConnectionRefused) {
  const int fdsBefore = testsupport::CountOpenFds();
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session().PasvReply(PasvText(kMmb1Ip, 1)).ExpectClose();
  peer.Start();
  Connect(peer);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_EstablishFtpDataConnect(&connection_), 1u);
  EXPECT_EQ(connection_.dataFd, -1);
  EXPECT_THAT(Finish(peer), IsEmpty());
  // The peer's own descriptors are all closed by Finish: what is left would be the client's.
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Conn to server unsuccessfully."));
}

// Failures of the platform's socket calls, forced once the control connection is up.
TEST_F(FtpDataTest, DataSocketStepFailures) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"SWM_SockGetTcpSock", {"[BOOT_INIT][ERROR]:Failed to get tcp socket"}},
      {"SWM_SockSetKeepAlive",
       {"[BOOT_INIT][ERROR]:Failed to set data sock keep alive",
        "[BOOT_INIT][ERROR]:Failed to set data sock opt"}},
      {"SWM_SockSetRcvTimeout",
       {"[BOOT_INIT][ERROR]:Failed to set data sock rcv timeout",
        "[BOOT_INIT][ERROR]:Failed to set data sock opt"}},
      {"SWM_SockSetSndTimeout",
       {"[BOOT_INIT][ERROR]:Failed to set data sock snd timeout",
        "[BOOT_INIT][ERROR]:Failed to set data sock opt"}},
      {"SWM_SockBind", {"[BOOT_INIT][ERROR]:Failed to bind client ip to data sock"}},
      {"SWM_SockConnect", {"[BOOT_INIT][ERROR]:Conn to server unsuccessfully."}},
      {"SWM_SockGetLocalSockAddr", {"[BOOT_INIT][ERROR]:Failed to get client ip", kNoDataAddr}},
      {"SWM_SockGetPeerSockAddr", {"[BOOT_INIT][ERROR]:Failed to get server ip", kNoDataAddr}},
      {"SWM_SockSetPort", {"[BOOT_INIT][ERROR]:Failed to get client ip", kNoDataAddr}},
  };
  for (const auto &[function, messages] : cases) {
    testsupport::ClearMainLog();
    downloadtest::DownloadTest::LineCardWith({});
    const int fdsBefore = testsupport::CountOpenFds();
    {
      FtpPeer peer(kMmb1Ip, kPort);
      peer.Session().Pasv().ExpectClose();
      peer.Start();
      Connect(peer);
      ForceFailure(function, "7");
      EXPECT_EQ(BOOT_INIT_FTPCLIENT_EstablishFtpDataConnect(&connection_), 1u) << function;
      EXPECT_EQ(connection_.dataFd, -1);
      downloadtest::DownloadTest::LineCardWith({});
      EXPECT_THAT(Finish(peer), IsEmpty()) << function;
    }
    EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore) << function;
    EXPECT_THAT(MainLog(), testing::ElementsAreArray(messages)) << function;
  }
}

TEST_F(FtpDataTest, RetrAcceptedAtOnce) {
  for (const char *opening :
       {"150 Opening BINARY mode data connection", "125 Data connection already open"}) {
    FtpPeer peer(kMmb1Ip, kPort);
    peer.Session().Pasv().Expect("RETR " + kRemote, std::string(opening) + "\r\n").ExpectClose();
    peer.Start();
    Connect(peer);
    EXPECT_EQ(BOOT_INIT_FTPCLIENT_Prepare2Get(&connection_, kRemote.c_str()), 0u);
    EXPECT_GE(connection_.dataFd, 0);
    EXPECT_THAT(Finish(peer), IsEmpty());
  }
  EXPECT_THAT(MainLog(), IsEmpty());
}

// Each attempt asks for a new passive connection; the last reply is the result.
TEST_F(FtpDataTest, FileUnavailableIsTriedThreeTimes) {
  const int fdsBefore = testsupport::CountOpenFds();
  FtpPeer peer(kMmb1Ip, kPort);
  auto &session = peer.Session();
  for (int i = 0; i < 3; ++i) {
    session.Pasv().Expect("RETR " + kRemote, "550 No such file or directory\r\n");
  }
  session.ExpectClose();
  peer.Start();
  Connect(peer);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Prepare2Get(&connection_, kRemote.c_str()), 550u);
  EXPECT_EQ(connection_.dataFd, -1);
  EXPECT_THAT(Finish(peer), IsEmpty());
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore);
  EXPECT_THAT(peer.commands(), ElementsAre("PASV", "RETR " + kRemote, "PASV", "RETR " + kRemote,
                                           "PASV", "RETR " + kRemote));
  EXPECT_THAT(MainLog(), ElementsAre(ReplyWas(550, 0), ReplyWas(550, 1), ReplyWas(550, 2)));
}

TEST_F(FtpDataTest, TransientFatalRepliesAbortAtOnce) {
  for (const uint32_t reply : {421u, 450u, 451u, 452u}) {
    testsupport::ClearMainLog();
    FtpPeer peer(kMmb1Ip, kPort);
    peer.Session()
        .Pasv()
        .Expect("RETR " + kRemote, std::to_string(reply) + " Local error\r\n")
        .ExpectClose();
    peer.Start();
    Connect(peer);
    EXPECT_EQ(BOOT_INIT_FTPCLIENT_Prepare2Get(&connection_, kRemote.c_str()), reply);
    EXPECT_EQ(connection_.dataFd, -1);
    EXPECT_THAT(Finish(peer), IsEmpty());
    EXPECT_THAT(MainLog(), ElementsAre(ReplyWas(reply, 0), "[BOOT_INIT][ERROR]:Response " +
                                                               std::to_string(reply) +
                                                               " - aborting transfer."));
  }
}

TEST_F(FtpDataTest, LaterAttemptMaySucceed) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session()
      .Pasv()
      .Expect("RETR " + kRemote, "550 Not yet\r\n")
      .Pasv()
      .Expect("RETR " + kRemote, "150 Opening\r\n")
      .ExpectClose();
  peer.Start();
  Connect(peer);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Prepare2Get(&connection_, kRemote.c_str()), 0u);
  EXPECT_GE(connection_.dataFd, 0);
  EXPECT_THAT(Finish(peer), IsEmpty());
  EXPECT_THAT(MainLog(), ElementsAre(ReplyWas(550, 0)));
}

// Without any data connection nothing was asked for: the result is 0 and no data descriptor.
TEST_F(FtpDataTest, NoDataConnectionInAnyAttemptFallsThroughWithZero) {
  FtpPeer peer(kMmb1Ip, kPort);
  auto &session = peer.Session();
  for (int i = 0; i < 3; ++i) {
    session.PasvReply("425 Can't open data connection\r\n");
  }
  session.ExpectClose();
  peer.Start();
  Connect(peer);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Prepare2Get(&connection_, kRemote.c_str()), 0u);
  EXPECT_EQ(connection_.dataFd, -1);
  EXPECT_THAT(Finish(peer), IsEmpty());
  const std::vector<std::string> attempt = {
      "[BOOT_INIT][ERROR]:Failed to set passive mode, ftp reply=425", kNoDataAddr, kNoDataConn};
  std::vector<std::string> expected;
  for (int i = 0; i < 3; ++i) {
    expected.insert(expected.end(), attempt.begin(), attempt.end());
  }
  EXPECT_THAT(MainLog(), testing::ElementsAreArray(expected));
}

TEST_F(FtpDataTest, ResultIsTheLastReplyReceived) {
  FtpPeer peer(kMmb1Ip, kPort);
  peer.Session()
      .Pasv()
      .Expect("RETR " + kRemote, "550 No such file\r\n")
      .PasvReply("425 No data connection\r\n")
      .PasvReply("425 No data connection\r\n")
      .ExpectClose();
  peer.Start();
  Connect(peer);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Prepare2Get(&connection_, kRemote.c_str()), 550u);
  EXPECT_THAT(Finish(peer), IsEmpty());
  EXPECT_THAT(MainLog(), ElementsAre(ReplyWas(550, 0),
                                     "[BOOT_INIT][ERROR]:Failed to set passive mode, ftp reply=425",
                                     kNoDataAddr, kNoDataConn,
                                     "[BOOT_INIT][ERROR]:Failed to set passive mode, ftp reply=425",
                                     kNoDataAddr, kNoDataConn));
}

TEST_F(FtpDataTest, EmptyArguments) {
  BOOT_INIT_FTP_SOCK_ADDR_S data{};
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetFtpDataConnIPAddr(nullptr, &data), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetFtpDataConnIPAddr(&connection_, nullptr), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_EstablishFtpDataConnect(nullptr), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Prepare2Get(nullptr, "/x"), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Prepare2Get(&connection_, nullptr), 0x10000002u);
  EXPECT_THAT(
      MainLog(),
      testing::Each(std::string("[BOOT_INIT][ERROR]:input param is null when check null 1")));
  EXPECT_EQ(MainLog().size(), 5u);
}

TEST_F(FtpDataTest, ReleaseClosesWhatIsOpen) {
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
  const int fdsBefore = testsupport::CountOpenFds();
  BOOT_INIT_FTP_CONN_S connection{7, 7};
  BOOT_INIT_FTPCLIENT_InitFtpConn(&connection);
  EXPECT_EQ(connection.ctrlFd, -1);
  EXPECT_EQ(connection.dataFd, -1);
  connection = {pair[0], pair[1]};
  BOOT_INIT_FTPCLIENT_ReleaseFtpDataConn(&connection);
  EXPECT_EQ(connection.dataFd, -1);
  EXPECT_EQ(connection.ctrlFd, pair[0]);
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore - 1);
  BOOT_INIT_FTPCLIENT_ReleaseFtpCtrlConn(&connection);
  EXPECT_EQ(connection.ctrlFd, -1);
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore - 2);
  BOOT_INIT_FTPCLIENT_ReleaseFtpConn(&connection);  // nothing open: nothing happens
  BOOT_INIT_FTPCLIENT_ReleaseFtpConn(nullptr);
  BOOT_INIT_FTPCLIENT_InitFtpConn(nullptr);
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore - 2);
}

}  // namespace
