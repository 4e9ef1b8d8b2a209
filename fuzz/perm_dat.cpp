// The old record file perm.dat, imported as permanent records.
#include "store_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  StoreFuzzWorld w;
  w.Write("perm.dat", AsView(data, size));
  w.options.NAME = "ns.example.com";
  modDNS::LoadPermOld(w.ctx);
  for (const clDNSRecord& r : w.records) Require(r.Permanent, "an imported record not permanent");
  return 0;
}
