#include "conversations/shared_values.hpp"

#include "conversations/payload_content.hpp"

namespace varn::conversations {

uint32_t receiver_hash(bool ipv6, const uint8_t* address) noexcept {
  const uint64_t h = payload_fingerprint(address, ipv6 ? 16 : 4);
  return static_cast<uint32_t>(h >> 33);  // 31 bits: the table keeps the top one for itself
}

shared_values::sighting shared_values::note(uint64_t key, uint32_t pair, uint32_t receiver) noexcept {
  slot& s = m_slots[index(key)];
  if (s.key != key || s.pair == k_no_index) {
    s = slot{key, pair, receiver};
    return {};
  }
  if ((s.receiver & k_shared_bit) != 0) return {true, k_no_index};
  if (s.receiver == receiver || s.pair == pair) return {};
  const uint32_t first = s.pair;
  s.receiver = k_shared_bit;
  return {true, first};
}

}  // namespace varn::conversations
