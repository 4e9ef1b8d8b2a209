// The record store's procedures: adding and ageing records, the record file
// dialect, the cache file, the hosts file and the old perm.dat import.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/dhcp_if.h"
#include "store/options.h"
#include "store/perm_rec.h"
#include "store/record_list.h"
#include "store/record_origin.h"
#include "store/shared_text.h"
#include "wire/services.h"

namespace korvane {

// Everything the store works on, owned elsewhere (by the application object
// or a test's small world).
struct StoreContext {
  RecordList& records;
  const Options& options;
  const Clock& clock;
  LogSink& log;
  ErrorReporter& errors;
  std::string folder;                         // program folder, without a trailing "/"
  const std::vector<std::string>& LocalIPs;   // this machine's IPv4 addresses
  DHCPifList& DHCPifs;
  ProgressSink* progress = nullptr;           // may be null (no window)
  // Lines the loaders skipped or cut, counted up (each one is logged).
  int warnings = 0;
  // The permanent records in force came from named.perm: a reload that
  // cannot read it, or finds a "(" it never closes, keeps them.
  bool recordFileLoaded = false;
  // The servers cached records were learnt from (their Origin numbers).
  ServerOrigins origins = {};

  std::string PathOf(std::string_view fileName) const { return folder + "/" + std::string(fileName); }
};

namespace modDNS {

// Adds or refreshes one record. `rtype` is a number or a text key
// ("A" ... "MX", "REA" ... "REMX", "NE"); an unknown key adds nothing.
// `origin` (RecordOrigin) says where it came from; a cached record whose
// TTL is refreshed takes the new origin.
void CacheAdd(StoreContext& ctx, std::string_view name, int rtype, int32_t ttl, std::string_view data,
              int32_t pref, bool permanent, bool rootHint = false,
              uint16_t origin = RecordOrigin::kFile);
void CacheAdd(StoreContext& ctx, std::string_view name, std::string_view rtype, int32_t ttl,
              std::string_view data, int32_t pref, bool permanent, bool rootHint = false,
              uint16_t origin = RecordOrigin::kFile);
// The same for a name and data a record already holds.
void CacheAdd(StoreContext& ctx, const SharedText& name, int rtype, int32_t ttl, const SharedText& data,
              int32_t pref, bool permanent, bool rootHint = false,
              uint16_t origin = RecordOrigin::kFile);
// The type number of a text key, or 0 when the key is unknown.
int RecTypeOfKey(std::string_view key);

// Removes expired cached records.
void CleanCache(StoreContext& ctx);
// Removes every cached record (the permanent ones stay), numbers the servers
// afresh and logs "Cache cleared by operator".
void ClearCache(StoreContext& ctx);

// The record file tokenizer: left-trims `line`, returns the text up to the
// first space, and leaves the rest (left-trimmed) in `line`.
std::string NextToken(std::string& line);

// Reads one record file into the record list and ctx.DHCPifs, logging each
// line it skips or cuts and a summary. False when the file could not be
// read, or the progress display stopped the load (nothing is added then).
bool LoadFile(StoreContext& ctx, const std::string& path, bool permanent, bool rootHints);

// How LoadPerm went.
struct LoadResult {
  // A reload found named.perm unreadable or with a "(" it never closes:
  // the records in force stay, and nothing else changed (it said so).
  bool kept = false;
  // The progress display stopped the load: nothing changed.
  bool stopped = false;
  bool rootHintsUnread = false;      // named.root could not be read (logged)
  std::size_t permanentRecords = 0;  // in the list afterwards
  int warnings = 0;                  // lines skipped or cut (also added to ctx.warnings)
};

// Rebuilds all permanent data: root hints, record file (else perm.dat),
// hosts. The files are read first and the records in force replaced only
// once all of them are read.
LoadResult LoadPerm(StoreContext& ctx);

// Writes named.perm from the editor's entries. False on failure (reported
// as "modDNS WritePerm").
bool WritePerm(StoreContext& ctx, const std::vector<clPermRec>& entries);

// named.perm read back into the record editor's entries, such that WritePerm
// of them writes back the same records. Domains are the SOA owners and the
// root: one domain entry each (RecType 6, Name "", Pref 1 with the SOA's data
// and TTL; the root, when it has no SOA, first with Pref 0, which writes no
// line). Every other entry belongs to the longest domain its owner lies in,
// label by label: Domain is that domain and Name the labels before it, both
// without the final dot ("" for the root and for the domain itself). Kept
// are A, NS, CNAME, PTR, MX, SOA and DHCP lines, in file order; a line the
// loader would merge into an earlier one is left out, and so are the reverse
// records the loader makes from A lines. DHCP data is 20 bytes: first, last,
// mask, gateway and this machine's address in that network (0.0.0.0 when it
// has none). nullopt when named.perm cannot be read.
std::optional<std::vector<clPermRec>> ReadPermEntries(StoreContext& ctx);

// Writes named.cache from the non-permanent, unexpired records. False when it
// could not be written (reported as "modDNS saveCache").
bool saveCache(StoreContext& ctx);

// The hosts file named by HOSTS, as permanent A, PTR and CNAME records.
void LoadHosts(StoreContext& ctx);
// Imports the old record file perm.dat from the program folder.
void LoadPermOld(StoreContext& ctx);

}  // namespace modDNS

}  // namespace korvane
