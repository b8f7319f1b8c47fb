// Which servers a board downloads from, from the board's network facts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "download_fixture.hpp"

using downloadtest::kFtpServerConf;
using downloadtest::kMmb1Ip;
using downloadtest::kMmb2Ip;
using downloadtest::kOwnIp;
using downloadtest::Show;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;

namespace {

const std::string kMmb1Ok =
    "[BOOT_INIT][INFO]:Init Mmb1 ftp server sock addr success, mmbIp1:127.0.0.11.";
const std::string kMmb2Ok =
    "[BOOT_INIT][INFO]:Init Mmb2 ftp server sock addr success, mmbIp2:127.0.0.12.";
const std::string kNoServer = "[BOOT_INIT][INFO]:Init Mmb ftp server sock addr unsuccessfully.";
const std::string kNoClient = "[BOOT_INIT][INFO]:Init client ftp sock addr unsuccessfully.";

std::string ParseFailed(const std::string &text) {
  return "[BOOT_INIT][ERROR]:Parse ip string failed: address family=IPv4, string=" + text +
         ", ret=0, errno=0.";
}

class FtpServersTest : public downloadtest::DownloadTest {
 protected:
  BOOT_INIT_FTP_SERVER_ADDR_S servers_{};

  uint32_t Choose() {
    std::memset(&servers_, 0x5A, sizeof(servers_));
    return BOOT_INIT_GetFtpSockConnAddr(&servers_);
  }
  void ExpectServers(std::vector<std::string> expected) {
    ASSERT_EQ(servers_.sockAddrNum, expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_EQ(Show(servers_.server[i]), expected[i]) << i;
    }
    EXPECT_EQ(servers_.reserved, 0u);
    EXPECT_EQ(Show(servers_.client), kOwnIp + ":0");
  }
};

TEST_F(FtpServersTest, BothMainBoardsInOrder) {
  EXPECT_EQ(Choose(), 0u);
  ExpectServers({kMmb1Ip + ":2121", kMmb2Ip + ":2121"});
  // The whole record was cleared first: nothing of the old bytes is left.
  const auto *bytes = reinterpret_cast<const unsigned char *>(&servers_);
  for (std::size_t offset :
       {std::size_t{8} + 8, std::size_t{8} + 128 + 8, std::size_t{8} + 256 + 8}) {
    EXPECT_TRUE(std::all_of(bytes + offset, bytes + offset + 120, [](unsigned char b) {
      return b == 0;
    })) << offset;
  }
  EXPECT_THAT(MainLog(), ElementsAre(kMmb1Ok, kMmb2Ok));
}

TEST_F(FtpServersTest, MasterMainBoardDoesNotDownload) {
  LineCardWith({{"board.ha_role", "0"}, {"board.mmb", "1"}});
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:My role is master, do not need to download."));
}

TEST_F(FtpServersTest, MasterRoleOnABoardThatIsNoMainBoardDownloads) {
  LineCardWith({{"board.ha_role", "0"}, {"board.mmb", "0"}});
  EXPECT_EQ(Choose(), 0u);
  ExpectServers({kMmb1Ip + ":2121", kMmb2Ip + ":2121"});
}

TEST_F(FtpServersTest, StandbyMainBoardDownloads) {
  LineCardWith({{"board.ha_role", "1"}, {"board.mmb", "1"}, {"net.address", kMmb2Ip}});
  EXPECT_EQ(Choose(), 0u);
  ASSERT_EQ(servers_.sockAddrNum, 1u);
  EXPECT_EQ(Show(servers_.server[0]), kMmb1Ip + ":2121");
  EXPECT_EQ(Show(servers_.client), kMmb2Ip + ":0");
  EXPECT_THAT(MainLog(), ElementsAre(kMmb1Ok));
}

TEST_F(FtpServersTest, RoleQueryFails) {
  ForceFailure("SWM_GetSystemHaRole", "9");
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Get system role failed."));
}

TEST_F(FtpServersTest, OwnAddressEqualToMainBoard1LeavesMainBoard2AtIndex0) {
  LineCardWith({{"net.address", kMmb1Ip}});
  EXPECT_EQ(Choose(), 0u);
  ASSERT_EQ(servers_.sockAddrNum, 1u);
  EXPECT_EQ(Show(servers_.server[0]), kMmb2Ip + ":2121");
  EXPECT_EQ(Show(servers_.client), kMmb1Ip + ":0");
  EXPECT_THAT(MainLog(), ElementsAre(kMmb2Ok));
}

TEST_F(FtpServersTest, OwnAddressEqualToMainBoard2LeavesMainBoard1) {
  LineCardWith({{"net.address", kMmb2Ip}});
  EXPECT_EQ(Choose(), 0u);
  ASSERT_EQ(servers_.sockAddrNum, 1u);
  EXPECT_EQ(Show(servers_.server[0]), kMmb1Ip + ":2121");
  EXPECT_THAT(MainLog(), ElementsAre(kMmb1Ok));
}

TEST_F(FtpServersTest, BothMainBoardsAreTheBoardItself) {
  LineCardWith({{"net.mmb1_address", kOwnIp}, {"net.mmb2_address", kOwnIp}});
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_EQ(servers_.sockAddrNum, 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoServer));
}

