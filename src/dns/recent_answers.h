// Where the records of recent answers came from, for the look-up tool: a
// small ring of the last answered requests (client address, port and ID),
// each with the source of its answer records. It holds nothing and costs
// one test per answer while it is off; switched on, it is allocated once
// and each answer overwrites the oldest entry without allocating.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "store/record.h"
#include "store/record_origin.h"
#include "wire/services.h"

namespace korvane {

enum class SourceKind : uint8_t { kFile, kHosts, kLease, kCache, kAsked };

struct RecordSource {
  SourceKind Kind = SourceKind::kFile;
  uint16_t Origin = RecordOrigin::kFile;  // kCache, kAsked: the server's origin
  int32_t SecondsLeft = 0;                // kCache
  DateTime Expires = 0;                   // kLease
};

struct AnsweredRequest {
  static constexpr std::size_t kMaxSources = 32;
  static constexpr std::size_t kMaxText = 255;

  char Client[16] = {};  // dotted, NUL-terminated
  int32_t Port = -1;
  int32_t Id = -1;
  uint8_t Count = 0;  // answer records with a source (the first kMaxSources)
  std::array<RecordSource, kMaxSources> Sources;
  // Of a request answered after asking another server: the server (dotted),
  // its name ("external" for a configured one) and the time from the first
  // question to the answer.
  char Server[16] = {};
  char ServerName[kMaxText + 1] = {};
  int32_t Milliseconds = 0;
};

class RecentAnswers {
 public:
  static constexpr std::size_t kEntries = 64;

  // Off frees the ring.
  void Enable(bool on);
  bool Enabled() const { return ring_ != nullptr; }

  // The entry for an answer about to leave to client:port with `id`,
  // emptied; null while off.
  AnsweredRequest* Add(std::string_view client, int port, int id);
  // The newest entry for client:port and `id`; null when none is kept.
  const AnsweredRequest* Find(std::string_view client, int port, int id) const;

 private:
  std::unique_ptr<std::array<AnsweredRequest, kEntries>> ring_;
  std::size_t next_ = 0;
};

// The source of one answer record as an answer holds it (`asked`: the
// address of the server asked for this answer, "" when none was).
RecordSource SourceOf(const clDNSRecord& record, DateTime now, const ServerOrigins& servers,
                      std::string_view asked);
// Copies `text` into a fixed buffer, cut to fit.
template <std::size_t N>
void CopyText(char (&to)[N], std::string_view text) {
  const std::size_t n = text.size() < N - 1 ? text.size() : N - 1;
  text.copy(to, n);
  to[n] = '\0';
}

// One text per answer record: "own records (file)", "hosts file",
// "DHCP lease (expires at ...)", "cache (learnt from <server>, N s left)",
// "answered after asking <server> (<name>) in N ms".
std::vector<std::string> SourceLines(const AnsweredRequest& answered, const ServerOrigins& servers);

}  // namespace korvane
