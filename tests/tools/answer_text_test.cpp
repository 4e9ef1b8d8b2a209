#include "tools/answer_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/dns_bytes.h"
#include "tools/query.h"

using namespace korvane;
using namespace modQuery;

namespace {

using Lines = std::vector<std::string>;

std::string L(const std::string& label) { return Bytes({static_cast<int>(label.size())}) + label; }

std::string Header(int id, int flags3, int flags4, int an, int ns, int ar) {
  return U16(id) + Bytes({flags3, flags4}) + U16(1) + U16(an) + U16(ns) + U16(ar);
}

// The question www.office.example. (name at offset 12, office.example. at 16).
std::string Question(int type) { return Wire("www.office.example.") + U16(type) + U16(1); }

Lines Split(const std::string& text) {
  Lines lines;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t end = text.find("\r\n", at);
    EXPECT_NE(end, std::string::npos) << "every line ends in CR LF";
    if (end == std::string::npos) break;
    lines.push_back(text.substr(at, end - at));
    at = end + 2;
  }
  return lines;
}

Lines Shown(const std::string& reply, int type = 255, const Lines& sources = {}) {
  const auto text = AnswerText(reply, 7, "www.office.example.", type, sources);
  EXPECT_TRUE(text.has_value());
  return text ? Split(*text) : Lines{};
}

TEST(AnswerText, EveryRecordTypeWithCompressedNames) {
  const std::string w = Ptr(12), d = Ptr(16);
  std::string m = Header(7, 0x85, 0x80, 8, 1, 1) + Question(255);
  m += RR(w, 1, 3600, Bytes({192, 0, 2, 10}));
  m += RR(w, 5, 60, L("web") + d);
  m += RR(d, 15, 300, U16(10) + L("mail") + d);
  m += RR(d, 2, 3600, L("ns1") + d);
  m += RR(d, 6, 3600, L("ns1") + d + L("hostmaster") + d + U32(2024) + U32(3600) + U32(900) +
                          U32(604800) + U32(300));
  m += RR(Wire("10.2.0.192.in-addr.arpa."), 12, 3600, w);
  m += RR(d, 16, 60, Bytes({2}) + "hi");        // TXT
  m += RR(d, 11, 60, Bytes({192, 0, 2, 1, 6}));  // WKS: below 16, still not shown
  m += RR(d, 28, 60, std::string(16, '\1'));     // AAAA, in the authority section
  m += RR(L("ns1") + d, 1, 3600, Bytes({192, 0, 2, 53}));
  EXPECT_EQ(Shown(m), (Lines{
      "Authoritative Answer: Yes",
      "Answer:",
      "A-record for www.office.example.=192.0.2.10 TTL=3600",
      "CNAME-record for www.office.example.=web.office.example. TTL=60",
      "MX-record for office.example.=mail.office.example. Pref=10 TTL=300",
      "NS-record for office.example.=ns1.office.example. TTL=3600",
      "SOA-record for office.example.=ns1.office.example. hostmaster.office.example. Serial=2024 "
      "Refresh=3600 Retry=900 Expire=604800 Minimum=300 TTL=3600",
      "PTR-record for 10.2.0.192.in-addr.arpa.=www.office.example. TTL=3600",
      "TXT-record for office.example. (record type not implemented)",
      "WKS-record for office.example. (record type not implemented)",
      "Authority:",
      "?28?-record for office.example. (record type not implemented)",
      "Additional:",
      "A-record for ns1.office.example.=192.0.2.53 TTL=3600"}));
}

