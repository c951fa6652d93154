// Values seen across the whole run, each with the host pair that sent it and the host that
// received it: a value sent byte for byte to two receivers by two host pairs is the filler of a
// scanner or monitor (nmap --data-length sends one random filler to every target of a run, a
// prober the same bytes to each of its targets); data goes to one place. A fixed table: a value
// whose slot another value takes is forgotten.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "conversations/conversation.hpp"

namespace varn::conversations {

class shared_values {
 public:
  static constexpr uint32_t k_slots = 8192;

  struct sighting {
    bool shared = false;          // the value is shared (now or before)
    uint32_t first = k_no_index;  // when this sighting made it shared: the pair that sent it first
  };

  shared_values() : m_slots(k_slots) {}
  // Notes KEY sent by host pair PAIR to the host whose address hash is RECEIVER.
  sighting note(uint64_t key, uint32_t pair, uint32_t receiver) noexcept;
  // Starts fetching KEY's slot (a note follows shortly).
  void prefetch(uint64_t key) const noexcept { __builtin_prefetch(&m_slots[index(key)]); }

 private:
  static size_t index(uint64_t key) noexcept { return (key ^ (key >> 29)) % k_slots; }
  struct slot {
    uint64_t key = 0;
    uint32_t pair = k_no_index;
    uint32_t receiver = 0;  // the receiver's hash, k_shared_bit once a second receiver was seen
  };
  static constexpr uint32_t k_shared_bit = 0x80000000u;
  std::vector<slot> m_slots;
};

// The hash of a receiver's address (4 or 16 bytes) as shared_values takes it.
uint32_t receiver_hash(bool ipv6, const uint8_t* address) noexcept;

}  // namespace varn::conversations
