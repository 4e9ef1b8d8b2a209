// A small world for engine tests: record list, options, fake clock, log,
// error reporter, two recording senders, a lease table and a fixed random
// source, plus builders of DNS messages and views of decoded ones.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "dns/engine.h"
#include "recording_channels.h"
#include "store/store.h"
#include "support/dns_bytes.h"
#include "support/fakes.h"
#include "support/store_parts.h"
#include "wire/dns_codec.h"
#include "wire/dns_message.h"
#include "wire/ip.h"

using namespace korvane;

using Strs = std::vector<std::string>;

class FakeLeases : public LeaseSource {
 public:
  std::vector<LeaseView> LeasesNamed(const std::string& name) const override {
    return Where(&LeaseView::ClientName, name);
  }
  std::vector<LeaseView> LeasesOfAddress(const std::string& ip) const override {
    return Where(&LeaseView::IPaddr, ip);
  }
  std::vector<LeaseView> leases;

 private:
  std::vector<LeaseView> Where(std::string LeaseView::*field, const std::string& value) const {
    std::vector<LeaseView> out;
    for (const auto& l : leases)
      if (l.*field == value) out.push_back(l);
    return out;
  }
};

using modDNS::DnsMessage;

// The decoded data of one section's records, as the tests compare them: A
// dotted, NS/CNAME/PTR the name, MX "pref name", SOA "primary mailbox
// minimum", other types their raw bytes.
Strs Data(const DnsMessage& message, int section);
// The first question's name and type ("" and 0 when there is none).
std::string QName(const DnsMessage& message);
int QType(const DnsMessage& message);

// Our reply's header (one question) and question of class IN.
std::string Head(int id, int flags3, int flags4, int an, int ns, int ar, const std::string& name,
                 int type);
// A query: ID, name, type; RD and class as given.
std::string Query(int id, const std::string& name, int type, bool rd = true, int qclass = 1,
                  int opcode = 0);
// SOA record data in the store's layout.
std::string Soa(const std::string& primary, const std::string& mailbox, uint32_t serial,
                uint32_t refresh, uint32_t retry, uint32_t expire, uint32_t minimum);

// Builds replies of other servers, names uncompressed.
struct ReplyBuilder {
  ReplyBuilder(int id_, const std::string& qname_, int qtype_, int rcode_ = 0, int qclass_ = 1)
      : id(id_), rcode(rcode_), qtype(qtype_), qclass(qclass_), qname(qname_) {}
  ReplyBuilder& Add(int section, const std::string& name, int type, long ttl,
                    const std::string& rdata) {
    sections[section].push_back(RR(Wire(name), type, ttl, rdata));
    return *this;
  }
  ReplyBuilder& A(int s, const std::string& name, const std::string& ip, long ttl = 3600) {
    return Add(s, name, 1, ttl, modIP::IPToData(ip));
  }
  ReplyBuilder& NS(int s, const std::string& name, const std::string& host) {
    return Add(s, name, 2, 3600, Wire(host));
  }
  ReplyBuilder& CNAME(int s, const std::string& name, const std::string& target) {
    return Add(s, name, 5, 3600, Wire(target));
  }
  // SOA of ns1.<zone> and hostmaster.<zone>.
  ReplyBuilder& SOA(int section, const std::string& zone, long ttl, long minimum);
  std::string Build() const;

  int id, rcode, qtype, qclass;
  std::string qname;
  std::vector<std::string> sections[5];
};

class DnsWorld : public ::testing::Test, public StoreParts {
 protected:
  DnsWorld();

  // Permanent records from the record file, and root hints.
  void Perm(const std::string& name, int type, const std::string& data, int32_t pref = 0) {
    modDNS::CacheAdd(store, name, type, 3600, data, pref, true);
  }
  void RootHint(const std::string& server = "a.root-servers.net.",
                const std::string& ip = "127.0.0.11");
  void Cached(const std::string& name, int type, const std::string& data, int32_t ttl,
              int32_t pref = 0) {
    modDNS::CacheAdd(store, name, type, ttl, data, pref, false);
  }
  void Forwarding(Strs servers) {
    options.RECURSIONOUT = true;
    options.NS = std::move(servers);
  }

  // Sends a query from the client 10.0.0.5:5353 through the WSDNS dispatch.
  void Ask(int id, const std::string& name, int type, bool rd = true) {
    engine.OnDnsDatagram("10.0.0.5", 5353, Query(id, name, type, rd), "10.0.0.1");
  }
  // A reply of another server, from its port 53, arriving on the channel
  // of the last query with the reply's ID that was sent to it.
  void Reply(const std::string& host, const ReplyBuilder& reply) {
    engine.OnDns2Datagram(ChannelTo(host, reply.id), host, 53, reply.Build());
  }
  // The channel of the last query sent to `host`, with ID `id` when it is
  // not -1 (0 when there was none).
  uint64_t ChannelTo(const std::string& host, int id = -1) const;
  // The last datagram sent to the client, decoded; fails the test if none.
  DnsMessage LastAnswer();
  // Upstream queries sent since the last call.
  std::vector<SentQuery> TakeUpstream();
  // The single upstream query sent since the last look, to host:53; fails otherwise.
  DnsMessage OneQuery(const std::string& host);
  // A reply to the single query just sent to host, checked to ask qname/qtype.
  ReplyBuilder Asked(const std::string& host, const std::string& qname, int qtype = 1,
                     int rcode = 0);
  // Answers that query for qname with one A record.
  void AnswerA(const std::string& host, const std::string& qname, const std::string& ip) {
    Reply(host, Asked(host, qname).A(2, qname, ip));
  }
  bool Logged(const std::string& line) const {
    return std::find(log.lines.begin(), log.lines.end(), line) != log.lines.end();
  }
  // Advances the clock by whole seconds, one timer tick each.
  void Tick(int seconds = 1);

  StoreContext store{records, options, clock, log, errors, "/nonexistent", localIPs, dhcpIfs};
  RecordingSender wsdns;
  RecordingChannels wsdns2;
  FakeLeases leases;
  double random = 0.0;
  std::vector<bool> timerSwitches;
  DnsEngine engine{store, wsdns, wsdns2, &leases};

 private:
  std::size_t upstreamSeen_ = 0;
};
