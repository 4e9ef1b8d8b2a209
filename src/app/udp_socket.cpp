#include "app/udp_socket.h"

#include "wire/ip.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace korvane {

namespace {

constexpr std::size_t kDatagramMax = 65536;
constexpr std::size_t kControlMax = CMSG_SPACE(sizeof(in_pktinfo));
// Bounded so one busy socket cannot starve the timer and the other sockets.
constexpr int kMaxDatagramsPerWake = 1024;

SendError ErrnoError(int number) { return SendError{number, strerror(number)}; }

bool ToSockaddr(const std::string& host, int port, sockaddr_in& out) {
  std::memset(&out, 0, sizeof out);
  out.sin_family = AF_INET;
  out.sin_port = htons(static_cast<uint16_t>(port));
  if (host.empty()) {
    out.sin_addr.s_addr = htonl(INADDR_ANY);
    return true;
  }
  return inet_pton(AF_INET, host.c_str(), &out.sin_addr) == 1;
}

std::string ToText(const in_addr& address) {
  return modIP::DataToIP(std::string_view(reinterpret_cast<const char*>(&address), 4));
}

}  // namespace

UdpSocket::UdpSocket(QObject* parent) : QObject(parent) {}

UdpSocket::~UdpSocket() { Close(); }

bool UdpSocket::Bind(const std::string& address, int port, const BindOptions& options,
                     SendError& error) {
  Close();
  sockaddr_in local;
  if (!ToSockaddr(address, port, local)) {
    error = SendError{EINVAL, "Invalid address " + address};
    return false;
  }
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = ErrnoError(errno);
    return false;
  }
  int on = 1;
  setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof on);
  if (options.reuseAddress) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (options.broadcast) setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  if (!options.device.empty() &&
      setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, options.device.c_str(),
                 static_cast<socklen_t>(options.device.size())) != 0) {
    error = ErrnoError(errno);
    ::close(fd);
    return false;
  }
  if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
    error = ErrnoError(errno);
    ::close(fd);
    return false;
  }
  sockaddr_in bound;
  socklen_t length = sizeof bound;
  getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length);
  fd_ = fd;
  localPort_ = ntohs(bound.sin_port);
  boundToAll_ = address.empty();
  localAddress_ = address;
  batch_ = options.batch < 1 ? 1 : options.batch;
  buffers_.assign(static_cast<std::size_t>(batch_) * kDatagramMax, 0);
  control_.assign(static_cast<std::size_t>(batch_) * kControlMax, 0);
  notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
  connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { Drain(); });
  return true;
}

void UdpSocket::Close() {
  notifier_.reset();
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  localPort_ = 0;
}

void UdpSocket::Drain() {
  std::vector<mmsghdr> messages(static_cast<std::size_t>(batch_));
  std::vector<iovec> vectors(static_cast<std::size_t>(batch_));
  std::vector<sockaddr_in> senders(static_cast<std::size_t>(batch_));
  int handled = 0;
  while (fd_ >= 0 && handled < kMaxDatagramsPerWake) {
    for (int i = 0; i < batch_; ++i) {
      vectors[i].iov_base = buffers_.data() + static_cast<std::size_t>(i) * kDatagramMax;
      vectors[i].iov_len = kDatagramMax;
      msghdr& header = messages[i].msg_hdr;
      std::memset(&header, 0, sizeof header);
      header.msg_name = &senders[i];
      header.msg_namelen = sizeof(sockaddr_in);
      header.msg_iov = &vectors[i];
      header.msg_iovlen = 1;
      header.msg_control = control_.data() + static_cast<std::size_t>(i) * kControlMax;
      header.msg_controllen = kControlMax;
    }
    int count = recvmmsg(fd_, messages.data(), static_cast<unsigned>(batch_), MSG_DONTWAIT, nullptr);
    if (count < 0) {
      int number = errno;
      if (number != EAGAIN && number != EWOULDBLOCK && number != EINTR && errorHandler_)
        errorHandler_(number, strerror(number));
      break;
    }
    for (int i = 0; i < count && fd_ >= 0; ++i) {
      Datagram datagram;
      datagram.host = ToText(senders[i].sin_addr);
      datagram.port = ntohs(senders[i].sin_port);
      datagram.data = std::string_view(static_cast<const char*>(vectors[i].iov_base), messages[i].msg_len);
      datagram.localAddress = localAddress_;
      msghdr& header = messages[i].msg_hdr;
      for (cmsghdr* c = CMSG_FIRSTHDR(&header); c; c = CMSG_NXTHDR(&header, c)) {
        if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
          in_pktinfo info;
          std::memcpy(&info, CMSG_DATA(c), sizeof info);
          datagram.localAddress = ToText(info.ipi_addr);
        }
      }
      if (handler_) handler_(datagram);
    }
    handled += count;
    if (count < batch_) break;
  }
  if (batchDone_) batchDone_();
}

bool UdpSocket::Send(const std::string& host, int port, const std::string& bytes,
                     const std::string& fromAddress, SendError& error) {
  if (fd_ < 0) {
    error = SendError{EBADF, "Socket is closed"};
    return false;
  }
  sockaddr_in remote;
  if (!host.empty() && host == lastHost_) {
    std::memset(&remote, 0, sizeof remote);
    remote.sin_family = AF_INET;
    remote.sin_port = htons(static_cast<uint16_t>(port));
    remote.sin_addr.s_addr = lastAddress_;
  } else if (host.empty() || !ToSockaddr(host, port, remote)) {
    error = SendError{EINVAL, "Invalid address " + host};
    return false;
  } else {
    lastHost_ = host;
    lastAddress_ = remote.sin_addr.s_addr;
  }
  iovec vector{const_cast<char*>(bytes.data()), bytes.size()};
  msghdr header;
  std::memset(&header, 0, sizeof header);
  header.msg_name = &remote;
  header.msg_namelen = sizeof remote;
  header.msg_iov = &vector;
  header.msg_iovlen = 1;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))];
  in_addr source;
  // Only a socket bound to all addresses needs to be told which one to use;
  // a broadcast destination address cannot be a source.
  if (boundToAll_ && !fromAddress.empty() && inet_pton(AF_INET, fromAddress.c_str(), &source) == 1 &&
      source.s_addr != htonl(INADDR_BROADCAST) && !IN_MULTICAST(ntohl(source.s_addr))) {
    std::memset(control, 0, sizeof control);
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    cmsghdr* c = CMSG_FIRSTHDR(&header);
    c->cmsg_level = IPPROTO_IP;
    c->cmsg_type = IP_PKTINFO;
    c->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info;
    std::memset(&info, 0, sizeof info);
    info.ipi_spec_dst = source;
    std::memcpy(CMSG_DATA(c), &info, sizeof info);
  }
  if (sendmsg(fd_, &header, MSG_DONTWAIT) < 0) {
    error = ErrnoError(errno);
    return false;
  }
  return true;
}

}  // namespace korvane
