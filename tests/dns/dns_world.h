// A small world for engine tests: record list, options, fake clock, log,
// error reporter, two recording senders, a lease table and a fixed random
// source, plus builders and a decoder of DNS messages.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dns/engine.h"
#include "store/store.h"
#include "support/fakes.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"

class FakeLeases : public LeaseSource {
 public:
  std::vector<LeaseView> LeasesNamed(const std::string& name) const override {
    std::vector<LeaseView> out;
    for (const auto& l : leases)
      if (l.ClientName == name) out.push_back(l);
    return out;
  }
  std::vector<LeaseView> LeasesOfAddress(const std::string& ip) const override {
    std::vector<LeaseView> out;
    for (const auto& l : leases)
      if (l.IPaddr == ip) out.push_back(l);
    return out;
  }
  std::vector<LeaseView> leases;
};

// One record of a message, as a test reads it.
struct WireRecord {
  int section;  // 2 answer, 3 authority, 4 additional
  std::string name;
  int type;
  int rclass;
  long ttl;
  std::string data;  // A: dotted; NS/CNAME/PTR: name; MX: "pref name"; SOA: "primary mailbox minimum"
};

struct WireMessage {
  int id = -1, flags3 = 0, flags4 = 0, qdcount = 0;
  std::string qname;
  int qtype = 0, qclass = 0;
  std::vector<WireRecord> records;
  int rcode() const { return flags4 & 15; }
  bool aa() const { return flags3 & 4; }
  std::vector<WireRecord> In(int section) const {
    std::vector<WireRecord> out;
    for (const auto& r : records)
      if (r.section == section) out.push_back(r);
    return out;
  }
};

WireMessage Decode(const std::string& bytes);

// A query: ID, name, type; RD and class as given.
std::string Query(int id, const std::string& name, int type, bool rd = true, int qclass = 1,
                  int opcode = 0);

// Builds replies of other servers, names uncompressed.
struct ReplyBuilder {
  ReplyBuilder(int id, const std::string& qname, int qtype, int rcode = 0, int qclass = 1);
  ReplyBuilder& Add(int section, const std::string& name, int type, long ttl,
                    const std::string& rdata, int rclass = 1);
  ReplyBuilder& A(int section, const std::string& name, const std::string& ip, long ttl = 3600);
  ReplyBuilder& NS(int section, const std::string& name, const std::string& host, long ttl = 3600);
  ReplyBuilder& CNAME(int section, const std::string& name, const std::string& target,
                      long ttl = 3600);
  ReplyBuilder& SOA(int section, const std::string& zone, long ttl, long minimum);
  std::string Build() const;

  int id, rcode, qtype, qclass;
  std::string qname;
  std::vector<std::string> sections[5];
};

std::string Wire(const std::string& name);   // uncompressed wire form
std::string U16(int v);
std::string U32(long v);
// The store's SOA data form.
std::string SoaData(const std::string& primary, const std::string& mailbox, long serial,
                    long refresh, long retry, long expire, long minimum);

class DnsWorld : public ::testing::Test {
 protected:
  DnsWorld();

  // Permanent records from the record file, and root hints.
  void Perm(const std::string& name, int type, const std::string& data, int32_t ttl = 3600,
            int32_t pref = 0);
  void RootHint(const std::string& server, const std::string& ip);
  void Cached(const std::string& name, int type, const std::string& data, int32_t ttl,
              int32_t pref = 0);

  // Sends a query from the client 10.0.0.5:5353 through the WSDNS dispatch.
  void Ask(int id, const std::string& name, int type, bool rd = true);
  // The last datagram sent to the client, decoded; fails the test if none.
  WireMessage LastAnswer();
  // Upstream queries sent since the last call, decoded.
  std::vector<SentDatagram> TakeUpstream();
  std::vector<SentDatagram> TakeAnswers();
  bool Logged(const std::string& line) const;
  // Advances the clock by whole seconds, one timer tick each.
  void Tick(int seconds = 1);

  RecordList records;
  Options options;
  FakeClock clock;
  RecordingLog log;
  RecordingErrorReporter errors;
  std::vector<std::string> localIPs;
  DHCPifList dhcpIfs;
  StoreContext store{records, options, clock, log, errors, "/nonexistent", localIPs, dhcpIfs};
  RecordingSender wsdns, wsdns2;
  FakeLeases leases;
  double random = 0.0;
  std::vector<bool> timerSwitches;
  DnsEngine engine{store, wsdns, wsdns2, &leases};

 private:
  std::size_t upstreamSeen_ = 0, answersSeen_ = 0;
};
