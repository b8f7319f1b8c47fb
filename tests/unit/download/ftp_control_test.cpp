// The control connection: reading one reply line, sending commands, login commands and their
// wiping. The server side is a socket of the test.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <string>

#include "download_fixture.hpp"
#include "wire.hpp"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

const std::string kNoCode = "[BOOT_INIT][ERROR]:Failed to get status code from response msg";
const std::string kEof = "[BOOT_INIT][ERROR]:Ctrl conn unexpected eof.";

class FtpControlTest : public downloadtest::DownloadTest {
 protected:
  downloadtest::Wire wire_;
  char reply_[512] = {};

  uint32_t Reply(uint32_t isQuit = 0, char *buffer = nullptr, uint32_t length = 0) {
    return BOOT_INIT_FTPCLIENT_GetReplyEnhanced(wire_.client(), isQuit, buffer, length);
  }
};

TEST_F(FtpControlTest, ReadsOneLineAndItsCode) {
  wire_.Say("220 main board ready\r\n");
  EXPECT_EQ(Reply(0, reply_, sizeof(reply_)), 220u);
  EXPECT_STREQ(reply_, "220 main board ready");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FtpControlTest, WithoutBufferOnlyTheCodeComesBack) {
  wire_.Say("331 Password required\r\n");
  EXPECT_EQ(Reply(), 331u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FtpControlTest, ContinuationLinesAreSeparateReplies) {
  wire_.Say("220-Welcome\r\n220-to the main board\r\n220 ready\r\n");
  EXPECT_EQ(Reply(0, reply_, sizeof(reply_)), 220u);
  EXPECT_STREQ(reply_, "220-Welcome");
  EXPECT_EQ(wire_.Unread(), "220-to the main board\r\n220 ready\r\n");
}

TEST_F(FtpControlTest, NothingAfterTheLineFeedIsRead) {
  wire_.Say("200 ok\r\n150 next");
  EXPECT_EQ(Reply(), 200u);
  EXPECT_EQ(wire_.Unread(), "150 next");
}

TEST_F(FtpControlTest, OverlongLineIsCutAt511AndTheRestIsTheNextReply) {
  const std::string rest = std::string(89, 'b') + "\r\n";
  wire_.Say("200 " + std::string(507, 'a') + rest);
  EXPECT_EQ(Reply(0, reply_, sizeof(reply_)), 200u);
  EXPECT_EQ(std::string(reply_), "200 " + std::string(507, 'a'));
  EXPECT_EQ(Reply(0, reply_, sizeof(reply_)), 1u);
  EXPECT_EQ(std::string(reply_), std::string(89, 'b'));
  EXPECT_THAT(MainLog(), ElementsAre(kNoCode));
}

TEST_F(FtpControlTest, LineOf511CharactersLeavesItsLineEndAsAnEmptyReply) {
  wire_.Say("226 " + std::string(507, 'x') + "\r\n");
  EXPECT_EQ(Reply(), 226u);
  EXPECT_EQ(Reply(), 1u);
  EXPECT_EQ(wire_.Unread(), "");
  EXPECT_THAT(MainLog(), ElementsAre(kNoCode));
}

TEST_F(FtpControlTest, LineIsTrimmedBeforeItsCodeIsRead) {
  wire_.Say("  230 Logged in \t\r\n");
  EXPECT_EQ(Reply(0, reply_, sizeof(reply_)), 230u);
  EXPECT_STREQ(reply_, "230 Logged in");
}

TEST_F(FtpControlTest, BufferMustBeLongerThanTheLine) {
  wire_.Say("220 ready\r\n220 ready\r\n220 ready\r\n");
  char buffer[16] = "untouched";
  // Exactly the line's length: no room for the terminator.
  EXPECT_EQ(Reply(0, buffer, 9), 1u);
  EXPECT_STREQ(buffer, "untouched");
  // The buffer length is printed first, the line length second.
  EXPECT_EQ(Reply(0, buffer, 4), 1u);
  EXPECT_EQ(Reply(0, buffer, 10), 220u);
  EXPECT_STREQ(buffer, "220 ready");
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Msg buff is not enough, replymsg len = 9, bufflen = 9",
                  "[BOOT_INIT][ERROR]:Msg buff is not enough, replymsg len = 4, bufflen = 9"));
}

TEST_F(FtpControlTest, BufferIsCheckedBeforeTheCode) {
  wire_.Say("no code here\r\n");
  EXPECT_EQ(Reply(0, reply_, 5), 1u);
  EXPECT_THAT(
      MainLog(),
      ElementsAre("[BOOT_INIT][ERROR]:Msg buff is not enough, replymsg len = 5, bufflen = 12"));
}

