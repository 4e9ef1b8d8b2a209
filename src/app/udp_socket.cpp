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
  batchSends_ = options.batchSends;
  const auto batch = static_cast<std::size_t>(batch_);
  // Left uninitialised: only the bytes that arrive are ever touched, so the
  // 64 KB a datagram may need cost memory only when one that long comes.
  buffers_.reset(new char[batch * kDatagramMax]);
  control_.assign(batch * kControlMax, 0);
  received_.assign(batch, mmsghdr{});
  vectors_.assign(batch, iovec{});
  senders_.assign(batch, sockaddr_in{});
  for (std::size_t i = 0; i < batch; ++i) {
    vectors_[i] = iovec{buffers_.get() + i * kDatagramMax, kDatagramMax};
    msghdr& header = received_[i].msg_hdr;
    header.msg_name = &senders_[i];
    header.msg_iov = &vectors_[i];
    header.msg_iovlen = 1;
    header.msg_control = control_.data() + i * kControlMax;
  }
  held_.resize(batchSends_ ? batch : 0);
  outgoing_.assign(held_.size(), mmsghdr{});
  outVectors_.assign(held_.size(), iovec{});
  outControl_.assign(held_.size() * kControlMax, 0);
  heldCount_ = 0;
  notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
  connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { Drain(); });
  return true;
}

void UdpSocket::Close() {
  notifier_.reset();
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  localPort_ = 0;
  heldCount_ = 0;
}

void UdpSocket::Drain() {
  // A handler that lets events run (a message box) must not read into the
  // buffers the outer call is still handling.
  if (draining_) return;
  draining_ = true;
  int handled = 0;
  while (fd_ >= 0 && handled < kMaxDatagramsPerWake) {
    for (mmsghdr& message : received_) {
      message.msg_hdr.msg_namelen = sizeof(sockaddr_in);
      message.msg_hdr.msg_controllen = kControlMax;
      message.msg_hdr.msg_flags = 0;
    }
    int count = recvmmsg(fd_, received_.data(), static_cast<unsigned>(batch_), MSG_DONTWAIT, nullptr);
    if (count < 0) {
      int number = errno;
      if (number != EAGAIN && number != EWOULDBLOCK && number != EINTR && errorHandler_)
        errorHandler_(number, strerror(number));
      break;
    }
    for (int i = 0; i < count && fd_ >= 0; ++i) {
      Datagram datagram;
      datagram.host = ToText(senders_[i].sin_addr);
      datagram.port = ntohs(senders_[i].sin_port);
      datagram.data = std::string_view(static_cast<const char*>(vectors_[i].iov_base), received_[i].msg_len);
      datagram.localAddress = localAddress_;
      msghdr& header = received_[i].msg_hdr;
      for (cmsghdr* c = CMSG_FIRSTHDR(&header); c; c = CMSG_NXTHDR(&header, c)) {
        if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
          in_pktinfo info;
          std::memcpy(&info, CMSG_DATA(c), sizeof info);
          datagram.localAddress = ToText(info.ipi_addr);
        }
      }
      if (handler_) handler_(datagram);
    }
    FlushHeld();
    handled += count;
    if (count < batch_) break;
  }
  draining_ = false;
  if (batchDone_) batchDone_();
}

bool UdpSocket::Address(const std::string& host, int port, const std::string& fromAddress,
                        Held& out, SendError& error) {
  if (!host.empty() && host == lastHost_) {
    std::memset(&out.to, 0, sizeof out.to);
    out.to.sin_family = AF_INET;
    out.to.sin_port = htons(static_cast<uint16_t>(port));
    out.to.sin_addr.s_addr = lastAddress_;
  } else if (host.empty() || !ToSockaddr(host, port, out.to)) {
    error = SendError{EINVAL, "Invalid address " + host};
    return false;
  } else {
    lastHost_ = host;
    lastAddress_ = out.to.sin_addr.s_addr;
  }
  // Only a socket bound to all addresses needs to be told which one to use;
  // a broadcast destination address cannot be a source.
  out.withSource = false;
  if (!boundToAll_ || fromAddress.empty()) return true;
  if (fromAddress != lastFrom_) {
    lastFrom_ = fromAddress;
    lastFromUsable_ = inet_pton(AF_INET, fromAddress.c_str(), &lastSource_) == 1 &&
                      lastSource_.s_addr != htonl(INADDR_BROADCAST) &&
                      !IN_MULTICAST(ntohl(lastSource_.s_addr));
  }
  out.withSource = lastFromUsable_;
  out.source = lastSource_;
  return true;
}

namespace {

// Points `header` at one datagram: destination, bytes and, when given, the
// source address as IP_PKTINFO in `control` (kControlMax bytes).
void FillHeader(msghdr& header, sockaddr_in& to, iovec& vector, bool withSource, in_addr source,
                char* control) {
  std::memset(&header, 0, sizeof header);
  header.msg_name = &to;
  header.msg_namelen = sizeof to;
  header.msg_iov = &vector;
  header.msg_iovlen = 1;
  if (!withSource) return;
  std::memset(control, 0, kControlMax);
  header.msg_control = control;
  header.msg_controllen = kControlMax;
  cmsghdr* c = CMSG_FIRSTHDR(&header);
  c->cmsg_level = IPPROTO_IP;
  c->cmsg_type = IP_PKTINFO;
  c->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
  in_pktinfo info;
  std::memset(&info, 0, sizeof info);
  info.ipi_spec_dst = source;
  std::memcpy(CMSG_DATA(c), &info, sizeof info);
}

}  // namespace

bool UdpSocket::Send(const std::string& host, int port, const std::string& bytes,
                     const std::string& fromAddress, SendError& error) {
  if (fd_ < 0) {
    error = SendError{EBADF, "Socket is closed"};
    return false;
  }
  if (draining_ && !held_.empty()) {
    if (heldCount_ == held_.size()) FlushHeld();
    Held& held = held_[heldCount_];
    if (!Address(host, port, fromAddress, held, error)) return false;
    held.bytes.assign(bytes);
    ++heldCount_;
    return true;
  }
  Held now;
  if (!Address(host, port, fromAddress, now, error)) return false;
  iovec vector{const_cast<char*>(bytes.data()), bytes.size()};
  msghdr header;
  alignas(cmsghdr) char control[kControlMax];
  FillHeader(header, now.to, vector, now.withSource, now.source, control);
  if (sendmsg(fd_, &header, MSG_DONTWAIT) < 0) {
    error = ErrnoError(errno);
    return false;
  }
  return true;
}

void UdpSocket::FlushHeld() {
  const std::size_t count = heldCount_;
  heldCount_ = 0;
  if (count == 0 || fd_ < 0) return;
  for (std::size_t i = 0; i < count; ++i) {
    Held& held = held_[i];
    outVectors_[i] = iovec{held.bytes.data(), held.bytes.size()};
    FillHeader(outgoing_[i].msg_hdr, held.to, outVectors_[i], held.withSource, held.source,
               outControl_.data() + i * kControlMax);
  }
  std::size_t sent = 0;
  while (sent < count && fd_ >= 0) {
    int n = sendmmsg(fd_, outgoing_.data() + sent, static_cast<unsigned>(count - sent), MSG_DONTWAIT);
    if (n > 0) {
      sent += static_cast<std::size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    // The first datagram left over was refused: it is dropped, the rest still go.
    int number = n < 0 ? errno : EIO;
    ++sent;
    if (sendErrorHandler_) sendErrorHandler_(number, strerror(number));
  }
}

}  // namespace korvane
