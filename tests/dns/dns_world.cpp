#include "dns_world.h"

using namespace korvane;

std::string Head(int id, int flags3, int flags4, int an, int ns, int ar, const std::string& name,
                 int type) {
  return U16(id) + Bytes({flags3, flags4}) + U16(1) + U16(an) + U16(ns) + U16(ar) + Wire(name) +
         U16(type) + U16(1);
}

std::string Query(int id, const std::string& name, int type, bool rd, int qclass, int opcode) {
  return U16(id) + Bytes({(opcode << 3) | (rd ? 1 : 0), 0}) + U16(1) + U16(0) + U16(0) + U16(0) +
         Wire(name) + U16(type) + U16(qclass);
}

std::string Soa(const std::string& primary, const std::string& mailbox, uint32_t serial,
                uint32_t refresh, uint32_t retry, uint32_t expire, uint32_t minimum) {
  return modDNS::SoaData{primary, mailbox, serial, refresh, retry, expire, minimum}.Pack();
}

ReplyBuilder& ReplyBuilder::SOA(int s, const std::string& zone, long ttl, long minimum) {
  return Add(s, zone, 6, ttl,
             Wire("ns1." + zone) + Wire("hostmaster." + zone) + U32(2024010101) + U32(7200) +
                 U32(900) + U32(1209600) + U32(minimum));
}

std::string ReplyBuilder::Build() const {
  std::string out = U16(id) + Bytes({0x80, 0x80 | rcode}) + U16(1);
  for (int s = 2; s <= 4; ++s) out += U16(static_cast<int>(sections[s].size()));
  out += Wire(qname) + U16(qtype) + U16(qclass);
  for (int s = 2; s <= 4; ++s)
    for (const auto& r : sections[s]) out += r;
  return out;
}

Strs Data(const DnsMessage& message, int section) {
  Strs out;
  for (const modDNS::DecodedRecord& r : message.Section(section)) {
    switch (r.Type) {
      case 1: out.push_back(r.Address); break;
      case 2: case 5: case 12: out.push_back(r.Target); break;
      case 15: out.push_back(std::to_string(r.Preference) + " " + r.Target); break;
      case 6:
        out.push_back(r.Soa.Primary + " " + r.Soa.Mailbox + " " + std::to_string(r.Soa.Minimum));
        break;
      default: out.push_back(r.RawData); break;
    }
  }
  return out;
}

std::string QName(const DnsMessage& message) {
  return message.Questions.empty() ? "" : message.Questions[0].Name;
}

int QType(const DnsMessage& message) {
  return message.Questions.empty() ? 0 : message.Questions[0].Type;
}

DnsWorld::DnsWorld() {
  // The clients of these tests are on 10.0.0.0/24, where this server is 10.0.0.1.
  localIPs = {"10.0.0.1"};
  engine.SetLocalNetworks({*modIP::ParseNetwork("10.0.0.0/24")});
  engine.SetRandom([this] { return random; });
  engine.SetTimerSwitch([this](bool on) { timerSwitches.push_back(on); });
  engine.SetRunning(true);
}

void DnsWorld::RootHint(const std::string& server, const std::string& ip) {
  modDNS::CacheAdd(store, ".", 2, 3600000, server, 0, true, true);
  modDNS::CacheAdd(store, server, 1, 3600000, modIP::IPToData(ip), 0, true, true);
}

DnsMessage DnsWorld::LastAnswer() {
  EXPECT_FALSE(wsdns.sent.empty());
  return wsdns.sent.empty() ? DnsMessage{} : modDNS::DecodeMessage(wsdns.sent.back().bytes);
}

uint64_t DnsWorld::ChannelTo(const std::string& host, int id) const {
  for (auto it = wsdns2.sent.rbegin(); it != wsdns2.sent.rend(); ++it)
    if (it->host == host && (id < 0 || modDNS::DecodeMessage(it->bytes).Header.Id == id))
      return it->channel;
  return 0;
}

std::vector<SentQuery> DnsWorld::TakeUpstream() {
  std::vector<SentQuery> out(wsdns2.sent.begin() + static_cast<long>(upstreamSeen_),
                                wsdns2.sent.end());
  upstreamSeen_ = wsdns2.sent.size();
  return out;
}

DnsMessage DnsWorld::OneQuery(const std::string& host) {
  auto up = TakeUpstream();
  EXPECT_EQ(up.size(), 1u);
  if (up.size() != 1) return {};
  EXPECT_EQ(up[0].host, host);
  EXPECT_EQ(up[0].port, 53);
  return modDNS::DecodeMessage(up[0].bytes);
}

ReplyBuilder DnsWorld::Asked(const std::string& host, const std::string& qname, int qtype,
                            int rcode) {
  DnsMessage q = OneQuery(host);
  EXPECT_EQ(QName(q), qname);
  EXPECT_EQ(QType(q), qtype);
  return ReplyBuilder(q.Header.Id, qname, qtype, rcode);
}

void DnsWorld::Tick(int seconds) {
  for (int i = 0; i < seconds; ++i) {
    clock.Advance(1);
    engine.Timer();
  }
}
