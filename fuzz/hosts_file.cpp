// The hosts file named by the options, read as permanent records.
#include "store_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  StoreFuzzWorld w;
  w.Write("hosts", AsView(data, size));
  w.options.HOSTS = w.Path("hosts");
  modDNS::LoadHosts(w.ctx);
  for (const clDNSRecord& r : w.records) Require(r.Permanent, "a hosts record not permanent");
  return 0;
}
