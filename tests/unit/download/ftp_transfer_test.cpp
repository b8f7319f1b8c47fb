// The transfer of the data stream into the local file: blocks, end of stream, read and write
// failures, the local file's creation.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "download_fixture.hpp"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testsupport::MainLog;

namespace {

const std::string kFile = "/opt/dl/file.bin";

std::string RandomBytes(std::size_t size) {
  std::mt19937 generator(static_cast<unsigned>(size));
  std::string bytes(size, '\0');
  for (char &byte : bytes) {
    byte = static_cast<char>(generator() & 0xFF);
  }
  return bytes;
}

// A data stream: a thread of the test sends content on one end of a socket pair, then closes
// it (or resets it, for a TCP pair); the client reads the other end.
class DataStream {
 public:
  explicit DataStream(std::string content) {
    (void)socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds_);
    sender_ = std::thread([this, content = std::move(content)] {
      std::size_t sent = 0;
      while (sent < content.size()) {
        const ssize_t n = send(fds_[1], content.data() + sent, content.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
          break;
        }
        sent += static_cast<std::size_t>(n);
      }
      close(fds_[1]);
    });
  }
  DataStream(const DataStream &) = delete;
  DataStream &operator=(const DataStream &) = delete;
  ~DataStream() {
    // Unblocks a sender whose reader gave up.
    shutdown(fds_[0], SHUT_RDWR);
    sender_.join();
    close(fds_[0]);
  }
  [[nodiscard]] int fd() const { return fds_[0]; }

 private:
  int fds_[2] = {-1, -1};
  std::thread sender_;
};

class FtpTransferTest : public downloadtest::DownloadTest {
 protected:
  static int OpenLocal(const std::string &path) {
    return open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
  }
  // The sizes of the writes into path, in order.
  static std::vector<std::size_t> WritesTo(const std::string &path) {
    std::vector<std::size_t> sizes;
    for (const auto &[written, size] : downloadfaults::Get().fileWrites) {
      if (written == path) {
        sizes.push_back(size);
      }
    }
    return sizes;
  }
};

TEST_F(FtpTransferTest, StreamIsCopiedInBlocksOf102400Bytes) {
  const std::string content = RandomBytes(250000);
  {
    DataStream stream(content);
    const int local = OpenLocal(kFile);
    EXPECT_EQ(BOOT_INIT_FTPCLIENT_TransFile4Get(stream.fd(), local), 0u);
    close(local);
  }
  EXPECT_EQ(testsupport::ReadFile(kFile), content);
  // 100 reads of 1024 bytes fill the buffer to the brim before it is written.
  EXPECT_THAT(WritesTo(kFile), ElementsAre(102400u, 102400u, 45200u));
  EXPECT_THAT(MainLog(), IsEmpty());
}

// A block is written as soon as less than 1024 bytes of room are left; the end of the stream
// writes what is left, nothing included.
TEST_F(FtpTransferTest, BlockBoundaries) {
  const std::vector<std::pair<std::size_t, std::vector<std::size_t>>> cases = {
      {1, {1}},
      {1023, {1023}},
      {1024, {1024}},
      {101376, {101376}},
      {101377, {101377, 0}},
      {102400, {102400, 0}},
      {102401, {102400, 1}},
  };
  for (const auto &[size, writes] : cases) {
    downloadfaults::Get().fileWrites.clear();
    const std::string content = RandomBytes(size);
    {
      DataStream stream(content);
      const int local = OpenLocal(kFile);
      EXPECT_EQ(BOOT_INIT_FTPCLIENT_TransFile4Get(stream.fd(), local), 0u);
      close(local);
    }
    EXPECT_EQ(testsupport::ReadFile(kFile), content) << size;
    EXPECT_EQ(WritesTo(kFile), writes) << size;
  }
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpTransferTest, EmptyStreamGivesAnEmptyFile) {
  testsupport::WriteFile(kFile, "older content");
  {
    DataStream stream("");
    const int local = OpenLocal(kFile);
    EXPECT_EQ(BOOT_INIT_FTPCLIENT_TransFile4Get(stream.fd(), local), 0u);
    close(local);
  }
  EXPECT_TRUE(std::filesystem::exists(kFile));
  EXPECT_EQ(testsupport::ReadFile(kFile), "");
  EXPECT_THAT(WritesTo(kFile), ElementsAre(0u));
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpTransferTest, ReadFailure) {
  const int local = OpenLocal(kFile);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_TransFile4Get(-1, local), 1u);
  close(local);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:FTPCLIENT read data from server failed."));
}

