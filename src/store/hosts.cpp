#include <exception>
#include <optional>

#include "store/files.h"
#include "store/loader.h"
#include "store/record_text.h"
#include "wire/dns_codec.h"
#include "wire/ip.h"
#include "wire/soa_data.h"
#include "wire/text.h"

namespace korvane {

using namespace text;

namespace modDNS {

namespace {

// The text before the first "#".
std::string_view BeforeHash(std::string_view line) { return line.substr(0, line.find('#')); }

// The words of a line, separated by blanks and tabs.
void SplitInto(std::string_view line, std::vector<std::string_view>& words) {
  words.clear();
  std::size_t at = 0;
  while ((at = line.find_first_not_of(" \t", at)) != std::string_view::npos) {
    std::size_t stop = line.find_first_of(" \t", at);
    if (stop == std::string_view::npos) stop = line.size();
    words.push_back(line.substr(at, stop - at));
    at = stop;
  }
}

// One hosts line's records: its aliases, the address, the reverse name.
class HostsStage {
 public:
  HostsStage(StoreContext& ctx, StagedLoad& into) : ctx_(ctx), into_(into), ttl_(ctx.options.HOSTSTTL) {}

  void Take(const std::vector<std::string_view>& words) {
    RecordList& list = ctx_.records;
    const std::string_view address = words[0];
    SharedText host = list.InternName(NameOf(words[1]));
    for (std::size_t i = 2; i < words.size(); ++i)
      Add(list.InternName(NameOf(words[i])), RecordType::kCNAME, host);
    // A blocklist gives every name the same address: its reverse name is made once.
    if (address != lastAddress_) {
      lastAddress_ = address;
      addressData_ = list.InternData(modIP::IPToData(address));
      reverse_ = list.InternName(IPToArpa(address));
    }
    Add(host, RecordType::kA, addressData_);
    Add(reverse_, RecordType::kPTR, host);
  }

 private:
  void Add(const SharedText& name, int type, const SharedText& data) {
    into_.records.push_back(
        {name, data, ttl_, -1, static_cast<int16_t>(type), true, false, RecordOrigin::kHosts});
  }

