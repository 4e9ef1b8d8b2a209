// A UDP socket of our own on the Qt event loop: POSIX socket, a socket
// notifier, every waiting datagram drained per wake-up, and the address each
// datagram was sent to, so that answers leave from the address queried.
#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "wire/services.h"

namespace korvane {

struct Datagram {
  std::string host;          // sender, dotted
  int port = 0;              // sender's port
  std::string_view data;     // valid only during the handler's call
  std::string localAddress;  // the address it was sent to (may be a broadcast address)
};

struct BindOptions {
  std::string device;       // SO_BINDTODEVICE when not empty
  bool broadcast = false;   // SO_BROADCAST
  bool reuseAddress = false;
  int batch = 32;           // datagrams read per system call
};

class UdpSocket : public QObject, public DatagramSender {
  Q_OBJECT

 public:
  using Handler = std::function<void(const Datagram&)>;
  using ErrorHandler = std::function<void(int number, const std::string& description)>;

  explicit UdpSocket(QObject* parent = nullptr);
  ~UdpSocket() override;

  // Binds to address:port ("" = all addresses, port 0 = chosen by the
  // system). False with `error` filled when the socket cannot be made or bound.
  bool Bind(const std::string& address, int port, const BindOptions& options, SendError& error);
  void Close();
  bool IsOpen() const { return fd_ >= 0; }
  int LocalPort() const { return localPort_; }
  // The address bound to, or the one given by SetLocalAddress.
  const std::string& LocalAddress() const { return localAddress_; }
  void SetLocalAddress(const std::string& address) { localAddress_ = address; }

  void SetHandler(Handler handler) { handler_ = std::move(handler); }
  // Called once after each batch of datagrams has been handled.
  void SetBatchDone(std::function<void()> done) { batchDone_ = std::move(done); }
  void SetErrorHandler(ErrorHandler handler) { errorHandler_ = std::move(handler); }

  bool Send(const std::string& host, int port, const std::string& bytes,
            const std::string& fromAddress, SendError& error) override;

 private:
  void Drain();

  int fd_ = -1;
  int localPort_ = 0;
  bool boundToAll_ = false;
  // Replies mostly go to the host of the last one: its address is kept parsed.
  std::string lastHost_;
  uint32_t lastAddress_ = 0;
  std::string localAddress_;
  std::unique_ptr<QSocketNotifier> notifier_;
  Handler handler_;
  std::function<void()> batchDone_;
  ErrorHandler errorHandler_;
  int batch_ = 32;
  std::vector<char> buffers_;
  std::vector<char> control_;
};

}  // namespace korvane
