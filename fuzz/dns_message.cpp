// The message decoder over any bytes: it stops where it says, and a message
// it read whole holds what its header announced.
#include "fuzz_world.h"
#include "wire/dns_message.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzErrors errors;
  modDNS::DnsMessage m = modDNS::DecodeMessage(AsView(data, size), errors);
  Require(m.Stop <= size, "decoding stopped past the end");
  if (m.End == modDNS::DecodeEnd::kWhole) {
    const modDNS::MessageHeader& h = m.Header;
    Require(m.Questions.size() == h.QDCount, "questions missing from a whole message");
    Require(m.Records.size() == std::size_t{h.ANCount} + h.NSCount + h.ARCount,
            "records missing from a whole message");
  }
  return 0;
}
