#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>

#include "store/files.h"
#include "store/loader.h"
#include "store/record_line.h"
#include "store/record_text.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/soa_data.h"
#include "wire/text.h"

namespace korvane {

using text::NumberText;

namespace modDNS {

namespace {

constexpr std::size_t kProgressThreshold = 7500;

// A type the file wrote where the TTL stands, such as "1h" or "0100".
bool LooksLikeTTL(std::string_view type) {
  return !type.empty() && ((type[0] >= '0' && type[0] <= '9') || type[0] == '+' || type[0] == '-');
}

std::string WhyUnknown(const RecordLine& record) {
  if (LooksLikeTTL(record.typeText)) return "TTL " + record.typeText + " is not a plain number (read as the type)";
  return "unknown type " + record.typeText;
}

bool IsNegativeKey(const std::string& type) { return RecTypeOfKey(type) >= RecordType::kNegativeBase; }

// Where the staged records of one record file go, and what is said about them.
struct RecordFileStage {
  StoreContext& ctx;
  StagedLoad& into;
  FileReport& report;
  bool permanent;
  bool rootHints;

  void Add(SharedText name, int type, const RecordLine& record, SharedText data, int32_t pref) {
    into.records.push_back({std::move(name), std::move(data), record.ttl, pref, static_cast<int16_t>(type),
                            permanent, rootHints});
  }

  void Take(const RecordLine& record, std::size_t number) {
    if (record.type == "DHCP") return TakePool(record, number);
    const int type = RecTypeOfKey(record.type);
    // The published root hints list IPv6 addresses too; queries leave over
    // IPv4 only, so those lines are no news.
    if (type == 0 && rootHints && record.type == "AAAA") return;
    if (type == 0) return report.Skipped(number, WhyUnknown(record));
    RecordList& list = ctx.records;
    SharedText owner = list.InternName(record.owner);
    // An A record of the operator's own files answers the reverse question too.
    if (type == RecordType::kA && permanent && !rootHints) {
      SharedText reverse = list.InternName(IPToArpa(modIP::DataToIP(record.data)));
      Add(std::move(reverse), RecordType::kPTR, record, owner, -1);
    }
    Add(owner, type, record, list.InternData(record.data), record.pref);
    report.Took();
    if (!record.note.empty()) report.Cut(number, record.note);
    if (!record.rest.empty()) report.Cut(number, "text after the data ignored: " + record.rest);
  }

