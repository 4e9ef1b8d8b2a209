// A small world for the store's tests: a record list, options, a fake clock
// and recorders, all in one temporary program folder.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "store/store.h"
#include "support/fakes.h"
#include "support/store_parts.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/soa_data.h"

using namespace korvane;

struct StoreWorld : StoreParts {
  TempDir dir;
  RecordingProgress progress;
  StoreContext ctx{records, options, clock, log, errors, dir.path(), localIPs, dhcpIfs, nullptr};

  void Add(const std::string& name, int type, int32_t ttl, const std::string& data, int32_t pref = 0,
           bool permanent = false) {
    modDNS::CacheAdd(ctx, name, type, ttl, data, pref, permanent);
  }

  // "tag number" per reported error.
  std::vector<std::string> Errors() const {
    std::vector<std::string> out;
    for (const ReportedError& e : errors.errors) out.push_back(e.tag + " " + std::to_string(e.number));
    return out;
  }

  // "address from to mask gateway ttl domain" per DHCP interface.
  std::vector<std::string> DhcpDump() const {
    std::vector<std::string> out;
    for (const clDHCPif& d : dhcpIfs)
      out.push_back(d.IPaddr + " " + d.ScopeFrom + " " + d.ScopeTo + " " + d.Subnet + " " + d.Gateway + " " +
                    std::to_string(d.TTL) + " " + d.Domain);
    return out;
  }

  // SOA record data: primary, mailbox, then five 32-bit numbers.
  static std::string Soa(const std::string& primary, const std::string& mailbox, std::vector<uint32_t> n) {
    n.resize(5);
    return modDNS::SoaData{primary, mailbox, n[0], n[1], n[2], n[3], n[4]}.Pack();
  }

  // One line per record: name, type, TTL now, data shown readably, pref,
  // flags. Lets a test compare a whole list at once.
  std::vector<std::string> Dump() const {
    std::vector<std::string> out;
    for (const clDNSRecord& r : records) out.push_back(Describe(r));
    return out;
  }

  // "primary mailbox serial refresh retry expire minimum".
  static std::string SoaText(std::string_view data) {
    const modDNS::SoaData soa = modDNS::SoaData::Parse(data);
    std::string text = soa.Primary + " " + soa.Mailbox;
    for (uint32_t n : soa.Numbers()) text += " " + std::to_string(n);
    return text;
  }

  std::string Describe(const clDNSRecord& r) const {
    std::string data;
    if (r.RecType == RecordType::kA) {
      data = modIP::DataToIP(r.Data);
    } else if (r.RecType == RecordType::kSOA) {
      data = SoaText(r.Data);
    } else {
      for (unsigned char c : r.Data) {
        if (c >= 0x21 && c < 0x7f)
          data += static_cast<char>(c);
        else
          data += "\\" + std::to_string(c);
      }
    }
    return r.Name + " " + std::to_string(r.RecType) + " " + std::to_string(r.TTL(clock.Now())) + " " +
           data + " " + std::to_string(r.Pref) + (r.Permanent ? " P" : "") + (r.RootHint ? " H" : "");
  }
};
