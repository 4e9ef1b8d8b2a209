// A bounded queue of log records between one producer (the thread that logs)
// and one consumer (the log writer). Records are copied into a preallocated
// ring of bytes: pushing never allocates, never locks and never waits; a
// record that does not fit is refused and the caller counts it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

namespace korvane {

namespace modMain {

// What travels with each line besides its text.
struct LogRecord {
  int64_t second = 0;     // the line's time, whole seconds since the epoch
  uint16_t epoch = 0;     // the log file generation the line was meant for
  uint8_t flags = 0;      // LogQueue::kToFile | kToEcho
  std::string_view text;  // valid until the record is popped
};

class LogQueue {
 public:
  static constexpr uint8_t kToFile = 1;
  static constexpr uint8_t kToEcho = 2;

  // `bytes` is rounded up to a power of two (64 KB at least).
  explicit LogQueue(std::size_t bytes) {
    capacity_ = 64 * 1024;
    while (capacity_ < bytes) capacity_ *= 2;
    ring_ = std::make_unique<Header[]>(capacity_ / sizeof(Header));
  }

  std::size_t Capacity() const { return capacity_; }
  // Bytes taken, as last seen; either side may ask.
  std::size_t Used() const {
    return static_cast<std::size_t>(head_.load(std::memory_order_acquire) -
                                    tail_.load(std::memory_order_acquire));
  }

  // Producer. False when the record does not fit now.
  bool Push(const LogRecord& record) {
    const std::size_t size = SizeOf(record.text.size());
    uint64_t head = head_.load(std::memory_order_relaxed);
    std::size_t at = static_cast<std::size_t>(head & (capacity_ - 1));
    const std::size_t toEnd = capacity_ - at;
    const std::size_t needed = size + (toEnd < size ? toEnd : 0);
    if (needed > capacity_ - static_cast<std::size_t>(head - cachedTail_)) {
      cachedTail_ = tail_.load(std::memory_order_acquire);
      if (needed > capacity_ - static_cast<std::size_t>(head - cachedTail_)) return false;
    }
    if (toEnd < size) {  // the rest of the ring is skipped; the record starts at 0
      HeaderAt(at) = Header{0, 0, 0, 0, kWrap};
      head += toEnd;
      at = 0;
    }
    Header& header = HeaderAt(at);
    header = Header{record.second, static_cast<uint32_t>(record.text.size()), record.epoch,
                    record.flags, 0};
    std::memcpy(&header + 1, record.text.data(), record.text.size());
    head_.store(head + size, std::memory_order_release);
    return true;
  }

  // Consumer: hands each record queued so far to `each`, then frees their
  // space at once. Returns the number of records.
  template <typename Each>
  std::size_t PopAll(Each&& each, std::size_t maxBytes = SIZE_MAX) {
    const uint64_t head = head_.load(std::memory_order_acquire);
    uint64_t tail = tail_.load(std::memory_order_relaxed);
    const uint64_t start = tail;
    std::size_t count = 0;
    while (tail != head && static_cast<std::size_t>(tail - start) < maxBytes) {
      const Header& header = HeaderAt(static_cast<std::size_t>(tail & (capacity_ - 1)));
      if (header.wrap) {
        tail += capacity_ - static_cast<std::size_t>(tail & (capacity_ - 1));
        continue;
      }
      LogRecord record;
      record.second = header.second;
      record.epoch = header.epoch;
      record.flags = header.flags;
      record.text = std::string_view(reinterpret_cast<const char*>(&header + 1), header.length);
      each(record);
      tail += SizeOf(header.length);
      ++count;
    }
    tail_.store(tail, std::memory_order_release);
    return count;
  }

  // Position of the producer: everything pushed so far ends there.
  uint64_t Head() const { return head_.load(std::memory_order_acquire); }
  // Position of the consumer: everything before it has been popped.
  uint64_t Tail() const { return tail_.load(std::memory_order_acquire); }

 private:
  static constexpr uint8_t kWrap = 1;
  struct alignas(16) Header {
    int64_t second;
    uint32_t length;
    uint16_t epoch;
    uint8_t flags;
    uint8_t wrap;
  };
  static_assert(sizeof(Header) == 16);

  // Records start on a header boundary, so a skipped end always holds a header.
  static std::size_t SizeOf(std::size_t length) {
    return sizeof(Header) + (length + sizeof(Header) - 1) / sizeof(Header) * sizeof(Header);
  }
  Header& HeaderAt(std::size_t offset) const { return ring_[offset / sizeof(Header)]; }

  std::size_t capacity_;
  std::unique_ptr<Header[]> ring_;
  alignas(64) std::atomic<uint64_t> head_{0};
  uint64_t cachedTail_ = 0;  // the producer's last look at tail_
  alignas(64) std::atomic<uint64_t> tail_{0};
};

}  // namespace modMain

}  // namespace korvane