TEST_F(FtpTransferTest, FinalWriteFailure) {
  DataStream stream("a small file");
  const int full = open("/dev/full", O_RDWR | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_TransFile4Get(stream.fd(), full), 1u);
  close(full);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Final write local file failed, errno = 28."));
}

TEST_F(FtpTransferTest, BlockWriteFailure) {
  DataStream stream(RandomBytes(300000));
  const int full = open("/dev/full", O_RDWR | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_TransFile4Get(stream.fd(), full), 1u);
  close(full);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:write local file failed, errno = 28."));
}

// Allocation failure cannot be brought about for real; the wrapped calloc refuses that size.
TEST_F(FtpTransferTest, NoTransferBuffer) {
  downloadfaults::Get().failTransferBuffer = true;
  DataStream stream("content");
  const int local = OpenLocal(kFile);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_TransFile4Get(stream.fd(), local), 1u);
  close(local);
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpTransferTest, LocalFileIsCreatedWithMode0640) {
  testsupport::RemovePath(kFile);
  const mode_t oldMask = umask(0);
  DataStream stream("fresh");
  BOOT_INIT_FTP_CONN_S connection{-1, stream.fd()};
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(&connection, kFile.c_str()), 0u);
  umask(oldMask);
  EXPECT_EQ(testsupport::StatOf(kFile).st_mode & 07777, 0640u);
  EXPECT_EQ(testsupport::ReadFile(kFile), "fresh");
  EXPECT_THAT(MainLog(), IsEmpty());
}

TEST_F(FtpTransferTest, ExistingLocalFileIsReplaced) {
  testsupport::WriteFile(kFile, std::string(5000, 'o'));
  const int fdsBefore = testsupport::CountOpenFds();
  {
    DataStream stream("new");
    BOOT_INIT_FTP_CONN_S connection{-1, stream.fd()};
    EXPECT_EQ(BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(&connection, kFile.c_str()), 0u);
  }
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore);
  EXPECT_EQ(testsupport::ReadFile(kFile), "new");
}

TEST_F(FtpTransferTest, LocalFileCannotBeOpened) {
  DataStream stream("content");
  BOOT_INIT_FTP_CONN_S connection{-1, stream.fd()};
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(&connection, "/opt/dl/none/file.bin"), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Failed to open file "
                                     "/opt/dl/none/file.bin, ret=2, errno=2."));
}

// The failed transfer is reported with the words of an open failure; the file stays for the
// caller to remove.
TEST_F(FtpTransferTest, FailedTransferIsReportedAsOpenFailure) {
  BOOT_INIT_FTP_CONN_S connection{-1, -1};
  const int fdsBefore = testsupport::CountOpenFds();
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(&connection, kFile.c_str()), 1u);
  EXPECT_EQ(testsupport::CountOpenFds(), fdsBefore);
  EXPECT_TRUE(std::filesystem::exists(kFile));
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:FTPCLIENT read data from server failed.",
                          "[BOOT_INIT][ERROR]:Failed to open file /opt/dl/file.bin, errno:9."));
}

TEST_F(FtpTransferTest, WriteFailureThroughTheLocalFile) {
  DataStream stream("content");
  BOOT_INIT_FTP_CONN_S connection{-1, stream.fd()};
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(&connection, "/dev/full"), 1u);
  EXPECT_THAT(MainLog(),
              ElementsAre("[BOOT_INIT][ERROR]:Final write local file failed, errno = 28.",
                          "[BOOT_INIT][ERROR]:Failed to open file /dev/full, errno:28."));
}

TEST_F(FtpTransferTest, EmptyArguments) {
  BOOT_INIT_FTP_CONN_S connection{-1, -1};
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(nullptr, kFile.c_str()), 1u);
  EXPECT_EQ(BOOT_INIT_FTPCLIENT_GenerateLocalFile4Get(&connection, nullptr), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

}  // namespace
