// The CRL refresh of a line card (BOOT_INIT_CrlSync, BOOT_INIT_OperCrlSync): the main board's
// CRL comes over real FTP from a scripted server on the main board's address in the board's own
// network; it replaces the flash CRL and the kernel's when it is newer. Flash failures are
// forced through the board description; the kernel's file is taken away for real.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bootinit/verify.h"
#include "cms_fixture.hpp"
#include "ftp_peer.hpp"

using crltest::Area;
using crltest::AreaContent;
using crltest::kKernelCrl;
using crltest::PkiBytes;
using crltest::StoreInArea;
using ftppeer::FtpPeer;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::MainLog;

namespace {

const std::string kOwnIp = "127.0.0.21";
const std::string kMmb1Ip = "127.0.0.11";
const std::string kMmb2Ip = "127.0.0.12";
constexpr uint16_t kPort = 2121;
const std::string kUser = "bootfile";
const std::string kRemote = "/opt/velmor/bootfile/crl_upgrade";
const std::string kLocal = "/var/lib/crl_upgrade";

const std::string kStart = "[BOOT_INIT][INFO]:crl sync start";
const std::string kEnd = "[BOOT_INIT][INFO]:crl sync end";
const std::string kNoNeed = "[BOOT_INIT][INFO]:local crl no need refresh";
const std::vector<std::string> kServers = {
    "[BOOT_INIT][INFO]:Init Mmb1 ftp server sock addr success, mmbIp1:127.0.0.11.",
    "[BOOT_INIT][INFO]:Init Mmb2 ftp server sock addr success, mmbIp2:127.0.0.12."};
const std::string kDownloaded =
    "[BOOT_INIT][INFO]:Succeed to download file[/opt/velmor/bootfile/crl_upgrade] to "
    "local[/var/lib/crl_upgrade] from MMB, uiSockAddrIndex:0.";

// Login as the board's FTP user and binary type.
ftppeer::FtpSession &LoggedIn(ftppeer::FtpSession &session) {
  return session.Send("220 main board ready\r\n")
      .Expect("USER " + kUser, "331 Password required\r\n")
      .Expect("PASS " + kUser, "230 Logged in\r\n")
      .Expect("TYPE I", "200 Type set to I\r\n");
}

// A main board that has the CRL file with this content.
void Delivers(FtpPeer &peer, const std::string &content) {
  LoggedIn(peer.Session())
      .Pasv()
      .Expect("RETR " + kRemote, "150 Opening BINARY mode data connection\r\n")
      .Data(content)
      .Send("226 Transfer complete\r\n")
      .Expect("QUIT", "221 Goodbye\r\n")
      .ExpectClose();
  peer.Start();
}

// A main board that refuses every retrieval attempt with reply.
void Refuses(FtpPeer &peer, const std::string &reply, int attempts) {
  ftppeer::FtpSession &session = LoggedIn(peer.Session());
  for (int i = 0; i < attempts; ++i) {
    session.Pasv().Expect("RETR " + kRemote, reply + "\r\n");
  }
  session.ExpectClose();
  peer.Start();
}

// A line card whose main boards are 127.0.0.11 and 127.0.0.12, with one FTP user for /opt.
std::map<std::string, std::string> LineCardFacts() {
  std::map<std::string, std::string> facts = testsupport::LineCard();
  facts["net.address"] = kOwnIp;
  facts["net.mmb1_address"] = kMmb1Ip;
  facts["net.mmb2_address"] = kMmb2Ip;
  facts["ftp.users"] = kUser + ":/opt";
  return facts;
}

class CrlSyncTest : public cmstest::CmsTest {
 protected:
  void SetUp() override {
    CmsTest::SetUp();
    testsupport::DescribeBoard(LineCardFacts());
    testsupport::WriteFile("/etc/conf/ftpserver.conf", "port=" + std::to_string(kPort) + "\n");
    testsupport::RemovePath(kLocal);
  }
  static uint32_t Sync() {
    return Released([] { return BOOT_INIT_CrlSync(); });
  }
  static void ForceFailure(const std::string &function, const std::string &code) {
    testsupport::DescribeBoard(LineCardFacts(), {{"fail." + function, code}});
  }
};

TEST_F(CrlSyncTest, NewerCrlReplacesFlashAndKernelCrl) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(mmb1, PkiBytes("crl_newer.der"));
  EXPECT_EQ(Sync(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_newer.der"));
  EXPECT_EQ(testsupport::ReadFile(kKernelCrl), PkiBytes("crl_newer.der"));
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(), ElementsAre(kStart, kServers[0], kServers[1], kDownloaded, kEnd));
}

TEST_F(CrlSyncTest, NewerPssCrlGoesToThePssArea) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(mmb1, PkiBytes("crl_pss_revoking.der"));
  EXPECT_EQ(Sync(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kPss), PkiBytes("crl_pss_revoking.der"));
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_older.der"));
  EXPECT_EQ(testsupport::ReadFile(kKernelCrl), PkiBytes("crl_pss_revoking.der"));
  EXPECT_FALSE(std::filesystem::exists(kLocal));
}

