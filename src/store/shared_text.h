// An immutable byte string as the records hold it: up to 7 bytes inside the
// handle itself (an A record's address), longer ones in a reference-counted
// node that every copy shares, so that a name held by many records (a zone,
// "0.0.0.0.in-addr.arpa.") is stored once. It reads like a std::string:
// comparisons, conversions to std::string and std::string_view, size, data.
//
// The counts are not atomic: every copy lives on the thread that runs the
// core.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

namespace korvane {

// The hash of a text, the same for every representation of it.
uint64_t HashText(std::string_view text) noexcept;

class SharedText {
 public:
  // The shared form. `tail` and the flags belong to the record list whose
  // pool holds the node (see TextPool); the bytes follow the header.
  struct Node {
    uint32_t refs;
    uint32_t sizeAndFlags;
    uint32_t tail;  // the last record of this owner name in the pooling list

    static constexpr uint32_t kPooled = 1u << 31;
    static constexpr uint32_t kIndexed = 1u << 30;  // the list indexes this name's records
    static constexpr uint32_t kSizeMask = kIndexed - 1;

    std::size_t size() const noexcept { return sizeAndFlags & kSizeMask; }
    const char* bytes() const noexcept { return reinterpret_cast<const char*>(this + 1); }
    std::string_view view() const noexcept { return {bytes(), size()}; }
  };
  static constexpr std::size_t kInlineBytes = 7;

  SharedText() noexcept { raw_[0] = kInlineTag; }
  // Inline when it fits, else a node of its own (in no pool).
  explicit SharedText(std::string_view text);
  explicit SharedText(const char* text) : SharedText(std::string_view(text)) {}
  explicit SharedText(const std::string& text) : SharedText(std::string_view(text)) {}
  // Always a node of its own, however short.
  static SharedText NewNode(std::string_view text);
  // Takes over one reference to `node`.
  static SharedText Adopt(Node* node) noexcept;

  SharedText(const SharedText& other) noexcept;
  SharedText(SharedText&& other) noexcept;
  SharedText& operator=(const SharedText& other) noexcept;
  SharedText& operator=(SharedText&& other) noexcept;
  SharedText& operator=(std::string_view text) { return *this = SharedText(text); }
  SharedText& operator=(const std::string& text) { return *this = SharedText(text); }
  SharedText& operator=(const char* text) { return *this = SharedText(text); }
  ~SharedText() { Release(); }

  // Null when the text is inline.
  Node* node() const noexcept {
    return IsInline() ? nullptr : std::bit_cast<Node*>(raw_);
  }
  std::string_view view() const noexcept {
    if (IsInline()) return {reinterpret_cast<const char*>(raw_ + 1), static_cast<std::size_t>(raw_[0] >> 1)};
    return node()->view();
  }
  operator std::string_view() const noexcept { return view(); }
  operator std::string() const { return std::string(view()); }
  std::string str() const { return std::string(view()); }
  const char* data() const noexcept { return view().data(); }
  std::size_t size() const noexcept { return view().size(); }
  bool empty() const noexcept { return size() == 0; }
  char operator[](std::size_t i) const noexcept { return data()[i]; }
  char front() const noexcept { return data()[0]; }
  char back() const noexcept { return data()[size() - 1]; }
  const char* begin() const noexcept { return data(); }
  const char* end() const noexcept { return data() + size(); }
  std::string substr(std::size_t at, std::size_t count = std::string::npos) const {
    return std::string(view().substr(at, count));
  }

  friend bool operator==(const SharedText& a, const SharedText& b) noexcept {
    return std::bit_cast<uint64_t>(a.raw_) == std::bit_cast<uint64_t>(b.raw_) || a.view() == b.view();
  }
  friend bool operator==(const SharedText& a, std::string_view b) noexcept { return a.view() == b; }
  friend bool operator==(const SharedText& a, const std::string& b) noexcept { return a.view() == b; }
  friend bool operator==(const SharedText& a, const char* b) noexcept { return a.view() == b; }
  friend std::string operator+(const SharedText& a, std::string_view b) { return Joined(a.view(), b); }
  friend std::string operator+(std::string_view a, const SharedText& b) { return Joined(a, b.view()); }
  friend std::string operator+(const SharedText& a, const SharedText& b) { return Joined(a.view(), b.view()); }

 private:
  static constexpr unsigned char kInlineTag = 1;  // low bit set: inline, length in the bits above

  bool IsInline() const noexcept { return (raw_[0] & kInlineTag) != 0; }
  void Release() noexcept;
  static std::string Joined(std::string_view a, std::string_view b);

  // Either the node's address (low bit clear, nodes are aligned) or the
  // inline form: the length times two plus one, then the bytes.
  alignas(8) unsigned char raw_[8];
};

static_assert(std::endian::native == std::endian::little, "the inline tag is the address's lowest byte");
static_assert(sizeof(SharedText) == 8);

std::ostream& operator<<(std::ostream& out, const SharedText& text);

}  // namespace korvane
