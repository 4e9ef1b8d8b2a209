// The record file: the input is named.perm, loaded as the operator's
// records (DHCP lines make pools on this machine's addresses) and read as
// the record editor's entries. Saving those entries and reading them again
// gives the same entries: an editor's save loses nothing.
#include <optional>

#include "store_files.h"

namespace {

std::vector<std::string> Described(const std::vector<clPermRec>& entries) {
  std::vector<std::string> out;
  for (const clPermRec& e : entries)
    out.push_back(std::to_string(e.RecType) + " " + e.Domain + " " + e.Name + " " + e.Data + " " +
                  std::to_string(e.TTL) + " " + std::to_string(e.Pref));
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  StoreFuzzWorld w;
  w.Write("named.perm", AsView(data, size));
  Require(modDNS::LoadFile(w.ctx, w.Path("named.perm"), true, false), "named.perm unread");
  std::optional<std::vector<clPermRec>> entries = modDNS::ReadPermEntries(w.ctx);
  Require(entries.has_value(), "named.perm unread as entries");
  Require(modDNS::WritePerm(w.ctx, *entries), "named.perm not written");
  std::optional<std::vector<clPermRec>> again = modDNS::ReadPermEntries(w.ctx);
  Require(again && Described(*again) == Described(*entries), "an entry changed in a save");
  return 0;
}
