// Loading in two steps: the files are read into staged records first, while
// the list stays as it is (so a long read can let events through, and a
// broken record file can leave the records in force alone), then the staged
// records are added in one go, exactly as CacheAdd would have added them
// line by line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "store/load_report.h"
#include "store/store.h"

namespace korvane {

namespace modDNS {

// One record read from a file, its name and data the list's own copies.
struct PendingRecord {
  SharedText name;
  SharedText data;
  int32_t ttl = 0;
  int32_t pref = 0;
  int16_t type = 0;
  bool permanent = false;
  bool rootHint = false;
  uint16_t origin = 0;  // RecordOrigin
};

struct StagedLoad {
  std::vector<PendingRecord> records;
  DHCPifList pools;
  bool stopped = false;  // the progress display asked to stop: drop it all
};

// How reading one record file went.
struct FileRead {
  bool read = false;       // false: the file could not be read
  int error = 0;           // errno of a file that could not be read
  bool unclosed = false;   // a "(" was never closed
};

// Reads a record file into `into`; `label` names it in warnings.
FileRead StageRecordFile(StoreContext& ctx, const std::string& path, const std::string& label,
                         bool permanent, bool rootHints, StagedLoad& into);
// The hosts file named by HOSTS, with the lines LoadHosts logs.
void StageHosts(StoreContext& ctx, StagedLoad& into);
// perm.dat from the program folder, with the lines LoadPermOld logs.
void StagePermDat(StoreContext& ctx, StagedLoad& into);

// Adds the staged records in their order through CacheAdd's rules, then
// lets go of the indexes the adding built.
void AddStaged(StoreContext& ctx, const StagedLoad& staged);
// CacheAdd of a record whose name and data are the list's own.
void CacheAddPending(StoreContext& ctx, const PendingRecord& record);

// Progress of one file on ctx.progress, only for a file long enough to be
// worth it: the share of it read, and whether to stop.
class FileProgress {
 public:
  FileProgress(StoreContext& ctx, std::size_t length);
  ~FileProgress();
  // After each line, `offset` bytes in. False when the load is to stop.
  bool At(std::size_t offset);

 private:
  ProgressSink* sink_;
  std::size_t length_;
  StoreContext& ctx_;
};

}  // namespace modDNS

}  // namespace korvane
