// Tests of libswm's TCP sockets on the board's own loopback network: creation, binding,
// connecting (refused, timed out and interrupted connects included), socket options read back
// from the kernel, addresses, ports and forced failures.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "board_env_files.hpp"
#include "swm.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  ~Fd() { Reset(); }
  [[nodiscard]] int get() const { return fd_; }
  void Reset(int fd = -1) {
    if (fd_ >= 0) {
      close(fd_);
    }
    fd_ = fd;
  }

 private:
  int fd_;
};

sockaddr_storage Ipv4(const char *ip, uint16_t port) {
  sockaddr_storage storage{};
  auto *address = reinterpret_cast<sockaddr_in *>(&storage);
  address->sin_family = AF_INET;
  address->sin_port = htons(port);
  EXPECT_EQ(inet_pton(AF_INET, ip, &address->sin_addr), 1) << ip;
  return storage;
}

sockaddr_storage Ipv6(const char *ip, uint16_t port) {
  sockaddr_storage storage{};
  auto *address = reinterpret_cast<sockaddr_in6 *>(&storage);
  address->sin6_family = AF_INET6;
  address->sin6_port = htons(port);
  EXPECT_EQ(inet_pton(AF_INET6, ip, &address->sin6_addr), 1) << ip;
  return storage;
}

// "ip:port" of an IPv4 or IPv6 address, for comparisons that print well.
std::string Text(const sockaddr_storage &storage) {
  char ip[INET6_ADDRSTRLEN] = {};
  if (storage.ss_family == AF_INET) {
    const auto *address = reinterpret_cast<const sockaddr_in *>(&storage);
    inet_ntop(AF_INET, &address->sin_addr, ip, sizeof(ip));
    return std::string(ip) + ":" + std::to_string(ntohs(address->sin_port));
  }
  if (storage.ss_family == AF_INET6) {
    const auto *address = reinterpret_cast<const sockaddr_in6 *>(&storage);
    inet_ntop(AF_INET6, &address->sin6_addr, ip, sizeof(ip));
    return "[" + std::string(ip) + "]:" + std::to_string(ntohs(address->sin6_port));
  }
  return "family " + std::to_string(storage.ss_family);
}

sockaddr_storage LocalAddress(int fd) {
  sockaddr_storage storage{};
  socklen_t length = sizeof(storage);
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&storage), &length), 0);
  return storage;
}

int NewSocket(int family = AF_INET) {
  int32_t fd = -1;
  EXPECT_EQ(SWM_SockGetTcpSock(family, &fd), SWM_OK);
  return fd;
}

// A listening socket on ip with a port of the kernel's choice.
int Listen(const sockaddr_storage &at, int backlog = 8) {
  const int fd = socket(at.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const socklen_t length = at.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&at), length), 0) << strerror(errno);
  EXPECT_EQ(listen(fd, backlog), 0);
  return fd;
}

int IntOption(int fd, int level, int name) {
  int value = -1;
  socklen_t length = sizeof(value);
  EXPECT_EQ(getsockopt(fd, level, name, &value, &length), 0);
  return value;
}

timeval TimeOption(int fd, int name) {
  timeval value{-1, -1};
  socklen_t length = sizeof(value);
  EXPECT_EQ(getsockopt(fd, SOL_SOCKET, name, &value, &length), 0);
  return value;
}

linger LingerOption(int fd) {
  linger value{-1, -1};
  socklen_t length = sizeof(value);
  EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_LINGER, &value, &length), 0);
  return value;
}

bool Readable(int fd, int timeoutMs) {
  pollfd watch{fd, POLLIN, 0};
  return poll(&watch, 1, timeoutMs) == 1;
}

