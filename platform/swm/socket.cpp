// TCP sockets over BSD sockets: creation, binding, connecting and socket options, for IPv4 and
// IPv6 addresses held in socket-address storages.
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "forced.h"
#include "swm.h"

namespace {

using Clock = std::chrono::steady_clock;

// Length of the address for the family it holds; 0 for a family other than IPv4 and IPv6.
socklen_t AddressLength(const sockaddr_storage &address) {
  switch (address.ss_family) {
    case AF_INET:
      return sizeof(sockaddr_in);
    case AF_INET6:
      return sizeof(sockaddr_in6);
    default:
      return 0;
  }
}

const sockaddr *AsSockaddr(const sockaddr_storage *address) {
  return reinterpret_cast<const sockaddr *>(address);
}

sockaddr *AsSockaddr(sockaddr_storage *address) { return reinterpret_cast<sockaddr *>(address); }

uint32_t SetOption(int fd, int level, int name, const void *value, socklen_t length) {
  return setsockopt(fd, level, name, value, length) == 0 ? SWM_OK : SWM_ERR_IO;
}

uint32_t SetIntOption(int fd, int level, int name, int value) {
  return SetOption(fd, level, name, &value, sizeof(value));
}

// When a blocking connect must be given up: its send timeout (SO_SNDTIMEO) after start, as the
// kernel does for an uninterrupted connect; nullopt when the socket has none.
bool ConnectDeadline(int fd, Clock::time_point start, std::optional<Clock::time_point> *deadline) {
  timeval timeout{};
  socklen_t length = sizeof(timeout);
  if (getsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, &length) != 0) {
    return false;
  }
  if (timeout.tv_sec != 0 || timeout.tv_usec != 0) {
    *deadline =
        start + std::chrono::seconds(timeout.tv_sec) + std::chrono::microseconds(timeout.tv_usec);
  }
  return true;
}

// Milliseconds poll(2) may wait until deadline (rounded up, so that it does not wake early);
// -1 for no deadline.
int PollMilliseconds(std::optional<Clock::time_point> deadline) {
  if (!deadline) {
    return -1;
  }
  const Clock::duration left = *deadline - Clock::now();
  if (left <= Clock::duration::zero()) {
    return 0;
  }
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return milliseconds > INT_MAX ? INT_MAX : static_cast<int>(milliseconds);
}

// An interrupted connect(2) goes on in the background: the socket becomes writable once the
// attempt has ended, and SO_ERROR then tells how.
uint32_t AwaitConnection(int fd, std::optional<Clock::time_point> deadline) {
  for (;;) {
    pollfd watch{fd, POLLOUT, 0};
    const int ready = poll(&watch, 1, PollMilliseconds(deadline));
    if (ready < 0) {
      if (errno == EINTR) {
        continue;
      }
      return SWM_ERR_IO;
    }
    if (ready == 0) {
      errno = ETIMEDOUT;
      return SWM_ERR_IO;
    }
    int error = 0;
    socklen_t length = sizeof(error);
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
      return SWM_ERR_IO;
    }
    if (error != 0) {
      errno = error;
      return SWM_ERR_IO;
    }
    return SWM_OK;
  }
}

uint32_t Connect(int fd, const sockaddr_storage *address, socklen_t length) {
  const Clock::time_point start = Clock::now();
  if (connect(fd, AsSockaddr(address), length) == 0) {
    return SWM_OK;
  }
  if (errno == EINPROGRESS) {
    // A blocking socket answers EINPROGRESS when its send timeout ran out; a non-blocking one
    // asked for exactly that answer.
    const int flags = fcntl(fd, F_GETFL);
    errno = flags >= 0 && (flags & O_NONBLOCK) == 0 ? ETIMEDOUT : EINPROGRESS;
    return SWM_ERR_IO;
  }
  if (errno != EINTR) {
    return SWM_ERR_IO;
  }
  std::optional<Clock::time_point> deadline;
  if (!ConnectDeadline(fd, start, &deadline)) {
    return SWM_ERR_IO;
  }
  return AwaitConnection(fd, deadline);
}

uint32_t GetAddress(int fd, sockaddr_storage *address, int (*query)(int, sockaddr *, socklen_t *)) {
  std::memset(address, 0, sizeof(*address));
  socklen_t length = sizeof(*address);
  return query(fd, AsSockaddr(address), &length) == 0 ? SWM_OK : SWM_ERR_IO;
}

