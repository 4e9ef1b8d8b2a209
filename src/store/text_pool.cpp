#include "store/text_pool.h"

#include <cstring>
#include <stdexcept>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kFirstCapacity = 64;

bool Holds(const SharedText::Node* node, std::string_view text) {
  return node->size() == text.size() && std::memcmp(node->bytes(), text.data(), text.size()) == 0;
}

// The pool's reference, given back: the node leaves the pool.
void Unpool(SharedText::Node* node) {
  node->sizeAndFlags &= ~(SharedText::Node::kPooled | SharedText::Node::kIndexed);
  node->tail = UINT32_MAX;
  SharedText released = SharedText::Adopt(node);
}

}  // namespace

TextPool::~TextPool() { Clear(); }

TextPool::TextPool(TextPool&& other) noexcept
    : table_(std::move(other.table_)),
      used_(std::exchange(other.used_, 0)),
      released_(std::exchange(other.released_, 0)) {
  other.table_.clear();
}

TextPool& TextPool::operator=(TextPool&& other) noexcept {
  if (this != &other) {
    Clear();
    table_ = std::move(other.table_);
    used_ = std::exchange(other.used_, 0);
    released_ = std::exchange(other.released_, 0);
    other.table_.clear();
  }
  return *this;
}

void TextPool::Clear() {
  std::vector<uintptr_t> table = std::move(table_);
  table_.clear();
  used_ = released_ = 0;
  for (uintptr_t entry : table)
    if (entry) Unpool(NodeOf(entry));
}

std::size_t TextPool::Position(std::string_view text, uint64_t hash) const {
  const std::size_t capacity = table_.size();
  const uintptr_t tag = hash & ~uint64_t{kAddressMask};
  // The table's size need not be a power of two: the hash's middle bits,
  // scaled to it, give the first position.
  std::size_t i = static_cast<std::size_t>(((hash >> 16) & 0xffffffffu) * capacity >> 32);
  for (;; i = i + 1 == capacity ? 0 : i + 1) {
    const uintptr_t entry = table_[i];
    if (entry == 0) return i;
    if ((entry & ~kAddressMask) == tag && Holds(NodeOf(entry), text)) return i;
  }
}

TextPool::Node* TextPool::Find(std::string_view text) const {
  if (table_.empty()) return nullptr;
  const uintptr_t entry = table_[Position(text, HashText(text))];
  return entry ? NodeOf(entry) : nullptr;
}

SharedText TextPool::Intern(std::string_view text) {
  const uint64_t hash = HashText(text);
  if (!table_.empty())
    if (uintptr_t entry = table_[Position(text, hash)]) {
      Node* node = NodeOf(entry);
      ++node->refs;
      return SharedText::Adopt(node);
    }
  SharedText made = SharedText::NewNode(text);
  return Add(made.node(), hash);
}

SharedText TextPool::Intern(const SharedText& text) {
  Node* own = text.node();
  if (!own) return Intern(text.view());
  const uint64_t hash = HashText(text.view());
  if (!table_.empty())
    if (uintptr_t entry = table_[Position(text.view(), hash)]) {
      Node* node = NodeOf(entry);
      ++node->refs;
      return SharedText::Adopt(node);
    }
  // A node another pool holds carries that list's links: copy it.
  if (own->sizeAndFlags & Node::kPooled) return Add(SharedText::NewNode(text.view()).node(), hash);
  return Add(own, hash);
}

SharedText TextPool::InternData(const SharedText& text) {
  return text.size() <= SharedText::kInlineBytes ? SharedText(text.view()) : Intern(text);
}

SharedText TextPool::InternData(std::string_view text) {
  return text.size() <= SharedText::kInlineBytes ? SharedText(text) : Intern(text);
}

SharedText TextPool::Add(Node* node, uint64_t hash) {
  if (reinterpret_cast<uintptr_t>(node) & ~kAddressMask)
    throw std::runtime_error("record text outside the addressable range");
  MakeRoom();
  node->sizeAndFlags |= Node::kPooled;
  node->tail = UINT32_MAX;
  table_[Position(node->view(), hash)] = EntryOf(node, hash);
  ++used_;
  // One reference for the pool, one for the caller.
  node->refs += 2;
  return SharedText::Adopt(node);
}

void TextPool::Sweep() {
  released_ = 0;
  if (!table_.empty()) Rebuild(table_.size(), true);
}

void TextPool::MakeRoom() {
  if (table_.empty()) {
    table_.assign(kFirstCapacity, 0);
    return;
  }
  // At most four fifths full (the hash tags keep long probes cheap), and
  // growing by half: a blocklist's pool is most of the table.
  if ((used_ + 1) * 5 <= table_.size() * 4) return;
  // Drop what nobody uses any more first, when enough may have been let go
  // since the last time to be worth the pass.
  if (released_ * 4 >= used_) {
    Sweep();
    if ((used_ + 1) * 3 <= table_.size() * 2) return;
  }
  Rebuild(table_.size() * 3 / 2, false);
}

void TextPool::Rebuild(std::size_t capacity, bool dropUnused) {
  std::vector<uintptr_t> old = std::move(table_);
  table_.assign(capacity, 0);
  used_ = 0;
  for (uintptr_t entry : old) {
    if (!entry) continue;
    Node* node = NodeOf(entry);
    if (dropUnused && node->refs == 1) {
      Unpool(node);
      continue;
    }
    const uint64_t hash = HashText(node->view());
    table_[Position(node->view(), hash)] = EntryOf(node, hash);
    ++used_;
  }
}

}  // namespace korvane
