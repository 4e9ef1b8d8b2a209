#include "wire/dns_message.h"

#include <algorithm>

#include "wire/dns_codec.h"
#include "wire/ip.h"

namespace korvane {

namespace modDNS {

namespace {

constexpr std::string_view kIncomplete = "incomplete.";
constexpr std::size_t kRecordFixedBytes = 10;  // type, class, TTL, data length
constexpr std::size_t kSoaNumberBytes = 20;

bool Usable(const std::string& name) { return !name.empty() && name != kIncomplete; }

uint16_t Take16(BoundedReader& in) {
  uint32_t value = 0;
  in.TakeNumber(2, value);
  return static_cast<uint16_t>(value);
}

uint32_t Take32(BoundedReader& in) {
  uint32_t value = 0;
  in.TakeNumber(4, value);
  return value;
}

}  // namespace

std::vector<DecodedRecord> DnsMessage::Section(int section) const {
  std::vector<DecodedRecord> out;
  for (const DecodedRecord& record : Records)
    if (record.Section == section) out.push_back(record);
  return out;
}

MessageReader::MessageReader(std::string_view message, ErrorReporter& errors)
    : message_(message), in_(message), errors_(errors) {}

bool MessageReader::Fail(DecodeEnd why) {
  stopped_ = true;
  end_ = why;
  return false;
}

bool MessageReader::ReadHeader(MessageHeader& header) {
  if (stopped_ || !in_.Has(12)) return Fail(DecodeEnd::kCut);
  header.Id = Take16(in_);
  const uint16_t flags = Take16(in_);
  header.QR = flags & 0x8000;
  header.Opcode = (flags >> 11) & 15;
  header.AA = flags & 0x0400;
  header.TC = flags & 0x0200;
  header.RD = flags & 0x0100;
  header.RA = flags & 0x0080;
  header.RCode = flags & 15;
  header.QDCount = Take16(in_);
  header.ANCount = Take16(in_);
  header.NSCount = Take16(in_);
  header.ARCount = Take16(in_);
  questionsLeft_ = header.QDCount;
  recordsLeft_[0] = header.ANCount;
  recordsLeft_[1] = header.NSCount;
  recordsLeft_[2] = header.ARCount;
  stop_ = Offset();
  return true;
}

bool MessageReader::ReadQuestion(Question& question) {
  if (stopped_ || questionsLeft_ == 0) return false;
  question.Name = TakeName(message_, in_, errors_);
  if (question.Name.empty()) return Fail(DecodeEnd::kPointerLoop);
  if (!in_.Has(4)) return Fail(DecodeEnd::kCut);
  question.Type = Take16(in_);
  question.Class = Take16(in_);
  --questionsLeft_;
  stop_ = Offset();
  return true;
}

bool MessageReader::ReadRecord(DecodedRecord& record) {
  Question passedOver;
  while (questionsLeft_ > 0)
    if (!ReadQuestion(passedOver)) return false;
  if (stopped_) return false;
  int slot = 0;
  while (slot < 3 && recordsLeft_[slot] == 0) ++slot;
  if (slot == 3) return false;

  record = DecodedRecord{};
  record.Section = slot + 2;
  record.Name = TakeName(message_, in_, errors_);
  if (record.Name.empty()) return Fail(DecodeEnd::kPointerLoop);
  if (record.Name == kIncomplete || !in_.Has(kRecordFixedBytes)) return Fail(DecodeEnd::kCut);
  record.Type = Take16(in_);
  record.Class = Take16(in_);
  // A TTL is never negative: the top bit set means "as long as possible".
  record.TTL = static_cast<int32_t>(std::min<uint32_t>(Take32(in_), 2147483647u));
  record.DataLength = Take16(in_);
  std::string_view data;
  if (!in_.Take(record.DataLength, data)) return Fail(DecodeEnd::kCut);
  record.RawData.assign(data);
  --recordsLeft_[slot];
  if (record.Class == 1) DecodeData(data, record);
  stop_ = Offset();
  return true;
}

void MessageReader::DecodeData(std::string_view data, DecodedRecord& record) {
  BoundedReader in(data);
  switch (record.Type) {
    case 1:  // A
      record.DataValid = data.size() == 4;
      if (record.DataValid) record.Address = modIP::DataToIP(data);
      break;
    case 2: case 3: case 4: case 5: case 7: case 8: case 9: case 12:  // one name
      record.Target = TakeName(message_, in, errors_);
      record.DataValid = Usable(record.Target);
      break;
    case 14:  // MINFO
      record.Target = TakeName(message_, in, errors_);
      record.ErrorMailbox = TakeName(message_, in, errors_);
      record.DataValid = Usable(record.Target) && Usable(record.ErrorMailbox);
      break;
    case 15:  // MX
      record.DataValid = data.size() >= 3;
      if (!record.DataValid) break;
      record.Preference = Take16(in);
      record.Target = TakeName(message_, in, errors_);
      record.DataValid = Usable(record.Target);
      break;
    case 6: {  // SOA
      SoaData& soa = record.Soa;
      soa.Primary = TakeName(message_, in, errors_);
      soa.Mailbox = TakeName(message_, in, errors_);
      // A name whose pointer leads to a cut spot still reads as text here.
      record.DataValid = !soa.Primary.empty() && !soa.Mailbox.empty() && in.Has(kSoaNumberBytes);
      if (!record.DataValid) break;
      for (uint32_t* number : {&soa.Serial, &soa.Refresh, &soa.Retry, &soa.Expire, &soa.Minimum})
        *number = Take32(in);
      break;
    }
    default:  // kept raw
      break;
  }
}

DnsMessage DecodeMessage(std::string_view bytes, ErrorReporter& errors) {
  DnsMessage message;
  MessageReader reader(bytes, errors);
  if (reader.ReadHeader(message.Header)) {
    Question question;
    while (reader.ReadQuestion(question)) message.Questions.push_back(question);
    DecodedRecord record;
    while (reader.ReadRecord(record)) message.Records.push_back(std::move(record));
  }
  message.End = reader.End();
  message.Stop = reader.Stop();
  return message;
}

}  // namespace modDNS

}  // namespace korvane
