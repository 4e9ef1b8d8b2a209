#include "app/query_sockets.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "app/secure_random.h"
#include "wire/ip.h"

namespace korvane {

namespace {

constexpr std::size_t kDatagramMax = 65536;
// Bounded so that a flood on one socket cannot starve the others or the timer.
constexpr int kMaxDatagramsPerWake = 1024;
constexpr int kMaxDatagramsPerChannel = 16;
constexpr int kEventsPerCall = 64;

SendError ErrnoError(int number) { return SendError{number, strerror(number)}; }

sockaddr_in Endpoint(uint32_t address, int port) {
  sockaddr_in endpoint{};
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons(static_cast<uint16_t>(port));
  endpoint.sin_addr.s_addr = address;
  return endpoint;
}

// Every query waiting for its reply holds a socket: the usual limit of
// 1024 open files would cap the requests far below their own bound.
void RaiseOpenFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t wanted = std::min<rlim_t>(limit.rlim_max, 65536);
  if (limit.rlim_cur >= wanted) return;
  limit.rlim_cur = wanted;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

class QuerySockets::Channel : public QueryChannel {
 public:
  Channel(QuerySockets& owner, uint64_t id, int fd, int port)
      : owner_(owner), id_(id), fd_(fd), port_(port) {}
  ~Channel() override { owner_.Close(id_); }
  uint64_t Id() const override { return id_; }
  int LocalPort() const override { return port_; }
  bool Send(const std::string& bytes, SendError& error) override {
    if (::send(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT) >= 0) return true;
    error = ErrnoError(errno);
    return false;
  }

 private:
  QuerySockets& owner_;
  uint64_t id_;
  int fd_;
  int port_;
};

QuerySockets::QuerySockets(QObject* parent) : QObject(parent), recentCount_(65536, 0) {
  RaiseOpenFileLimit();
  std::ifstream range("/proc/sys/net/ipv4/ip_local_port_range");
  int low = 0, high = 0;
  if (range >> low >> high && low >= 1024 && high <= 65535 && low < high) {
    lowPort_ = low;
    highPort_ = high;
  }
  recentLimit_ = std::min<std::size_t>(1024, static_cast<std::size_t>(highPort_ - lowPort_) / 4);
  buffer_.resize(kDatagramMax);
  epoll_ = epoll_create1(EPOLL_CLOEXEC);
  if (epoll_ < 0) return;
  notifier_ = std::make_unique<QSocketNotifier>(epoll_, QSocketNotifier::Read);
  connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { Drain(); });
}

QuerySockets::~QuerySockets() {
  notifier_.reset();
  for (auto& [id, socket] : open_) ::close(socket.fd);
  if (epoll_ >= 0) ::close(epoll_);
}

int QuerySockets::BindRandomPort(int fd) {
  const auto span = static_cast<uint32_t>(highPort_ - lowPort_ + 1);
  for (int attempt = 0; attempt < 16; ++attempt) {
    const int port = lowPort_ + static_cast<int>(SecureRandom32() % span);
    if (recentCount_[port] > 0) continue;
    sockaddr_in local = Endpoint(htonl(INADDR_ANY), port);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0) return port;
    if (errno != EADDRINUSE) break;
  }
  // The range is crowded: the system's own choice is random too.
  sockaddr_in any = Endpoint(htonl(INADDR_ANY), 0);
  if (::bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any) != 0) return 0;
  socklen_t length = sizeof any;
  getsockname(fd, reinterpret_cast<sockaddr*>(&any), &length);
  return ntohs(any.sin_port);
}

std::unique_ptr<QueryChannel> QuerySockets::Open(const std::string& host, int port,
                                                 SendError& error) {
  in_addr address{};
  if (inet_pton(AF_INET, host.c_str(), &address) != 1) {
    error = SendError{EINVAL, "Invalid address " + host};
    return nullptr;
  }
  if (epoll_ < 0) {
    error = SendError{EBADF, "Socket is closed"};
    return nullptr;
  }
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = ErrnoError(errno);
    return nullptr;
  }
  const int localPort = BindRandomPort(fd);
  sockaddr_in server = Endpoint(address.s_addr, port);
  const uint64_t id = nextId_++;
  epoll_event watch{};
  watch.events = EPOLLIN;
  watch.data.u64 = id;
  if (localPort == 0 || ::connect(fd, reinterpret_cast<sockaddr*>(&server), sizeof server) != 0 ||
      epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &watch) != 0) {
    error = ErrnoError(errno);
    ::close(fd);
    return nullptr;
  }
  open_[id] = Socket{fd, localPort};
  return std::make_unique<Channel>(*this, id, fd, localPort);
}

void QuerySockets::Close(uint64_t id) {
  auto it = open_.find(id);
  if (it == open_.end()) return;
  epoll_ctl(epoll_, EPOLL_CTL_DEL, it->second.fd, nullptr);
  ::close(it->second.fd);
  const int port = it->second.port;
  open_.erase(it);
  ++recentCount_[port];
  recentPorts_.push_back(port);
  if (recentPorts_.size() > recentLimit_) {
    --recentCount_[recentPorts_.front()];
    recentPorts_.pop_front();
  }
}

void QuerySockets::Drain() {
  // A handler that lets events run (a message box) must not read into the
  // buffer the outer call is still handling.
  if (draining_) return;
  draining_ = true;
  int handled = 0;
  epoll_event events[kEventsPerCall];
  while (handled < kMaxDatagramsPerWake) {
    const int count = epoll_wait(epoll_, events, kEventsPerCall, 0);
    if (count <= 0) break;
    for (int i = 0; i < count; ++i) handled += DrainChannel(events[i].data.u64);
    if (count < kEventsPerCall) break;
  }
  draining_ = false;
  if (batchDone_) batchDone_();
}

int QuerySockets::DrainChannel(uint64_t id) {
  int handled = 0;
  while (handled < kMaxDatagramsPerChannel) {
    // Looked up afresh: the handler may have closed this channel or others.
    auto it = open_.find(id);
    if (it == open_.end()) break;
    sockaddr_in from{};
    socklen_t length = sizeof from;
    const ssize_t got = recvfrom(it->second.fd, buffer_.data(), buffer_.size(), MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr*>(&from), &length);
    if (got < 0) {
      const int number = errno;
      if (number != EAGAIN && number != EWOULDBLOCK && number != EINTR && errorHandler_)
        errorHandler_(id, number, strerror(number));
      break;
    }
    ++handled;
    Datagram datagram;
    datagram.host = modIP::DataToIP(
        std::string_view(reinterpret_cast<const char*>(&from.sin_addr), 4));
    datagram.port = ntohs(from.sin_port);
    datagram.data = std::string_view(buffer_.data(), static_cast<std::size_t>(got));
    if (handler_) handler_(id, datagram);
  }
  return handled;
}

}  // namespace korvane
