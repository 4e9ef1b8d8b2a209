// A whole DNS message decoded: header, questions and records, each record's
// data decoded by its type. Hostile input is a result, not a failure:
// decoding stops where the message is cut or a name's pointers loop, and
// says where. Every byte is read through BoundedReader, every name through
// the codec's bounded name reader (so names read exactly as ExtractName
// gives them, "incomplete." included).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "wire/bounded_reader.h"
#include "wire/services.h"
#include "wire/soa_data.h"

namespace korvane {

namespace modDNS {

struct MessageHeader {
  uint16_t Id = 0;
  bool QR = false;  // a response
  int Opcode = 0;
  bool AA = false;  // authoritative answer
  bool TC = false;  // truncated
  bool RD = false;  // recursion desired
  bool RA = false;  // recursion available
  int RCode = 0;
  uint16_t QDCount = 0, ANCount = 0, NSCount = 0, ARCount = 0;
};

struct Question {
  std::string Name;  // lower case with the final "."; the root is "."
  uint16_t Type = 0;
  uint16_t Class = 0;
};

struct DecodedRecord {
  int Section = 0;  // 2 answer, 3 authority, 4 additional
  std::string Name;
  uint16_t Type = 0;
  uint16_t Class = 0;
  int32_t TTL = 0;  // a value with the top bit set reads as 2147483647
  uint16_t DataLength = 0;
  std::string RawData;  // as received: names in it may point elsewhere in the message

  // Decoded by type for class IN only (other classes: RawData alone).
  // False when the data does not hold what the type needs: an A record not
  // of 4 bytes, a name that is cut or loops (or reads "incomplete."), an MX
  // under 3 bytes, an SOA whose names loop or that lacks its 20 number bytes.
  bool DataValid = true;
  std::string Address;       // A: dotted
  std::string Target;        // NS CNAME PTR MD MF MB MG MR: the name; MX: the exchanger;
                             // MINFO: the responsible mailbox
  std::string ErrorMailbox;  // MINFO: the mailbox for errors
  uint16_t Preference = 0;   // MX
  SoaData Soa;               // SOA: names with their final "."
};

enum class DecodeEnd {
  kWhole,        // everything the header's counts announce was read
  kCut,          // the message ends first (or a name reads as "incomplete.")
  kPointerLoop,  // a name's compression pointers loop (reported as "modDNS ExtractName")
};

struct DnsMessage {
  MessageHeader Header;
  std::vector<Question> Questions;
  std::vector<DecodedRecord> Records;  // in message order
  DecodeEnd End = DecodeEnd::kWhole;
  // Offset of the first byte not read as part of a whole header, question
  // or record: where decoding stopped, or where trailing bytes begin.
  std::size_t Stop = 0;

  std::vector<DecodedRecord> Section(int section) const;
};

// Decodes the whole message; never fails (see End and Stop). Pointer loops
// are reported to `errors` as "modDNS ExtractName" where they are met.
DnsMessage DecodeMessage(std::string_view bytes, ErrorReporter& errors = DefaultErrorReporter());

// The same decoding one part at a time, for a caller that acts on the
// header and question before it reads (and pays for) the records.
class MessageReader {
 public:
  explicit MessageReader(std::string_view message, ErrorReporter& errors = DefaultErrorReporter());

  // False (and decoding ends) when the message is shorter than 12 bytes.
  bool ReadHeader(MessageHeader& header);
  // The next question; false when none is left or it is cut or loops.
  bool ReadQuestion(Question& question);
  // The next record of the answer, authority and additional sections (the
  // questions not yet read are passed over); false when none is left or
  // the record is cut or its owner name loops.
  bool ReadRecord(DecodedRecord& record);

  DecodeEnd End() const { return end_; }
  std::size_t Stop() const { return stop_; }

 private:
  bool Fail(DecodeEnd why);
  std::size_t Offset() const { return message_.size() - in_.Left(); }
  void DecodeData(std::string_view data, DecodedRecord& record);

  std::string_view message_;
  BoundedReader in_;
  ErrorReporter& errors_;
  bool stopped_ = false;
  DecodeEnd end_ = DecodeEnd::kWhole;
  std::size_t stop_ = 0;
  uint32_t questionsLeft_ = 0;
  uint32_t recordsLeft_[3] = {0, 0, 0};  // answer, authority, additional
};

}  // namespace modDNS

}  // namespace korvane
