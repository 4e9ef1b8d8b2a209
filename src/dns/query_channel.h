// How queries reach other name servers: each query leaves from a socket of
// its own, opened for that one server on a port nobody can guess, so that a
// forged reply has to hit the port as well as the query ID. The shell owns
// the sockets; it hands what arrives on a channel to
// DnsEngine::OnDns2Datagram and the errors the network reports for it (an
// unreachable port, say) to DnsEngine::ChannelError, with the channel's Id.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "wire/services.h"

namespace korvane {

class QueryChannel {
 public:
  // Closes the socket: nothing arrives on this channel any more.
  virtual ~QueryChannel() = default;
  // Never 0, and never given to another channel.
  virtual uint64_t Id() const = 0;
  // The local port the queries leave from.
  virtual int LocalPort() const = 0;
  // Sends one datagram to the channel's server. False with `error` filled
  // when the system refused it.
  virtual bool Send(const std::string& bytes, SendError& error) = 0;
};

class QueryChannels {
 public:
  virtual ~QueryChannels() = default;
  // A new channel to host:port. Null with `error` filled when no socket
  // could be had or the server cannot be reached from here (no route).
  virtual std::unique_ptr<QueryChannel> Open(const std::string& host, int port,
                                             SendError& error) = 0;
};

}  // namespace korvane
