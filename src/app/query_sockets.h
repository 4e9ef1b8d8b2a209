// The query channels (WSDNS2): one UDP socket for each query to another
// server, bound to a random port of the system's ephemeral range that was
// not used lately and connected to that server, so that only its datagrams
// arrive and the errors the network reports for it (a closed port) come
// back. All of them are watched through one epoll set on the event loop.
#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "app/udp_socket.h"
#include "dns/query_channel.h"

namespace korvane {

class QuerySockets : public QObject, public QueryChannels {
  Q_OBJECT

 public:
  using Handler = std::function<void(uint64_t channel, const Datagram& datagram)>;
  using ErrorHandler =
      std::function<void(uint64_t channel, int number, const std::string& description)>;

  explicit QuerySockets(QObject* parent = nullptr);
  // The channels handed out must be gone first.
  ~QuerySockets() override;

  std::unique_ptr<QueryChannel> Open(const std::string& host, int port,
                                     SendError& error) override;

  void SetHandler(Handler handler) { handler_ = std::move(handler); }
  void SetErrorHandler(ErrorHandler handler) { errorHandler_ = std::move(handler); }
  // Called once after each batch of datagrams has been handled.
  void SetBatchDone(std::function<void()> done) { batchDone_ = std::move(done); }
  std::size_t OpenCount() const { return open_.size(); }

 private:
  class Channel;
  struct Socket {
    int fd;
    int port;
  };

  // Binds `fd` to a random port of the ephemeral range; the port, or 0
  // with errno set.
  int BindRandomPort(int fd);
  void Close(uint64_t id);
  void Drain();
  // Reads what waits on one channel; the number of datagrams handled.
  int DrainChannel(uint64_t id);

  int epoll_ = -1;
  std::unique_ptr<QSocketNotifier> notifier_;
  std::unordered_map<uint64_t, Socket> open_;
  uint64_t nextId_ = 1;
  int lowPort_ = 32768;
  int highPort_ = 60999;
  // Ports closed lately are not taken again at once: a port that a server
  // has seen (and anyone it told) must not be the next query's.
  std::deque<int> recentPorts_;
  std::vector<uint16_t> recentCount_;
  std::size_t recentLimit_ = 1024;
  std::vector<char> buffer_;
  bool draining_ = false;
  Handler handler_;
  ErrorHandler errorHandler_;
  std::function<void()> batchDone_;
};

}  // namespace korvane