// A listener whose accept queue is full: the kernel drops further connection requests (SYNs)
// while the queue stays full, so a connect to it waits and the request is sent again about one
// second later. Accepting the queued connection makes room for that repeated request.
class FullListener {
 public:
  FullListener()
      : listener_(Listen(Ipv4("127.0.0.11", 0), 0)), address_(LocalAddress(listener_.get())) {
    filler_.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(
        connect(filler_.get(), reinterpret_cast<const sockaddr *>(&address_), sizeof(sockaddr_in)),
        0);
    EXPECT_TRUE(Readable(listener_.get(), 2000)) << "the queued connection never arrived";
  }
  [[nodiscard]] const sockaddr_storage &address() const { return address_; }
  void AcceptQueued() { accepted_.Reset(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)); }
  void Close() { listener_.Reset(); }

 private:
  Fd listener_;
  sockaddr_storage address_;
  Fd filler_;
  Fd accepted_;
};

std::atomic<int> signalsCaught{0};

void CountSignal(int) { signalsCaught.fetch_add(1); }

// Runs steps on a helper thread, each at its delay from the start: a step without an action
// sends SIGUSR1 to the thread that made the object. Declared after what the steps use, so that
// the thread has ended before those are gone.
class Helper {
 public:
  using Step = std::pair<milliseconds, std::function<void()>>;
  explicit Helper(std::vector<Step> steps) {
    const pthread_t caller = pthread_self();
    thread_ = std::thread([caller, steps = std::move(steps)] {
      const Clock::time_point start = Clock::now();
      for (const auto &[delay, action] : steps) {
        std::this_thread::sleep_until(start + delay);
        if (action) {
          action();
        } else {
          pthread_kill(caller, SIGUSR1);
        }
      }
    });
  }
  Helper(const Helper &) = delete;
  Helper &operator=(const Helper &) = delete;
  ~Helper() { thread_.join(); }

 private:
  std::thread thread_;
};

class SwmSocketTest : public ::testing::Test {
 protected:
  void SetUp() override {
    boardtest::WriteDescription("[board]\nname=demo\n");
    signalsCaught = 0;
    struct sigaction action {};
    action.sa_handler = CountSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: a blocked connect returns EINTR
    ASSERT_EQ(sigaction(SIGUSR1, &action, &previous_), 0);
  }
  void TearDown() override { sigaction(SIGUSR1, &previous_, nullptr); }

  struct sigaction previous_ {};
};

// ---------------------------------------------------------------------------- creation

