// The whole application in a temporary program folder on loopback: the
// offscreen event loop, a fake clock, the operator's stand-ins, a UDP client
// and builders for DNS and DHCP datagrams.
#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <signal.h>
#include <sys/resource.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/application.h"
#include "app/prompt_recorders.h"
#include "support/fakes.h"

using namespace korvane;

// The one event loop of the test program (a QApplication), made on first use.
void EnsureEventLoop();
// Runs the event loop until `done` holds, for at most five seconds.
void RunEventsUntil(const std::function<bool()>& done);
// Runs what is waiting in the event loop now.
void RunEvents();

// Writes beyond `bytes` fail (EFBIG) while it lives, for root as well.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &saved_);
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit = saved_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &saved_);
    signal(SIGXFSZ, SIG_DFL);
  }

 private:
  rlimit saved_{};
};

// A UDP port that is free on every address at the moment of asking.
int FreeUdpPort();

// A standard query for an A record of `name`.
std::string DnsQuery(int id, const std::string& name);

// Moves the calling thread into a fresh network namespace with loopback up
// and `addresses` added to it, and back when it goes. Sockets made inside
// stay inside: close them first. Needs root; `ok()` says whether it worked.
class PrivateNetwork {
 public:
  explicit PrivateNetwork(const std::vector<std::string>& addresses);
  ~PrivateNetwork();
  bool ok() const { return ok_; }

 private:
  int original_ = -1;
  bool ok_ = false;
};

// A datagram from one address and port, as the client received it.
struct Received {
  std::string from;
  std::string bytes;
  int port = 0;  // the sender's
};

// A non-blocking UDP socket on 127.0.0.1 for talking to the server.
class UdpClient {
 public:
  UdpClient();
  // Bound to address:port instead (a scripted server); port() is 0 when
  // that failed.
  UdpClient(const std::string& address, int port);
  ~UdpClient();
  int port() const { return port_; }
  void SendTo(const std::string& address, int port, const std::string& bytes);
  // The next datagram, running the event loop while waiting (five seconds
  // at most); nullopt when none came.
  std::optional<Received> Receive();
  // The datagrams that are waiting now.
  std::vector<Received> Waiting();

 private:
  std::optional<Received> ReadOne();
  int fd_ = -1;
  int port_ = 0;
};

class AppWorld : public ::testing::Test {
 protected:
  AppWorld();
  ~AppWorld() override;

  // Writes the program folder's files and makes the application.
  void Create(const std::string& options, const std::string& records);
  // Create, then the start sequence.
  void Start(const std::string& options, const std::string& records);
  // The log window's lines without their date and time.
  std::vector<std::string> LogTexts() const;
  bool Logged(const std::string& text) const;
  // Asks for the A record of `name` at each address on the DNS port; the
  // replies that came within the wait for the first.
  std::vector<Received> AskAt(const std::vector<std::string>& addresses, const std::string& name);

  TempDir dir;
  FakeClock clock;
  RecordingBoxes boxes;
  RecordingEditor editor;
  modMain::Settings settings;
  std::unique_ptr<modMain::Application> app;
};
