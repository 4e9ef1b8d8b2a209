// The one way wire bytes are read: every take checks the length first, so a
// short input is a "no" from here and never a read past the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace korvane {

namespace modDNS {

class BoundedReader {
 public:
  explicit BoundedReader(std::string_view data) : rest_(data) {}

  bool Has(std::size_t count) const { return rest_.size() >= count; }
  std::size_t Left() const { return rest_.size(); }
  std::string_view Rest() const { return rest_; }
  // Takes everything that is left (a read that failed half-way).
  void Drain() { rest_ = {}; }

  // False when nothing is left.
  bool PeekByte(uint8_t& value) const {
    if (rest_.empty()) return false;
    value = static_cast<uint8_t>(rest_.front());
    return true;
  }

  // False (and nothing taken) when fewer than `count` bytes are left.
  bool Take(std::size_t count, std::string_view& bytes) {
    if (!Has(count)) return false;
    bytes = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return true;
  }

  // Big-endian unsigned value of `count` (1 to 4) bytes; false when short.
  bool TakeNumber(std::size_t count, uint32_t& value) {
    std::string_view bytes;
    if (!Take(count, bytes)) return false;
    value = 0;
    for (char c : bytes) value = (value << 8) | static_cast<uint8_t>(c);
    return true;
  }

 private:
  std::string_view rest_;
};

}  // namespace modDNS

}  // namespace korvane
