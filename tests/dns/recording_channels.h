// Query channels that keep what is sent on them, as WSDNS2 for engine tests.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "dns/query_channel.h"
#include "support/fakes.h"

using namespace korvane;

struct SentQuery : SentDatagram {
  uint64_t channel = 0;
  int localPort = 0;
};

class RecordingChannels : public QueryChannels {
 public:
  std::unique_ptr<QueryChannel> Open(const std::string& host, int port,
                                     SendError& error) override {
    if (fail || unreachable.count(host)) {
      error = failure;
      return nullptr;
    }
    const uint64_t id = nextId++;
    open.insert(id);
    return std::make_unique<Channel>(*this, id, nextPort++, host, port);
  }
  bool IsOpen(uint64_t channel) const { return open.count(channel) > 0; }

  std::vector<SentQuery> sent;
  std::set<uint64_t> open;
  bool fail = false;                  // every Open fails with `failure`
  std::set<std::string> unreachable;  // hosts whose Open fails
  SendError failure{101, "Network is unreachable"};
  uint64_t nextId = 1;
  int nextPort = 40000;

 private:
  class Channel : public QueryChannel {
   public:
    Channel(RecordingChannels& owner, uint64_t id, int localPort, std::string host, int port)
        : owner_(owner), id_(id), localPort_(localPort), host_(std::move(host)), port_(port) {}
    ~Channel() override { owner_.open.erase(id_); }
    uint64_t Id() const override { return id_; }
    int LocalPort() const override { return localPort_; }
    bool Send(const std::string& bytes, SendError&) override {
      SentQuery query;
      query.host = host_;
      query.port = port_;
      query.bytes = bytes;
      query.channel = id_;
      query.localPort = localPort_;
      owner_.sent.push_back(query);
      return true;
    }

   private:
    RecordingChannels& owner_;
    uint64_t id_;
    int localPort_;
    std::string host_;
    int port_;
  };
};
