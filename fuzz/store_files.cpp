#include "store_files.h"

#include <algorithm>
#include <cstdio>

#include "support/fakes.h"
#include "wire/soa_data.h"

StoreFuzzWorld::StoreFuzzWorld() {
  for (const char* name : {"named.perm", "named.cache", "named.root", "perm.dat", "hosts"})
    std::remove(Scratch().File(name).c_str());
}

void StoreFuzzWorld::Write(const std::string& name, std::string_view content) const {
  Scratch().Write(name, std::string(content));
}

std::string StoreFuzzWorld::Path(const std::string& name) const { return Scratch().File(name); }

std::string AsFilesHoldIt(int type, const std::string& data) {
  if (type != RecordType::kSOA || !modDNS::SoaData::WellFormed(data)) return data;
  modDNS::SoaData soa = modDNS::SoaData::Parse(data);
  for (uint32_t* n : {&soa.Serial, &soa.Refresh, &soa.Retry, &soa.Expire, &soa.Minimum})
    *n = std::min(*n, 2147483647u);
  return soa.Pack();
}

std::vector<std::string> StoreFuzzWorld::Dump() const {
  std::vector<std::string> out;
  for (const clDNSRecord& r : records)
    out.push_back(r.Name + " " + std::to_string(r.RecType) + " " + std::to_string(r.TTL(clock.Now())) +
                  " " + std::to_string(r.Pref) + " " + AsFilesHoldIt(r.RecType, r.Data) +
                  (r.Permanent ? " P" : ""));
  return out;
}
