// The live records of the analysis: host pairs and conversations in chunked storage with stable
// indices, each found through an open-addressing index, and the conversations kept in the order
// of their last activity so that the idle ones are found first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "conversations/conversation.hpp"

namespace varn::conversations {

namespace detail {

// Records in chunks of 1024 that never move; released slots are reused.
template <typename T>
class slab {
 public:
  static constexpr uint32_t k_chunk = 1024;
  uint32_t allocate() {
    uint32_t i;
    if (!m_free.empty()) {
      i = m_free.back();
      m_free.pop_back();
    } else {
      if (m_next % k_chunk == 0) m_chunks.push_back(std::make_unique<T[]>(k_chunk));
      i = m_next++;
    }
    ++m_live;
    return i;
  }
  void release(uint32_t i) {
    (*this)[i] = T{};
    m_free.push_back(i);
    --m_live;
  }
  T& operator[](uint32_t i) noexcept { return m_chunks[i / k_chunk][i % k_chunk]; }
  const T& operator[](uint32_t i) const noexcept { return m_chunks[i / k_chunk][i % k_chunk]; }
  size_t live() const noexcept { return m_live; }
  size_t reserved_bytes() const noexcept {
    return m_chunks.size() * k_chunk * sizeof(T) + m_free.capacity() * sizeof(uint32_t);
  }

 private:
  std::vector<std::unique_ptr<T[]>> m_chunks;
  std::vector<uint32_t> m_free;
  uint32_t m_next = 0;
  size_t m_live = 0;
};

// Linear-probing index of record numbers. A slot holds the record number plus one (0: empty) in
// its low half and the key's hash in its high half, so that probing and closing gaps read the
// index alone, not the records.
class index_map {
 public:
  index_map() : m_slots(1024, 0) {}
  template <typename Eq>
  uint32_t find(uint64_t hash, Eq&& eq) const {
    const uint32_t h = static_cast<uint32_t>(hash);
    for (size_t i = h & mask();; i = (i + 1) & mask()) {
      const uint64_t s = m_slots[i];
      if (s == 0) return k_no_index;
      if (static_cast<uint32_t>(s >> 32) == h && eq(static_cast<uint32_t>(s) - 1)) return static_cast<uint32_t>(s) - 1;
    }
  }
  void insert(uint64_t hash, uint32_t record) {
    if ((m_used + 1) * 10 > m_slots.size() * 7) grow();
    place(static_cast<uint64_t>(static_cast<uint32_t>(hash)) << 32 | (record + 1u));
    ++m_used;
  }
  // Removes RECORD (whose hash is HASH) and closes the gap behind it.
  void erase(uint64_t hash, uint32_t record) {
    size_t i = static_cast<uint32_t>(hash) & mask();
    while (static_cast<uint32_t>(m_slots[i]) != record + 1) {
      if (m_slots[i] == 0) return;
      i = (i + 1) & mask();
    }
    m_slots[i] = 0;
    --m_used;
    for (size_t j = (i + 1) & mask(); m_slots[j] != 0; j = (j + 1) & mask()) {
      const size_t home = (m_slots[j] >> 32) & mask();
      // Move the entry at J into the hole at I when its home is not within (I, J].
      const bool stays = i <= j ? (home > i && home <= j) : (home > i || home <= j);
      if (!stays) {
        m_slots[i] = m_slots[j];
        m_slots[j] = 0;
        i = j;
      }
    }
  }
  size_t bytes() const noexcept { return m_slots.capacity() * sizeof(uint64_t); }

 private:
  size_t mask() const noexcept { return m_slots.size() - 1; }
  void place(uint64_t slot) {
    size_t i = (slot >> 32) & mask();
    while (m_slots[i] != 0) i = (i + 1) & mask();
    m_slots[i] = slot;
  }
  void grow() {
    std::vector<uint64_t> old(m_slots.size() * 2, 0);
    old.swap(m_slots);
    for (uint64_t s : old)
      if (s != 0) place(s);
  }
  std::vector<uint64_t> m_slots;
  size_t m_used = 0;
};

}  // namespace detail

class conversation_table {
 public:
  // The pair of hosts X and Y (4 or 16 address bytes each), added when new. X_FIRST tells
  // whether X is the pair's first host.
  uint32_t find_or_add_pair(bool ipv6, const uint8_t* x, const uint8_t* y, bool& x_first);
  // The conversation of PAIR with DISCRIMINATOR, KIND and direction, added when new (ADDED).
  // It becomes the most recently active one.
  uint32_t find_or_add_conversation(uint32_t pair, uint16_t discriminator, uint8_t kind, bool initiator_first,
                                    bool& added);

  conversation& conv(uint32_t i) noexcept { return m_conversations[i]; }
  host_pair& pair(uint32_t i) noexcept { return m_pairs[i]; }
  const conversation& conv(uint32_t i) const noexcept { return m_conversations[i]; }
  const host_pair& pair(uint32_t i) const noexcept { return m_pairs[i]; }

  // The least recently active live conversation, or k_no_index.
  uint32_t least_recent() const noexcept { return m_lru_head; }
  // Makes I the most recently active conversation.
  void touch(uint32_t i) noexcept;
  // Takes conversation I out of the index and the activity order; its record stays until
  // release_conversation.
  void retire(uint32_t i);
  void release_conversation(uint32_t i);
  // Takes pair I out of the index and frees its record.
  void release_pair(uint32_t i);

  size_t live_conversations() const noexcept { return m_conversations.live(); }
  size_t live_pairs() const noexcept { return m_pairs.live(); }
  // Bytes held by the records and indexes (the echo books' requests not included).
  size_t reserved_bytes() const noexcept;

 private:
  uint64_t pair_hash(uint32_t i) const noexcept;
  uint64_t conversation_hash(uint32_t i) const noexcept;
  void unlink(uint32_t i) noexcept;

  detail::slab<conversation> m_conversations;
  detail::slab<host_pair> m_pairs;
  detail::index_map m_pair_index;
  detail::index_map m_conversation_index;
  uint32_t m_lru_head = k_no_index, m_lru_tail = k_no_index;
};

// Hashes of the keys (exposed for the table's own use and its tests).
uint64_t hash_pair_key(bool ipv6, const uint8_t* first, const uint8_t* second) noexcept;
uint64_t hash_conversation_key(uint32_t pair, uint16_t discriminator, uint8_t kind, bool initiator_first) noexcept;

}  // namespace varn::conversations
