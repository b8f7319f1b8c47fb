// Tests of libswm's high-availability and network facts (HA role, main board, stacking,
// addresses), the FTP users of the board description, and the port of an FTP server
// configuration file: present, absent, malformed, too long and forced failures.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "board_env_files.hpp"
#include "swm.h"

namespace {

constexpr uint32_t kUntouched = 0xA5A5A5A5u;
constexpr const char *kUntouchedText = "untouched";

// A text buffer of size bytes that starts as "untouched".
std::vector<char> Buffer(size_t size = 128) {
  std::vector<char> buffer(size, 'x');
  std::strncpy(buffer.data(), kUntouchedText, size);
  buffer[size - 1] = '\0';
  return buffer;
}

class SwmNetworkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    boardtest::WriteDescription("[board]\nname=demo\n");
    boardtest::RemovePath(dir_);
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { boardtest::RemovePath(dir_); }
  const std::string dir_ = "/tmp/swm_network_test";
};

// ---------------------------------------------------------------------------- HA role

uint32_t HaRole(uint32_t *status) {
  uint32_t role = kUntouched;
  *status = SWM_GetSystemHaRole(&role);
  return role;
}

TEST_F(SwmNetworkTest, HaRoleDescribed) {
  uint32_t status = kUntouched;
  boardtest::WriteDescription("[board]\nha_role=0\nactive_state=1\n");
  EXPECT_EQ(HaRole(&status), 0u);
  EXPECT_EQ(status, SWM_OK);
  boardtest::WriteDescription("[board]\nha_role=2\nactive_state=0\n");
  EXPECT_EQ(HaRole(&status), 2u);
  EXPECT_EQ(status, SWM_OK);
  boardtest::WriteDescription("[board]\nha_role=0x10\nactive_state=junk\n");
  EXPECT_EQ(HaRole(&status), 16u);
  EXPECT_EQ(status, SWM_OK);
}

TEST_F(SwmNetworkTest, HaRoleFollowsTheActiveState) {
  uint32_t status = kUntouched;
  EXPECT_EQ(HaRole(&status), 0u);  // neither described
  EXPECT_EQ(status, SWM_OK);
  boardtest::WriteDescription("[board]\nactive_state=0\n");
  EXPECT_EQ(HaRole(&status), 0u);
  EXPECT_EQ(status, SWM_OK);
  boardtest::WriteDescription("[board]\nactive_state=1\n");
  EXPECT_EQ(HaRole(&status), 1u);
  EXPECT_EQ(status, SWM_OK);
  boardtest::WriteDescription("[board]\nactive_state=5\n");
  EXPECT_EQ(HaRole(&status), 1u);
  EXPECT_EQ(status, SWM_OK);
  boardtest::RemovePath(boardtest::kDescription);
  EXPECT_EQ(HaRole(&status), 0u);
  EXPECT_EQ(status, SWM_OK);
}

TEST_F(SwmNetworkTest, HaRoleThatIsNotANumber) {
  uint32_t status = kUntouched;
  boardtest::WriteDescription("[board]\nha_role=master\n");
  EXPECT_EQ(HaRole(&status), kUntouched);
  EXPECT_EQ(status, SWM_ERR_FORMAT);
  boardtest::WriteDescription("[board]\nactive_state=-1\n");
  EXPECT_EQ(HaRole(&status), kUntouched);
  EXPECT_EQ(status, SWM_ERR_FORMAT);
  boardtest::WriteDescription("board]\nha_role=0\n");
  EXPECT_EQ(HaRole(&status), kUntouched);
  EXPECT_EQ(status, SWM_ERR_FORMAT);
  EXPECT_EQ(SWM_GetSystemHaRole(nullptr), SWM_ERR_PARAM);
}

TEST_F(SwmNetworkTest, HaRoleForcedFailure) {
  boardtest::WriteDescription("[board]\nha_role=3\n[fail]\nSWM_GetSystemHaRole=0x44\n");
  uint32_t status = kUntouched;
  EXPECT_EQ(HaRole(&status), 3u);
  EXPECT_EQ(status, 0x44u);
  EXPECT_EQ(SWM_GetSystemHaRole(nullptr), SWM_ERR_PARAM);
  boardtest::WriteDescription("[board]\nha_role=3\n[fail]\nSWM_GetSystemHaRole=0\n");
  EXPECT_EQ(HaRole(&status), 3u);
  EXPECT_EQ(status, SWM_OK);
}

