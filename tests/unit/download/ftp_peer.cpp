#include "ftp_peer.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace ftppeer {
namespace {

// Long enough for the client's own time-outs (5 s) and pauses; a broken test still ends.
constexpr int kWaitMs = 30000;

std::string AddressOf(const sockaddr_in &address) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof(text));
  return text;
}

sockaddr_in MakeAddress(const std::string &address, uint16_t port) {
  sockaddr_in out{};
  out.sin_family = AF_INET;
  out.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &out.sin_addr) != 1) {
    throw std::runtime_error("bad address " + address);
  }
  return out;
}

int Listen(const std::string &address, uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  const sockaddr_in local = MakeAddress(address, port);
  if (bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof(local)) != 0 ||
      listen(fd, 8) != 0) {
    const std::string reason = std::strerror(errno);
    close(fd);
    throw std::runtime_error("cannot listen on " + address + ":" + std::to_string(port) + ": " +
                             reason);
  }
  return fd;
}

sockaddr_in LocalOf(int fd) {
  sockaddr_in local{};
  socklen_t length = sizeof(local);
  getsockname(fd, reinterpret_cast<sockaddr *>(&local), &length);
  return local;
}

void CloseFd(int &fd) {
  if (fd >= 0) {
    close(fd);
    fd = -1;
  }
}

// Visible bytes of a line for failure messages.
std::string Shown(const std::string &text) {
  std::string shown;
  for (const char c : text) {
    if (c == '\r') {
      shown += "\\r";
    } else if (c == '\n') {
      shown += "\\n";
    } else {
      shown += c;
    }
  }
  return shown;
}

}  // namespace

std::string PasvText(const std::string &address, uint16_t port) {
  std::string numbers = address;
  for (char &c : numbers) {
    if (c == '.') {
      c = ',';
    }
  }
  std::ostringstream text;
  text << "227 Entering Passive Mode (" << numbers << "," << (port >> 8) << "," << (port & 0xFF)
       << ").\r\n";
  return text.str();
}

FtpPeer::FtpPeer(const std::string &address, uint16_t port)
    : address_(address), port_(port), listener_(Listen(address, port)) {
  if (pipe2(stopPipe_, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2 failed");
  }
}

FtpPeer::~FtpPeer() {
  if (thread_.joinable()) {
    (void)Finish();
  }
  CloseFd(listener_);
  CloseFd(stopPipe_[0]);
  CloseFd(stopPipe_[1]);
}

FtpSession &FtpPeer::Session() { return sessions_.emplace_back(*this); }

void FtpPeer::Start() {
  thread_ = std::thread([this] { Run(); });
}

std::vector<std::string> FtpPeer::Finish() {
  if (thread_.joinable()) {
    const char stop = 's';
    (void)!write(stopPipe_[1], &stop, 1);
    thread_.join();
  }
  if (listener_ >= 0) {
    // A connection the script did not ask for waits in the backlog.
    fcntl(listener_, F_SETFL, O_NONBLOCK);
    const int extra = accept(listener_, nullptr, nullptr);
    if (extra >= 0) {
      Fail("a connection that was not scripted");
      close(extra);
    }
  }
  for (FtpSession &session : sessions_) {
    CloseFd(session.dataListener_);
  }
  CloseFd(listener_);
  CloseFd(stopPipe_[0]);
  CloseFd(stopPipe_[1]);
  return failures_;
}

void FtpPeer::Fail(const std::string &what) {
  failures_.push_back(address_ + ":" + std::to_string(port_) + ": " + what);
}

bool FtpPeer::WaitReadable(int fd, int timeoutMs) {
  pollfd fds[2] = {{fd, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
  for (;;) {
    const int ready = poll(fds, 2, timeoutMs);
    if (ready < 0 && errno == EINTR) {
      continue;
    }
    // What the client already sent is played even after the test stopped waiting.
    if (ready > 0 && fds[0].revents != 0) {
      return true;
    }
    return false;
  }
}

bool FtpPeer::WaitWritable(int fd) {
  pollfd fds[2] = {{fd, POLLOUT, 0}, {stopPipe_[0], POLLIN, 0}};
  const int ready = poll(fds, 2, kWaitMs);
  return ready > 0 && fds[0].revents != 0 && fds[1].revents == 0;
}

bool FtpPeer::SendAll(int fd, const std::string &bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    if (!WaitWritable(fd)) {
      return false;
    }
    const ssize_t n = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN) {
        continue;
      }
      return false;
    }
    sent += static_cast<std::size_t>(n);
  }
  return true;
}

int FtpPeer::AcceptOn(int listener, std::string &client) {
  if (!WaitReadable(listener, kWaitMs)) {
    return -1;
  }
  sockaddr_in peer{};
  socklen_t length = sizeof(peer);
  const int fd = accept4(listener, reinterpret_cast<sockaddr *>(&peer), &length, SOCK_CLOEXEC);
  if (fd >= 0) {
    client = AddressOf(peer);
  }
  return fd;
}

void FtpPeer::Run() {
  for (std::size_t i = 0; i < sessions_.size(); ++i) {
    std::string client;
    int ctrl = AcceptOn(listener_, client);
    if (ctrl < 0) {
      Fail("session " + std::to_string(i) + ": the client never connected");
      return;
    }
    controlClients_.push_back(client);
    (void)sessions_[i].Play(ctrl);
    CloseFd(ctrl);
    CloseFd(sessions_[i].dataListener_);
  }
}

FtpSession &FtpSession::Send(const std::string &bytes) {
  steps_.push_back({Step::Kind::kSend, bytes, "", 0, DataEnd::kClose, nullptr, 0});
  return *this;
}

