#include "store/shared_text.h"

#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>

namespace korvane {

uint64_t HashText(std::string_view text) noexcept {
  // Eight bytes at a time, each word mixed in by a multiplication; the last
  // steps spread every input bit over the whole result.
  constexpr uint64_t kMultiplier = 0x9e3779b97f4a7c15ull;
  uint64_t hash = text.size() * kMultiplier;
  const char* at = text.data();
  std::size_t left = text.size();
  for (; left >= 8; at += 8, left -= 8) {
    uint64_t word;
    std::memcpy(&word, at, 8);
    hash = (hash ^ word) * kMultiplier;
    hash ^= hash >> 29;
  }
  if (left > 0) {
    uint64_t word = 0;
    std::memcpy(&word, at, left);
    hash = (hash ^ word) * kMultiplier;
  }
  hash ^= hash >> 32;
  hash *= 0xd6e8feb86659fd93ull;
  return hash ^ (hash >> 32);
}

SharedText::SharedText(std::string_view text) {
  raw_[0] = kInlineTag;
  if (text.size() <= kInlineBytes) {
    raw_[0] = static_cast<unsigned char>(text.size() << 1 | kInlineTag);
    std::memcpy(raw_ + 1, text.data(), text.size());
    return;
  }
  *this = NewNode(text);
}

SharedText SharedText::NewNode(std::string_view text) {
  if (text.size() > Node::kSizeMask) throw std::length_error("record text too long");
  void* memory = ::operator new(sizeof(Node) + text.size());
  Node* node = static_cast<Node*>(memory);
  node->refs = 1;
  node->sizeAndFlags = static_cast<uint32_t>(text.size());
  node->tail = UINT32_MAX;
  if (!text.empty()) std::memcpy(node + 1, text.data(), text.size());
  return Adopt(node);
}

SharedText SharedText::Adopt(Node* node) noexcept {
  SharedText text;
  std::memcpy(text.raw_, &node, sizeof node);
  return text;
}

SharedText::SharedText(const SharedText& other) noexcept {
  std::memcpy(raw_, other.raw_, sizeof raw_);
  if (Node* shared = node()) ++shared->refs;
}

SharedText::SharedText(SharedText&& other) noexcept {
  std::memcpy(raw_, other.raw_, sizeof raw_);
  other.raw_[0] = kInlineTag;
}

SharedText& SharedText::operator=(const SharedText& other) noexcept {
  unsigned char taken[sizeof raw_];
  std::memcpy(taken, other.raw_, sizeof raw_);
  if (Node* shared = other.node()) ++shared->refs;
  Release();
  std::memcpy(raw_, taken, sizeof raw_);
  return *this;
}

SharedText& SharedText::operator=(SharedText&& other) noexcept {
  if (this != &other) {
    Release();
    std::memcpy(raw_, other.raw_, sizeof raw_);
    other.raw_[0] = kInlineTag;
  }
  return *this;
}

void SharedText::Release() noexcept {
  Node* shared = node();
  if (!shared) return;
  if (--shared->refs == 0) ::operator delete(shared);
  raw_[0] = kInlineTag;
}

std::string SharedText::Joined(std::string_view a, std::string_view b) {
  std::string joined;
  joined.reserve(a.size() + b.size());
  joined.append(a).append(b);
  return joined;
}

std::ostream& operator<<(std::ostream& out, const SharedText& text) { return out << text.view(); }

}  // namespace korvane
