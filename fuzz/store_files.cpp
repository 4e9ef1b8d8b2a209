#include "store_files.h"

#include <cstdio>

#include "support/fakes.h"

StoreFuzzWorld::StoreFuzzWorld() {
  for (const char* name : {"named.perm", "named.cache", "named.root", "perm.dat", "hosts"})
    std::remove(Scratch().File(name).c_str());
}

void StoreFuzzWorld::Write(const std::string& name, std::string_view content) const {
  Scratch().Write(name, std::string(content));
}

std::string StoreFuzzWorld::Path(const std::string& name) const { return Scratch().File(name); }

std::vector<std::string> StoreFuzzWorld::Dump() const {
  std::vector<std::string> out;
  for (const clDNSRecord& r : records)
    out.push_back(r.Name + " " + std::to_string(r.RecType) + " " + std::to_string(r.TTL(clock.Now())) +
                  " " + std::to_string(r.Pref) + " " + r.Data + (r.Permanent ? " P" : ""));
  return out;
}
