// This board's address and the main boards' addresses from the developer file /opt/boot_ip.ini.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "board_fixture.hpp"
#include "bootinit/board.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

const std::string kNoFile = "[BOOT_INIT][ERROR]:File /opt/boot_ip.ini is not exist.";
const std::string kNotTwo =
    "[BOOT_INIT][WARNING]:Get MMB IP count unsuccessfully, num of mmb ip is not 2.";

class BoardNetworkTest : public boardtest::BoardTest {
 protected:
  char ip1_[64] = "ip1 as set";
  char ip2_[64] = "ip2 as set";
  uint32_t MmbIp() { return BOOT_INIT_GetMMBIp(ip1_, sizeof(ip1_), ip2_, sizeof(ip2_)); }
};

TEST_F(BoardNetworkTest, LocalIp) {
  testsupport::WriteBootIpIni("[network]\nlocal_ip=127.0.0.21\nmmb_ip=127.0.0.11;127.0.0.12\n");
  char ip[64] = {};
  EXPECT_EQ(BOOT_INIT_GetLocalIp(ip, sizeof(ip)), 0u);
  EXPECT_STREQ(ip, "127.0.0.21");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardNetworkTest, LocalIpWithoutFile) {
  char ip[64] = {};
  EXPECT_EQ(BOOT_INIT_GetLocalIp(ip, sizeof(ip)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre(kNoFile));
}

TEST_F(BoardNetworkTest, LocalIpEmptyMissingOrTooLong) {
  char ip[64] = {};
  testsupport::WriteBootIpIni("[network]\nlocal_ip=\n");
  EXPECT_EQ(BOOT_INIT_GetLocalIp(ip, sizeof(ip)), 0xFFFFFFFFu);
  testsupport::WriteBootIpIni("[network]\nmmb_ip=127.0.0.11\n");
  EXPECT_EQ(BOOT_INIT_GetLocalIp(ip, sizeof(ip)), 0xFFFFFFFFu);
  testsupport::WriteBootIpIni("[network]\nlocal_ip=127.0.0.21\n");
  char small[10] = {};
  EXPECT_EQ(BOOT_INIT_GetLocalIp(small, sizeof(small)), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardNetworkTest, TwoMainBoardAddresses) {
  testsupport::WriteBootIpIni("[network]\nmmb_ip=127.0.0.11;127.0.0.12\n");
  EXPECT_EQ(MmbIp(), 0u);
  EXPECT_STREQ(ip1_, "127.0.0.11");
  EXPECT_STREQ(ip2_, "127.0.0.12");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardNetworkTest, OneMainBoardAddressIsAcceptable) {
  testsupport::WriteBootIpIni("[network]\nmmb_ip=127.0.0.11\n");
  EXPECT_EQ(MmbIp(), 0u);
  EXPECT_STREQ(ip1_, "127.0.0.11");
  EXPECT_STREQ(ip2_, "ip2 as set");
  EXPECT_THAT(MainLog(), ElementsAre(kNotTwo));
}

TEST_F(BoardNetworkTest, SecondAddressEndsAtWhiteSpace) {
  testsupport::WriteBootIpIni("[network]\nmmb_ip=127.0.0.11;127.0.0.12 127.0.0.13\n");
  EXPECT_EQ(MmbIp(), 0u);
  EXPECT_STREQ(ip1_, "127.0.0.11");
  EXPECT_STREQ(ip2_, "127.0.0.12");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardNetworkTest, EverythingAfterTheFirstSemicolonIsTheSecond) {
  testsupport::WriteBootIpIni("[network]\nmmb_ip=a;b;c\n");
  EXPECT_EQ(MmbIp(), 0u);
  EXPECT_STREQ(ip1_, "a");
  EXPECT_STREQ(ip2_, "b;c");
}

TEST_F(BoardNetworkTest, NothingBeforeTheSemicolon) {
  testsupport::WriteBootIpIni("[network]\nmmb_ip=;127.0.0.12\n");
  EXPECT_EQ(MmbIp(), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kNotTwo));
}

TEST_F(BoardNetworkTest, AddressLongerThanItsBuffer) {
  testsupport::WriteBootIpIni("[network]\nmmb_ip=127.0.0.11;127.0.0.12\n");
  char ip1[8] = {};
  EXPECT_EQ(BOOT_INIT_GetMMBIp(ip1, sizeof(ip1), ip2_, sizeof(ip2_)), 0u);
  EXPECT_THAT(MainLog(), ElementsAre(kNotTwo));
}

TEST_F(BoardNetworkTest, MainBoardAddressesReadIntoOneHundredTwentyEightBytes) {
  const std::string first(63, 'a');
  const std::string second(63, 'b');
  testsupport::WriteBootIpIni("[network]\nmmb_ip=" + first + ";" + second + "\n");  // 127
  char ip1[128] = {};
  char ip2[128] = {};
  EXPECT_EQ(BOOT_INIT_GetMMBIp(ip1, sizeof(ip1), ip2, sizeof(ip2)), 0u);
  EXPECT_EQ(std::string(ip1), first);
  EXPECT_EQ(std::string(ip2), second);
  testsupport::WriteBootIpIni("[network]\nmmb_ip=" + first + ";" + second + "b\n");  // 128
  std::strcpy(ip1, "ip1 as set");
  EXPECT_EQ(BOOT_INIT_GetMMBIp(ip1, sizeof(ip1), ip2, sizeof(ip2)), 0xFFFFFFFFu);
  EXPECT_STREQ(ip1, "ip1 as set");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(BoardNetworkTest, MainBoardAddressesFailures) {
  EXPECT_EQ(MmbIp(), 0xFFFFFFFFu);
  EXPECT_THAT(MainLog(), ElementsAre(kNoFile));
  testsupport::ClearMainLog();
  testsupport::WriteBootIpIni("[network]\nmmb_ip=\n");
  EXPECT_EQ(MmbIp(), 0xFFFFFFFFu);
  testsupport::WriteBootIpIni("[network]\nlocal_ip=127.0.0.21\n");
  EXPECT_EQ(MmbIp(), 0xFFFFFFFFu);
  EXPECT_STREQ(ip1_, "ip1 as set");
  EXPECT_STREQ(ip2_, "ip2 as set");
  EXPECT_THAT(MainLog(), ElementsAre());
}

}  // namespace