  StoreContext& ctx_;
  StagedLoad& into_;
  int32_t ttl_;
  std::string lastAddress_;
  SharedText addressData_, reverse_;
};

// What the lenient address reading makes of `text`, when it is not plainly an address.
std::string ReadAs(std::string_view text) {
  return std::string(text) + " is not an IPv4 address, read as " + modIP::DataToIP(modIP::IPToData(text));
}

// One perm.dat line's records; false with `why` when the line adds none.
// `note` tells of a line taken with a change.
bool TakePermDatLine(StoreContext& ctx, std::string_view text, StagedLoad& into, std::string& why,
                     std::string& note) {
  std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return (why = "no ':'"), false;
  const std::string type = Upper(TrimSpaces(text.substr(0, colon)));
  std::string_view rest = TrimSpaces(text.substr(colon + 1));
  if (rest.empty()) return (why = "nothing after ':'"), false;

  int32_t ttl = 86400;
  if (std::size_t at = rest.find("TTL="); at != std::string_view::npos) {
    ttl = RoundToInt32(LeadingNumber(TrimLeftSpaces(rest.substr(at + 4))));
    rest = TrimSpaces(rest.substr(0, at));
  }
  std::size_t equals = rest.find('=');
  const std::string name = NameOf(rest.substr(0, equals));
  if (name == ".") return (why = "no name"), false;
  std::string_view value =
      equals == std::string_view::npos ? std::string_view() : TrimSpaces(rest.substr(equals + 1));
  value = value.substr(0, value.find(' '));

  RecordList& list = ctx.records;
  auto add = [&](const std::string& owner, int recordType, const SharedText& data, int32_t pref) {
    into.records.push_back({list.InternName(owner), data, ttl, pref, static_cast<int16_t>(recordType), true, false});
  };
  if (type == "A") {
    std::string address = modIP::CleanIP(value);
    if (address.empty()) return (why = "bad address " + std::string(value)), false;
    if (!modIP::IsDottedQuad(value)) note = ReadAs(value);
    ctx.log.AddLine("-> Cached A-record: " + name + " = " + address);
    add(name, RecordType::kA, list.InternData(modIP::IPToData(address)), 0);
    add(IPToArpa(address), RecordType::kPTR, list.InternData(name), -1);
    return true;
  }
  std::string data;
  if (type == "NS" || type == "CNAME" || type == "PTR" || type == "MX") {
    if (value.empty()) return (why = "no value"), false;
    data = NameOf(value);
  } else if (type == "SOA") {
    SoaData soa;
    soa.Primary = ctx.options.NAME;
    if (soa.Primary.empty() || soa.Primary.back() != '.') soa.Primary += '.';
    soa.Mailbox = "mailbox." + soa.Primary;
    soa.Minimum = 3600;
    data = soa.Pack();
  } else {
    return (why = "unknown type " + type), false;
  }
  // The old format's MX preference was never read back: imports keep 0.
  add(name, RecTypeOfKey(type), list.InternData(data), 0);
  return true;
}

void ReadHostsFile(StoreContext& ctx, StagedLoad& into) {
  const std::string& path = ctx.options.HOSTS;
  if (path.empty()) return;
  ctx.log.AddLine("Loading hosts file '" + path + "'...");
  std::optional<std::string> content = ReadWholeFile(path);
  if (!content) {
    ctx.log.AddLine("-> File not found!");
    ++ctx.warnings;
    return;
  }
  FileReport report(ctx.log, path, &ctx.warnings);
  FileProgress progress(ctx, content->size());
  HostsStage stage(ctx, into);
  std::vector<std::string_view> words;
  LineReader lines(*content);
  std::size_t number = 0;
  for (std::string_view line; lines.Next(line);) {
    ++number;
    SplitInto(BeforeHash(line), words);
    if (words.size() == 1) report.Skipped(number, "address " + std::string(words[0]) + " without a name");
    if (words.size() >= 2) {
      if (!modIP::IsDottedQuad(words[0])) report.Cut(number, ReadAs(words[0]));
      stage.Take(words);
      report.Took();
    }
    if (!progress.At(lines.Offset())) {
      into.stopped = true;
      return;
    }
  }
  report.Summary("host");
}

void ReadPermDat(StoreContext& ctx, StagedLoad& into) {
  std::optional<std::string> content = ReadWholeFile(ctx.PathOf("perm.dat"));
  if (!content) {
    ctx.errors.Report("modDNS LoadPermOld", ctx.PathOf("perm.dat"), ErrorNumber::kFileNotFound,
                      "File not found");
    return;
  }
  FileReport report(ctx.log, "perm.dat", &ctx.warnings);
  FileProgress progress(ctx, content->size());
  LineReader lines(*content);
  std::size_t number = 0;
  for (std::string_view physical; lines.Next(physical);) {
    ++number;
    std::string line(physical);
    TabsToSpaces(line);
    std::string_view text = TrimSpaces(BeforeHash(TrimSpaces(line)));
    std::string why, note;
    if (text.empty()) {
    } else if (TakePermDatLine(ctx, text, into, why, note)) {
      report.Took();
      if (!note.empty()) report.Cut(number, note);
    } else {
      report.Skipped(number, why);
    }
    if (!progress.At(lines.Offset())) {
      into.stopped = true;
      return;
    }
  }
  report.Summary("record");
}

}  // namespace

void StageHosts(StoreContext& ctx, StagedLoad& into) {
  try {
    ReadHostsFile(ctx, into);
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS LoadHosts", e);
  }
}

void StagePermDat(StoreContext& ctx, StagedLoad& into) {
  try {
    ReadPermDat(ctx, into);
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS LoadPermOld", e);
  }
}

void LoadHosts(StoreContext& ctx) {
  StagedLoad staged;
  StageHosts(ctx, staged);
  if (!staged.stopped) AddStaged(ctx, staged);
}

void LoadPermOld(StoreContext& ctx) {
  StagedLoad staged;
  StagePermDat(ctx, staged);
  if (!staged.stopped) AddStaged(ctx, staged);
}

}  // namespace modDNS

}  // namespace korvane
