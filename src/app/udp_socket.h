// A UDP socket of our own on the Qt event loop: POSIX socket, a socket
// notifier, every waiting datagram drained per wake-up (recvmmsg), and the
// address each datagram was sent to, so that answers leave from the address
// queried. With `batchSends`, what the handlers send while a batch is read
// leaves in one sendmmsg after the batch.
#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <netinet/in.h>
#include <sys/socket.h>

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
  bool batchSends = false;  // hold sends made by the handlers until the batch is done
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
  // A held datagram that the system refused when the batch went out (the
  // sender was told it was sent).
  void SetSendErrorHandler(ErrorHandler handler) { sendErrorHandler_ = std::move(handler); }

  // Sends at once, or holds the datagram while a batch is handled (then
  // only a closed socket or a bad address fail here).
  bool Send(const std::string& host, int port, const std::string& bytes,
            const std::string& fromAddress, SendError& error) override;

 private:
  // A datagram held for the batch's sendmmsg; its storage is reused.
  struct Held {
    sockaddr_in to;
    std::string bytes;
    bool withSource = false;
    in_addr source;
  };

  void Drain();
  void FlushHeld();
  // Where a datagram to host:port leaving from `fromAddress` goes, and the
  // source address to set (when the socket is bound to all addresses).
  bool Address(const std::string& host, int port, const std::string& fromAddress, Held& out,
               SendError& error);

  int fd_ = -1;
  int localPort_ = 0;
  bool boundToAll_ = false;
  // Replies mostly go to the host of the last one: its address is kept parsed.
  std::string lastHost_;
  uint32_t lastAddress_ = 0;
  std::string lastFrom_;
  bool lastFromUsable_ = false;
  in_addr lastSource_{};
  std::string localAddress_;
  std::unique_ptr<QSocketNotifier> notifier_;
  Handler handler_;
  std::function<void()> batchDone_;
  ErrorHandler errorHandler_;
  ErrorHandler sendErrorHandler_;
  int batch_ = 32;
  bool batchSends_ = false;
  bool draining_ = false;
  std::unique_ptr<char[]> buffers_;
  std::vector<char> control_;
  std::vector<mmsghdr> received_;
  std::vector<iovec> vectors_;
  std::vector<sockaddr_in> senders_;
  std::vector<Held> held_;
  std::size_t heldCount_ = 0;
  std::vector<mmsghdr> outgoing_;
  std::vector<iovec> outVectors_;
  std::vector<char> outControl_;
};

}  // namespace korvane
