#include "tools/answer_text.h"

#include "wire/dns_codec.h"
#include "wire/dns_message.h"

namespace korvane {

namespace modQuery {

namespace {

constexpr const char* kLineEnd = "\r\n";
constexpr const char* kCutLine = "The reply ends here: it is cut short.";

// A reply from the network is whatever its sender made it: a pointer loop
// is told in the answer text, not as a program fault.
class QuietErrors : public ErrorReporter {
 public:
  void Report(const std::string&, const std::string&, int, const std::string&) override {}
};

std::string Ttl(const modDNS::DecodedRecord& record) { return " TTL=" + std::to_string(record.TTL); }

std::string RecordLine(const modDNS::DecodedRecord& record) {
  const std::string head = modDNS::RTypeN(record.Type) + "-record for " + record.Name;
  const bool known = record.Type == 1 || record.Type == 2 || record.Type == 5 ||
                     record.Type == 6 || record.Type == 12 || record.Type == 15;
  if (!known) return head + " (record type not implemented)";
  if (record.Class != 1) return head + " (class " + std::to_string(record.Class) + " not implemented)";
  if (!record.DataValid) return head + " (record data damaged)";
  switch (record.Type) {
    case 1: return head + "=" + record.Address + Ttl(record);
    case 15:
      return head + "=" + record.Target + " Pref=" + std::to_string(record.Preference) + Ttl(record);
    case 6: {
      const modDNS::SoaData& soa = record.Soa;
      return head + "=" + soa.Primary + " " + soa.Mailbox + " Serial=" + std::to_string(soa.Serial) +
             " Refresh=" + std::to_string(soa.Refresh) + " Retry=" + std::to_string(soa.Retry) +
             " Expire=" + std::to_string(soa.Expire) + " Minimum=" + std::to_string(soa.Minimum) +
             Ttl(record);
    }
    default: return head + "=" + record.Target + Ttl(record);  // NS, CNAME, PTR
  }
}

}  // namespace

std::optional<std::string> AnswerText(std::string_view reply, int32_t id,
                                      std::string_view question, int type,
                                      const std::vector<std::string>& sources) {
  if (reply.size() < 2 || modDNS::ExtractShort(reply, false) != id) return std::nullopt;
  QuietErrors quiet;
  const modDNS::DnsMessage message = modDNS::DecodeMessage(reply, quiet);
  const modDNS::MessageHeader& header = message.Header;
  std::string text;
  auto line = [&text](const std::string& content) { text += content + kLineEnd; };
  if (message.Stop == 0) {  // not even a whole header
    line(kCutLine);
    return text;
  }
  line(std::string("Authoritative Answer: ") + (header.AA ? "Yes" : "No"));
  if (header.TC) line("The server truncated the reply: it holds more than was sent.");
  if (header.RCode != 0) line("Header: " + modDNS::RCodeN(header.RCode));
  line("Answer:");
  if (header.ANCount == 0)
    line("There are no " + modDNS::RTypeN(type) + "-Records for " + std::string(question));
  std::size_t answers = 0;
  int section = 2;
  for (const modDNS::DecodedRecord& record : message.Records) {
    if (record.Section != section) {
      section = record.Section;
      line(section == 3 ? "Authority:" : "Additional:");
    }
    line(RecordLine(record));
    if (section == 2) {
      if (answers < sources.size() && !sources[answers].empty()) line("   Source: " + sources[answers]);
      ++answers;
    }
  }
  if (message.End == modDNS::DecodeEnd::kCut) line(kCutLine);
  if (message.End == modDNS::DecodeEnd::kPointerLoop)
    line("The reply ends here: a name's compression pointers loop.");
  return text;
}

}  // namespace modQuery

}  // namespace korvane
