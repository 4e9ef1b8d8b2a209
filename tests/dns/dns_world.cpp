#include "dns_world.h"

#include <sstream>

using namespace korvane;

std::string U16(int v) { return Bytes({(v >> 8) & 255, v & 255}); }

std::string U32(long v) {
  return U16(static_cast<int>((v >> 16) & 0xFFFF)) + U16(static_cast<int>(v & 0xFFFF));
}

std::string Wire(const std::string& name) {
  std::string out, label;
  std::istringstream labels(name);
  while (std::getline(labels, label, '.'))
    if (!label.empty()) out += static_cast<char>(label.size()) + label;
  return out + '\0';
}

std::string RR(const std::string& owner, int type, long ttl, const std::string& rdata) {
  return owner + U16(type) + U16(1) + U32(ttl) + U16(static_cast<int>(rdata.size())) + rdata;
}

std::string Head(int id, int flags3, int flags4, int an, int ns, int ar, const std::string& name,
                 int type) {
  return U16(id) + Bytes({flags3, flags4}) + U16(1) + U16(an) + U16(ns) + U16(ar) + Wire(name) +
         U16(type) + U16(1);
}

std::string Query(int id, const std::string& name, int type, bool rd, int qclass, int opcode) {
  return U16(id) + Bytes({(opcode << 3) | (rd ? 1 : 0), 0}) + U16(1) + U16(0) + U16(0) + U16(0) +
         Wire(name) + U16(type) + U16(qclass);
}

std::string SoaData(const std::string& primary, const std::string& mailbox, long serial,
                    long refresh, long retry, long expire, long minimum) {
  return primary + '\0' + mailbox + '\0' + U32(serial) + U32(refresh) + U32(retry) +
         U32(expire) + U32(minimum);
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

WireMessage Decode(const std::string& bytes) {
  WireMessage m;
  if (bytes.size() < 12) return m;
  std::string_view rest(bytes);
  auto u16 = [&rest] { return modDNS::ExtractShort(rest, true); };
  auto name = [&bytes](std::string_view& from) { return modDNS::ExtractName(bytes, from, true); };
  m.id = u16();
  m.flags3 = static_cast<uint8_t>(rest[0]);
  m.flags4 = static_cast<uint8_t>(rest[1]);
  rest.remove_prefix(2);
  const int qdcount = u16();
  const int counts[5] = {0, 0, u16(), u16(), u16()};
  if (qdcount > 0) {
    m.qname = name(rest);
    m.qtype = u16();
    u16();
  }
  for (int s = 2; s <= 4; ++s) {
    for (int i = 0; i < counts[s]; ++i) {
      name(rest);
      const int type = u16();
      u16();
      WireRecord r{s, static_cast<long>(modDNS::ExtractLong(rest, true)), ""};
      std::string_view rdata = rest.substr(0, std::min<std::size_t>(u16(), rest.size()));
      rest.remove_prefix(rdata.size());
      if (type == 1) {
        r.data = modIP::DataToIP(rdata);
      } else if (type == 2 || type == 5 || type == 12) {
        r.data = name(rdata);
      } else if (type == 15) {
        int pref = modDNS::ExtractShort(rdata, true);
        r.data = std::to_string(pref) + " " + name(rdata);
      } else if (type == 6) {
        r.data = name(rdata);
        r.data += " " + name(rdata) + " ";
        rdata.remove_prefix(std::min<std::size_t>(16, rdata.size()));
        r.data += std::to_string(static_cast<long>(modDNS::ExtractLong(rdata, true)));
      } else {
        r.data = std::string(rdata);
      }
      m.records.push_back(r);
    }
  }
  return m;
}

DnsWorld::DnsWorld() {
  engine.SetRandom([this] { return random; });
  engine.SetTimerSwitch([this](bool on) { timerSwitches.push_back(on); });
  engine.SetRunning(true);
}

void DnsWorld::RootHint(const std::string& server, const std::string& ip) {
  modDNS::CacheAdd(store, ".", 2, 3600000, server, 0, true, true);
  modDNS::CacheAdd(store, server, 1, 3600000, modIP::IPToData(ip), 0, true, true);
}

WireMessage DnsWorld::LastAnswer() {
  EXPECT_FALSE(wsdns.sent.empty());
  return wsdns.sent.empty() ? WireMessage{} : Decode(wsdns.sent.back().bytes);
}

std::vector<SentDatagram> DnsWorld::TakeUpstream() {
  std::vector<SentDatagram> out(wsdns2.sent.begin() + static_cast<long>(upstreamSeen_),
                                wsdns2.sent.end());
  upstreamSeen_ = wsdns2.sent.size();
  return out;
}

WireMessage DnsWorld::OneQuery(const std::string& host) {
  auto up = TakeUpstream();
  EXPECT_EQ(up.size(), 1u);
  if (up.size() != 1) return {};
  EXPECT_EQ(up[0].host, host);
  EXPECT_EQ(up[0].port, 53);
  return Decode(up[0].bytes);
}

ReplyBuilder DnsWorld::Asked(const std::string& host, const std::string& qname, int qtype,
                            int rcode) {
  WireMessage q = OneQuery(host);
  EXPECT_EQ(q.qname, qname);
  EXPECT_EQ(q.qtype, qtype);
  return ReplyBuilder(q.id, qname, qtype, rcode);
}

void DnsWorld::Tick(int seconds) {
  for (int i = 0; i < seconds; ++i) {
    clock.Advance(1);
    engine.Timer();
  }
}
