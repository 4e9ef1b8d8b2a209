#include "dns/recent_answers.h"

#include "wire/datetime.h"

namespace korvane {

void RecentAnswers::Enable(bool on) {
  if (!on) {
    ring_.reset();
  } else if (!ring_) {
    ring_ = std::make_unique<std::array<AnsweredRequest, kEntries>>();
    next_ = 0;
  }
}

AnsweredRequest* RecentAnswers::Add(std::string_view client, int port, int id) {
  if (!ring_) return nullptr;
  AnsweredRequest& entry = (*ring_)[next_];
  next_ = (next_ + 1) % kEntries;
  CopyText(entry.Client, client);
  entry.Port = port;
  entry.Id = id;
  entry.Count = 0;
  entry.Server[0] = '\0';
  entry.ServerName[0] = '\0';
  entry.Milliseconds = 0;
  return &entry;
}

const AnsweredRequest* RecentAnswers::Find(std::string_view client, int port, int id) const {
  if (!ring_) return nullptr;
  for (std::size_t back = 1; back <= kEntries; ++back) {
    const AnsweredRequest& entry = (*ring_)[(next_ + kEntries - back) % kEntries];
    if (entry.Port == port && entry.Id == id && client == entry.Client) return &entry;
  }
  return nullptr;
}

RecordSource SourceOf(const clDNSRecord& record, DateTime now, const ServerOrigins& servers,
                      std::string_view asked) {
  RecordSource source;
  source.Origin = record.Origin;
  if (record.Permanent) {
    source.Kind = record.Origin == RecordOrigin::kHosts ? SourceKind::kHosts : SourceKind::kFile;
  } else if (record.Origin == RecordOrigin::kLease) {
    source.Kind = SourceKind::kLease;
    source.Expires = record.TimeOut(now);
  } else {
    const bool fromAsked = !asked.empty() && record.Origin >= RecordOrigin::kFirstServer &&
                           servers.AddressOf(record.Origin) == asked;
    source.Kind = fromAsked ? SourceKind::kAsked : SourceKind::kCache;
    source.SecondsLeft = record.TTL(now);
  }
  return source;
}

std::vector<std::string> SourceLines(const AnsweredRequest& answered, const ServerOrigins& servers) {
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < answered.Count; ++i) {
    const RecordSource& source = answered.Sources[i];
    switch (source.Kind) {
      case SourceKind::kFile: lines.push_back("own records (file)"); break;
      case SourceKind::kHosts: lines.push_back("hosts file"); break;
      case SourceKind::kLease:
        lines.push_back("DHCP lease (expires at " + FormatDateTime(source.Expires) + ")");
        break;
      case SourceKind::kCache: {
        const std::string server = servers.AddressOf(source.Origin);
        lines.push_back("cache (" + (server.empty() ? "" : "learnt from " + server + ", ") +
                        std::to_string(source.SecondsLeft) + " s left)");
        break;
      }
      case SourceKind::kAsked:
        lines.push_back("answered after asking " + std::string(answered.Server) + " (" +
                        answered.ServerName + ") in " + std::to_string(answered.Milliseconds) + " ms");
        break;
    }
  }
  return lines;
}

}  // namespace korvane