TEST_F(FtpControlTest, LinesWithoutCode) {
  wire_.Say("22\r\n2x0 odd\r\n\r\n");
  EXPECT_EQ(Reply(), 1u);
  EXPECT_EQ(Reply(), 1u);
  EXPECT_EQ(Reply(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoCode, kNoCode, kNoCode));
}

TEST_F(FtpControlTest, NulByteEndsTheLineText) {
  wire_.Say(std::string("221\0junk\r\n150 next\r\n", 20));
  EXPECT_EQ(Reply(0, reply_, sizeof(reply_)), 221u);
  EXPECT_STREQ(reply_, "221");
  EXPECT_EQ(wire_.Unread(), "150 next\r\n");
}

TEST_F(FtpControlTest, EndOfStreamBeforeAnyByte) {
  wire_.Hangup();
  EXPECT_EQ(Reply(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kEof));
}

TEST_F(FtpControlTest, EndOfStreamInTheMiddleOfTheLine) {
  wire_.Say("226 Transfer comp");
  wire_.Hangup();
  EXPECT_EQ(Reply(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kEof));
}

TEST_F(FtpControlTest, AfterQuitEndOfStreamEndsTheLine) {
  wire_.Say("221 Goodbye");
  wire_.Hangup();
  EXPECT_EQ(Reply(1, reply_, sizeof(reply_)), 221u);
  EXPECT_STREQ(reply_, "221 Goodbye");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FtpControlTest, AfterQuitAnImmediateEndOfStreamHasNoCode) {
  wire_.Hangup();
  EXPECT_EQ(Reply(1), 1u);
  EXPECT_THAT(MainLog(), ElementsAre(kNoCode));
}

TEST_F(FtpControlTest, ReadErrors) {
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GetReplyEnhanced(-1, 0, nullptr, 0), 1u);
  // A server that says nothing within the receive time-out.
  const timeval timeout = {0, 100000};
  ASSERT_EQ(setsockopt(wire_.client(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout)), 0);
  EXPECT_EQ(Reply(), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Read failed, errno 9.",
                                     "[BOOT_INIT][ERROR]:Read failed, errno 11."));
}

TEST_F(FtpControlTest, SendAndReadCheckTheirArguments) {
  char byte = 0;
  errno = 0;
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Read(-1, &byte, 1), 0xFFFFFFFFu);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Read(wire_.client(), nullptr, 1), 0xFFFFFFFFu);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmd(-1, "NOOP\r\n", 6), 0xFFFFFFFFu);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmd(wire_.client(), nullptr, 6), 0xFFFFFFFFu);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(wire_.Heard(), "");
}

TEST_F(FtpControlTest, SendAndReadMoveBytes) {
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmd(wire_.client(), "NOOP\r\n", 6), 6u);
  EXPECT_EQ(wire_.Heard(), "NOOP\r\n");
  wire_.Say("abc");
  char buffer[8] = {};
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Read(wire_.client(), buffer, 3), 3u);
  EXPECT_STREQ(buffer, "abc");
  wire_.Hangup();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_Read(wire_.client(), buffer, 3), 0u);
}

TEST_F(FtpControlTest, CommandWithAndWithoutArgument) {
  wire_.Say("200 ok\r\n150 opening\r\n");
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(wire_.client(), "NOOP", nullptr, nullptr, 0),
            200u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(wire_.client(), "RETR", "/opt/a b", reply_,
                                                   sizeof(reply_)),
            150u);
  EXPECT_STREQ(reply_, "150 opening");
  EXPECT_EQ(wire_.Heard(), "NOOP\r\nRETR /opt/a b\r\n");
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FtpControlTest, CommandOf258CharactersIsTheLongest) {
  wire_.Say("550 no\r\n");
  // "RETR " + argument + CR LF: 5 + 251 + 2 = 258 characters.
  const std::string fits(251, 'p');
  EXPECT_EQ(
      BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(wire_.client(), "RETR", fits.c_str(), nullptr, 0),
      550u);
  EXPECT_EQ(wire_.Heard(), "RETR " + fits + "\r\n");
  const std::string tooLong(252, 'p');
  EXPECT_EQ(
      BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(wire_.client(), "RETR", tooLong.c_str(), nullptr, 0),
      1u);
  EXPECT_EQ(wire_.Heard(), "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Command exceeds maximum size of 259."));
}