TEST(AnswerText, HeaderLinesAndEmptyAnswers) {
  struct Case {
    const char* what;
    std::string reply;
    int type;
    Lines lines;
  } cases[] = {
      {"name error with the zone's SOA",
       Header(7, 0x85, 0x83, 0, 1, 0) + Question(1) +
           RR(Ptr(16), 6, 300, Wire("ns1.") + Wire("h.") + U32(1) + U32(2) + U32(3) + U32(4) + U32(5)),
       1,
       {"Authoritative Answer: Yes", "Header: Name does not exist!", "Answer:",
        "There are no A-Records for www.office.example.", "Authority:",
        "SOA-record for office.example.=ns1. h. Serial=1 Refresh=2 Retry=3 Expire=4 Minimum=5 TTL=300"}},
      {"no records of the type, not authoritative", Header(7, 0x81, 0x80, 0, 0, 0) + Question(15), 15,
       {"Authoritative Answer: No", "Answer:", "There are no MX-Records for www.office.example."}},
      {"all types asked", Header(7, 0x81, 0x80, 0, 0, 0) + Question(255), 255,
       {"Authoritative Answer: No", "Answer:", "There are no *-Records for www.office.example."}},
      {"refused, truncated", Header(7, 0x83, 0x05, 0, 0, 0) + Question(1), 1,
       {"Authoritative Answer: No", "The server truncated the reply: it holds more than was sent.",
        "Header: Refused - will not answer this client or this query type.", "Answer:",
        "There are no A-Records for www.office.example."}},
      {"unknown code", Header(7, 0x81, 0x8B, 0, 0, 0) + Question(1), 1,
       {"Authoritative Answer: No", "Header: Unknown error.", "Answer:",
        "There are no A-Records for www.office.example."}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(Shown(c.reply, c.type), c.lines);
  }
}

// Damaged replies show what decodes before the damage and say where it
// stops; nothing crashes, nothing loops.
TEST(AnswerText, HostileRepliesShowWhatDecodes) {
  const std::string good = RR(Ptr(12), 1, 60, Bytes({10, 0, 0, 1}));
  const std::string start = Header(7, 0x81, 0x80, 3, 0, 0) + Question(1) + good;
  const std::string cutLine = "The reply ends here: it is cut short.";
  const std::string loopLine = "The reply ends here: a name's compression pointers loop.";
  const std::string first = "A-record for www.office.example.=10.0.0.1 TTL=60";
  const int after = static_cast<int>(start.size());
  struct Case {
    const char* what;
    std::string reply;
    Lines tail;  // the lines after "Answer:"
  } cases[] = {
      {"owner points at itself", start + Ptr(after), {first, loopLine}},
      {"owners point at each other", start + Ptr(after + 2) + Ptr(after), {first, loopLine}},
      {"pointer past the end", start + Ptr(4000), {first, cutLine}},
      {"counts beyond the bytes", start, {first, cutLine}},
      {"data length past the end",
       start + Ptr(12) + U16(1) + U16(1) + U32(60) + U16(600) + Bytes({1, 2}), {first, cutLine}},
      {"A of three bytes, CNAME data looping",
       start + RR(Ptr(12), 1, 60, Bytes({1, 2, 3})) + RR(Ptr(12), 5, 60, Ptr(after + 27)),
       {first, "A-record for www.office.example. (record data damaged)",
        "CNAME-record for www.office.example. (record data damaged)"}},
      {"class CH", start + Ptr(12) + U16(1) + U16(3) + U32(60) + U16(4) + Bytes({1, 2, 3, 4}) + good,
       {first, "A-record for www.office.example. (class 3 not implemented)",
        "A-record for www.office.example.=10.0.0.1 TTL=60"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Lines expected = {"Authoritative Answer: No", "Answer:"};
    expected.insert(expected.end(), c.tail.begin(), c.tail.end());
    EXPECT_EQ(Shown(c.reply, 1), expected);
  }
  // A reply larger than 512 bytes is shown whole.
  std::string big = Header(7, 0x81, 0x80, 40, 0, 0) + Question(1);
  for (int i = 0; i < 40; ++i) big += RR(Ptr(12), 1, 60, Bytes({10, 0, 1, i}));
  ASSERT_GT(big.size(), 512u);
  const Lines lines = Shown(big, 1);
  ASSERT_EQ(lines.size(), 42u);
  EXPECT_EQ(lines.back(), "A-record for www.office.example.=10.0.1.39 TTL=60");
}

TEST(AnswerText, CutAtEveryByteNeverFails) {
  std::string m = Header(7, 0x85, 0x80, 2, 0, 0) + Question(15);
  m += RR(Ptr(16), 15, 300, U16(10) + L("mail") + Ptr(16));
  m += RR(Ptr(16), 6, 3600, Ptr(12) + Ptr(12) + U32(1) + U32(2) + U32(3) + U32(4) + U32(5));
  for (std::size_t cut = 2; cut < m.size(); ++cut) {
    const auto text = AnswerText(m.substr(0, cut), 7, "www.office.example.", 15);
    ASSERT_TRUE(text.has_value()) << cut;
    EXPECT_NE(text->find("The reply ends here: it is cut short."), std::string::npos) << cut;
    // Without a whole header there is nothing to say about the answer.
    EXPECT_EQ(text->find("Authoritative Answer: Yes"), cut < 12 ? std::string::npos : 0) << cut;
  }
}

TEST(AnswerText, ReplyToAnotherQueryIsIgnored) {
  const std::string reply = Header(8, 0x81, 0x80, 0, 0, 0) + Question(1);
  EXPECT_FALSE(AnswerText(reply, 7, "www.office.example.", 1));
  EXPECT_TRUE(AnswerText(reply, 8, "www.office.example.", 1));
  EXPECT_FALSE(AnswerText(Bytes({0}), 0, "www.office.example.", 1));
  EXPECT_FALSE(AnswerText("", 0, "www.office.example.", 1));
}

TEST(AnswerText, SourcesFollowTheirAnswerRecords) {
  std::string m = Header(7, 0x81, 0x80, 2, 0, 1) + Question(1);
  m += RR(Ptr(12), 5, 60, L("web") + Ptr(16));
  m += RR(L("web") + Ptr(16), 1, 60, Bytes({10, 0, 0, 2}));
  m += RR(L("ns1") + Ptr(16), 1, 60, Bytes({10, 0, 0, 53}));
  EXPECT_EQ(Shown(m, 1, {"own records (file)", "cache (learnt from 192.0.2.1, 60 s left)", "extra"}),
            (Lines{"Authoritative Answer: No", "Answer:",
                   "CNAME-record for www.office.example.=web.office.example. TTL=60",
                   "   Source: own records (file)",
                   "A-record for web.office.example.=10.0.0.2 TTL=60",
                   "   Source: cache (learnt from 192.0.2.1, 60 s left)", "Additional:",
                   "A-record for ns1.office.example.=10.0.0.53 TTL=60"}));
  // A source left empty shows no line.
  EXPECT_EQ(Shown(m, 1, {""}).size(), 6u);
}

}  // namespace