  void TakePool(const RecordLine& record, std::size_t number) {
    // Pools come only from the operator's own files, never from learnt data.
    if (!permanent) return report.Skipped(number, "DHCP pool in learnt data");
    clDHCPif pool;
    if (!PoolOf(ctx, record, pool))
      return report.Lost(number, 1, "DHCP pool " + pool.ScopeFrom + " - " + pool.ScopeTo +
                                        " is on no local interface, pool skipped");
    into.pools.push_back(std::move(pool));
    report.TookOther();
  }
};

std::string AddressAt(const std::string& data, std::size_t index) {
  return modIP::DataToIP(index * 4 < data.size() ? data.substr(index * 4, 4) : std::string());
}

std::string Label(const StoreContext& ctx, const std::string& path) {
  const std::string folder = ctx.folder + "/";
  return path.starts_with(folder) ? path.substr(folder.size()) : path;
}

}  // namespace

FileProgress::FileProgress(StoreContext& ctx, std::size_t length)
    : sink_(length > kProgressThreshold ? ctx.progress : nullptr), length_(length), ctx_(ctx) {}

FileProgress::~FileProgress() {
  if (ctx_.progress) ctx_.progress->CloseProgress();
}

bool FileProgress::At(std::size_t offset) {
  if (!sink_) return true;
  const auto blocks = static_cast<int64_t>(offset / 128);
  sink_->SetProgress(static_cast<int>(std::min<int64_t>(100, blocks * 12800 / static_cast<int64_t>(length_))));
  return !sink_->StopRequested();
}

namespace {

FileRead ReadRecordFile(StoreContext& ctx, const std::string& path, const std::string& label,
                        bool permanent, bool rootHints, StagedLoad& into) {
  FileRead result;
  std::optional<std::string> content = ReadWholeFile(path);
  if (!content) {
    result.error = errno;
    return result;
  }
  result.read = true;
  int64_t age = 0;
  if (!permanent) {
    if (std::optional<DateTime> modified = FileModificationTime(path))
      age = static_cast<int64_t>(std::nearbyint(ctx.clock.Now() - *modified));
  }
  FileReport report(ctx.log, label, &ctx.warnings);
  RecordFileStage stage{ctx, into, report, permanent, rootHints};
  FileProgress progress(ctx, content->size());
  ReaderState state;
  const LogicalLines lines = ForEachLogicalLine(*content, [&](std::string line, std::size_t number, std::size_t end) {
    RecordLine record;
    std::string why;
    if (ParseRecordLine(ctx, std::move(line), state, age, record, &why))
      stage.Take(record, number);
    else if (!why.empty() && (permanent || !IsNegativeKey(record.type)))
      report.Skipped(number, why);  // learnt negative entries without data go quietly
    into.stopped = !progress.At(end);
    return !into.stopped;
  });
  if (into.stopped) return result;
  if (lines.openedAt > 0) {
    result.unclosed = true;
    report.Lost(lines.openedAt, lines.swallowed,
                "'(' not closed, " + CountOf(lines.swallowed, "line") + " swallowed");
  }
  report.Summary("record", "DHCP pool");
  return result;
}

}  // namespace

FileRead StageRecordFile(StoreContext& ctx, const std::string& path, const std::string& label,
                         bool permanent, bool rootHints, StagedLoad& into) {
  try {
    return ReadRecordFile(ctx, path, label, permanent, rootHints, into);
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS LoadFile", e);
    return FileRead{true, 0, false};
  }
}

void AddStaged(StoreContext& ctx, const StagedLoad& staged) {
  for (const PendingRecord& record : staged.records) CacheAddPending(ctx, record);
  ctx.records.DropIndexes();
}

bool LoadFile(StoreContext& ctx, const std::string& path, bool permanent, bool rootHints) {
  try {
    StagedLoad staged;
    const FileRead read = StageRecordFile(ctx, path, Label(ctx, path), permanent, rootHints, staged);
    if (!read.read || staged.stopped) return false;
    AddStaged(ctx, staged);
    for (clDHCPif& pool : staged.pools) ctx.DHCPifs.push_back(std::move(pool));
    return true;
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS LoadFile", e);
    return false;
  }
}

namespace {

void NoteUnreadable(StoreContext& ctx, const std::string& label, const FileRead& read) {
  FileReport(ctx.log, label, &ctx.warnings).Note("cannot be read (" + ErrorOfErrno(read.error).description + ")");
}

// The records in force stay when a reload cannot use named.perm.
bool KeepsRecordsInForce(StoreContext& ctx, const FileRead& perm) {
  if (!ctx.recordFileLoaded || (perm.read && !perm.unclosed)) return false;
  ctx.log.AddLine(perm.read ? "Reload kept the records in force: named.perm has a '(' that is not closed."
                            : "Reload kept the records in force: named.perm could not be read (" +
                                  ErrorOfErrno(perm.error).description + ").");
  return true;
}

// The staged files take the place of the permanent records.
void PutInForce(StoreContext& ctx, StagedLoad& staged) {
  ctx.records.EraseIf([](const clDNSRecord& r) { return r.Permanent; });
  ctx.DHCPifs.clear();
  AddStaged(ctx, staged);
  ctx.DHCPifs = std::move(staged.pools);
}

}  // namespace

LoadResult LoadPerm(StoreContext& ctx) {
  LoadResult result;
  const int warningsBefore = ctx.warnings;
  try {
    StagedLoad staged;
    ctx.log.AddLine("Loading root DNS server records...");
    const FileRead root = StageRecordFile(ctx, ctx.PathOf("named.root"), "named.root", true, true, staged);
    if (!root.read) {
      // Whether the hints are missed depends on the options: the caller counts it.
      result.rootHintsUnread = true;
      ctx.log.AddLine("Root server file " + ctx.PathOf("named.root") +
                      " could not be read: " + ErrorOfErrno(root.error).description + ".");
    }
    if (!staged.stopped) {
      ctx.log.AddLine("Loading permanent records...");
      const FileRead perm = StageRecordFile(ctx, ctx.PathOf("named.perm"), "named.perm", true, false, staged);
      if (!perm.read) NoteUnreadable(ctx, "named.perm", perm);
      if (!staged.stopped && KeepsRecordsInForce(ctx, perm)) {
        result.kept = true;
      } else if (!staged.stopped) {
        if (!perm.read) StagePermDat(ctx, staged);
        if (!staged.stopped) StageHosts(ctx, staged);
        if (!staged.stopped) {
          PutInForce(ctx, staged);
          ctx.recordFileLoaded = perm.read;
        }
      }
    }
    result.stopped = staged.stopped;
    if (result.kept || result.stopped) {
      staged = StagedLoad{};
      ctx.records.DropUnusedTexts();
    }
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS LoadPerm", e);
  }
  for (const clDNSRecord& r : ctx.records) result.permanentRecords += r.Permanent ? 1 : 0;
  result.warnings = ctx.warnings - warningsBefore;
  return result;
}

bool WritePerm(StoreContext& ctx, const std::vector<clPermRec>& entries) {
  try {
    std::string text = "; Korvane Permanent Records\n";
    for (const clPermRec& entry : entries) {
      std::string line = NameOf(entry.Name + "." + entry.Domain) + NumberText(entry.TTL);
      switch (entry.RecType) {
        case RecordType::kA:
          line += " A " + modIP::DataToIP(entry.Data);
          break;
        case RecordType::kSOA: {
          if (entry.Pref < 1) continue;  // not an authority for this domain
          line += " SOA " + SoaFileText(SoaData::Parse(entry.Data));
          break;
        }
        case RecordType::kMX:
          line += " MX" + NumberText(entry.Pref) + " " + NameOf(entry.Data);
          break;
        case RecordType::kDHCP:
          line += " DHCP ";
          for (std::size_t i = 0; i < 4; ++i) line += AddressAt(entry.Data, i) + " ";
          break;
        default:
          line += " " + RTypeN(entry.RecType) + " " + NameOf(entry.Data);
          break;
      }
      text += line + "\n";
    }
    const std::string path = ctx.PathOf("named.perm");
    if (!WriteFileAtomically(path, text)) {
      ErrorInfo why = ErrorOfErrno(errno);
      ctx.errors.Report("modDNS WritePerm", path, why.number, why.description);
      return false;
    }
    return true;
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS WritePerm", e);
    return false;
  }
}

}  // namespace modDNS

}  // namespace korvane
