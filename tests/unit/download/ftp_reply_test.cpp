// Reply lines, reply codes and passive-mode replies, without any connection.
#include "download/ftp_reply.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "download_fixture.hpp"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

using bootinit::ftp::ParsePasv;
using bootinit::ftp::PasvStatus;
using bootinit::ftp::ReplyCodeOf;
using bootinit::ftp::ReplyLine;

class FtpReplyTest : public downloadtest::DownloadTest {};

// Feeds bytes until the line is complete; returns how many were taken.
std::size_t Feed(ReplyLine &line, const std::string &bytes) {
  std::size_t taken = 0;
  for (const char byte : bytes) {
    ++taken;
    if (line.Add(byte)) {
      break;
    }
  }
  return taken;
}

TEST_F(FtpReplyTest, LineEndsWithItsLineFeed) {
  ReplyLine line;
  EXPECT_EQ(Feed(line, "220 ready\r\n331 next\r\n"), 11u);
  EXPECT_TRUE(line.complete());
  EXPECT_STREQ(line.text(), "220 ready\r\n");
}

TEST_F(FtpReplyTest, LineHoldsAtMost511Characters) {
  ReplyLine line;
  const std::string longLine = "200 " + std::string(600, 'a') + "\r\n";
  EXPECT_EQ(Feed(line, longLine), 511u);
  EXPECT_EQ(std::string(line.text()), longLine.substr(0, 511));
  // Further bytes are not taken once the line is complete.
  EXPECT_TRUE(line.Add('x'));
  EXPECT_EQ(std::string(line.text()).size(), 511u);
}

TEST_F(FtpReplyTest, LineOf510CharactersAndItsLineFeedFits) {
  ReplyLine line;
  const std::string exact = std::string(509, '2') + "\r\n";
  EXPECT_EQ(Feed(line, exact + "x"), 511u);
  EXPECT_EQ(std::string(line.text()), exact);
}

TEST_F(FtpReplyTest, UnfinishedLineIsNotComplete) {
  ReplyLine line;
  EXPECT_EQ(Feed(line, "220 rea"), 7u);
  EXPECT_FALSE(line.complete());
  EXPECT_STREQ(line.text(), "220 rea");
}

TEST_F(FtpReplyTest, CodeIsTheFirstThreeDigits) {
  EXPECT_EQ(ReplyCodeOf("220 ready"), 220u);
  EXPECT_EQ(ReplyCodeOf("220-first line"), 220u);
  EXPECT_EQ(ReplyCodeOf("2201 odd"), 220u);
  EXPECT_EQ(ReplyCodeOf("000"), 0u);
  EXPECT_EQ(ReplyCodeOf("999"), 999u);
}

TEST_F(FtpReplyTest, NoCodeInShortBlankOrNonDigitLines) {
  for (const char *line : {"", "  ", "   ", "22", "2x0 ok", "x220", " 220", "22 0", "-220"}) {
    EXPECT_EQ(ReplyCodeOf(line), std::nullopt) << line;
  }
}

TEST_F(FtpReplyTest, ExportedReplyCode) {
  uint32_t code = 7;
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetReplyCode("226 done", &code), 0u);
  EXPECT_EQ(code, 226u);
  code = 7;
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetReplyCode("  ", &code), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetReplyCode("ab", &code), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetReplyCode(nullptr, &code), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetReplyCode("226", nullptr), 1u);
  EXPECT_EQ(code, 7u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FtpReplyTest, PasvPortIsFifthTimes256PlusSixth) {
  const auto reply = ParsePasv("227 Entering Passive Mode (10,0,0,9,19,137).");
  EXPECT_EQ(reply.status, PasvStatus::kOk);
  EXPECT_EQ(reply.port, 5001);
  EXPECT_EQ(ParsePasv("227 (127,0,0,11,0,21)").port, 21);
  EXPECT_EQ(ParsePasv("227 (127,0,0,11,255,255)").port, 65535);
}