TEST_F(FtpServersTest, MainBoard1AddressThatDoesNotConvert) {
  LineCardWith({{"net.mmb1_address", "mmb-one"}});
  EXPECT_EQ(Choose(), 0u);
  ExpectServers({kMmb2Ip + ":2121"});
  EXPECT_THAT(MainLog(), ElementsAre(ParseFailed("mmb-one"), kMmb2Ok));
}

TEST_F(FtpServersTest, MainBoard2AddressThatDoesNotConvert) {
  LineCardWith({{"net.mmb2_address", "127.0.0.300"}});
  EXPECT_EQ(Choose(), 0u);
  ExpectServers({kMmb1Ip + ":2121"});
  EXPECT_THAT(MainLog(), ElementsAre(kMmb1Ok, ParseFailed("127.0.0.300")));
}

TEST_F(FtpServersTest, NoAddressConverts) {
  LineCardWith({{"net.mmb1_address", "x"}, {"net.mmb2_address", "y"}});
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_EQ(servers_.sockAddrNum, 0u);
  EXPECT_THAT(MainLog(), ElementsAre(ParseFailed("x"), ParseFailed("y"), kNoServer));
}

TEST_F(FtpServersTest, OwnAddressThatDoesNotConvert) {
  LineCardWith({{"net.address", "own"}});
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre(kMmb1Ok, kMmb2Ok, ParseFailed("own"), kNoClient));
}

TEST_F(FtpServersTest, AddressQueriesThatFailSayNothing) {
  ForceFailure("SWM_GetServerIpByBoardRole", "4");
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  ForceFailure("SWM_GetBoardLocalIp", "4");
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpServersTest, PortComesFromTheServerConfiguration) {
  uint16_t port = 0;
  testsupport::WriteFile(kFtpServerConf, "port=10021\n");
  BOOT_INIT_GetFtpServerPort(&port);
  EXPECT_EQ(port, 10021);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpServersTest, MissingServerConfigurationGivesPort21) {
  testsupport::RemovePath(kFtpServerConf);
  uint16_t port = 0;
  BOOT_INIT_GetFtpServerPort(&port);
  EXPECT_EQ(port, 21);
  // The platform's code for a file that cannot be opened is SWM_ERR_IO.
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][WARNING]:Get portinfo reliable failed from "
                                     "file /etc/conf/ftpserver.conf, uiRet:2."));
  testsupport::ClearMainLog();
  EXPECT_EQ(Choose(), 0u);
  ExpectServers({kMmb1Ip + ":21", kMmb2Ip + ":21"});
}

TEST_F(FtpServersTest, PortThatIsNoNumberGivesPort0) {
  testsupport::WriteFile(kFtpServerConf, "port=ftp\n");
  uint16_t port = 7;
  BOOT_INIT_GetFtpServerPort(&port);
  EXPECT_EQ(port, 0);
  testsupport::WriteFile(kFtpServerConf, "port=21abc\n");
  BOOT_INIT_GetFtpServerPort(&port);
  EXPECT_EQ(port, 21);
  BOOT_INIT_GetFtpServerPort(nullptr);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpServersTest, StackMasterIsTheOnlyServer) {
  LineCardWith({{"net.stack", "1"}, {"net.stack_master", "127.0.0.31"}});
  EXPECT_EQ(Choose(), 0u);
  ExpectServers({"127.0.0.31:2121"});
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][INFO]:Stack master Ip:127.0.0.31.",
                          "[BOOT_INIT][INFO]:Get Stack master ftp server sock addr success, "
                          "masterIp:127.0.0.31."));
}

TEST_F(FtpServersTest, StackMasterUnknown) {
  LineCardWith({{"net.stack", "1"}});
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_EQ(servers_.sockAddrNum, 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoServer));
}

TEST_F(FtpServersTest, StackMasterAddressThatDoesNotConvert) {
  LineCardWith({{"net.stack", "1"}, {"net.stack_master", "master"}});
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Stack master Ip:master.",
                                     ParseFailed("master"), kNoServer));
}

TEST_F(FtpServersTest, StackWithoutOwnAddress) {
  ForceFailure("SWM_GetBoardLocalIp", "4",
               {{"net.stack", "1"}, {"net.stack_master", "127.0.0.31"}});
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_EQ(MainLog().size(), 2u);  // only the two stack master lines
  testsupport::ClearMainLog();
  LineCardWith({{"net.stack", "1"}, {"net.stack_master", "127.0.0.31"}, {"net.address", "me"}});
  EXPECT_EQ(Choose(), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][INFO]:Stack master Ip:127.0.0.31.",
                                     "[BOOT_INIT][INFO]:Get Stack master ftp server sock addr "
                                     "success, masterIp:127.0.0.31.",
                                     ParseFailed("me"), kNoClient));
}

TEST_F(FtpServersTest, StackAndNonStackWaysCanBeCalledDirectly) {
  BOOT_INIT_FTP_SERVER_ADDR_S servers{};
  EXPECT_EQ(BOOT_INIT_GetFtpSockNotStack(&servers), 0u);
  EXPECT_EQ(servers.sockAddrNum, 2u);
  servers = {};
  EXPECT_EQ(BOOT_INIT_GetFtpSockStack(&servers), 0xFFFFFFFFu);  // no stack master described
  EXPECT_EQ(BOOT_INIT_GetFtpSockConnAddr(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetFtpSockStack(nullptr), 0xFFFFFFFFu);
  EXPECT_EQ(BOOT_INIT_GetFtpSockNotStack(nullptr), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre(kMmb1Ok, kMmb2Ok, kNoServer,
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

}  // namespace
