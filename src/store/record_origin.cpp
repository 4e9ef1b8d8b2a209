#include "store/record_origin.h"

namespace korvane {

uint16_t ServerOrigins::OriginOf(std::string_view address) {
  if (!lastAddress_.empty() && address == lastAddress_) return lastOrigin_;
  const std::string key(address);
  auto found = numbers_.find(key);
  uint16_t origin = RecordOrigin::kFile;
  if (found != numbers_.end()) {
    origin = found->second;
  } else if (addresses_.size() < RecordOrigin::kLast - RecordOrigin::kFirstServer + 1u) {
    origin = static_cast<uint16_t>(RecordOrigin::kFirstServer + addresses_.size());
    addresses_.push_back(key);
    numbers_.emplace(key, origin);
  }
  lastAddress_ = key;
  lastOrigin_ = origin;
  return origin;
}

std::string ServerOrigins::AddressOf(uint16_t origin) const {
  if (origin < RecordOrigin::kFirstServer) return "";
  const std::size_t index = origin - RecordOrigin::kFirstServer;
  return index < addresses_.size() ? addresses_[index] : "";
}

void ServerOrigins::Clear() {
  addresses_.clear();
  numbers_.clear();
  lastAddress_.clear();
  lastOrigin_ = RecordOrigin::kFile;
}

}  // namespace korvane
