// Taking a reply of another name server: the reply is decoded, matched to
// the request that asked, its records are logged and stored, negative
// answers are cached, and the requests waiting for its question are woken.
#include <algorithm>
#include <optional>

#include "dns/engine.h"
#include "wire/dns_codec.h"
#include "wire/dns_message.h"

namespace korvane {

namespace {

// What the records of one reply told, beyond the records themselves.
struct ReplyFacts {
  std::string soaOwner;  // owner of the first SOA of the authority section
  std::optional<int32_t> soaMinimum;
  bool referral = false;  // NS records in the authority section
  uint16_t origin = RecordOrigin::kFile;  // the replying server's
};

void LogReplyHead(LogSink& log, const std::string& host, const modDNS::MessageHeader& header,
                  const std::string& question, int16_t questionType) {
  const std::string typeName = modDNS::RTypeN(questionType);
  log.AddLine("Reply from " + host + " about " + typeName + "-record for " + question + ":");
  if (header.RCode > 0)
    log.AddLine("-> Header: " + modDNS::RCodeN(header.RCode));
  else if (header.ANCount == 0)
    log.AddLine("-> Answer: There are no " + typeName + "-Records for " + question);
}

// The record's data in the store's form, and the text the log shows for
// it ("" for none). False when the record is not kept.
bool StoredForm(const modDNS::DecodedRecord& record, ErrorReporter& errors, std::string& stored,
                std::string& shown) {
  switch (record.Type) {
    case RecordType::kA:
      stored = record.RawData;
      shown = record.Address;
      return true;
    case RecordType::kNS: case RecordType::kCNAME: case RecordType::kPTR: case RecordType::kMX:
      stored = shown = record.Target;
      return true;
    case RecordType::kSOA:
      // A zero byte inside a name would break the stored layout.
      if (record.Soa.Primary.find('\0') != std::string::npos ||
          record.Soa.Mailbox.find('\0') != std::string::npos)
        return false;
      stored = record.Soa.Pack();
      shown = record.Soa.Primary;
      return true;
    case 3: case 4: case 7: case 8: case 9: case 14:
      // Names kept in their uncompressed wire form, so that an ANY answer
      // can carry them as they stand.
      stored = modDNS::ZipName("", record.Target, errors);
      if (record.Type == 14) stored += modDNS::ZipName("", record.ErrorMailbox, errors);
      shown = record.Target;
      return true;
    default:
      stored = record.RawData;
      return true;
  }
}

void StoreReplyRecord(StoreContext& store, const modDNS::DecodedRecord& record, ReplyFacts& facts) {
  if (record.Class != 1 || record.Type < 1 || record.Type > 15 || !record.DataValid) return;
  std::string stored, shown;
  if (!StoredForm(record, store.errors, stored, shown)) return;
  if (record.Type == RecordType::kSOA && record.Section == 3 && facts.soaOwner.empty()) {
    facts.soaOwner = record.Name;
    facts.soaMinimum = static_cast<int32_t>(std::min<uint32_t>(record.Soa.Minimum, 2147483647u));
  }
  if (record.Type == RecordType::kNS && record.Section == 3) facts.referral = true;
  const std::string prefix = "-> " + SectionName(record.Section) + ": ";
  if (record.Type == RecordType::kA)
    store.log.AddLine(prefix + "A-record for " + record.Name + " = " + shown);
  else if (!shown.empty())
    store.log.AddLine(prefix + modDNS::RTypeN(record.Type) + "-record for " + record.Name + " = " +
                      shown);
  const int32_t pref = record.Type == RecordType::kMX ? record.Preference : 0;
  modDNS::CacheAdd(store, record.Name, record.Type, record.TTL, stored, pref, false, false,
                   facts.origin);
}

// Stores the negative answer a reply without answers gives. An answer for
// "any" type is never stored as a negative entry. True when the reply is
// final: the servers have said all they know of the question.
bool CacheNegative(StoreContext& store, const modDNS::MessageHeader& header,
                   const ReplyFacts& facts, const std::string& question, int16_t questionType) {
  bool final = header.ANCount > 0 || header.RCode == 3;
  if (header.ANCount > 0) return final;
  const int32_t ttl = facts.soaMinimum.value_or(600);
  if (header.RCode == 3) {
    modDNS::CacheAdd(store, question, RecordType::kNameError, ttl, facts.soaOwner, 0, false, false,
                     facts.origin);
  } else if (header.RCode == 0 && (!facts.soaOwner.empty() || !facts.referral)) {
    final = true;
    if (questionType != RecordType::kAll)
      modDNS::CacheAdd(store, question, RecordType::kNegativeBase + questionType, ttl,
                       facts.soaOwner, 0, false, false, facts.origin);
  }
  return final;
}

}  // namespace

void DnsEngine::TakeReply(uint64_t channel, const std::string& host, int port,
                          std::string_view data) {
  modDNS::MessageReader reader(data, store_.errors);
  modDNS::MessageHeader header;
  if (!reader.ReadHeader(header)) return;
  modDNS::Question asked;
  clDNSRequest* owner =
      reader.ReadQuestion(asked) ? ReplyOwner(channel, host, port, header.Id, asked) : nullptr;
  if (!owner) {
    store_.log.AddLine("Reply from " + host + " (about nothing ?):");
    return;
  }
  ReplyOutcome outcome;
  outcome.Question = owner->LastQ;
  const int16_t questionType = owner->LastQType;
  LogReplyHead(store_.log, host, header, outcome.Question, questionType);

  // Further questions are passed over; the records are read only now that
  // the reply is known to be wanted.
  ReplyFacts facts;
  facts.origin = store_.origins.OriginOf(host);
  modDNS::DecodedRecord record;
  while (reader.ReadRecord(record)) StoreReplyRecord(store_, record, facts);
  outcome.Final = CacheNegative(store_, header, facts, outcome.Question, questionType);
  // Other response codes: the server failed us; it is dropped and the next one asked.
  outcome.Useful = header.RCode == 0 || header.RCode == 3;
  outcome.RCode = header.RCode;
  WakeAskers(*owner, outcome, questionType);
}

clDNSRequest* DnsEngine::ReplyOwner(uint64_t channel, const std::string& host, int port,
                                    int32_t id, const modDNS::Question& question) {
  // Only the server and port that were asked, answering on the socket the
  // query left from, with its ID and question.
  clDNSRequest* request = ChannelOwner(channel);
  if (!request) return nullptr;
  const bool asked = request->LastServer() == host && port == kDnsPort &&
                     request->LastQID == id && question.Class == 1 &&
                     question.Name == request->LastQ &&
                     question.Type == static_cast<uint16_t>(request->LastQType);
  return asked ? request : nullptr;
}

void DnsEngine::WakeAskers(const clDNSRequest& owner, const ReplyOutcome& outcome,
                           int16_t questionType) {
  for (std::size_t i = 0; i < requests_.size();) {
    clDNSRequest& request = *requests_[i];
    const bool concerned =
        outcome.Useful ? (request.LastQ == outcome.Question && request.LastQType == questionType)
                       : &request == &owner;
    if (concerned && request.TakeOutcome(outcome)) {
      requests_.erase(requests_.begin() + static_cast<long>(i));
      continue;
    }
    ++i;
  }
}

}  // namespace korvane