TEST_F(SwmSocketTest, GetTcpSockMakesCloseOnExecTcpSockets) {
  for (const int family : {AF_INET, AF_INET6}) {
    int32_t fd = -1;
    ASSERT_EQ(SWM_SockGetTcpSock(family, &fd), SWM_OK);
    const Fd owned(fd);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(IntOption(fd, SOL_SOCKET, SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(IntOption(fd, SOL_SOCKET, SO_DOMAIN), family);
    EXPECT_EQ(IntOption(fd, SOL_SOCKET, SO_PROTOCOL), IPPROTO_TCP);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  }
}

TEST_F(SwmSocketTest, GetTcpSockRefusesOtherFamilies) {
  int32_t fd = -7;
  EXPECT_EQ(SWM_SockGetTcpSock(AF_UNIX, &fd), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockGetTcpSock(AF_UNSPEC, &fd), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockGetTcpSock(AF_PACKET, &fd), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockGetTcpSock(-1, &fd), SWM_ERR_PARAM);
  EXPECT_EQ(fd, -7);
  EXPECT_EQ(SWM_SockGetTcpSock(AF_INET, nullptr), SWM_ERR_PARAM);
}

// ---------------------------------------------------------------------------- bind

TEST_F(SwmSocketTest, BindToAnAddressOfTheBoardNetwork) {
  const Fd fd(NewSocket());
  const sockaddr_storage address = Ipv4("127.0.0.21", 0);
  ASSERT_EQ(SWM_SockBind(fd.get(), &address), SWM_OK);
  const sockaddr_storage bound = LocalAddress(fd.get());
  EXPECT_EQ(Text(bound).rfind("127.0.0.21:", 0), 0u) << Text(bound);
  EXPECT_NE(reinterpret_cast<const sockaddr_in *>(&bound)->sin_port, 0);

  const Fd fd6(NewSocket(AF_INET6));
  const sockaddr_storage address6 = Ipv6("::1", 0);
  ASSERT_EQ(SWM_SockBind(fd6.get(), &address6), SWM_OK);
  EXPECT_EQ(Text(LocalAddress(fd6.get())).rfind("[::1]:", 0), 0u);
}

TEST_F(SwmSocketTest, BindFailuresKeepErrno) {
  const Fd first(NewSocket());
  const sockaddr_storage any = Ipv4("127.0.0.21", 0);
  ASSERT_EQ(SWM_SockBind(first.get(), &any), SWM_OK);
  const sockaddr_storage taken = LocalAddress(first.get());
  const Fd second(NewSocket());
  errno = 0;
  EXPECT_EQ(SWM_SockBind(second.get(), &taken), SWM_ERR_IO);
  EXPECT_EQ(errno, EADDRINUSE);
  const sockaddr_storage foreign = Ipv4("192.0.2.7", 0);  // not an address of this board
  errno = 0;
  EXPECT_EQ(SWM_SockBind(second.get(), &foreign), SWM_ERR_IO);
  EXPECT_EQ(errno, EADDRNOTAVAIL);
}

TEST_F(SwmSocketTest, BindAndConnectRefuseBadArguments) {
  const Fd fd(NewSocket());
  sockaddr_storage other{};
  other.ss_family = AF_UNIX;
  const sockaddr_storage good = Ipv4("127.0.0.21", 0);
  EXPECT_EQ(SWM_SockBind(fd.get(), nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockBind(fd.get(), &other), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockBind(-1, &good), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockConnect(fd.get(), nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockConnect(fd.get(), &other), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockConnect(-1, &good), SWM_ERR_PARAM);
  EXPECT_EQ(Text(LocalAddress(fd.get())), "0.0.0.0:0");  // nothing happened to the socket
}

// ---------------------------------------------------------------------------- connect

TEST_F(SwmSocketTest, ConnectFromABoundAddress) {
  const Fd listener(Listen(Ipv4("127.0.0.11", 0)));
  const sockaddr_storage server = LocalAddress(listener.get());
  const Fd client(NewSocket());
  const sockaddr_storage own = Ipv4("127.0.0.21", 0);
  ASSERT_EQ(SWM_SockBind(client.get(), &own), SWM_OK);
  ASSERT_EQ(SWM_SockConnect(client.get(), &server), SWM_OK);
  const Fd accepted(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  ASSERT_GE(accepted.get(), 0);

  sockaddr_storage local{};
  sockaddr_storage peer{};
  ASSERT_EQ(SWM_SockGetLocalSockAddr(client.get(), &local), SWM_OK);
  ASSERT_EQ(SWM_SockGetPeerSockAddr(client.get(), &peer), SWM_OK);
  EXPECT_EQ(Text(peer), Text(server));
  EXPECT_EQ(Text(local), Text(LocalAddress(client.get())));
  EXPECT_EQ(Text(local).rfind("127.0.0.21:", 0), 0u) << Text(local);
  sockaddr_storage seenByServer{};
  ASSERT_EQ(SWM_SockGetPeerSockAddr(accepted.get(), &seenByServer), SWM_OK);
  EXPECT_EQ(Text(seenByServer), Text(local));

  ASSERT_EQ(write(client.get(), "hello", 5), 5);
  char got[8] = {};
  ASSERT_EQ(read(accepted.get(), got, sizeof(got)), 5);
  EXPECT_STREQ(got, "hello");
}

TEST_F(SwmSocketTest, ConnectOverIpv6) {
  const Fd listener(Listen(Ipv6("::1", 0)));
  const sockaddr_storage server = LocalAddress(listener.get());
  const Fd client(NewSocket(AF_INET6));
  ASSERT_EQ(SWM_SockConnect(client.get(), &server), SWM_OK);
  sockaddr_storage peer{};
  ASSERT_EQ(SWM_SockGetPeerSockAddr(client.get(), &peer), SWM_OK);
  EXPECT_EQ(Text(peer), Text(server));
  sockaddr_storage local{};
  ASSERT_EQ(SWM_SockGetLocalSockAddr(client.get(), &local), SWM_OK);
  EXPECT_EQ(Text(local).rfind("[::1]:", 0), 0u) << Text(local);
}

TEST_F(SwmSocketTest, RefusedConnectKeepsErrno) {
  // A bound socket that does not listen holds the port: the connection request is reset.
  const Fd holder(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_storage at = Ipv4("127.0.0.11", 0);
  ASSERT_EQ(bind(holder.get(), reinterpret_cast<const sockaddr *>(&at), sizeof(sockaddr_in)), 0);
  const sockaddr_storage closed = LocalAddress(holder.get());
  const Fd client(NewSocket());
  errno = 0;
  EXPECT_EQ(SWM_SockConnect(client.get(), &closed), SWM_ERR_IO);
  EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(SwmSocketTest, ConnectGivesUpAtTheSendTimeout) {
  FullListener server;
  const Fd client(NewSocket());
  const timeval second{1, 0};
  ASSERT_EQ(SWM_SockSetSndTimeout(client.get(), &second), SWM_OK);
  const Clock::time_point start = Clock::now();
  errno = 0;
  EXPECT_EQ(SWM_SockConnect(client.get(), &server.address()), SWM_ERR_IO);
  EXPECT_EQ(errno, ETIMEDOUT);
  const Clock::duration took = Clock::now() - start;
  EXPECT_GE(took, milliseconds(900));
  EXPECT_LT(took, milliseconds(3000));
  EXPECT_EQ(signalsCaught, 0);
}

TEST_F(SwmSocketTest, InterruptedConnectWaitsForTheConnection) {
  FullListener server;
  const Fd client(NewSocket());
  // The first signal interrupts connect(2), the second the wait that follows; then the queue
  // gets room and the repeated connection request is answered.
  const Helper helper({{milliseconds(200), nullptr},
                       {milliseconds(400), nullptr},
                       {milliseconds(500), [&server] { server.AcceptQueued(); }}});
  const Clock::time_point start = Clock::now();
  ASSERT_EQ(SWM_SockConnect(client.get(), &server.address()), SWM_OK) << strerror(errno);
  EXPECT_GE(Clock::now() - start, milliseconds(500));
  EXPECT_EQ(signalsCaught, 2);
  sockaddr_storage peer{};
  ASSERT_EQ(SWM_SockGetPeerSockAddr(client.get(), &peer), SWM_OK);
  EXPECT_EQ(Text(peer), Text(server.address()));
}

TEST_F(SwmSocketTest, InterruptedConnectReportsTheRefusal) {
  FullListener server;
  const Fd client(NewSocket());
  const Helper helper(
      {{milliseconds(200), nullptr}, {milliseconds(400), [&server] { server.Close(); }}});
  errno = 0;
  EXPECT_EQ(SWM_SockConnect(client.get(), &server.address()), SWM_ERR_IO);
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_EQ(signalsCaught, 1);
}

TEST_F(SwmSocketTest, InterruptedConnectGivesUpAtTheSendTimeout) {
  FullListener server;
  const Fd client(NewSocket());
  const timeval timeout{1, 200000};
  ASSERT_EQ(SWM_SockSetSndTimeout(client.get(), &timeout), SWM_OK);
  const Helper helper({{milliseconds(200), nullptr}});
  const Clock::time_point start = Clock::now();
  errno = 0;
  EXPECT_EQ(SWM_SockConnect(client.get(), &server.address()), SWM_ERR_IO);
  EXPECT_EQ(errno, ETIMEDOUT);
  const Clock::duration took = Clock::now() - start;
  EXPECT_GE(took, milliseconds(1200));  // measured from the start of the call
  EXPECT_LT(took, milliseconds(3000));
  EXPECT_EQ(signalsCaught, 1);
}

TEST_F(SwmSocketTest, NonBlockingConnectAnswersInProgress) {
  FullListener server;
  const Fd client(NewSocket());
  ASSERT_EQ(fcntl(client.get(), F_SETFL, O_NONBLOCK), 0);
  errno = 0;
  EXPECT_EQ(SWM_SockConnect(client.get(), &server.address()), SWM_ERR_IO);
  EXPECT_EQ(errno, EINPROGRESS);
}

// ---------------------------------------------------------------------------- options

TEST_F(SwmSocketTest, LingerIsSet) {
  const Fd fd(NewSocket());
  const linger resetAtClose{1, 0};
  ASSERT_EQ(SWM_SockSetLinger(fd.get(), &resetAtClose), SWM_OK);
  linger got = LingerOption(fd.get());
  EXPECT_EQ(got.l_onoff, 1);
  EXPECT_EQ(got.l_linger, 0);
  const linger wait{1, 7};
  ASSERT_EQ(SWM_SockSetLinger(fd.get(), &wait), SWM_OK);
  got = LingerOption(fd.get());
  EXPECT_EQ(got.l_onoff, 1);
  EXPECT_EQ(got.l_linger, 7);
  const linger off{0, 0};
  ASSERT_EQ(SWM_SockSetLinger(fd.get(), &off), SWM_OK);
  EXPECT_EQ(LingerOption(fd.get()).l_onoff, 0);
}

TEST_F(SwmSocketTest, KeepAliveIsSet) {
  const Fd fd(NewSocket());
  ASSERT_EQ(IntOption(fd.get(), SOL_SOCKET, SO_KEEPALIVE), 0);
  ASSERT_EQ(SWM_SockSetKeepAlive(fd.get(), 10, 10, 3), SWM_OK);
  EXPECT_EQ(IntOption(fd.get(), SOL_SOCKET, SO_KEEPALIVE), 1);
  EXPECT_EQ(IntOption(fd.get(), IPPROTO_TCP, TCP_KEEPIDLE), 10);
  EXPECT_EQ(IntOption(fd.get(), IPPROTO_TCP, TCP_KEEPINTVL), 10);
  EXPECT_EQ(IntOption(fd.get(), IPPROTO_TCP, TCP_KEEPCNT), 3);
  ASSERT_EQ(SWM_SockSetKeepAlive(fd.get(), 30, 4, 9), SWM_OK);
  EXPECT_EQ(IntOption(fd.get(), IPPROTO_TCP, TCP_KEEPIDLE), 30);
  EXPECT_EQ(IntOption(fd.get(), IPPROTO_TCP, TCP_KEEPINTVL), 4);
  EXPECT_EQ(IntOption(fd.get(), IPPROTO_TCP, TCP_KEEPCNT), 9);
}

TEST_F(SwmSocketTest, KeepAliveRefusesBadValues) {
  const Fd fd(NewSocket());
  EXPECT_EQ(SWM_SockSetKeepAlive(fd.get(), 0, 10, 3), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetKeepAlive(fd.get(), 10, -1, 3), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetKeepAlive(fd.get(), 10, 10, 0), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetKeepAlive(-1, 10, 10, 3), SWM_ERR_PARAM);
  errno = 0;
  EXPECT_EQ(SWM_SockSetKeepAlive(fd.get(), 10, 10, 128), SWM_ERR_IO);  // more than TCP allows
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(IntOption(fd.get(), SOL_SOCKET, SO_KEEPALIVE), 0);  // left off
}

TEST_F(SwmSocketTest, TimeoutsAreSet) {
  const Fd fd(NewSocket());
  const timeval receive{5, 0};
  const timeval send{2, 500000};
  ASSERT_EQ(SWM_SockSetRcvTimeout(fd.get(), &receive), SWM_OK);
  ASSERT_EQ(SWM_SockSetSndTimeout(fd.get(), &send), SWM_OK);
  const timeval gotReceive = TimeOption(fd.get(), SO_RCVTIMEO);
  const timeval gotSend = TimeOption(fd.get(), SO_SNDTIMEO);
  EXPECT_EQ(gotReceive.tv_sec, 5);
  EXPECT_EQ(gotReceive.tv_usec, 0);
  EXPECT_EQ(gotSend.tv_sec, 2);
  EXPECT_EQ(gotSend.tv_usec, 500000);
}

TEST_F(SwmSocketTest, ReceiveTimeoutEndsABlockedRead) {
  const Fd listener(Listen(Ipv4("127.0.0.11", 0)));
  const sockaddr_storage server = LocalAddress(listener.get());
  const Fd client(NewSocket());
  ASSERT_EQ(SWM_SockConnect(client.get(), &server), SWM_OK);
  const timeval shortly{0, 200000};
  ASSERT_EQ(SWM_SockSetRcvTimeout(client.get(), &shortly), SWM_OK);
  char byte = 0;
  errno = 0;
  EXPECT_EQ(read(client.get(), &byte, 1), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(SwmSocketTest, OptionFailuresKeepErrno) {
  const timeval bad{1, 1000000};
  const Fd fd(NewSocket());
  errno = 0;
  EXPECT_EQ(SWM_SockSetRcvTimeout(fd.get(), &bad), SWM_ERR_IO);
  EXPECT_EQ(errno, EDOM);
  errno = 0;
  EXPECT_EQ(SWM_SockSetSndTimeout(fd.get(), &bad), SWM_ERR_IO);
  EXPECT_EQ(errno, EDOM);
  const Fd notSocket(open("/dev/null", O_RDONLY | O_CLOEXEC));
  const linger off{0, 0};
  errno = 0;
  EXPECT_EQ(SWM_SockSetLinger(notSocket.get(), &off), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOTSOCK);
  errno = 0;
  EXPECT_EQ(SWM_SockSetKeepAlive(notSocket.get(), 10, 10, 3), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOTSOCK);
}

TEST_F(SwmSocketTest, OptionsRefuseBadArguments) {
  const Fd fd(NewSocket());
  const timeval timeout{5, 0};
  const linger off{0, 0};
  EXPECT_EQ(SWM_SockSetLinger(fd.get(), nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetLinger(-1, &off), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetRcvTimeout(fd.get(), nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetRcvTimeout(-1, &timeout), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetSndTimeout(fd.get(), nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetSndTimeout(-1, &timeout), SWM_ERR_PARAM);
}

// ---------------------------------------------------------------------------- addresses

TEST_F(SwmSocketTest, AddressesAreClearedBeforeTheyAreFilled) {
  const Fd fd(NewSocket());
  const sockaddr_storage own = Ipv4("127.0.0.21", 0);
  ASSERT_EQ(SWM_SockBind(fd.get(), &own), SWM_OK);
  sockaddr_storage local;
  std::memset(&local, 0xA5, sizeof(local));
  ASSERT_EQ(SWM_SockGetLocalSockAddr(fd.get(), &local), SWM_OK);
  const auto *bytes = reinterpret_cast<const unsigned char *>(&local);
  for (size_t i = sizeof(sockaddr_in); i < sizeof(local); ++i) {
    ASSERT_EQ(bytes[i], 0) << "byte " << i;
  }
  EXPECT_EQ(Text(local), Text(LocalAddress(fd.get())));
}

TEST_F(SwmSocketTest, PeerOfAnUnconnectedSocket) {
  const Fd fd(NewSocket());
  sockaddr_storage peer;
  std::memset(&peer, 0xA5, sizeof(peer));
  errno = 0;
  EXPECT_EQ(SWM_SockGetPeerSockAddr(fd.get(), &peer), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOTCONN);
  EXPECT_EQ(peer.ss_family, 0);  // cleared all the same
  EXPECT_EQ(SWM_SockGetPeerSockAddr(fd.get(), nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockGetPeerSockAddr(-1, &peer), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockGetLocalSockAddr(fd.get(), nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockGetLocalSockAddr(-1, &peer), SWM_ERR_PARAM);
  const Fd notSocket(open("/dev/null", O_RDONLY | O_CLOEXEC));
  errno = 0;
  EXPECT_EQ(SWM_SockGetLocalSockAddr(notSocket.get(), &peer), SWM_ERR_IO);
  EXPECT_EQ(errno, ENOTSOCK);
}

TEST_F(SwmSocketTest, SetPortWritesNetworkByteOrder) {
  sockaddr_storage v4 = Ipv4("127.0.0.11", 21);
  ASSERT_EQ(SWM_SockSetPort(5001, &v4), SWM_OK);
  EXPECT_EQ(Text(v4), "127.0.0.11:5001");
  const auto *port4 = reinterpret_cast<const unsigned char *>(
      &reinterpret_cast<const sockaddr_in *>(&v4)->sin_port);
  EXPECT_EQ(port4[0], 0x13);  // 5001 = 0x1389, most significant byte first
  EXPECT_EQ(port4[1], 0x89);
  sockaddr_storage v6 = Ipv6("::1", 21);
  ASSERT_EQ(SWM_SockSetPort(0, &v6), SWM_OK);
  EXPECT_EQ(Text(v6), "[::1]:0");
  ASSERT_EQ(SWM_SockSetPort(65535, &v6), SWM_OK);
  EXPECT_EQ(Text(v6), "[::1]:65535");
}

TEST_F(SwmSocketTest, SetPortChangesNothingElse) {
  sockaddr_storage before = Ipv6("fe80::1", 21);
  reinterpret_cast<sockaddr_in6 *>(&before)->sin6_flowinfo = htonl(0x12345);
  reinterpret_cast<sockaddr_in6 *>(&before)->sin6_scope_id = 3;
  sockaddr_storage after = before;
  ASSERT_EQ(SWM_SockSetPort(2121, &after), SWM_OK);
  reinterpret_cast<sockaddr_in6 *>(&before)->sin6_port = htons(2121);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof(before)), 0);
}

TEST_F(SwmSocketTest, SetPortRefusesOtherFamilies) {
  sockaddr_storage other{};
  other.ss_family = AF_UNIX;
  const sockaddr_storage untouched = other;
  EXPECT_EQ(SWM_SockSetPort(21, &other), SWM_ERR_PARAM);
  EXPECT_EQ(std::memcmp(&other, &untouched, sizeof(other)), 0);
  EXPECT_EQ(SWM_SockSetPort(21, nullptr), SWM_ERR_PARAM);
}

// ---------------------------------------------------------------------------- forced failures

TEST_F(SwmSocketTest, ForcedFailuresChangeNothing) {
  const Fd listener(Listen(Ipv4("127.0.0.11", 0)));
  const sockaddr_storage server = LocalAddress(listener.get());
  const Fd fd(NewSocket());
  boardtest::WriteDescription(
      "[fail]\nSWM_SockGetTcpSock=0x31\nSWM_SockBind=50\nSWM_SockConnect=51\n"
      "SWM_SockSetLinger=52\nSWM_SockSetKeepAlive=53\nSWM_SockSetRcvTimeout=54\n"
      "SWM_SockSetSndTimeout=55\nSWM_SockSetPort=56\n");
  const int before = boardtest::CountOpenFds();
  int32_t created = -7;
  errno = 0;
  EXPECT_EQ(SWM_SockGetTcpSock(AF_INET, &created), 0x31u);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(created, -7);
  EXPECT_EQ(boardtest::CountOpenFds(), before);

  const sockaddr_storage own = Ipv4("127.0.0.21", 0);
  EXPECT_EQ(SWM_SockBind(fd.get(), &own), 50u);
  EXPECT_EQ(Text(LocalAddress(fd.get())), "0.0.0.0:0");
  EXPECT_EQ(SWM_SockConnect(fd.get(), &server), 51u);
  EXPECT_FALSE(Readable(listener.get(), 100)) << "a connection was made";
  const linger resetAtClose{1, 0};
  EXPECT_EQ(SWM_SockSetLinger(fd.get(), &resetAtClose), 52u);
  EXPECT_EQ(LingerOption(fd.get()).l_onoff, 0);
  EXPECT_EQ(SWM_SockSetKeepAlive(fd.get(), 10, 10, 3), 53u);
  EXPECT_EQ(IntOption(fd.get(), SOL_SOCKET, SO_KEEPALIVE), 0);
  const timeval timeout{5, 0};
  EXPECT_EQ(SWM_SockSetRcvTimeout(fd.get(), &timeout), 54u);
  EXPECT_EQ(TimeOption(fd.get(), SO_RCVTIMEO).tv_sec, 0);
  EXPECT_EQ(SWM_SockSetSndTimeout(fd.get(), &timeout), 55u);
  EXPECT_EQ(TimeOption(fd.get(), SO_SNDTIMEO).tv_sec, 0);
  sockaddr_storage address = Ipv4("127.0.0.11", 21);
  EXPECT_EQ(SWM_SockSetPort(2121, &address), 56u);
  EXPECT_EQ(Text(address), "127.0.0.11:21");
}

TEST_F(SwmSocketTest, ForcedFailuresComeAfterTheArgumentChecks) {
  boardtest::WriteDescription(
      "[fail]\nSWM_SockGetTcpSock=0x31\nSWM_SockBind=50\nSWM_SockConnect=51\n"
      "SWM_SockSetLinger=52\nSWM_SockSetKeepAlive=53\nSWM_SockSetRcvTimeout=54\n"
      "SWM_SockSetSndTimeout=55\nSWM_SockSetPort=56\nSWM_SockGetLocalSockAddr=57\n"
      "SWM_SockGetPeerSockAddr=58\n");
  int32_t fd = -1;
  EXPECT_EQ(SWM_SockGetTcpSock(AF_UNIX, &fd), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockBind(3, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockConnect(3, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetLinger(3, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetKeepAlive(3, 0, 1, 1), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetRcvTimeout(3, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetSndTimeout(3, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockSetPort(21, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockGetLocalSockAddr(3, nullptr), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_SockGetPeerSockAddr(3, nullptr), SWM_ERR_PARAM);
}

TEST_F(SwmSocketTest, ForcedAddressFailuresStillWriteTheAddress) {
  const Fd listener(Listen(Ipv4("127.0.0.11", 0)));
  const sockaddr_storage server = LocalAddress(listener.get());
  const Fd fd(NewSocket());
  ASSERT_EQ(SWM_SockConnect(fd.get(), &server), SWM_OK);
  boardtest::WriteDescription(
      "[fail]\nSWM_SockGetLocalSockAddr=57\nSWM_SockGetPeerSockAddr=0x3A\n");
  sockaddr_storage local{};
  sockaddr_storage peer{};
  errno = 0;
  EXPECT_EQ(SWM_SockGetLocalSockAddr(fd.get(), &local), 57u);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(SWM_SockGetPeerSockAddr(fd.get(), &peer), 58u);
  EXPECT_EQ(Text(local), Text(LocalAddress(fd.get())));
  EXPECT_EQ(Text(peer), Text(server));
}

TEST_F(SwmSocketTest, NoDescriptorLeaks) {
  const Fd listener(Listen(Ipv4("127.0.0.11", 0), 64));
  const sockaddr_storage server = LocalAddress(listener.get());
  const int before = boardtest::CountOpenFds();
  for (int i = 0; i < 20; ++i) {
    const Fd client(NewSocket());
    const sockaddr_storage own = Ipv4("127.0.0.21", 0);
    ASSERT_EQ(SWM_SockBind(client.get(), &own), SWM_OK);
    ASSERT_EQ(SWM_SockConnect(client.get(), &server), SWM_OK);
    const Fd accepted(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    sockaddr_storage address{};
    ASSERT_EQ(SWM_SockGetLocalSockAddr(client.get(), &address), SWM_OK);
    ASSERT_EQ(SWM_SockGetPeerSockAddr(client.get(), &address), SWM_OK);
  }
  EXPECT_EQ(boardtest::CountOpenFds(), before);
}

}  // namespace
