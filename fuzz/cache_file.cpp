// The cache file: the input is named.cache, ten seconds old, read as at
// start-up. What the cache then holds, saved and read back at once, is the
// same.
#include "store_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  StoreFuzzWorld w;
  const std::string path = w.Path("named.cache");
  w.Write("named.cache", AsView(data, size));
  Scratch().SetModified("named.cache", w.clock.Now() - 10);
  Require(modDNS::LoadFile(w.ctx, path, false, false), "named.cache unread");
  const std::vector<std::string> loaded = w.Dump();

  modDNS::saveCache(w.ctx);
  w.records.Clear();
  Scratch().SetModified("named.cache", w.clock.Now());
  Require(modDNS::LoadFile(w.ctx, path, false, false), "saved named.cache unread");
  Require(w.Dump() == loaded, "the cache changed in a save");
  return 0;
}