TEST_F(FtpControlTest, FailedSendLogsTheWholeCommand) {
  // A descriptor open for reading only: the write fails for real.
  const int readOnly = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(readOnly, 0);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(readOnly, "RETR", "/opt/x", nullptr, 0), 1u);
  close(readOnly);
  // The formatted command keeps its CR LF, so the message spans two lines of the log.
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Send cmd failed, cmd = RETR /opt/x\r",
                                     "<no time stamp>, errno:9."));
}

TEST_F(FtpControlTest, QuitReplyMayEndWithTheStream) {
  wire_.Say("221 Goodbye");
  wire_.Hangup();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(wire_.client(), "QUIT", nullptr, nullptr, 0),
            221u);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FtpControlTest, OnlyTheExactQuitCommandAcceptsTheEnd) {
  wire_.Say("221 Goodbye");
  wire_.Hangup();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(wire_.client(), "QUIT", "now", nullptr, 0),
            221u);
  downloadtest::Wire other;
  other.Say("221 Goodbye");
  other.Hangup();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(other.client(), "quit", nullptr, nullptr, 0),
            1u);
  EXPECT_THAT(MainLog(), ElementsAre(kEof));
}

TEST_F(FtpControlTest, EmptyCommandIsRefused) {
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_SendCmdAndGetReply(wire_.client(), nullptr, "x", nullptr, 0), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(wire_.client(), nullptr, "x", nullptr, 0), 1u);
  EXPECT_EQ(wire_.Heard(), "");
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

TEST_F(FtpControlTest, LoginCommandIsWipedRightAfterItWasSent) {
  wire_.Say("230 Logged in\r\n");
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(wire_.client(), "PASS", "s3cret", nullptr, 0),
            230u);
  EXPECT_EQ(wire_.Heard(), "PASS s3cret\r\n");
  EXPECT_THAT(downloadfaults::Get().events,
              ElementsAre("send:PASS s3cret\r\n", "wipe259:PASS s3cret\r\n"));
  const auto wipes = downloadfaults::WipesOfSize(259);
  ASSERT_EQ(wipes.size(), 1u);
  EXPECT_TRUE(wipes[0].zeroAfter);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(FtpControlTest, FailedLoginSendNamesOnlyTheCommandAndStillWipes) {
  const int readOnly = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(readOnly, 0);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(readOnly, "PASS", "s3cret", nullptr, 0), 1u);
  close(readOnly);
  const auto wipes = downloadfaults::WipesOfSize(259);
  ASSERT_EQ(wipes.size(), 1u);
  EXPECT_EQ(wipes[0].before, "PASS s3cret\r\n");
  EXPECT_TRUE(wipes[0].zeroAfter);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Send cmd failed, cmd = PASS, errno:9."));
}

TEST_F(FtpControlTest, OverlongLoginCommandIsWipedAndNotSent) {
  const std::string password(260, 's');
  EXPECT_EQ(
      BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(wire_.client(), "PASS", password.c_str(), nullptr, 0),
      1u);
  EXPECT_EQ(wire_.Heard(), "");
  const auto wipes = downloadfaults::WipesOfSize(259);
  ASSERT_EQ(wipes.size(), 1u);
  // The failed format left a cut copy behind, which the wipe removed.
  EXPECT_EQ(wipes[0].before, "PASS " + std::string(253, 's'));
  EXPECT_TRUE(wipes[0].zeroAfter);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Command exceeds maximum size of 259."));
}

// Zeroing cannot fail for real; the wrapped memset_s reports a failure.
TEST_F(FtpControlTest, FailedWipeIsAWarningOnly) {
  downloadfaults::Get().failWipes = true;
  wire_.Say("331 Password required\r\n");
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(wire_.client(), "USER", "someone", nullptr, 0),
            331u);
  EXPECT_THAT(MainLog(), ElementsAre(testing::MatchesRegex(
                             R"(\[BOOT_INIT\]\[WARNING\]:memset unsuccessfully: )"
                             R"(BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply, line: [0-9]+)")));
}

TEST_F(FtpControlTest, LoginReplyFailuresStillWipe) {
  wire_.Hangup();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_LoginFtpAndGetReply(wire_.client(), "USER", "someone", nullptr, 0),
            1u);
  const auto wipes = downloadfaults::WipesOfSize(259);
  ASSERT_EQ(wipes.size(), 1u);
  EXPECT_EQ(wipes[0].before, "USER someone\r\n");
  EXPECT_THAT(MainLog(), ElementsAre(kEof));
}

}  // namespace
