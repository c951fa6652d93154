// The indicators of tunnelling and exfiltration, judged over the echo traffic between two hosts:
// each has a name, a threshold and the reason for it (the manual page lists them).
#pragma once

#include <cstddef>
#include <array>
#include <cstdint>

#include "conversations/conversation.hpp"

namespace varn::conversations {

enum class indicator : uint8_t {
  tunnel_signature,  // payloads with a tunnel program's header or a whole IP packet
  reply_not_echo,    // replies that do not return their request's payload
  payload_changes,   // unrecognised request payloads that keep changing
  pattern_changes,   // many different sender patterns (-p) between the same hosts
  orphan_replies,    // replies to no seen request that carry unrecognised payloads
  text_payload,      // text or encoded text where a filler belongs
  high_entropy,      // random-looking payloads, judged for their length
  data_volume,       // more unrecognised payload bytes than any diagnostic sends
  count_,
};

// Strong indicators decide alone; the others need changing data behind them (see verdict.hpp).
struct indicator_info {
  const char* name;
  uint64_t threshold;  // the evidence count at which it fires
  bool strong;
  const char* reason;
};

extern const std::array<indicator_info, static_cast<size_t>(indicator::count_)> k_indicators;

inline uint32_t indicator_bit(indicator i) noexcept { return 1u << static_cast<unsigned>(i); }

// The indicators E fires, one bit per indicator.
uint32_t fired_indicators(const pair_evidence& e) noexcept;

// The evidence count an indicator's threshold is compared with.
uint64_t indicator_measure(indicator i, const pair_evidence& e) noexcept;

}  // namespace varn::conversations
