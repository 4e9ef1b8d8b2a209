// The DNS engine's view of the DHCP lease table: leased names answer A and
// PTR questions while their lease is active.
#pragma once

#include <string>
#include <vector>

#include "wire/services.h"

namespace korvane {

struct LeaseView {
  std::string ClientName;  // full name with trailing dot, as the lease holds it
  std::string IPaddr;      // dotted
  DateTime Expires = 0;
};

class LeaseSource {
 public:
  virtual ~LeaseSource() = default;
  // Leases (active or not) whose ClientName equals `name` exactly, in table order.
  virtual std::vector<LeaseView> LeasesNamed(const std::string& name) const = 0;
  // Leases (active or not) of the address `ip`, in table order.
  virtual std::vector<LeaseView> LeasesOfAddress(const std::string& ip) const = 0;
};

}  // namespace korvane