TEST_F(FtpReplyTest, PasvPortKeepsSixteenBits) {
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,256,1)").port, 1);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,0,65537)").port, 1);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,-1,0)").port, 0xFF00);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,0,-1)").port, 0xFFFF);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,1,99999999999999999999999)").status, PasvStatus::kOk);
}

TEST_F(FtpReplyTest, PasvNumbersAreReadLikeDecimalScanning) {
  // Blanks and a sign before a number are accepted; the comma must follow a number at once.
  EXPECT_EQ(ParsePasv("227 ( 1, 2, 3, 4, +19, 137)").port, 5001);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4 ,19,137)").status, PasvStatus::kBadNumbers);
  // Anything after the sixth number is not looked at.
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,19,137").port, 5001);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,19,137junk").port, 5001);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,19,0x89)").port, 19 * 256);
}

TEST_F(FtpReplyTest, PasvAddressNumbersAreNotChecked) {
  EXPECT_EQ(ParsePasv("227 (999,-5,0,1234567,19,137)").port, 5001);
}

TEST_F(FtpReplyTest, PasvFailures) {
  EXPECT_EQ(ParsePasv("").status, PasvStatus::kNo227);
  EXPECT_EQ(ParsePasv("226 (1,2,3,4,5,6)").status, PasvStatus::kNo227);
  EXPECT_EQ(ParsePasv("227 Entering Passive Mode 1,2,3,4,5,6").status, PasvStatus::kNoParen);
  // The parenthesis must follow the "227".
  EXPECT_EQ(ParsePasv("(1,2,3,4,5,6) 227").status, PasvStatus::kNoParen);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,5)").status, PasvStatus::kBadNumbers);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,5,)").status, PasvStatus::kBadNumbers);
  EXPECT_EQ(ParsePasv("227 (a,2,3,4,5,6)").status, PasvStatus::kBadNumbers);
  EXPECT_EQ(ParsePasv("227 (1;2;3;4;5;6)").status, PasvStatus::kBadNumbers);
  EXPECT_EQ(ParsePasv("227 (").status, PasvStatus::kBadNumbers);
  EXPECT_EQ(ParsePasv("227 (1,2,3,4,5,-)").status, PasvStatus::kBadNumbers);
}

TEST_F(FtpReplyTest, PasvCodeMaySitAnywhereBeforeTheParenthesis) {
  EXPECT_EQ(ParsePasv("OK 227 (1,2,3,4,0,80)").port, 80);
}

TEST_F(FtpReplyTest, ExportedPasvParseLogsEachFailure) {
  uint16_t port = 7;
  EXPECT_EQ(
      BOOT_INIT_FTPCLIENT_ParsePasvCmdReply("227 Entering Passive Mode (10,0,0,9,19,137).", &port),
      0u);
  EXPECT_EQ(port, 5001);
  EXPECT_THAT(MainLog(), ElementsAre());
  port = 7;
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_ParsePasvCmdReply("200 (1,2,3,4,5,6)", &port), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_ParsePasvCmdReply("227 no numbers", &port), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_ParsePasvCmdReply("227 (1,2,3)", &port), 1u);
  EXPECT_EQ(port, 7);
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:PASV response without '227', reply msg = 200 (1,2,3,4,5,6)",
                  "[BOOT_INIT][ERROR]:PASV response without '(', reply msg = 227 no numbers",
                  "[BOOT_INIT][ERROR]:PASV response with invalid address or port, reply msg = 227 "
                  "(1,2,3)"));
}

TEST_F(FtpReplyTest, ExportedPasvParseRefusesEmptyArguments) {
  uint16_t port = 7;
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_ParsePasvCmdReply(nullptr, &port), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_ParsePasvCmdReply("227 (1,2,3,4,5,6)", nullptr), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

TEST_F(FtpReplyTest, TransientFatalReplies) {
  for (uint32_t code = 0; code < 1000; ++code) {
    const bool fatal = code == 421 || code == 450 || code == 451 || code == 452;
    EXPECT_EQ(BOOT_INIT_FTPCLIENT_IsTransientFatal(code), fatal ? 1u : 0u) << code;
  }
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_IsTransientFatal(0xFFFFFFFFu), 0u);
}

}  // namespace