FtpSession &FtpSession::Expect(const std::string &line, const std::string &reply) {
  steps_.push_back({Step::Kind::kExpect, line, reply, 0, DataEnd::kClose, nullptr, 0});
  return *this;
}

FtpSession &FtpSession::Pasv(const std::string &announced, uint16_t port) {
  steps_.push_back({Step::Kind::kPasv, announced, "", port, DataEnd::kClose, nullptr, 0});
  return *this;
}

FtpSession &FtpSession::PasvReply(const std::string &reply) {
  steps_.push_back({Step::Kind::kPasvReply, "PASV", reply, 0, DataEnd::kClose, nullptr, 0});
  return *this;
}

FtpSession &FtpSession::Data(const std::string &content, DataEnd end) {
  steps_.push_back({Step::Kind::kData, content, "", 0, end, nullptr, 0});
  return *this;
}

FtpSession &FtpSession::Do(std::function<void()> action) {
  steps_.push_back({Step::Kind::kDo, "", "", 0, DataEnd::kClose, std::move(action), 0});
  return *this;
}

FtpSession &FtpSession::Pause(int milliseconds) {
  steps_.push_back({Step::Kind::kPause, "", "", 0, DataEnd::kClose, nullptr, milliseconds});
  return *this;
}

FtpSession &FtpSession::ExpectClose() {
  steps_.push_back({Step::Kind::kExpectClose, "", "", 0, DataEnd::kClose, nullptr, 0});
  return *this;
}

FtpSession &FtpSession::Close() {
  steps_.push_back({Step::Kind::kClose, "", "", 0, DataEnd::kClose, nullptr, 0});
  return *this;
}

bool FtpSession::ReadLine(int ctrl, std::string &line) {
  line.clear();
  for (;;) {
    if (!peer_->WaitReadable(ctrl, kWaitMs)) {
      return false;
    }
    char byte = 0;
    const ssize_t n = read(ctrl, &byte, 1);
    if (n <= 0) {
      return false;
    }
    line.push_back(byte);
    if (byte == '\n') {
      return true;
    }
  }
}

bool FtpSession::PlayPasv(int ctrl, const Step &step) {
  std::string line;
  if (!ReadLine(ctrl, line) || line != "PASV\r\n") {
    peer_->Fail("expected PASV, got " + (line.empty() ? "nothing" : Shown(line)));
    return false;
  }
  peer_->commands_.push_back("PASV");
  CloseFd(dataListener_);
  const std::string own = AddressOf(LocalOf(ctrl));
  dataListener_ = Listen(own, step.port);
  const uint16_t port = ntohs(LocalOf(dataListener_).sin_port);
  return peer_->SendAll(ctrl, PasvText(step.text.empty() ? own : step.text, port));
}

bool FtpSession::PlayData(const Step &step) {
  if (dataListener_ < 0) {
    peer_->Fail("data step without PASV");
    return false;
  }
  std::string client;
  int data = peer_->AcceptOn(dataListener_, client);
  if (data < 0) {
    peer_->Fail("the client never opened the data connection");
    return false;
  }
  peer_->dataClients_.push_back(client);
  CloseFd(dataListener_);
  const bool sent = peer_->SendAll(data, step.text);
  if (sent && step.end == DataEnd::kHold) {
    // Readable again means the client closed its end (or the test stopped waiting).
    (void)peer_->WaitReadable(data, kWaitMs);
  }
  if (step.end == DataEnd::kReset) {
    const linger reset = {1, 0};
    setsockopt(data, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
  }
  CloseFd(data);
  if (!sent) {
    peer_->Fail("the data could not be sent");
  }
  return sent;
}

bool FtpSession::PlayExpectClose(int ctrl) {
  std::string line;
  if (ReadLine(ctrl, line) || !line.empty()) {
    peer_->Fail("expected the client to close, got " + Shown(line));
    return false;
  }
  // Either end of stream or a reset: the client closed.
  char byte = 0;
  const ssize_t n = recv(ctrl, &byte, 1, MSG_DONTWAIT);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
    peer_->Fail("expected the client to close, it kept the connection open");
    return false;
  }
  return true;
}

bool FtpSession::Play(int ctrl) {
  for (const Step &step : steps_) {
    std::string line;
    switch (step.kind) {
      case Step::Kind::kSend:
        if (!peer_->SendAll(ctrl, step.text)) {
          peer_->Fail("could not send " + Shown(step.text));
          return false;
        }
        break;
      case Step::Kind::kExpect:
      case Step::Kind::kPasvReply:
        if (!ReadLine(ctrl, line) || line != step.text + "\r\n") {
          peer_->Fail("expected " + step.text + ", got " +
                      (line.empty() ? "nothing" : Shown(line)));
          return false;
        }
        peer_->commands_.push_back(step.text);
        if (!step.reply.empty() && !peer_->SendAll(ctrl, step.reply)) {
          peer_->Fail("could not answer " + step.text);
          return false;
        }
        break;
      case Step::Kind::kPasv:
        if (!PlayPasv(ctrl, step)) {
          return false;
        }
        break;
      case Step::Kind::kData:
        if (!PlayData(step)) {
          return false;
        }
        break;
      case Step::Kind::kDo:
        step.action();
        break;
      case Step::Kind::kPause:
        std::this_thread::sleep_for(std::chrono::milliseconds(step.milliseconds));
        break;
      case Step::Kind::kExpectClose:
        if (!PlayExpectClose(ctrl)) {
          return false;
        }
        break;
      case Step::Kind::kClose:
        return true;
    }
  }
  return true;
}

}  // namespace ftppeer
