#include "wire/soa_data.h"

#include "wire/bounded_reader.h"

namespace korvane {

namespace modDNS {

namespace {

constexpr std::size_t kNumberBytes = 20;

// The text up to the next zero byte, which is taken too; false (and the
// rest taken) when there is none.
bool TakeUpToZero(BoundedReader& in, std::string& out) {
  std::string_view rest = in.Rest();
  std::size_t zero = rest.find('\0');
  std::string_view taken;
  if (zero == std::string_view::npos) {
    in.Take(rest.size(), taken);
    out.assign(taken);
    return false;
  }
  in.Take(zero, taken);
  out.assign(taken);
  in.Take(1, taken);
  return true;
}

}  // namespace

SoaData SoaData::Parse(std::string_view data) {
  SoaData soa;
  BoundedReader in(data);
  if (TakeUpToZero(in, soa.Primary) && TakeUpToZero(in, soa.Mailbox)) {
    for (uint32_t* number : {&soa.Serial, &soa.Refresh, &soa.Retry, &soa.Expire, &soa.Minimum})
      if (!in.TakeNumber(4, *number)) *number = 0;
  }
  return soa;
}

bool SoaData::WellFormed(std::string_view data) {
  BoundedReader in(data);
  std::string name;
  return TakeUpToZero(in, name) && TakeUpToZero(in, name) && in.Has(kNumberBytes);
}

std::string SoaData::Pack() const {
  std::string data = Primary;
  data += '\0';
  data += Mailbox;
  data += '\0';
  return data + NumberBytes();
}

std::string SoaData::NumberBytes() const {
  std::string bytes;
  for (uint32_t number : Numbers())
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>((number >> shift) & 255);
  return bytes;
}

}  // namespace modDNS

}  // namespace korvane