// The port field of an IPv4 or IPv6 address; nullptr for other families.
void *PortField(sockaddr_storage *address) {
  char *base = reinterpret_cast<char *>(address);
  switch (address->ss_family) {
    case AF_INET:
      return base + offsetof(sockaddr_in, sin_port);
    case AF_INET6:
      return base + offsetof(sockaddr_in6, sin6_port);
    default:
      return nullptr;
  }
}

}  // namespace

extern "C" uint32_t SWM_SockGetTcpSock(int32_t family, int32_t *fd) {
  if (fd == nullptr || (family != AF_INET && family != AF_INET6)) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_SockGetTcpSock", &forced)) {
    return forced;  // before the socket exists: a failed call hands out nothing to close
  }
  const int created = socket(family, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
  if (created < 0) {
    return SWM_ERR_IO;
  }
  *fd = created;
  return SWM_OK;
}

extern "C" uint32_t SWM_SockBind(int32_t fd, const struct sockaddr_storage *address) {
  const socklen_t length = address == nullptr ? 0 : AddressLength(*address);
  if (fd < 0 || length == 0) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_SockBind", &forced)) {
    return forced;
  }
  return bind(fd, AsSockaddr(address), length) == 0 ? SWM_OK : SWM_ERR_IO;
}

extern "C" uint32_t SWM_SockConnect(int32_t fd, const struct sockaddr_storage *address) {
  const socklen_t length = address == nullptr ? 0 : AddressLength(*address);
  if (fd < 0 || length == 0) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_SockConnect", &forced)) {
    return forced;
  }
  return Connect(fd, address, length);
}

extern "C" uint32_t SWM_SockSetLinger(int32_t fd, const struct linger *linger) {
  if (fd < 0 || linger == nullptr) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_SockSetLinger", &forced)) {
    return forced;
  }
  return SetOption(fd, SOL_SOCKET, SO_LINGER, linger, sizeof(*linger));
}

extern "C" uint32_t SWM_SockSetKeepAlive(int32_t fd, int32_t idleSeconds, int32_t intervalSeconds,
                                         int32_t probes) {
  if (fd < 0 || idleSeconds < 1 || intervalSeconds < 1 || probes < 1) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_SockSetKeepAlive", &forced)) {
    return forced;
  }
  // Keep-alive is switched on last: a value the kernel refuses leaves it off rather than on
  // with the system's timing.
  if (SetIntOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, idleSeconds) != SWM_OK ||
      SetIntOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, intervalSeconds) != SWM_OK ||
      SetIntOption(fd, IPPROTO_TCP, TCP_KEEPCNT, probes) != SWM_OK) {
    return SWM_ERR_IO;
  }
  return SetIntOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
}

extern "C" uint32_t SWM_SockSetRcvTimeout(int32_t fd, const struct timeval *timeout) {
  if (fd < 0 || timeout == nullptr) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_SockSetRcvTimeout", &forced)) {
    return forced;
  }
  return SetOption(fd, SOL_SOCKET, SO_RCVTIMEO, timeout, sizeof(*timeout));
}

extern "C" uint32_t SWM_SockSetSndTimeout(int32_t fd, const struct timeval *timeout) {
  if (fd < 0 || timeout == nullptr) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_SockSetSndTimeout", &forced)) {
    return forced;
  }
  return SetOption(fd, SOL_SOCKET, SO_SNDTIMEO, timeout, sizeof(*timeout));
}

extern "C" uint32_t SWM_SockGetLocalSockAddr(int32_t fd, struct sockaddr_storage *address) {
  if (fd < 0 || address == nullptr) {
    return SWM_ERR_PARAM;
  }
  return swm::ForcedAfter("SWM_SockGetLocalSockAddr", GetAddress(fd, address, getsockname));
}

extern "C" uint32_t SWM_SockGetPeerSockAddr(int32_t fd, struct sockaddr_storage *address) {
  if (fd < 0 || address == nullptr) {
    return SWM_ERR_PARAM;
  }
  return swm::ForcedAfter("SWM_SockGetPeerSockAddr", GetAddress(fd, address, getpeername));
}

extern "C" uint32_t SWM_SockSetPort(uint16_t port, struct sockaddr_storage *address) {
  void *field = address == nullptr ? nullptr : PortField(address);
  if (field == nullptr) {
    return SWM_ERR_PARAM;
  }
  uint32_t forced = SWM_OK;
  if (swm::ForcedBefore("SWM_SockSetPort", &forced)) {
    return forced;
  }
  const uint16_t networkOrder = htons(port);
  std::memcpy(field, &networkOrder, sizeof(networkOrder));
  return SWM_OK;
}
