// A scripted FTP server for the client's tests: it listens on a loopback address of the test's
// board (any 127.x.y.z can be bound there), accepts one control connection per scripted
// session and plays the script in a thread of the test: for each step the exact command line
// it expects and the reply it sends back, the passive data connections and what goes over
// them. It is strict: a command other than the expected one, a connection that was not
// scripted or a scripted one that never came is reported by Finish().
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace ftppeer {

// How a data connection ends after its content was sent.
enum class DataEnd {
  kClose,  // orderly close: the client reads to the end
  kReset,  // reset (linger 0): the client's read fails
  kHold,   // kept open, silent, until the client closes it
};

class FtpSession;

class FtpPeer {
 public:
  FtpPeer(const std::string &address, uint16_t port);
  FtpPeer(const FtpPeer &) = delete;
  FtpPeer &operator=(const FtpPeer &) = delete;
  ~FtpPeer();

  // Adds one control connection to the script; sessions are accepted in order.
  FtpSession &Session();
  // Starts playing the script.
  void Start();
  // Stops waiting, joins the thread, closes every descriptor of the peer and returns what went
  // against the script (empty when the client did exactly what was scripted).
  std::vector<std::string> Finish();

  // Every command line the client sent, without its CR LF, in order.
  [[nodiscard]] const std::vector<std::string> &commands() const { return commands_; }
  // The client's address (a.b.c.d) of each control and each data connection, in order.
  [[nodiscard]] const std::vector<std::string> &controlClients() const { return controlClients_; }
  [[nodiscard]] const std::vector<std::string> &dataClients() const { return dataClients_; }
  [[nodiscard]] const std::string &address() const { return address_; }
  [[nodiscard]] uint16_t port() const { return port_; }

 private:
  friend class FtpSession;
  void Run();
  void Fail(const std::string &what);
  // Waits until fd is readable; false on stop or after the time limit.
  bool WaitReadable(int fd, int timeoutMs);
  int AcceptOn(int listener, std::string &client);
  bool WaitWritable(int fd);
  bool SendAll(int fd, const std::string &bytes);

  std::string address_;
  uint16_t port_;
  int listener_ = -1;
  int stopPipe_[2] = {-1, -1};
  std::deque<FtpSession> sessions_;  // references stay valid while sessions are added
  std::thread thread_;
  std::vector<std::string> failures_;
  std::vector<std::string> commands_;
  std::vector<std::string> controlClients_;
  std::vector<std::string> dataClients_;
};

// One control connection's script.
class FtpSession {
 public:
  explicit FtpSession(FtpPeer &peer) : peer_(&peer) {}

  // Sends bytes as they are.
  FtpSession &Send(const std::string &bytes);
  // Reads one command line, which must be exactly line followed by CR LF, then sends reply.
  FtpSession &Expect(const std::string &line, const std::string &reply);
  // Expects "PASV", listens for the data connection on the control connection's own address
  // and answers "227 Entering Passive Mode (a,b,c,d,p1,p2)." where a.b.c.d is announced (the
  // real address when empty) and the port is the listener's (port 0: any free port).
  FtpSession &Pasv(const std::string &announced = "", uint16_t port = 0);
  // Expects "PASV" and answers with the reply as given (no data listener).
  FtpSession &PasvReply(const std::string &reply);
  // Accepts the data connection of the last PASV, sends content, then ends it.
  FtpSession &Data(const std::string &content, DataEnd end = DataEnd::kClose);
  // Runs a step of the test (for example a change of the board description) in order.
  FtpSession &Do(std::function<void()> action);
  // Waits so long before the next step.
  FtpSession &Pause(int milliseconds);
  // The client must close the connection now, without sending anything more.
  FtpSession &ExpectClose();
  // Closes the control connection.
  FtpSession &Close();

 private:
  friend class FtpPeer;
  struct Step {
    enum class Kind { kSend, kExpect, kPasv, kPasvReply, kData, kDo, kPause, kExpectClose, kClose };
    Kind kind;
    std::string text;
    std::string reply;
    uint16_t port = 0;
    DataEnd end = DataEnd::kClose;
    std::function<void()> action;
    int milliseconds = 0;
  };
  // Plays the steps on an accepted control connection; false when the script broke off.
  bool Play(int ctrl);
  bool ReadLine(int ctrl, std::string &line);
  bool PlayPasv(int ctrl, const Step &step);
  bool PlayData(const Step &step);
  bool PlayExpectClose(int ctrl);

  FtpPeer *peer_;
  std::vector<Step> steps_;
  int dataListener_ = -1;
};

// The 227 reply text for an address a.b.c.d and a port.
std::string PasvText(const std::string &address, uint16_t port);

}  // namespace ftppeer
