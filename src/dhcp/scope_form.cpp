#include "dhcp/scope_form.h"

#include "store/record.h"
#include "wire/clean_name.h"
#include "wire/ip.h"
#include "wire/ip_fields.h"
#include "wire/text.h"

namespace korvane {

namespace modDHCP {

namespace {

using F = ScopeField;

ScopeCheck Fail(const char* message, ScopeField focus) { return {message, focus, false}; }

std::string AddressAt(const std::string& data, std::size_t index) {
  return data.size() >= (index + 1) * 4 ? modIP::DataToIP(data.substr(index * 4, 4)) : "";
}

// The mask has no 1 after its first 0.
bool ContiguousMask(const std::string& mask) {
  const std::string bits = modIP::IPToBin(mask);
  const std::size_t zero = bits.find('0');
  return zero == std::string::npos || bits.find('1', zero) == std::string::npos;
}

}  // namespace

ScopeForm ScopeFormOf(const clPermRec& entry, const std::string& domain) {
  ScopeForm form;
  form.domain = modMain::CleanName(domain);
  for (std::size_t i = 0; i < 4; ++i) form.ip[i] = AddressAt(entry.Data, i);
  if (form.ip[3] == "0.0.0.0") form.ip[3].clear();
  form.ttl = entry.TTL;
  return form;
}

std::string PoolInterface(const std::string& first, const std::string& mask,
                          const std::vector<std::string>& localIPs) {
  std::string found;
  for (const std::string& local : localIPs)
    if (modIP::SameNet(local, first, mask)) found = local;
  return found;
}

ScopeCheck CheckScope(const ScopeForm& form, const std::vector<clPermRec>& others,
                      const std::vector<std::string>& localIPs) {
  std::array<std::string, 4> ip;
  for (std::size_t i = 0; i < 4; ++i) ip[i] = std::string(text::TrimBlanks(form.ip[i]));
  for (std::size_t i = 0; i < 3; ++i)
    if (ip[i].empty()) return Fail("Please enter IP-Addresses!", static_cast<ScopeField>(i + 1));
  const std::string &from = ip[0], &to = ip[1], &mask = ip[2], &gateway = ip[3];
  if (!modIP::DottedAddress(mask) || !ContiguousMask(mask)) return Fail("Invalid subnet mask!", F::kMask);
  if (!modIP::DottedAddress(from)) return Fail("Invalid from IP-Address!", F::kFrom);
  if (!modIP::DottedAddress(to)) return Fail("Invalid to IP-Address!", F::kTo);
  if (!modIP::SameNet(from, to, mask)) return Fail("IP-Addresses must be on the same subnet!", F::kTo);
  if (!modIP::ValidIP(from, mask)) return Fail("Invalid from IP-Address!", F::kFrom);
  if (!modIP::ValidIP(to, mask)) return Fail("Invalid to IP-Address!", F::kTo);
  const std::string interface = PoolInterface(from, mask, localIPs);
  if (interface.empty()) return Fail("This computer has no interface on that subnet!", F::kFrom);
  for (const clPermRec& other : others) {
    if (other.RecType != RecordType::kDHCP) continue;
    if (PoolInterface(AddressAt(other.Data, 0), AddressAt(other.Data, 2), localIPs) == interface)
      return Fail("DHCP-Record for this interface already exists!", F::kFrom);
  }
  if (!gateway.empty()) {
    if (!modIP::DottedAddress(gateway) || !modIP::ValidIP(gateway, mask))
      return Fail("Invalid default gateway IP-Address!", F::kGateway);
    if (!modIP::SameNet(gateway, from, mask)) return Fail("Default gateway must be on the same subnet!", F::kGateway);
  }
  if (form.ttl <= 0) return Fail("The TTL for DHCP-Records cannot be zero!", F::kTTL);
  return {};
}

bool SwapReversedRange(ScopeForm& form) {
  if (modIP::IPToBin(form.ip[1]) >= modIP::IPToBin(form.ip[0])) return false;
  std::swap(form.ip[0], form.ip[1]);
  return true;
}

clPermRec ScopeEntry(const ScopeForm& form, const std::vector<std::string>& localIPs) {
  std::string data;
  for (std::size_t i = 0; i < 3; ++i) data += modIP::IPToData(text::TrimBlanks(form.ip[i]));
  data += modIP::IPToData(form.ip[3].empty() ? "0.0.0.0" : std::string(text::TrimBlanks(form.ip[3])));
  data += modIP::IPToData(PoolInterface(form.ip[0], form.ip[2], localIPs));
  return {RecordType::kDHCP, modMain::CleanName(form.domain), "", std::move(data), form.ttl, 0};
}

}  // namespace modDHCP

}  // namespace korvane
