// The DHCP scope dialog's rules apart from its widgets: its fields, the
// checks on OK in their fixed order (message and field to focus), the
// interface found for the pool, and the entry the fields make.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "store/form_check.h"
#include "store/perm_rec.h"

namespace korvane {

namespace modDHCP {

// txtIP(0..3), then the lease period.
enum class ScopeField { kNone, kFrom, kTo, kMask, kGateway, kTTL };
using ScopeCheck = FormCheck<ScopeField>;

struct ScopeForm {
  std::string domain;               // txtDomain: the shown domain, cleaned
  std::array<std::string, 4> ip;    // first, last, mask, gateway (may be "")
  int32_t ttl = 86400;              // txtTTL, the lease period
};

// The fields of an existing DHCP entry (a gateway 0.0.0.0 shows as "").
ScopeForm ScopeFormOf(const clPermRec& entry, const std::string& domain);

// This machine's address in the pool's network: the last of `localIPs`
// that lies in it; "" when none does.
std::string PoolInterface(const std::string& first, const std::string& mask,
                          const std::vector<std::string>& localIPs);

// `others` are the other DHCP entries (not the one being edited). Every
// message carries the exclamation icon.
ScopeCheck CheckScope(const ScopeForm& form, const std::vector<clPermRec>& others,
                      const std::vector<std::string>& localIPs);

// Puts a reversed range in order; true when it swapped the two fields.
bool SwapReversedRange(ScopeForm& form);

// The DHCP entry of checked fields: owner the domain, TTL the lease period,
// data first, last, mask, gateway (0.0.0.0 when empty) and the interface.
clPermRec ScopeEntry(const ScopeForm& form, const std::vector<std::string>& localIPs);

}  // namespace modDHCP

}  // namespace korvane
