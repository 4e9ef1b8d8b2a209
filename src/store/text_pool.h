// The texts a record list holds, each content once: interning a text gives
// the one shared node of that content, so equal names and data share their
// bytes and compare by address. The pool keeps one reference to each node;
// nodes that nothing else refers to any more are dropped when the table
// would otherwise grow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "store/shared_text.h"

namespace korvane {

class TextPool {
 public:
  using Node = SharedText::Node;

  TextPool() = default;
  ~TextPool();
  TextPool(const TextPool&) = delete;
  TextPool& operator=(const TextPool&) = delete;
  TextPool(TextPool&& other) noexcept;
  TextPool& operator=(TextPool&& other) noexcept;

  // The pooled node of this content, made when there is none; a node
  // however short the text is.
  SharedText Intern(std::string_view text);
  // As above, taking over `text`'s own node when it is in no pool.
  SharedText Intern(const SharedText& text);
  // Record data: inline when it fits, else interned.
  SharedText InternData(const SharedText& text);
  SharedText InternData(std::string_view text);
  // The pooled node of this content, or null.
  Node* Find(std::string_view text) const;

  std::size_t size() const { return used_; }
  // `count` texts were let go by their holders: some nodes may be unused.
  void NoteReleased(std::size_t count) { released_ += count; }
  // Drops the nodes nothing but the pool refers to.
  void Sweep();
  template <class Visit>
  void ForEach(Visit visit) const {
    for (uintptr_t entry : table_)
      if (entry) visit(NodeOf(entry));
  }
  // Lets go of every node (the nodes others hold stay valid, in no pool).
  void Clear();

 private:
  // Entries are node addresses with the hash's top 16 bits in the address's
  // unused top bits, so a probe touches a node only when they match.
  static Node* NodeOf(uintptr_t entry) { return reinterpret_cast<Node*>(entry & kAddressMask); }
  static uintptr_t EntryOf(Node* node, uint64_t hash) {
    return reinterpret_cast<uintptr_t>(node) | (hash & ~uint64_t{kAddressMask});
  }
  static constexpr uintptr_t kAddressMask = (uintptr_t{1} << 48) - 1;

  // The table position of this content: its entry, or the free one where it would go.
  std::size_t Position(std::string_view text, uint64_t hash) const;
  SharedText Add(Node* node, uint64_t hash);
  // Room for one more entry: drops unused nodes, or doubles the table.
  void MakeRoom();
  void Rebuild(std::size_t capacity, bool dropUnused);

  std::vector<uintptr_t> table_;
  std::size_t used_ = 0;
  std::size_t released_ = 0;
};

}  // namespace korvane
