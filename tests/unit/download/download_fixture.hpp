// Common ground of the download tests: a line card at 127.0.0.21 whose main boards are
// 127.0.0.11 and 127.0.0.12, FTP port 2121 in /etc/conf/ftpserver.conf, the users "k7user"
// (directory /opt) and "swmdata" (/var/lib), empty logs and disarmed seams. Helpers build the
// client's arguments and check what must never be logged.
#pragma once

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "board_facts.hpp"
#include "bootinit/download.h"
#include "download_faults.hpp"
#include "ftp_peer.hpp"

namespace downloadtest {

inline const std::string kOwnIp = "127.0.0.21";
inline const std::string kMmb1Ip = "127.0.0.11";
inline const std::string kMmb2Ip = "127.0.0.12";
inline constexpr uint16_t kPort = 2121;
inline const std::string kUser = "k7user";
inline const std::string kFtpServerConf = "/etc/conf/ftpserver.conf";
inline const std::string kRemote = "/opt/start.bin";
inline const std::string kLocal = "/opt/dl/start.bin";

inline std::map<std::string, std::string> LineCardFacts() {
  std::map<std::string, std::string> facts = testsupport::LineCard();
  facts["net.address"] = kOwnIp;
  facts["net.mmb1_address"] = kMmb1Ip;
  facts["net.mmb2_address"] = kMmb2Ip;
  facts["ftp.users"] = kUser + ":/opt swmdata:/var/lib";
  return facts;
}

// An IPv4 socket address built without the code under test.
inline sockaddr_storage SockAddr(const std::string &ip, uint16_t port) {
  sockaddr_storage storage{};
  auto *in = reinterpret_cast<sockaddr_in *>(&storage);
  in->sin_family = AF_INET;
  in->sin_port = htons(port);
  EXPECT_EQ(inet_pton(AF_INET, ip.c_str(), &in->sin_addr), 1) << ip;
  return storage;
}

// "a.b.c.d:port" of an IPv4 socket address; "family N" for anything else.
inline std::string Show(const sockaddr_storage &storage) {
  if (storage.ss_family != AF_INET) {
    return "family " + std::to_string(storage.ss_family);
  }
  const auto *in = reinterpret_cast<const sockaddr_in *>(&storage);
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &in->sin_addr, text, sizeof(text));
  return std::string(text) + ":" + std::to_string(ntohs(in->sin_port));
}

inline BOOT_INIT_FTP_SOCK_ADDR_S Addresses(const std::string &serverIp = kMmb1Ip,
                                           uint16_t port = kPort,
                                           const std::string &clientIp = kOwnIp) {
  BOOT_INIT_FTP_SOCK_ADDR_S addresses{};
  addresses.server = SockAddr(serverIp, port);
  addresses.client = SockAddr(clientIp, 0);
  return addresses;
}

inline BOOT_INIT_FTP_ACCOUNT_S Account(const std::string &name = kUser) {
  BOOT_INIT_FTP_ACCOUNT_S account{};
  std::strncpy(account.userName, name.c_str(), sizeof(account.userName) - 1);
  std::strncpy(account.password, name.c_str(), sizeof(account.password) - 1);
  std::strncpy(account.directory, "/opt", sizeof(account.directory) - 1);
  return account;
}

inline BOOT_INIT_FTP_FILE_INFO_S FileRequest(const std::string &local = kLocal,
                                             const std::string &remote = kRemote) {
  BOOT_INIT_FTP_FILE_INFO_S request{};
  std::strncpy(request.localPath, local.c_str(), sizeof(request.localPath) - 1);
  std::strncpy(request.remotePath, remote.c_str(), sizeof(request.remotePath) - 1);
  return request;
}

// Greeting, login as kUser and binary type, as a well-behaved server answers them.
inline ftppeer::FtpSession &LoggedIn(ftppeer::FtpSession &session) {
  return session.Send("220 main board ready\r\n")
      .Expect("USER " + kUser, "331 Password required\r\n")
      .Expect("PASS " + kUser, "230 Logged in\r\n")
      .Expect("TYPE I", "200 Type set to I\r\n");
}

// The rest of a successful retrieval of remote with content, after login.
inline ftppeer::FtpSession &Delivers(ftppeer::FtpSession &session, const std::string &content,
                                     const std::string &remote = kRemote) {
  return session.Pasv()
      .Expect("RETR " + remote, "150 Opening BINARY mode data connection\r\n")
      .Data(content)
      .Send("226 Transfer complete\r\n")
      .Expect("QUIT", "221 Goodbye\r\n")
      .ExpectClose();
}

// The lines of the board's main log that mention text.
inline std::vector<std::string> LogLinesWith(const std::string &text) {
  std::vector<std::string> found;
  for (const std::string &path : {testsupport::kMainLogPath, testsupport::kSafeLogPath}) {
    for (const std::string &line :
         testsupport::LogMessages(path, path == testsupport::kMainLogPath ? 0 : 1)) {
      if (line.find(text) != std::string::npos) {
        found.push_back(line);
      }
    }
  }
  return found;
}

class DownloadTest : public testing::Test {
 protected:
  void SetUp() override {
    downloadfaults::Reset();
    testsupport::StartWithEmptyLogs();
    testsupport::DescribeBoard(LineCardFacts());
    testsupport::WriteFile(kFtpServerConf, "port=" + std::to_string(kPort) + "\n");
    testsupport::RemovePath("/opt/dl");
    testsupport::MakeDir("/opt/dl");
  }
  void TearDown() override {
    downloadfaults::Reset();
    // The account name doubles as the password: it must never reach a log.
    EXPECT_THAT(LogLinesWith(kUser), testing::IsEmpty());
  }

  static void LineCardWith(const std::map<std::string, std::string> &changes) {
    testsupport::DescribeBoard(LineCardFacts(), changes);
  }
  // Adds a forced failure of one platform function to the current description.
  static void ForceFailure(const std::string &function, const std::string &code,
                           const std::map<std::string, std::string> &changes = {}) {
    std::map<std::string, std::string> all = changes;
    all["fail." + function] = code;
    LineCardWith(all);
  }
};

}  // namespace downloadtest
