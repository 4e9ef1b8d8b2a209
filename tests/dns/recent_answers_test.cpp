#include "dns/recent_answers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "store/record_origin.h"
#include "support/fakes.h"
#include "wire/datetime.h"

namespace {

TEST(ServerOrigins, EachServerNumberedOnceUntilTheNumbersRunOut) {
  ServerOrigins servers;
  const uint16_t a = servers.OriginOf("192.0.2.1");
  const uint16_t b = servers.OriginOf("192.0.2.2");
  EXPECT_EQ(a, RecordOrigin::kFirstServer);
  EXPECT_EQ(b, RecordOrigin::kFirstServer + 1);
  EXPECT_EQ(servers.OriginOf("192.0.2.1"), a);
  EXPECT_EQ(servers.AddressOf(b), "192.0.2.2");
  for (uint16_t other : {RecordOrigin::kFile, RecordOrigin::kHosts, RecordOrigin::kLease,
                         static_cast<uint16_t>(b + 1)})
    EXPECT_EQ(servers.AddressOf(other), "") << other;
  for (int i = 0; servers.size() < RecordOrigin::kLast - RecordOrigin::kFirstServer + 1u; ++i)
    servers.OriginOf("10." + std::to_string(i / 65536) + "." + std::to_string(i / 256 % 256) + "." +
                     std::to_string(i % 256));
  EXPECT_EQ(servers.AddressOf(RecordOrigin::kLast), "10.0.63.250");
  EXPECT_EQ(servers.OriginOf("198.51.100.1"), RecordOrigin::kFile);  // full: not known
  EXPECT_EQ(servers.OriginOf("192.0.2.2"), b);
  servers.Clear();
  EXPECT_EQ(servers.OriginOf("198.51.100.1"), RecordOrigin::kFirstServer);
}

TEST(RecentAnswers, OffHoldsNothingOnKeepsTheNewestEntries) {
  RecentAnswers sources;
  EXPECT_EQ(sources.Add("127.0.0.1", 4000, 1), nullptr);
  sources.Enable(true);
  for (int id = 1; id <= static_cast<int>(RecentAnswers::kEntries) + 1; ++id)
    ASSERT_NE(sources.Add("127.0.0.1", 4000, id), nullptr);
  EXPECT_EQ(sources.Find("127.0.0.1", 4000, 1), nullptr);  // overwritten
  EXPECT_NE(sources.Find("127.0.0.1", 4000, 2), nullptr);
  EXPECT_EQ(sources.Find("127.0.0.1", 4001, 2), nullptr);
  EXPECT_EQ(sources.Find("127.0.0.2", 4000, 2), nullptr);
  // The same client, port and ID again: the newer answer counts.
  sources.Add("127.0.0.1", 4000, 2)->Milliseconds = 9;
  EXPECT_EQ(sources.Find("127.0.0.1", 4000, 2)->Milliseconds, 9);
  sources.Enable(false);
  EXPECT_EQ(sources.Find("127.0.0.1", 4000, 2), nullptr);
}

TEST(RecentAnswers, EachKindOfSourceAndItsLine) {
  FakeClock clock;
  const DateTime now = clock.Now();
  ServerOrigins servers;
  const uint16_t upstream = servers.OriginOf("192.0.2.53");
  const uint16_t other = servers.OriginOf("198.51.100.7");
  auto record = [now](bool permanent, uint16_t origin, int32_t ttl) {
    clDNSRecord r;
    r.Permanent = permanent;
    r.Origin = origin;
    r.SetTTL(ttl, now);
    return r;
  };
  const std::vector<clDNSRecord> answer = {
      record(true, RecordOrigin::kFile, 3600), record(true, RecordOrigin::kHosts, 3600),
      record(false, RecordOrigin::kLease, 7200), record(false, other, 300),
      record(false, RecordOrigin::kFile, 120), record(false, upstream, 60)};
  AnsweredRequest answered;
  for (const clDNSRecord& r : answer) answered.Sources[answered.Count++] = SourceOf(r, now + 10, servers, "192.0.2.53");
  CopyText(answered.Server, "192.0.2.53");
  CopyText(answered.ServerName, "external");
  answered.Milliseconds = 42;
  EXPECT_EQ(SourceLines(answered, servers),
            (std::vector<std::string>{"own records (file)", "hosts file",
                                      "DHCP lease (expires at " + FormatDateTime(now + 7200) + ")",
                                      "cache (learnt from 198.51.100.7, 290 s left)",
                                      "cache (110 s left)",
                                      "answered after asking 192.0.2.53 (external) in 42 ms"}));
  // Not asked for this answer: the same record is a cached one.
  EXPECT_EQ(SourceOf(answer[5], now, servers, "").Kind, SourceKind::kCache);
  EXPECT_EQ(SourceOf(answer[5], now, servers, "198.51.100.7").Kind, SourceKind::kCache);
}

TEST(RecentAnswers, TextsAreCutToTheirBuffers) {
  AnsweredRequest answered;
  CopyText(answered.ServerName, std::string(400, 'n'));
  EXPECT_EQ(std::string(answered.ServerName).size(), AnsweredRequest::kMaxText);
  CopyText(answered.Client, "127.0.0.1");
  EXPECT_STREQ(answered.Client, "127.0.0.1");
}

}  // namespace
