#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstring>

#include "board_files.hpp"
#include "bootinit/common.h"

using testing::ElementsAre;
using testsupport::MainLog;

namespace {

class NetTest : public testing::Test {
 protected:
  void SetUp() override {
    testsupport::StartWithEmptyLogs();
    std::memset(&storage_, 0xAA, sizeof(storage_));
  }
  sockaddr_in6 storage_{};
  const unsigned char *Bytes() const { return reinterpret_cast<const unsigned char *>(&storage_); }
};

TEST_F(NetTest, Ipv6LoopbackWithPort21) {
  EXPECT_EQ(BOOT_INIT_StrIPAddr2SockAddr(10, "::1", 21, &storage_), 0u);
  EXPECT_EQ(storage_.sin6_family, AF_INET6);
  EXPECT_EQ(Bytes()[2], 0x00);
  EXPECT_EQ(Bytes()[3], 0x15);
  EXPECT_EQ(std::memcmp(&storage_.sin6_addr, &in6addr_loopback, 16), 0);
  // Flow information and scope are not touched.
  EXPECT_EQ(storage_.sin6_flowinfo, 0xAAAAAAAAu);
  EXPECT_EQ(storage_.sin6_scope_id, 0xAAAAAAAAu);
  EXPECT_THAT(MainLog(), ElementsAre());
}

TEST_F(NetTest, Ipv4AddressAndPort) {
  EXPECT_EQ(BOOT_INIT_StrIPAddr2SockAddr(2, "127.0.0.11", 2121, &storage_), 0u);
  const auto *v4 = reinterpret_cast<const sockaddr_in *>(&storage_);
  EXPECT_EQ(v4->sin_family, AF_INET);
  EXPECT_EQ(ntohs(v4->sin_port), 2121);
  EXPECT_EQ(ntohl(v4->sin_addr.s_addr), 0x7F00000Bu);
  EXPECT_EQ(Bytes()[8], 0xAA);  // the zero padding belongs to the caller
}

TEST_F(NetTest, Ipv6TextForFamily2IsRefused) {
  EXPECT_EQ(BOOT_INIT_StrIPAddr2SockAddr(2, "::1", 21, &storage_), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Parse ip string failed: address "
                                     "family=IPv4, string=::1, ret=0, errno=0."));
}

TEST_F(NetTest, Ipv4TextForFamily10IsRefused) {
  EXPECT_EQ(BOOT_INIT_StrIPAddr2SockAddr(10, "1.2.3.x", 21, &storage_), 1u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Parse ip string failed: address "
                                     "family=IPv6, string=1.2.3.x, ret=0, errno=0."));
}

TEST_F(NetTest, UnknownFamily) {
  EXPECT_EQ(BOOT_INIT_StrIPAddr2SockAddr(7, "1.2.3.4", 21, &storage_), 1u);
  EXPECT_EQ(Bytes()[0], 0xAA);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:Sock Address family [7] is error."));
}

TEST_F(NetTest, EmptyPointers) {
  EXPECT_EQ(BOOT_INIT_StrIPAddr2SockAddr(2, nullptr, 21, &storage_), 0x10000002u);
  EXPECT_EQ(BOOT_INIT_StrIPAddr2SockAddr(2, "1.2.3.4", 21, nullptr), 0x10000002u);
  EXPECT_THAT(MainLog(), ElementsAre("[BOOT_INIT][ERROR]:input param is null when check null 1",
                                     "[BOOT_INIT][ERROR]:input param is null when check null 1"));
}

}  // namespace