TEST_F(CrlSyncTest, OlderCrlLeavesFlashAlone) {
  StoreInArea(Area::kClassic, PkiBytes("crl_newer.der"));
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(mmb1, PkiBytes("crl_older.der"));
  EXPECT_EQ(Sync(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_newer.der"));
  EXPECT_EQ(AreaContent(Area::kPss), std::nullopt);
  EXPECT_EQ(testsupport::ReadFile(kKernelCrl), "");
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(), ElementsAre(kStart, kServers[0], kServers[1], kDownloaded, kNoNeed, kEnd));
}

TEST_F(CrlSyncTest, SameCrlLeavesFlashAlone) {
  StoreInArea(Area::kClassic, PkiBytes("crl_newer.der"));
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(mmb1, PkiBytes("crl_newer.der"));
  EXPECT_EQ(Sync(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_newer.der"));
  EXPECT_EQ(testsupport::ReadFile(kKernelCrl), "");
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(), ElementsAre(kStart, kServers[0], kServers[1], kDownloaded, kNoNeed, kEnd));
}

TEST_F(CrlSyncTest, FlashWithoutCrlTakesTheFetchedOne) {
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(mmb1, PkiBytes("crl_empty.der"));
  EXPECT_EQ(Sync(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_empty.der"));
  EXPECT_EQ(cmsfaults::Get().contextsMade, 0);
  EXPECT_THAT(MainLog(), ElementsAre(kStart, kServers[0], kServers[1], kDownloaded,
                                     "[BOOT_INIT][WARNING]:crl flash read failed, ret 2",
                                     "[BOOT_INIT][ERROR]:read crl from flash failed", kEnd));
}

// An empty flash CRL is replaced by whatever comes, without a comparison.
TEST_F(CrlSyncTest, EmptyFlashCrlIsReplaced) {
  crltest::EraseArea(Area::kClassic);
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(mmb1, PkiBytes("crl_older.der"));
  EXPECT_EQ(Sync(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_older.der"));
  EXPECT_EQ(testsupport::ReadFile(kKernelCrl), PkiBytes("crl_older.der"));
  EXPECT_EQ(cmsfaults::Get().contextsMade, 0);
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(), ElementsAre(kStart, kServers[0], kServers[1], kDownloaded,
                                     "[BOOT_INIT][INFO]:upgrade crl is empty.", kEnd));
}

TEST_F(CrlSyncTest, NoCrlOnTheMainBoard) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  FtpPeer mmb1(kMmb1Ip, kPort);
  FtpPeer mmb2(kMmb2Ip, kPort);  // must not be asked
  Refuses(mmb1, "550 No such file or directory", 3);
  EXPECT_EQ(Sync(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_THAT(mmb2.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_older.der"));
  EXPECT_EQ(testsupport::ReadFile(kKernelCrl), "");
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  const std::string refused = "[BOOT_INIT][INFO]:Reply was 550 - RPM_FTP_PRELIM - #";
  EXPECT_THAT(MainLog(),
              ElementsAre(kStart, kServers[0], kServers[1], refused + "0 attempt in 3 ticks.",
                          refused + "1 attempt in 3 ticks.", refused + "2 attempt in 3 ticks.",
                          "[BOOT_INIT][WARNING]:Request server prepare to trans remote "
                          "file[/opt/velmor/bootfile/crl_upgrade] unsuccessful",
                          "[BOOT_INIT][INFO]:[/opt/velmor/bootfile/crl_upgrade] not exit in MMB",
                          "[BOOT_INIT][WARNING]:no crl in mpu, ignore it"));
}

TEST_F(CrlSyncTest, MainBoardsFailTheDownload) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  FtpPeer mmb1(kMmb1Ip, kPort);
  FtpPeer mmb2(kMmb2Ip, kPort);
  Refuses(mmb1, "421 Service not available", 1);
  Refuses(mmb2, "452 Insufficient storage", 1);
  EXPECT_EQ(Sync(), 0xFFFFFFFFu);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_THAT(mmb2.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_older.der"));
  const std::vector<std::string> log = MainLog();
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(log.front(), kStart);
  EXPECT_EQ(log.back(), "[BOOT_INIT][ERROR]:get crl from mpu unsuccessfully");
}

TEST_F(CrlSyncTest, FlashWriteFailureDeletesTheFetchedCrl) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  ForceFailure("drv_crl_write", "5");
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(mmb1, PkiBytes("crl_newer.der"));
  EXPECT_EQ(Sync(), 0xFFFFFFFFu);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_older.der"));
  EXPECT_EQ(testsupport::ReadFile(kKernelCrl), "");
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(), ElementsAre(kStart, kServers[0], kServers[1], kDownloaded,
                                     "[BOOT_INIT][ERROR]:crl flash write failed, ret=5",
                                     "[BOOT_INIT][ERROR]:write crl to flash failed",
                                     "[BOOT_INIT][ERROR]:write crl to flash failed"));
}

TEST_F(CrlSyncTest, KernelWriteFailureIsOnlyAWarning) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  testsupport::RemovePath(kKernelCrl);
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(mmb1, PkiBytes("crl_newer.der"));
  EXPECT_EQ(Sync(), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_newer.der"));
  EXPECT_FALSE(std::filesystem::exists(kKernelCrl));
  EXPECT_FALSE(std::filesystem::exists(kLocal));
  EXPECT_THAT(MainLog(),
              ElementsAre(kStart, kServers[0], kServers[1], kDownloaded,
                          "[BOOT_INIT][ERROR]:open crl dst file failed, file /dev/module_crl, "
                          "errno:2",
                          "[BOOT_INIT][ERROR]:Write crl to kernel file /var/lib/crl_upgrade, "
                          "errno:2",
                          "[BOOT_INIT][WARNING]:write crl to kernel failed", kEnd));
}

// The operation entry point ignores its arguments.
TEST_F(CrlSyncTest, OperationEntryPoint) {
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  FtpPeer mmb1(kMmb1Ip, kPort);
  Delivers(mmb1, PkiBytes("crl_newer.der"));
  std::string ignored = "ignored";
  char *argv[] = {ignored.data(), nullptr};
  EXPECT_EQ(Released([&] { return BOOT_INIT_OperCrlSync(1, argv); }), 0u);
  EXPECT_THAT(mmb1.Finish(), IsEmpty());
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_newer.der"));
  EXPECT_THAT(MainLog(), ElementsAre(kStart, kServers[0], kServers[1], kDownloaded, kEnd));
}

// A master main board asks nobody: nothing is fetched, nothing changes.
TEST_F(CrlSyncTest, MasterMainBoardFetchesNothing) {
  testsupport::DescribeBoard(cmstest::MainBoardFacts());
  StoreInArea(Area::kClassic, PkiBytes("crl_older.der"));
  EXPECT_EQ(Sync(), 0xFFFFFFFFu);
  EXPECT_EQ(AreaContent(Area::kClassic), PkiBytes("crl_older.der"));
  const std::vector<std::string> log = MainLog();
  ASSERT_FALSE(log.empty());
  EXPECT_EQ(log.back(), "[BOOT_INIT][ERROR]:get crl from mpu unsuccessfully");
}

TEST_F(CrlSyncTest, HelpersOfTheVerifyTable) {
  BOOT_INIT_ReleaseNode(nullptr);
  BOOT_INIT_ReleaseNode(std::malloc(16));
  EXPECT_EQ(BOOT_INIT_IsFastFlash(), 0u);
  EXPECT_THAT(MainLog(), IsEmpty());
}

}  // namespace
