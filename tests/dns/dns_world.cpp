#include "dns_world.h"

std::string U16(int v) { return Bytes({(v >> 8) & 255, v & 255}); }

std::string U32(long v) {
  return Bytes({static_cast<int>((v >> 24) & 255), static_cast<int>((v >> 16) & 255),
                static_cast<int>((v >> 8) & 255), static_cast<int>(v & 255)});
}

std::string Wire(const std::string& name) {
  std::string out;
  std::size_t start = 0;
  while (start < name.size()) {
    std::size_t dot = name.find('.', start);
    if (dot == std::string::npos) dot = name.size();
    if (dot > start) {
      out += static_cast<char>(dot - start);
      out += name.substr(start, dot - start);
    }
    start = dot + 1;
  }
  out += '\0';
  return out;
}

std::string SoaData(const std::string& primary, const std::string& mailbox, long serial,
                    long refresh, long retry, long expire, long minimum) {
  return primary + std::string(1, '\0') + mailbox + std::string(1, '\0') + U32(serial) +
         U32(refresh) + U32(retry) + U32(expire) + U32(minimum);
}

std::string Query(int id, const std::string& name, int type, bool rd, int qclass, int opcode) {
  return U16(id) + Bytes({(opcode << 3) | (rd ? 1 : 0), 0}) + U16(1) + U16(0) + U16(0) + U16(0) +
         Wire(name) + U16(type) + U16(qclass);
}

ReplyBuilder::ReplyBuilder(int id_, const std::string& qname_, int qtype_, int rcode_, int qclass_)
    : id(id_), rcode(rcode_), qtype(qtype_), qclass(qclass_), qname(qname_) {}

ReplyBuilder& ReplyBuilder::Add(int section, const std::string& name, int type, long ttl,
                                const std::string& rdata, int rclass) {
  sections[section].push_back(Wire(name) + U16(type) + U16(rclass) + U32(ttl) +
                              U16(static_cast<int>(rdata.size())) + rdata);
  return *this;
}
ReplyBuilder& ReplyBuilder::A(int s, const std::string& name, const std::string& ip, long ttl) {
  return Add(s, name, 1, ttl, modIP::IPToData(ip));
}
ReplyBuilder& ReplyBuilder::NS(int s, const std::string& name, const std::string& host, long ttl) {
  return Add(s, name, 2, ttl, Wire(host));
}
ReplyBuilder& ReplyBuilder::CNAME(int s, const std::string& name, const std::string& target,
                                  long ttl) {
  return Add(s, name, 5, ttl, Wire(target));
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
  m.id = modDNS::ExtractShort(rest, true);
  m.flags3 = static_cast<uint8_t>(rest[0]);
  m.flags4 = static_cast<uint8_t>(rest[1]);
  rest.remove_prefix(2);
  m.qdcount = modDNS::ExtractShort(rest, true);
  int counts[5] = {0, 0, modDNS::ExtractShort(rest, true), modDNS::ExtractShort(rest, true),
                   modDNS::ExtractShort(rest, true)};
  if (m.qdcount > 0) {
    m.qname = modDNS::ExtractName(bytes, rest, true);
    m.qtype = modDNS::ExtractShort(rest, true);
    m.qclass = modDNS::ExtractShort(rest, true);
  }
  for (int s = 2; s <= 4; ++s) {
    for (int i = 0; i < counts[s]; ++i) {
      WireRecord r;
      r.section = s;
      r.name = modDNS::ExtractName(bytes, rest, true);
      r.type = modDNS::ExtractShort(rest, true);
      r.rclass = modDNS::ExtractShort(rest, true);
      r.ttl = static_cast<long>(modDNS::ExtractLong(rest, true));
      int length = modDNS::ExtractShort(rest, true);
      std::string_view rdata = rest.substr(0, std::min<std::size_t>(length, rest.size()));
      rest.remove_prefix(rdata.size());
      switch (r.type) {
        case 1: r.data = modIP::DataToIP(rdata); break;
        case 2: case 5: case 12: r.data = modDNS::ExtractName(bytes, rdata, true); break;
        case 15: {
          int pref = modDNS::ExtractShort(rdata, true);
          r.data = std::to_string(pref) + " " + modDNS::ExtractName(bytes, rdata, true);
          break;
        }
        case 6: {
          std::string primary = modDNS::ExtractName(bytes, rdata, true);
          std::string mailbox = modDNS::ExtractName(bytes, rdata, true);
          rdata.remove_prefix(std::min<std::size_t>(16, rdata.size()));
          r.data = primary + " " + mailbox + " " +
                   std::to_string(static_cast<long>(modDNS::ExtractLong(rdata, true)));
          break;
        }
        default: r.data = std::string(rdata); break;
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

void DnsWorld::Perm(const std::string& name, int type, const std::string& data, int32_t ttl,
                    int32_t pref) {
  modDNS::CacheAdd(store, name, type, ttl, data, pref, true);
}

void DnsWorld::RootHint(const std::string& server, const std::string& ip) {
  modDNS::CacheAdd(store, ".", 2, 3600000, server, 0, true, true);
  modDNS::CacheAdd(store, server, 1, 3600000, modIP::IPToData(ip), 0, true, true);
}

void DnsWorld::Cached(const std::string& name, int type, const std::string& data, int32_t ttl,
                      int32_t pref) {
  modDNS::CacheAdd(store, name, type, ttl, data, pref, false);
}

void DnsWorld::Ask(int id, const std::string& name, int type, bool rd) {
  engine.OnDnsDatagram("10.0.0.5", 5353, Query(id, name, type, rd), "10.0.0.1");
}

WireMessage DnsWorld::LastAnswer() {
  EXPECT_FALSE(wsdns.sent.empty());
  if (wsdns.sent.empty()) return {};
  return Decode(wsdns.sent.back().bytes);
}

std::vector<SentDatagram> DnsWorld::TakeUpstream() {
  std::vector<SentDatagram> out(wsdns2.sent.begin() + static_cast<long>(upstreamSeen_),
                                wsdns2.sent.end());
  upstreamSeen_ = wsdns2.sent.size();
  return out;
}

std::vector<SentDatagram> DnsWorld::TakeAnswers() {
  std::vector<SentDatagram> out(wsdns.sent.begin() + static_cast<long>(answersSeen_),
                                wsdns.sent.end());
  answersSeen_ = wsdns.sent.size();
  return out;
}

bool DnsWorld::Logged(const std::string& line) const {
  for (const auto& l : log.lines)
    if (l == line) return true;
  return false;
}

void DnsWorld::Tick(int seconds) {
  for (int i = 0; i < seconds; ++i) {
    clock.Advance(1);
    engine.Timer();
  }
}
