// A plain UDP socket for playing another server: bound to an address and
// port, it reads datagrams with their sender's port and answers anyone.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <string>

struct PeerDatagram {
  std::string host;
  int port = 0;
  std::string bytes;
};

class UdpPeer {
 public:
  // Port 0: one the system chooses. ok() is false when the bind failed.
  UdpPeer(const std::string& address, int port) {
    fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in self = Endpoint(address, port);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr*>(&self), sizeof self) != 0) return;
    socklen_t length = sizeof self;
    getsockname(fd_, reinterpret_cast<sockaddr*>(&self), &length);
    port_ = ntohs(self.sin_port);
  }
  ~UdpPeer() {
    if (fd_ >= 0) close(fd_);
  }
  UdpPeer(const UdpPeer&) = delete;
  UdpPeer& operator=(const UdpPeer&) = delete;

  bool ok() const { return port_ != 0; }
  int fd() const { return fd_; }
  int port() const { return port_; }

  // The next datagram within `milliseconds`, or nullopt.
  std::optional<PeerDatagram> Receive(int milliseconds) {
    pollfd wait{fd_, POLLIN, 0};
    if (poll(&wait, 1, milliseconds) <= 0) return std::nullopt;
    char buffer[65536];
    sockaddr_in from{};
    socklen_t length = sizeof from;
    ssize_t got = recvfrom(fd_, buffer, sizeof buffer, MSG_DONTWAIT,
                           reinterpret_cast<sockaddr*>(&from), &length);
    if (got < 0) return std::nullopt;
    char text[INET_ADDRSTRLEN] = {0};
    inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
    return PeerDatagram{text, ntohs(from.sin_port), std::string(buffer, static_cast<size_t>(got))};
  }
  void SendTo(const std::string& address, int port, const std::string& bytes) {
    sockaddr_in to = Endpoint(address, port);
    sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
  }

  static sockaddr_in Endpoint(const std::string& address, int port) {
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address.c_str(), &endpoint.sin_addr);
    return endpoint;
  }

 private:
  int fd_ = -1;
  int port_ = 0;
};
