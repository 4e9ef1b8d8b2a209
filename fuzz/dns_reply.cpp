// DNS reply intake: a client asks a question that must go to another
// server (the first byte picks it and the options); every further piece is
// a reply to a pending query, sent from the server asked to the channel the
// query left from and carrying the query's ID, so that it reaches the cache. Between replies, and at the end,
// clients ask again and are answered from what the cache took.
#include <iterator>

#include "fuzz_world.h"
#include "wire/dns_codec.h"

namespace {

struct Asked {
  const char* name;
  int type;
};
constexpr Asked kQuestions[] = {{"www.example.org.", 1},  {"example.org.", 2},
                                {"example.org.", 15},     {"alias.example.org.", 5},
                                {"example.org.", 6},      {"4.3.2.1.in-addr.arpa.", 12},
                                {"www.example.org.", 255}, {"nosuch.example.org.", 1}};

void Ask(DnsFuzzWorld& w, const Asked& q, int id) {
  w.engine.OnDnsDatagram("10.0.0.5", 5353, QueryBytes(id, q.name, q.type), "10.0.0.1");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input = AsView(data, size);
  if (input.empty()) return 0;
  const auto control = static_cast<uint8_t>(input[0]);
  DnsFuzzWorld w(control);
  const Asked& question = kQuestions[(control >> 3) % std::size(kQuestions)];
  Ask(w, question, 1);
  int piece = 0;
  for (std::string_view reply : Pieces(input.substr(1))) {
    const auto& pending = w.engine.Requests();
    if (pending.empty()) break;
    const clDNSRequest& to = *pending[static_cast<std::size_t>(piece++) % pending.size()];
    std::string bytes(reply);
    if (bytes.size() >= 2) bytes.replace(0, 2, modDNS::MakeShort(to.LastQID));
    w.engine.OnDns2Datagram(to.ChannelId(), to.LastServer(), 53, bytes);
    Ask(w, question, 100 + piece);
  }
  for (const Asked& q : kQuestions) Ask(w, q, 2);
  w.Run(300);
  Require(w.engine.Requests().empty(), "a request still pending after five minutes");
  w.CheckSent();
  return 0;
}
