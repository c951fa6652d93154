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
  payload_changes,   // many distinct data values sent
  pattern_changes,   // many sender patterns (-p) sent once or twice each
  orphan_replies,    // replies to no seen request that carry unrecognised payloads
  text_payload,      // data values of text or encoded text
  high_entropy,      // random-looking data values, judged for their length
  data_volume,       // more bytes of data values than any diagnostic sends
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

// The counts the indicators compare with their thresholds.
struct evidence_measures {
  uint64_t signature_frames = 0;
  uint64_t mismatched_replies = 0;
  uint64_t changes = 0;   // distinct data values beyond the first
  uint64_t patterns = 0;  // distinct data patterns
  uint64_t orphans = 0;   // orphan replies carrying unrecognised payloads
  uint64_t text = 0;      // distinct data values that are text
  uint64_t random = 0;    // ... that look random
  uint64_t bytes = 0;     // bytes of the distinct data values
};

// The measures of E.
evidence_measures measure_evidence(const pair_evidence& e) noexcept;

// The indicators M fires, one bit per indicator.
uint32_t fired_indicators(const evidence_measures& m) noexcept;

// The count an indicator's threshold is compared with.
uint64_t indicator_measure(indicator i, const evidence_measures& m) noexcept;

}  // namespace varn::conversations
