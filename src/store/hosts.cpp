#include <exception>
#include <optional>

#include "store/files.h"
#include "store/store.h"
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
}  // namespace

void LoadHosts(StoreContext& ctx) {
  try {
    const std::string& path = ctx.options.HOSTS;
    if (path.empty()) return;
    ctx.log.AddLine("Loading hosts file '" + path + "'...");
    std::optional<std::string> content = ReadWholeFile(path);
    if (!content) {
      ctx.log.AddLine("-> File not found!");
      return;
    }
    const int32_t ttl = ctx.options.HOSTSTTL;
    constexpr uint16_t kHosts = RecordOrigin::kHosts;
    for (std::string line : SplitLines(*content)) {
      line = std::string(BeforeHash(line));
      TabsToSpaces(line);
      std::vector<std::string> words = SplitWords(line);
      if (words.size() < 2) continue;
      const std::string& address = words[0];
      const std::string host = NameOf(words[1]);
      for (std::size_t i = 2; i < words.size(); ++i)
        CacheAdd(ctx, NameOf(words[i]), RecordType::kCNAME, ttl, host, -1, true, false, kHosts);
      CacheAdd(ctx, host, RecordType::kA, ttl, modIP::IPToData(address), -1, true, false, kHosts);
      CacheAdd(ctx, IPToArpa(address), RecordType::kPTR, ttl, host, -1, true, false, kHosts);
    }
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS LoadHosts", e);
  }
}

void LoadPermOld(StoreContext& ctx) {
  try {
    std::optional<std::string> content = ReadWholeFile(ctx.PathOf("perm.dat"));
    if (!content) {
      ctx.errors.Report("modDNS LoadPermOld", ctx.PathOf("perm.dat"), ErrorNumber::kFileNotFound,
                        "File not found");
      return;
    }
    for (std::string line : SplitLines(*content)) {
      TabsToSpaces(line);
      std::string_view text = TrimSpaces(BeforeHash(TrimSpaces(line)));
      if (text.empty()) continue;

      std::size_t colon = text.find(':');
      if (colon == std::string_view::npos) continue;
      const std::string type = Upper(TrimSpaces(text.substr(0, colon)));
      std::string_view rest = TrimSpaces(text.substr(colon + 1));
      if (rest.empty()) continue;

      int32_t ttl = 86400;
      if (std::size_t at = rest.find("TTL="); at != std::string_view::npos) {
        ttl = RoundToInt32(LeadingNumber(TrimLeftSpaces(rest.substr(at + 4))));
        rest = TrimSpaces(rest.substr(0, at));
      }

      std::size_t equals = rest.find('=');
      const std::string name = NameOf(rest.substr(0, equals));
      if (name == ".") continue;
      std::string_view value =
          equals == std::string_view::npos ? std::string_view() : TrimSpaces(rest.substr(equals + 1));
      value = value.substr(0, value.find(' '));

      std::string data;
      if (type == "A") {
        std::string address = modIP::CleanIP(value);
        if (address.empty()) continue;
        ctx.log.AddLine("-> Cached A-record: " + name + " = " + address);
        CacheAdd(ctx, name, RecordType::kA, ttl, modIP::IPToData(address), 0, true);
        CacheAdd(ctx, IPToArpa(address), RecordType::kPTR, ttl, name, -1, true);
        continue;
      }
      if (type == "NS" || type == "CNAME" || type == "PTR" || type == "MX") {
        if (value.empty()) continue;
        data = NameOf(value);
      } else if (type == "SOA") {
        SoaData soa;
        soa.Primary = ctx.options.NAME;
        if (soa.Primary.empty() || soa.Primary.back() != '.') soa.Primary += '.';
        soa.Mailbox = "mailbox." + soa.Primary;
        soa.Minimum = 3600;
        data = soa.Pack();
      } else {
        continue;
      }
      // The old format's MX preference was never read back: imports keep 0.
      CacheAdd(ctx, name, std::string_view(type), ttl, data, 0, true);
    }
  } catch (const std::exception& e) {
    ReportException(ctx.errors, "modDNS LoadPermOld", e);
  }
}

}  // namespace modDNS

}  // namespace korvane
