// Textual IP address to socket address.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "bootinit/common.h"
#include "bootinit/log.h"
#include "common/support/messages.hpp"

namespace bootinit::net {
namespace {

constexpr int32_t kFamilyIpv4 = 2;
constexpr int32_t kFamilyIpv6 = 10;
static_assert(kFamilyIpv4 == AF_INET && kFamilyIpv6 == AF_INET6);

// Family and port sit at the same places in both layouts.
static_assert(offsetof(sockaddr_in, sin_family) == offsetof(sockaddr_in6, sin6_family));
static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));

// Only family, port and address are written; the caller has zeroed the rest.
void WriteFamilyAndPort(unsigned char *out, sa_family_t family, uint16_t port) {
  const uint16_t netPort = htons(port);
  std::memcpy(out + offsetof(sockaddr_in, sin_family), &family, sizeof(family));
  std::memcpy(out + offsetof(sockaddr_in, sin_port), &netPort, sizeof(netPort));
}

}  // namespace

uint32_t StrToSockAddr(int32_t family, const char *ip, uint16_t port, unsigned char *out) {
  int result = 0;
  errno = 0;
  if (family == kFamilyIpv4) {
    WriteFamilyAndPort(out, AF_INET, port);
    result = inet_pton(AF_INET, ip, out + offsetof(sockaddr_in, sin_addr));
  } else if (family == kFamilyIpv6) {
    WriteFamilyAndPort(out, AF_INET6, port);
    result = inet_pton(AF_INET6, ip, out + offsetof(sockaddr_in6, sin6_addr));
  } else {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Sock Address family [%d] is error.", family);
    return 1;
  }
  if (result != 1) {
    const int savedErrno = errno;
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN,
                       "[BOOT_INIT][ERROR]:Parse ip string failed: address family=%s, string=%s, "
                       "ret=%d, errno=%d.",
                       family == kFamilyIpv4 ? "IPv4" : "IPv6", ip, result, savedErrno);
    return 1;
  }
  return BOOT_INIT_OK;
}

}  // namespace bootinit::net

extern "C" uint32_t BOOT_INIT_StrIPAddr2SockAddr(int32_t family, const char *ipString,
                                                 uint16_t port, void *sockAddr) {
  if (ipString == nullptr || sockAddr == nullptr) {
    BOOT_INIT_LogWrite(BOOT_INIT_LOG_TYPE_MAIN, BOOTINIT_MSG_NULL_PARAM_1);
    return BOOT_INIT_ERR_NULL_PTR;
  }
  return bootinit::net::StrToSockAddr(family, ipString, port,
                                      static_cast<unsigned char *>(sockAddr));
}
