#include "conversations/conversation_table.hpp"

#include <cstddef>
#include <cstring>

namespace varn::conversations {

namespace {

uint64_t mix(uint64_t h) noexcept {
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdull;
  h ^= h >> 33;
  h *= 0xc4ceb9fe1a85ec53ull;
  return h ^ (h >> 33);
}

}  // namespace

uint64_t hash_pair_key(bool ipv6, const uint8_t* first, const uint8_t* second) noexcept {
  if (!ipv6) {
    uint32_t a, b;
    std::memcpy(&a, first, 4);
    std::memcpy(&b, second, 4);
    return mix(static_cast<uint64_t>(a) << 32 | b);
  }
  uint64_t w[4];
  std::memcpy(w, first, 16);
  std::memcpy(w + 2, second, 16);
  uint64_t h = 0x6a09e667f3bcc909ull;
  for (uint64_t x : w) h = mix(h ^ x);
  return h;
}

uint64_t hash_conversation_key(uint32_t pair, uint16_t discriminator, uint8_t kind, bool initiator_first) noexcept {
  return mix(static_cast<uint64_t>(pair) << 32 | static_cast<uint64_t>(discriminator) << 16 |
             static_cast<uint64_t>(kind) << 8 | static_cast<uint64_t>(initiator_first));
}

uint64_t conversation_table::pair_hash(uint32_t i) const noexcept {
  const host_pair& p = m_pairs[i];
  return hash_pair_key(p.ipv6, p.first.data(), p.second.data());
}

uint64_t conversation_table::conversation_hash(uint32_t i) const noexcept {
  const conversation& c = m_conversations[i];
  return hash_conversation_key(c.pair, c.discriminator, c.kind, c.initiator_first);
}

uint32_t conversation_table::find_or_add_pair(bool ipv6, const uint8_t* x, const uint8_t* y, bool& x_first) {
  const size_t n = ipv6 ? 16 : 4;
  std::array<uint8_t, 16> a{}, b{};
  std::memcpy(a.data(), x, n);
  std::memcpy(b.data(), y, n);
  x_first = std::memcmp(a.data(), b.data(), 16) <= 0;
  if (!x_first) a.swap(b);
  const uint64_t h = hash_pair_key(ipv6, a.data(), b.data());
  const uint32_t found = m_pair_index.find(h, [&](uint32_t i) {
    const host_pair& p = m_pairs[i];
    return p.ipv6 == ipv6 && p.first == a && p.second == b;
  });
  if (found != k_no_index) return found;
  const uint32_t i = m_pairs.allocate();
  host_pair& p = m_pairs[i];
  p.first = a;
  p.second = b;
  p.ipv6 = ipv6;
  m_pair_index.insert(h, i);
  return i;
}

uint32_t conversation_table::find_or_add_conversation(uint32_t pair, uint16_t discriminator, uint8_t kind,
                                                      bool initiator_first, bool& added) {
  const uint64_t h = hash_conversation_key(pair, discriminator, kind, initiator_first);
  uint32_t i = m_conversation_index.find(h, [&](uint32_t r) {
    const conversation& c = m_conversations[r];
    return c.pair == pair && c.discriminator == discriminator && c.kind == kind && c.initiator_first == initiator_first;
  });
  added = i == k_no_index;
  if (added) {
    i = m_conversations.allocate();
    conversation& c = m_conversations[i];
    c.pair = pair;
    c.discriminator = discriminator;
    c.kind = kind;
    c.initiator_first = initiator_first;
    m_conversation_index.insert(h, i);
    ++m_pairs[pair].live;
    // Append to the activity order.
    c.lru_prev = m_lru_tail;
    c.lru_next = k_no_index;
    if (m_lru_tail != k_no_index) m_conversations[m_lru_tail].lru_next = i;
    m_lru_tail = i;
    if (m_lru_head == k_no_index) m_lru_head = i;
  } else {
    touch(i);
  }
  return i;
}

void conversation_table::unlink(uint32_t i) noexcept {
  conversation& c = m_conversations[i];
  if (c.lru_prev != k_no_index) m_conversations[c.lru_prev].lru_next = c.lru_next;
  else m_lru_head = c.lru_next;
  if (c.lru_next != k_no_index) m_conversations[c.lru_next].lru_prev = c.lru_prev;
  else m_lru_tail = c.lru_prev;
  c.lru_prev = c.lru_next = k_no_index;
}

void conversation_table::touch(uint32_t i) noexcept {
  if (m_lru_tail == i) return;
  unlink(i);
  conversation& c = m_conversations[i];
  c.lru_prev = m_lru_tail;
  if (m_lru_tail != k_no_index) m_conversations[m_lru_tail].lru_next = i;
  m_lru_tail = i;
  if (m_lru_head == k_no_index) m_lru_head = i;
}

void conversation_table::retire(uint32_t i) {
  unlink(i);
  m_conversation_index.erase(conversation_hash(i), i);
  host_pair& p = m_pairs[m_conversations[i].pair];
  if (p.live > 0) --p.live;
}

void conversation_table::release_conversation(uint32_t i) { m_conversations.release(i); }

void conversation_table::release_pair(uint32_t i) {
  m_pair_index.erase(pair_hash(i), i);
  m_pairs.release(i);
}

size_t conversation_table::reserved_bytes() const noexcept {
  return m_conversations.reserved_bytes() + m_pairs.reserved_bytes() + m_pair_index.bytes() +
         m_conversation_index.bytes();
}

}  // namespace varn::conversations
