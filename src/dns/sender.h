// How the engines reach the network: one sender per socket. The shell wraps
// its UDP sockets; tests record what would have been sent.
#pragma once

#include <string>

struct SendError {
  int number = 0;
  std::string description;
};

class DatagramSender {
 public:
  virtual ~DatagramSender() = default;
  // Sends one datagram to host:port. `fromAddress`, when not empty, is the
  // local address the datagram must leave from (the address a query was
  // sent to). False on failure, with `error` filled.
  virtual bool Send(const std::string& host, int port, const std::string& bytes,
                    const std::string& fromAddress, SendError& error) = 0;
};
