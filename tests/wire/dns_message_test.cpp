#include "wire/dns_message.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/dns_bytes.h"
#include "support/fakes.h"

using namespace korvane;
using namespace modDNS;

namespace {

using Lines = std::vector<std::string>;

// One length-prefixed label.
std::string L(const std::string& label) { return Bytes({static_cast<int>(label.size())}) + label; }

std::string Header(int flags3, int flags4, int qd, int an, int ns, int ar) {
  return U16(0x1234) + Bytes({flags3, flags4}) + U16(qd) + U16(an) + U16(ns) + U16(ar);
}

// A record with any class; `owner` in wire form.
std::string Record(const std::string& owner, int type, int rclass, long ttl, const std::string& data) {
  return owner + U16(type) + U16(rclass) + U32(ttl) + U16(static_cast<int>(data.size())) + data;
}

// "section name type class ttl length: decoded", "!" before the decoded part
// when the data is not valid for its type.
std::string View(const DecodedRecord& r) {
  std::string decoded;
  switch (r.Class == 1 ? r.Type : 0) {
    case 1: decoded = r.Address; break;
    case 6:
      decoded = r.Soa.Primary + " " + r.Soa.Mailbox;
      for (uint32_t n : r.Soa.Numbers()) decoded += " " + std::to_string(n);
      break;
    case 14: decoded = r.Target + " " + r.ErrorMailbox; break;
    case 15: decoded = std::to_string(r.Preference) + " " + r.Target; break;
    case 2: case 3: case 4: case 5: case 7: case 8: case 9: case 12: decoded = r.Target; break;
    default: decoded = "raw " + std::to_string(r.RawData.size()); break;
  }
  return std::to_string(r.Section) + " " + r.Name + " " + std::to_string(r.Type) + " " +
         std::to_string(r.Class) + " " + std::to_string(r.TTL) + " " + std::to_string(r.DataLength) +
         ": " + (r.DataValid ? "" : "!") + decoded;
}

Lines Views(const DnsMessage& m) {
  Lines out;
  for (const DecodedRecord& r : m.Records) out.push_back(View(r));
  return out;
}

// A reply to www.example.com A (question at 12, example.com at 16) with a
// record of every decoded type, all names compressed.
std::string EveryType() {
  const std::string q = Ptr(12), d = Ptr(16);
  std::string m = Header(0x97, 0x83, 1, 10, 3, 1) + L("www") + L("example") + L("com") + Bytes({0}) +
                  U16(1) + U16(1);
  m += Record(q, 1, 1, 0xFFFFFFFF, Bytes({10, 0, 0, 7}));
  m += Record(q, 5, 1, 60, L("web") + d);
  m += Record(d, 15, 1, 60, U16(10) + L("MAIL") + d);
  for (int type : {3, 4, 7, 8, 9}) m += Record(d, type, 1, 60, L("t" + std::to_string(type)) + d);
  m += Record(d, 14, 1, 60, L("r") + d + L("e") + d);
  m += Record(d, 16, 1, 60, Bytes({5}) + "hello");
  m += Record(Wire("7.0.0.10.in-addr.arpa."), 12, 1, 60, L("www") + d);
  m += Record(d, 2, 1, 3600, L("ns1") + d);
  m += Record(d, 6, 1, 3600,
              L("ns1") + d + L("hostmaster") + d + U32(0xFFFFFFFF) + U32(7200) + U32(900) +
                  U32(1209600) + U32(300));
  m += Record(d, 1, 3, 60, Bytes({10, 0, 0, 8}));  // class CH: kept raw
  m += Record(L("ns1") + d, 1, 1, 3600, Bytes({10, 0, 0, 53}));
  return m;
}

TEST(DecodeMessage, HeaderQuestionAndEveryRecordType) {
  RecordingErrorReporter errors;
  const std::string bytes = EveryType();
  const DnsMessage m = DecodeMessage(bytes, errors);
  EXPECT_EQ(m.Header.Id, 0x1234);
  EXPECT_TRUE(m.Header.QR && m.Header.AA && m.Header.TC && m.Header.RD && m.Header.RA);
  EXPECT_EQ(m.Header.Opcode, 2);
  EXPECT_EQ(m.Header.RCode, 3);
  EXPECT_EQ((std::vector<int>{m.Header.QDCount, m.Header.ANCount, m.Header.NSCount, m.Header.ARCount}),
            (std::vector<int>{1, 10, 3, 1}));
  ASSERT_EQ(m.Questions.size(), 1u);
  EXPECT_EQ(m.Questions[0].Name, "www.example.com.");
  EXPECT_EQ(m.Questions[0].Type, 1);
  EXPECT_EQ(m.Questions[0].Class, 1);
  EXPECT_EQ(Views(m), (Lines{"2 www.example.com. 1 1 2147483647 4: 10.0.0.7",
                             "2 www.example.com. 5 1 60 6: web.example.com.",
                             "2 example.com. 15 1 60 9: 10 mail.example.com.",
                             "2 example.com. 3 1 60 5: t3.example.com.",
                             "2 example.com. 4 1 60 5: t4.example.com.",
                             "2 example.com. 7 1 60 5: t7.example.com.",
                             "2 example.com. 8 1 60 5: t8.example.com.",
                             "2 example.com. 9 1 60 5: t9.example.com.",
                             "2 example.com. 14 1 60 8: r.example.com. e.example.com.",
                             "2 example.com. 16 1 60 6: raw 6",
                             "3 7.0.0.10.in-addr.arpa. 12 1 60 6: www.example.com.",
                             "3 example.com. 2 1 3600 6: ns1.example.com.",
                             "3 example.com. 6 1 3600 39: ns1.example.com. hostmaster.example.com. "
                             "4294967295 7200 900 1209600 300",
                             "4 example.com. 1 3 60 4: raw 4"}));
  EXPECT_EQ(m.Records[9].RawData, Bytes({5}) + "hello");
  // The A record after the one of class CH was not announced by the counts.
  EXPECT_EQ(m.End, DecodeEnd::kWhole);
  EXPECT_LT(m.Stop, bytes.size());
  EXPECT_EQ(m.Section(3).size(), 3u);
  EXPECT_TRUE(errors.errors.empty());
}

TEST(DecodeMessage, DataThatDoesNotFitItsTypeIsFlaggedAndDecodingGoesOn) {
  RecordingErrorReporter errors;
  const std::string q = Ptr(12);
  std::string m = Header(0x81, 0x80, 1, 7, 0, 0) + Wire("a.example.") + U16(1) + U16(1);
  m += Record(q, 1, 1, 60, Bytes({10, 0, 0}));               // A of 3 bytes
  m += Record(q, 2, 1, 60, L("cut"));                        // name runs past its data
  m += Record(q, 5, 1, 60, Ptr(static_cast<int>(m.size()) + 12));  // pointer to itself
  m += Record(q, 15, 1, 60, U16(10));                        // MX without its name
  m += Record(q, 6, 1, 60, Wire("p.") + Wire("m.") + U32(1)); // SOA short of its numbers
  m += Record(q, 5, 1, 60, Wire("incomplete."));             // reads as the codec's "cut" text
  m += Record(q, 1, 1, 60, Bytes({10, 0, 0, 9}));
  const DnsMessage decoded = DecodeMessage(m, errors);
  Lines valid;
  for (const DecodedRecord& r : decoded.Records) valid.push_back(r.DataValid ? "ok" : "bad");
  EXPECT_EQ(valid, (Lines{"bad", "bad", "bad", "bad", "bad", "bad", "ok"}));
  EXPECT_EQ(decoded.End, DecodeEnd::kWhole);
  EXPECT_EQ(decoded.Stop, m.size());
  ASSERT_EQ(errors.errors.size(), 1u);
  EXPECT_EQ(errors.errors[0].tag, "modDNS ExtractName");
}

// Hostile messages end decoding where the damage is, keeping what came
// before it.
TEST(DecodeMessage, HostileMessagesStopWhereTheDamageIs) {
  const std::string question = Wire("ab.example.") + U16(1) + U16(1);  // 12 to 28
  const std::string good = RR(Ptr(12), 1, 60, Bytes({10, 0, 0, 1}));  // 28 to 44
  struct Case {
    const char* what;
    std::string bytes;
    DecodeEnd end;
    std::size_t stop, records, reports;
  } cases[] = {
      {"short header", Bytes({0, 1, 0x81}), DecodeEnd::kCut, 0, 0, 0},
      {"question name loops", Header(0x81, 0, 1, 0, 0, 0) + Ptr(12) + U16(1) + U16(1),
       DecodeEnd::kPointerLoop, 12, 0, 1},
      {"question cut in its type", Header(0x81, 0, 1, 0, 0, 0) + Wire("a.") + Bytes({0, 1, 0}),
       DecodeEnd::kCut, 12, 0, 0},
      {"owner name points at itself", Header(0x81, 0, 1, 2, 0, 0) + question + good + Ptr(44),
       DecodeEnd::kPointerLoop, 44, 1, 1},
      {"owner names loop through each other",
       Header(0x81, 0, 1, 2, 0, 0) + question + Ptr(30) + Ptr(28), DecodeEnd::kPointerLoop, 28, 0, 1},
      {"counts announce more than there is", Header(0x81, 0, 1, 65535, 65535, 65535) + question + good,
       DecodeEnd::kCut, 44, 1, 0},
      {"data length past the end", Header(0x81, 0, 1, 2, 0, 0) + question + good +
           Ptr(12) + U16(1) + U16(1) + U32(60) + U16(100) + Bytes({1, 2, 3, 4}),
       DecodeEnd::kCut, 44, 1, 0},
      {"fixed fields cut", Header(0x81, 0, 1, 1, 0, 0) + question + Ptr(12) + U16(1) + U16(1),
       DecodeEnd::kCut, 28, 0, 0},
      {"trailing bytes", Header(0x81, 0, 1, 1, 0, 0) + question + good + "junk", DecodeEnd::kWhole, 44,
       1, 0},
      // Data of another class is not decoded, so its pointer loop costs nothing.
      {"looping data of class CH", Header(0x81, 0, 1, 1, 0, 0) + question +
           Ptr(12) + U16(2) + U16(3) + U32(60) + U16(2) + Ptr(40),
       DecodeEnd::kWhole, 42, 1, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    RecordingErrorReporter errors;
    const DnsMessage m = DecodeMessage(c.bytes, errors);
    EXPECT_EQ(m.End, c.end);
    EXPECT_EQ(m.Stop, c.stop);
    EXPECT_EQ(m.Records.size(), c.records);
    EXPECT_EQ(errors.errors.size(), c.reports);
    for (const ReportedError& e : errors.errors) EXPECT_EQ(e.tag, "modDNS ExtractName");
  }
}

TEST(DecodeMessage, CutAtEveryByteKeepsEveryWholePartBeforeTheCut) {
  const std::string bytes = EveryType();
  // Where each part (header, question, records) ends in the whole message.
  MessageReader reader(bytes);
  std::vector<std::size_t> ends;
  MessageHeader header;
  ASSERT_TRUE(reader.ReadHeader(header));
  ends.push_back(reader.Stop());
  Question question;
  ASSERT_TRUE(reader.ReadQuestion(question));
  ends.push_back(reader.Stop());
  DecodedRecord record;
  while (reader.ReadRecord(record)) ends.push_back(reader.Stop());
  const Lines whole = Views(DecodeMessage(bytes));

  for (std::size_t cut = 0; cut < ends.back(); ++cut) {
    RecordingErrorReporter errors;
    const DnsMessage m = DecodeMessage(std::string_view(bytes).substr(0, cut), errors);
    std::size_t parts = 0;
    while (parts < ends.size() && ends[parts] <= cut) ++parts;
    EXPECT_EQ(m.End, DecodeEnd::kCut) << cut;
    EXPECT_EQ(m.Stop, parts == 0 ? 0 : ends[parts - 1]) << cut;
    EXPECT_EQ(m.Questions.size(), parts >= 2 ? 1u : 0u) << cut;
    const Lines views = Views(m);
    ASSERT_EQ(views.size(), parts >= 2 ? parts - 2 : 0) << cut;
    EXPECT_TRUE(std::equal(views.begin(), views.end(), whole.begin())) << cut;
    EXPECT_TRUE(errors.errors.empty()) << cut;
  }
}

// The engine matches a reply by its header and question before it reads
// (and pays for, and reports faults in) the records.
TEST(MessageReader, RecordsAreReadOnlyWhenAskedFor) {
  RecordingErrorReporter errors;
  const std::string bytes =
      Header(0x81, 0, 2, 1, 0, 0) + Wire("a.") + U16(1) + U16(1) + Wire("b.") + U16(1) + U16(1) + Ptr(26);
  MessageReader reader(bytes, errors);
  MessageHeader header;
  Question question;
  ASSERT_TRUE(reader.ReadHeader(header));
  ASSERT_TRUE(reader.ReadQuestion(question));
  EXPECT_EQ(question.Name, "a.");
  EXPECT_TRUE(errors.errors.empty());
  // The second question is passed over on the way to the records.
  DecodedRecord record;
  EXPECT_FALSE(reader.ReadRecord(record));
  EXPECT_EQ(reader.End(), DecodeEnd::kPointerLoop);
  EXPECT_EQ(reader.Stop(), 26u);
  EXPECT_EQ(errors.errors.size(), 1u);
  EXPECT_FALSE(reader.ReadQuestion(question));
}

// --- The SOA data layout -----------------------------------------------------

TEST(SoaData, PackAndParseTheRecordLayout) {
  const SoaData soa{"ns1.example.com.", "hostmaster.example.com.", 0xFFFFFFFF, 7200, 900, 1209600, 300};
  const std::string data = soa.Pack();
  EXPECT_EQ(data, "ns1.example.com." + Bytes({0}) + "hostmaster.example.com." + Bytes({0}) +
                      U32(0xFFFFFFFF) + U32(7200) + U32(900) + U32(1209600) + U32(300));
  EXPECT_EQ(soa.NumberBytes(), data.substr(data.size() - 20));
  const SoaData back = SoaData::Parse(data);
  EXPECT_EQ(back.Primary, soa.Primary);
  EXPECT_EQ(back.Mailbox, soa.Mailbox);
  EXPECT_EQ(back.Numbers(), soa.Numbers());
  EXPECT_TRUE(SoaData::WellFormed(data));
}

TEST(SoaData, DamagedDataParsesLeniently) {
  struct Case {
    std::string data, primary, mailbox;
    uint32_t serial, minimum;
    bool wellFormed;
  } cases[] = {
      {"", "", "", 0, 0, false},
      {"p.", "p.", "", 0, 0, false},
      {"p." + Bytes({0}) + "m.", "p.", "m.", 0, 0, false},
      {"p." + Bytes({0}) + "m." + Bytes({0}) + U32(7), "p.", "m.", 7, 0, false},
      {Bytes({0, 0}) + U32(1) + U32(2) + U32(3) + U32(4) + U32(5) + "x", "", "", 1, 5, true},
  };
  for (const Case& c : cases) {
    const SoaData soa = SoaData::Parse(c.data);
    EXPECT_EQ(soa.Primary, c.primary) << c.data;
    EXPECT_EQ(soa.Mailbox, c.mailbox) << c.data;
    EXPECT_EQ(soa.Serial, c.serial) << c.data;
    EXPECT_EQ(soa.Minimum, c.minimum) << c.data;
    EXPECT_EQ(SoaData::WellFormed(c.data), c.wellFormed) << c.data;
  }
}

}  // namespace
