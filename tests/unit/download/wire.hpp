// A connected pair of stream sockets: the client side goes to the code under test, the test
// speaks for the server on the other side.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace downloadtest {

class Wire {
 public:
  Wire() { (void)socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds_); }
  Wire(const Wire &) = delete;
  Wire &operator=(const Wire &) = delete;
  ~Wire() {
    for (int &fd : fds_) {
      if (fd >= 0) {
        close(fd);
      }
    }
  }

  [[nodiscard]] int client() const { return fds_[0]; }
  void Say(const std::string &bytes) const { (void)!write(fds_[1], bytes.data(), bytes.size()); }
  // The server stops sending: the client reads the end of the stream (and may still write,
  // without a broken pipe).
  void Hangup() const { (void)shutdown(fds_[1], SHUT_WR); }
  // Everything the client has sent so far.
  [[nodiscard]] std::string Heard() const {
    std::string heard;
    char buffer[4096];
    for (;;) {
      const ssize_t n = recv(fds_[1], buffer, sizeof(buffer), MSG_DONTWAIT);
      if (n <= 0) {
        return heard;
      }
      heard.append(buffer, static_cast<std::size_t>(n));
    }
  }
  // Bytes still waiting for the client to read them.
  [[nodiscard]] std::string Unread() const {
    std::string unread;
    char buffer[4096];
    for (;;) {
      const ssize_t n = recv(fds_[0], buffer, sizeof(buffer), MSG_DONTWAIT);
      if (n <= 0) {
        return unread;
      }
      unread.append(buffer, static_cast<std::size_t>(n));
    }
  }

 private:
  int fds_[2] = {-1, -1};
};

}  // namespace downloadtest
