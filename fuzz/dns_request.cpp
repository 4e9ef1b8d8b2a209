// DNS request intake: the first byte picks the world's options, every piece
// after it is a datagram on WSDNS, a second apart, in turn from a client of
// the local network and from a stranger (who may not have names resolved
// through other servers). Whatever came, the answers and the queries to
// other servers are well-formed, and every request has ended five minutes
// later.
#include "fuzz_world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input = AsView(data, size);
  if (input.empty()) return 0;
  DnsFuzzWorld w(static_cast<uint8_t>(input[0]));
  bool stranger = false;
  for (std::string_view datagram : Pieces(input.substr(1))) {
    w.engine.OnDnsDatagram(stranger ? "198.51.100.7" : "10.0.0.5", 5353, datagram, "10.0.0.1");
    stranger = !stranger;
    w.Run(1);
  }
  w.Run(300);
  Require(w.engine.Requests().empty(), "a request still pending after five minutes");
  w.CheckSent();
  return 0;
}