// ---------------------------------------------------------------------------- yes/no facts

TEST_F(SwmNetworkTest, BoardIsMMBDescribed) {
  boardtest::WriteDescription("[board]\nmmb=1\nrole=3\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 1);
  boardtest::WriteDescription("[board]\nmmb=0\nrole=1\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 0);
  boardtest::WriteDescription("[board]\nmmb=0x80000000\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 1);
}

TEST_F(SwmNetworkTest, BoardIsMMBFollowsTheRole) {
  EXPECT_EQ(SWM_BoardIsMMB(), 1);  // no role described: a main board
  boardtest::WriteDescription("[board]\nrole=1\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 1);
  boardtest::WriteDescription("[board]\nrole=3\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 0);
  boardtest::WriteDescription("[board]\nrole=2\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 0);
  boardtest::RemovePath(boardtest::kDescription);
  EXPECT_EQ(SWM_BoardIsMMB(), 1);
}

TEST_F(SwmNetworkTest, BoardIsMMBUnusable) {
  boardtest::WriteDescription("[board]\nmmb=yes\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 0);
  boardtest::WriteDescription("[board]\nrole=main\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 0);
  boardtest::WriteDescription("mmb=1\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 0);
}

TEST_F(SwmNetworkTest, BoardIsMMBForcedAnswer) {
  boardtest::WriteDescription("[board]\nmmb=1\n[fail]\nSWM_BoardIsMMB=0\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 0);
  boardtest::WriteDescription("[board]\nrole=3\n[fail]\nSWM_BoardIsMMB=1\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 1);
  boardtest::WriteDescription("[board]\nrole=3\n[fail]\nSWM_BoardIsMMB=7\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 7);
  boardtest::WriteDescription("[board]\nrole=3\n[fail]\nSWM_BoardIsMMB=x\n");
  EXPECT_EQ(SWM_BoardIsMMB(), 0);
}

TEST_F(SwmNetworkTest, IsStackEnabled) {
  EXPECT_EQ(SWM_IsStackEnabled(), 0);
  boardtest::WriteDescription("[net]\nstack=1\n");
  EXPECT_EQ(SWM_IsStackEnabled(), 1);
  boardtest::WriteDescription("[net]\nstack=0\n");
  EXPECT_EQ(SWM_IsStackEnabled(), 0);
  boardtest::WriteDescription("[net]\nstack=2\n");
  EXPECT_EQ(SWM_IsStackEnabled(), 1);
  boardtest::WriteDescription("[net]\nstack=on\n");
  EXPECT_EQ(SWM_IsStackEnabled(), 0);
  boardtest::WriteDescription("[net]\nstack=1\n[fail]\nSWM_IsStackEnabled=0\n");
  EXPECT_EQ(SWM_IsStackEnabled(), 0);
  boardtest::WriteDescription("[fail]\nSWM_IsStackEnabled=3\n");
  EXPECT_EQ(SWM_IsStackEnabled(), 3);
}

// ---------------------------------------------------------------------------- addresses

using AddressGetter = uint32_t (*)(char *, uint32_t);

struct AddressFact {
  const char *key;
  const char *function;
  AddressGetter get;
};

const AddressFact kAddressFacts[] = {
    {"address", "SWM_GetBoardLocalIp", SWM_GetBoardLocalIp},
    {"stack_master", "SWM_GetStackMasterIp", SWM_GetStackMasterIp},
};

TEST_F(SwmNetworkTest, AddressDescribed) {
  for (const AddressFact &fact : kAddressFacts) {
    boardtest::WriteDescription(std::string("[net]\n") + fact.key + "=127.0.0.21\n");
    std::vector<char> ip = Buffer();
    EXPECT_EQ(fact.get(ip.data(), 128), SWM_OK) << fact.key;
    EXPECT_STREQ(ip.data(), "127.0.0.21") << fact.key;
  }
}

TEST_F(SwmNetworkTest, AddressAbsentOrEmpty) {
  for (const AddressFact &fact : kAddressFacts) {
    for (const std::string &description :
         {std::string("[board]\nname=demo\n"), std::string("[net]\nother=1\n"),
          std::string("[net]\n") + fact.key + "=\n"}) {
      boardtest::WriteDescription(description);
      std::vector<char> ip = Buffer();
      EXPECT_EQ(fact.get(ip.data(), 128), SWM_ERR_NOT_FOUND) << fact.key << " " << description;
      EXPECT_STREQ(ip.data(), kUntouchedText);
    }
    boardtest::RemovePath(boardtest::kDescription);
    std::vector<char> ip = Buffer();
    EXPECT_EQ(fact.get(ip.data(), 128), SWM_ERR_NOT_FOUND) << fact.key;
  }
}

TEST_F(SwmNetworkTest, AddressThatDoesNotFit) {
  for (const AddressFact &fact : kAddressFacts) {
    boardtest::WriteDescription(std::string("[net]\n") + fact.key + "=127.0.0.21\n");
    std::vector<char> ip = Buffer(16);
    EXPECT_EQ(fact.get(ip.data(), 10), SWM_ERR_TOO_LONG) << fact.key;
    EXPECT_STREQ(ip.data(), kUntouchedText);
    EXPECT_EQ(fact.get(ip.data(), 11), SWM_OK) << fact.key;  // exactly with its terminator
    EXPECT_STREQ(ip.data(), "127.0.0.21");
  }
}

TEST_F(SwmNetworkTest, AddressArgumentsAndMalformedDescription) {
  for (const AddressFact &fact : kAddressFacts) {
    boardtest::WriteDescription(std::string("[net]\n") + fact.key + "=127.0.0.21\n[fail]\n" +
                                fact.function + "=9\n");
    std::vector<char> ip = Buffer();
    EXPECT_EQ(fact.get(nullptr, 128), SWM_ERR_PARAM) << fact.key;
    EXPECT_EQ(fact.get(ip.data(), 0), SWM_ERR_PARAM) << fact.key;
    boardtest::WriteDescription(std::string("[net]\n") + fact.key + "=127.0.0.21\nbroken\n");
    EXPECT_EQ(fact.get(ip.data(), 128), SWM_ERR_FORMAT) << fact.key;
    EXPECT_STREQ(ip.data(), kUntouchedText);
  }
}

TEST_F(SwmNetworkTest, AddressForcedFailure) {
  for (const AddressFact &fact : kAddressFacts) {
    boardtest::WriteDescription(std::string("[net]\n") + fact.key + "=127.0.0.12\n[fail]\n" +
                                fact.function + "=0x2A\n");
    std::vector<char> ip = Buffer();
    EXPECT_EQ(fact.get(ip.data(), 128), 0x2Au) << fact.key;
    EXPECT_STREQ(ip.data(), "127.0.0.12");
    boardtest::WriteDescription(std::string("[fail]\n") + fact.function + "=0x2A\n");
    ip = Buffer();
    EXPECT_EQ(fact.get(ip.data(), 128), 0x2Au) << fact.key;
    EXPECT_STREQ(ip.data(), kUntouchedText);
  }
}

struct MainBoardIps {
  uint32_t status = kUntouched;
  std::string first;
  std::string second;
};

MainBoardIps ServerIps(uint32_t len1 = 128, uint32_t len2 = 128) {
  std::vector<char> first = Buffer();
  std::vector<char> second = Buffer();
  MainBoardIps result;
  result.status = SWM_GetServerIpByBoardRole(first.data(), len1, second.data(), len2);
  result.first = first.data();
  result.second = second.data();
  return result;
}

TEST_F(SwmNetworkTest, ServerIpsDescribed) {
  boardtest::WriteDescription("[net]\nmmb1_address=127.0.0.11\nmmb2_address=127.0.0.12\n");
  const MainBoardIps ips = ServerIps();
  EXPECT_EQ(ips.status, SWM_OK);
  EXPECT_EQ(ips.first, "127.0.0.11");
  EXPECT_EQ(ips.second, "127.0.0.12");
}

TEST_F(SwmNetworkTest, ServerIpsNeedBothAddresses) {
  for (const char *description :
       {"[net]\nmmb1_address=127.0.0.11\n", "[net]\nmmb2_address=127.0.0.12\n",
        "[net]\nmmb1_address=127.0.0.11\nmmb2_address=\n", "[board]\nname=x\n"}) {
    boardtest::WriteDescription(description);
    const MainBoardIps ips = ServerIps();
    EXPECT_EQ(ips.status, SWM_ERR_NOT_FOUND) << description;
    EXPECT_EQ(ips.first, kUntouchedText) << description;
    EXPECT_EQ(ips.second, kUntouchedText) << description;
  }
}

TEST_F(SwmNetworkTest, ServerIpsThatDoNotFit) {
  boardtest::WriteDescription("[net]\nmmb1_address=127.0.0.11\nmmb2_address=127.0.0.12\n");
  MainBoardIps ips = ServerIps(10, 128);
  EXPECT_EQ(ips.status, SWM_ERR_TOO_LONG);
  EXPECT_EQ(ips.first, kUntouchedText);
  EXPECT_EQ(ips.second, kUntouchedText);
  ips = ServerIps(128, 10);
  EXPECT_EQ(ips.status, SWM_ERR_TOO_LONG);
  EXPECT_EQ(ips.first, kUntouchedText);
  EXPECT_EQ(ips.second, kUntouchedText);
  ips = ServerIps(11, 11);
  EXPECT_EQ(ips.status, SWM_OK);
  EXPECT_EQ(ips.first, "127.0.0.11");
  EXPECT_EQ(ips.second, "127.0.0.12");
}

TEST_F(SwmNetworkTest, ServerIpsArgumentsMalformedAndForced) {
  char ip[16] = {};
  boardtest::WriteDescription("[fail]\nSWM_GetServerIpByBoardRole=8\n");
  EXPECT_EQ(SWM_GetServerIpByBoardRole(nullptr, 16, ip, 16), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetServerIpByBoardRole(ip, 16, nullptr, 16), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetServerIpByBoardRole(ip, 0, ip, 16), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetServerIpByBoardRole(ip, 16, ip, 0), SWM_ERR_PARAM);
  boardtest::WriteDescription("[net]\nmmb1_address=127.0.0.11\nmmb2_address=127.0.0.12\n[x\n");
  EXPECT_EQ(ServerIps().status, SWM_ERR_FORMAT);
  boardtest::WriteDescription(
      "[net]\nmmb1_address=127.0.0.11\nmmb2_address=127.0.0.12\n"
      "[fail]\nSWM_GetServerIpByBoardRole=8\n");
  const MainBoardIps ips = ServerIps();
  EXPECT_EQ(ips.status, 8u);
  EXPECT_EQ(ips.first, "127.0.0.11");
  EXPECT_EQ(ips.second, "127.0.0.12");
}

// ---------------------------------------------------------------------------- FTP port

struct Port {
  uint32_t status = kUntouched;
  std::string text;
};

class SwmPortTest : public SwmNetworkTest {
 protected:
  Port Read(const std::string &content, uint32_t len = 8) {
    boardtest::WriteFile(file_, content);
    return ReadFile(file_, len);
  }
  static Port ReadFile(const std::string &file, uint32_t len = 8) {
    std::vector<char> buffer = Buffer(16);
    Port port;
    port.status = SWM_GetPortInfoReliable(file.c_str(), buffer.data(), len);
    port.text = buffer.data();
    return port;
  }
  const std::string file_ = dir_ + "/ftpserver.conf";
};

TEST_F(SwmPortTest, KeyValueFileWithoutSections) {
  const Port port = Read("anonymous_enable=NO\nport=2121\nlisten=YES\n");
  EXPECT_EQ(port.status, SWM_OK);
  EXPECT_EQ(port.text, "2121");
}

TEST_F(SwmPortTest, BlanksCommentsAndSections) {
  Port port = Read("# server settings\n; more\n\n[server]\n  port =  21  \r\n");
  EXPECT_EQ(port.status, SWM_OK);
  EXPECT_EQ(port.text, "21");
  port = Read("port_range=1000\nxport=1\nwelcome text\n#port=99\nport=990\nport=991\n");
  EXPECT_EQ(port.status, SWM_OK);
  EXPECT_EQ(port.text, "990");  // the first entry counts
  port = Read("port=abc\n");
  EXPECT_EQ(port.status, SWM_OK);  // the text as written: the caller converts it
  EXPECT_EQ(port.text, "abc");
}

TEST_F(SwmPortTest, NoEntry) {
  for (const char *content : {"", "listen=YES\n", "PORT=21\n", "port\n", "port=\n", "port= \t\n"}) {
    const Port port = Read(content);
    EXPECT_EQ(port.status, SWM_ERR_NOT_FOUND) << content;
    EXPECT_EQ(port.text, kUntouchedText) << content;
  }
}

TEST_F(SwmPortTest, TooLong) {
  Port port = Read("port=12345678\n");
  EXPECT_EQ(port.status, SWM_ERR_TOO_LONG);
  EXPECT_EQ(port.text, kUntouchedText);
  port = Read("port=1234567\n");  // len - 1 characters
  EXPECT_EQ(port.status, SWM_OK);
  EXPECT_EQ(port.text, "1234567");
  port = Read("port=2\n", 1);
  EXPECT_EQ(port.status, SWM_ERR_TOO_LONG);
  port = Read("port=2\n", 2);
  EXPECT_EQ(port.status, SWM_OK);
  EXPECT_EQ(port.text, "2");
}

TEST_F(SwmPortTest, NulByteInTheValue) {
  const Port port = Read(std::string("port=21\0x\n", 10));
  EXPECT_EQ(port.status, SWM_ERR_FORMAT);
  EXPECT_EQ(port.text, kUntouchedText);
}

TEST_F(SwmPortTest, FileThatCannotBeRead) {
  errno = 0;
  Port port = ReadFile(dir_ + "/missing.conf");
  EXPECT_EQ(port.status, SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(port.text, kUntouchedText);
  errno = 0;
  port = ReadFile(dir_);
  EXPECT_EQ(port.status, SWM_ERR_IO);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(port.text, kUntouchedText);
}

TEST_F(SwmPortTest, Arguments) {
  boardtest::WriteFile(file_, "port=21\n");
  char buffer[8] = {};
  EXPECT_EQ(SWM_GetPortInfoReliable(nullptr, buffer, 8), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetPortInfoReliable(file_.c_str(), nullptr, 8), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetPortInfoReliable(file_.c_str(), buffer, 0), SWM_ERR_PARAM);
}

TEST_F(SwmPortTest, ForcedFailure) {
  boardtest::WriteDescription("[fail]\nSWM_GetPortInfoReliable=0x77\n");
  errno = 0;
  Port port = Read("port=2121\n");
  EXPECT_EQ(port.status, 0x77u);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(port.text, "2121");
  port = ReadFile(dir_ + "/missing.conf");
  EXPECT_EQ(port.status, 0x77u);
  EXPECT_EQ(port.text, kUntouchedText);
  char buffer[8] = {};
  EXPECT_EQ(SWM_GetPortInfoReliable(nullptr, buffer, 8), SWM_ERR_PARAM);
}

TEST_F(SwmPortTest, ErrnoOfTheFailureSurvivesTheDescription) {
  boardtest::WriteDescription("[fail]\nSWM_GetPortInfoReliable=0\n");
  errno = 0;
  EXPECT_EQ(ReadFile(dir_ + "/missing.conf").status, SWM_ERR_IO);
  EXPECT_EQ(errno, ENOENT);
}

// ---------------------------------------------------------------------------- FTP users

struct Users {
  uint32_t status = kUntouched;
  uint32_t count = kUntouched;
  std::vector<std::pair<std::string, std::string>> entries;  // name, directory
  bool reservedZero = true;
  bool allocated = false;
};

// Reads the users and frees the records at once.
Users ReadUsers() {
  SWM_USER_INFO_S *records = nullptr;
  Users users;
  users.status = SWM_GetMaxTenUsersInfo(&records, &users.count, nullptr);
  users.allocated = records != nullptr;
  if (records != nullptr && users.count <= 10) {
    for (uint32_t i = 0; i < users.count; ++i) {
      users.entries.emplace_back(records[i].name, records[i].homeDir);
      for (const char byte : records[i].reserved1) {
        users.reservedZero = users.reservedZero && byte == 0;
      }
      for (const char byte : records[i].reserved2) {
        users.reservedZero = users.reservedZero && byte == 0;
      }
    }
  }
  std::free(records);
  return users;
}

using Entries = std::vector<std::pair<std::string, std::string>>;

TEST_F(SwmNetworkTest, UsersDescribed) {
  boardtest::WriteDescription("[ftp]\nusers=bootfile:/opt swmdata:/var/lib\n");
  const Users users = ReadUsers();
  EXPECT_EQ(users.status, SWM_OK);
  EXPECT_EQ(users.count, 2u);
  EXPECT_EQ(users.entries, (Entries{{"bootfile", "/opt"}, {"swmdata", "/var/lib"}}));
  EXPECT_TRUE(users.reservedZero);
}

TEST_F(SwmNetworkTest, OneUserAndBlanks) {
  boardtest::WriteDescription("[ftp]\nusers=  \t bootuser:/opt/kytv8:x \t \n");
  const Users users = ReadUsers();
  EXPECT_EQ(users.status, SWM_OK);
  EXPECT_EQ(users.count, 1u);
  EXPECT_EQ(users.entries, (Entries{{"bootuser", "/opt/kytv8:x"}}));
}

std::string UserList(int count, Entries *expected) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    const std::string name = "user" + std::to_string(i);
    const std::string home = "/var/lib/home" + std::to_string(i);
    text += (i == 0 ? "" : " ") + name + ":" + home;
    if (expected != nullptr && i < 10) {
      expected->emplace_back(name, home);
    }
  }
  return text;
}

TEST_F(SwmNetworkTest, TenUsers) {
  Entries expected;
  boardtest::WriteDescription("[ftp]\nusers=" + UserList(10, &expected) + "\n");
  const Users users = ReadUsers();
  EXPECT_EQ(users.status, SWM_OK);
  EXPECT_EQ(users.count, 10u);
  EXPECT_EQ(users.entries, expected);
  EXPECT_TRUE(users.reservedZero);
}

TEST_F(SwmNetworkTest, MoreThanTenUsersGiveTheFirstTen) {
  Entries expected;
  boardtest::WriteDescription("[ftp]\nusers=" + UserList(11, &expected) + "\n");
  Users users = ReadUsers();
  EXPECT_EQ(users.status, SWM_OK);
  EXPECT_EQ(users.count, 10u);
  EXPECT_EQ(users.entries, expected);
  // Names past the tenth are not records: their length does not matter.
  boardtest::WriteDescription("[ftp]\nusers=" + UserList(10, nullptr) + " " +
                              std::string(300, 'n') + ":/opt\n");
  users = ReadUsers();
  EXPECT_EQ(users.status, SWM_OK);
  EXPECT_EQ(users.count, 10u);
}

TEST_F(SwmNetworkTest, NoUsers) {
  for (const char *description :
       {"[board]\nname=demo\n", "[ftp]\nport=21\n", "[ftp]\nusers=\n", "[ftp]\nusers= \t \n"}) {
    boardtest::WriteDescription(description);
    const Users users = ReadUsers();
    EXPECT_EQ(users.status, SWM_ERR_NOT_FOUND) << description;
    EXPECT_EQ(users.count, kUntouched) << description;
    EXPECT_FALSE(users.allocated) << description;
  }
  boardtest::RemovePath(boardtest::kDescription);
  EXPECT_EQ(ReadUsers().status, SWM_ERR_NOT_FOUND);
}

TEST_F(SwmNetworkTest, MalformedUsers) {
  const std::vector<std::string> lists = {"bootuser", "bootuser:/opt datauser",
                                          ":/opt",    "bootuser:",
                                          "a:/opt :", UserList(11, nullptr) + " twelfth"};
  for (const std::string &list : lists) {
    boardtest::WriteDescription("[ftp]\nusers=" + list + "\n");
    const Users users = ReadUsers();
    EXPECT_EQ(users.status, SWM_ERR_FORMAT) << list;
    EXPECT_EQ(users.count, kUntouched) << list;
    EXPECT_FALSE(users.allocated) << list;
  }
  boardtest::WriteDescription("[ftp\nusers=a:/opt\n");
  EXPECT_EQ(ReadUsers().status, SWM_ERR_FORMAT);
}

TEST_F(SwmNetworkTest, LongNamesAndDirectories) {
  const std::string longest(SWM_USER_NAME_LEN - 1, 'n');
  const std::string deepest = "/" + std::string(SWM_USER_HOME_LEN - 2, 'd');
  boardtest::WriteDescription("[ftp]\nusers=" + longest + ":" + deepest + "\n");
  Users users = ReadUsers();
  EXPECT_EQ(users.status, SWM_OK);
  EXPECT_EQ(users.entries, (Entries{{longest, deepest}}));
  for (const std::string &list : {"a:/opt " + longest + "n:/opt", "a:/opt b:" + deepest + "d"}) {
    boardtest::WriteDescription("[ftp]\nusers=" + list + "\n");
    users = ReadUsers();
    EXPECT_EQ(users.status, SWM_ERR_TOO_LONG);
    EXPECT_EQ(users.count, kUntouched);
    EXPECT_FALSE(users.allocated);
  }
}

TEST_F(SwmNetworkTest, UsersArguments) {
  SWM_USER_INFO_S *records = nullptr;
  uint32_t count = 0;
  int reserved = 0;
  boardtest::WriteDescription("[ftp]\nusers=a:/opt\n[fail]\nSWM_GetMaxTenUsersInfo=5\n");
  EXPECT_EQ(SWM_GetMaxTenUsersInfo(nullptr, &count, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetMaxTenUsersInfo(&records, nullptr, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_GetMaxTenUsersInfo(&records, &count, &reserved), SWM_ERR_PARAM);
  EXPECT_EQ(records, nullptr);
}

TEST_F(SwmNetworkTest, UsersForcedFailureAllocatesNothing) {
  boardtest::WriteDescription("[ftp]\nusers=a:/opt\n[fail]\nSWM_GetMaxTenUsersInfo=0x61\n");
  const Users users = ReadUsers();
  EXPECT_EQ(users.status, 0x61u);
  EXPECT_EQ(users.count, kUntouched);
  EXPECT_FALSE(users.allocated);
}

// ---------------------------------------------------------------------------- all facts

TEST_F(SwmNetworkTest, NoDescriptorLeaks) {
  boardtest::WriteDescription(
      "[board]\nactive_state=1\n[net]\naddress=127.0.0.21\nmmb1_address=127.0.0.11\n"
      "mmb2_address=127.0.0.12\nstack_master=127.0.0.11\n[ftp]\nusers=a:/opt b:/var/lib\n"
      "[fail]\nSWM_IsStackEnabled=1\n");
  boardtest::WriteFile(dir_ + "/ftpserver.conf", "port=21\n");
  const int before = boardtest::CountOpenFds();
  char a[32];
  char b[32];
  uint32_t role = 0;
  for (int i = 0; i < 20; ++i) {
    (void)SWM_GetSystemHaRole(&role);
    (void)SWM_BoardIsMMB();
    (void)SWM_IsStackEnabled();
    (void)SWM_GetStackMasterIp(a, sizeof(a));
    (void)SWM_GetServerIpByBoardRole(a, sizeof(a), b, sizeof(b));
    (void)SWM_GetBoardLocalIp(a, sizeof(a));
    (void)SWM_GetPortInfoReliable((dir_ + "/ftpserver.conf").c_str(), a, sizeof(a));
    (void)SWM_GetPortInfoReliable((dir_ + "/missing").c_str(), a, sizeof(a));
    EXPECT_EQ(ReadUsers().count, 2u);
  }
  EXPECT_EQ(boardtest::CountOpenFds(), before);
}

}  // namespace
