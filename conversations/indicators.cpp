#include "conversations/indicators.hpp"

namespace varn::conversations {

const std::array<indicator_info, static_cast<size_t>(indicator::count_)> k_indicators = {{
    {"tunnel_signature", 2, true,
     "payloads that start with a published tunnel header (ptunnel, ptunnel-ng, hans, icmptunnel) or are a whole "
     "IP packet; two, so that one chance match in unknown data does not decide"},
    {"reply_not_echo", 3, true,
     "an echo reply returns the request's data (RFC 792); only a program answering in the kernel's place sends "
     "other bytes; three, so that one damaged frame does not decide"},
    {"payload_changes", 6, true,
     "unrecognised request payloads that differ from the one before more than 5 times: data, not a sender's "
     "fixed filler (senders' clock bytes are left out of the comparison)"},
    {"pattern_changes", 8, true,
     "8 or more different ping patterns (-p) between two hosts: data carried 16 bytes at a time; a line test "
     "uses a handful"},
    {"orphan_replies", 3, false,
     "replies carrying unrecognised payloads that answer no request seen: a tunnel's downstream, or requests "
     "the capture missed"},
    {"text_payload", 2, false,
     "printable text, hex or base64 where a sender's filler belongs (fillers that are text are recognised "
     "first)"},
    {"high_entropy", 2, false,
     "byte values and their successive differences as spread as random bytes of the same length (within 0.4 "
     "bit): encrypted or compressed data, at any payload length"},
    {"data_volume", 8192, false,
     "8 KiB or more of unrecognised payload between two hosts: beyond what diagnostic tools send"},
}};

uint64_t indicator_measure(indicator i, const pair_evidence& e) noexcept {
  switch (i) {
    case indicator::tunnel_signature: return e.signature_frames;
    case indicator::reply_not_echo: return e.mismatched_replies;
    case indicator::payload_changes: return e.data_changes;
    case indicator::pattern_changes: return e.distinct_patterns;
    case indicator::orphan_replies: return e.data_orphans;
    case indicator::text_payload: return e.text_payloads;
    case indicator::high_entropy: return e.random_payloads;
    case indicator::data_volume: return e.data_bytes;
    default: return 0;
  }
}

uint32_t fired_indicators(const pair_evidence& e) noexcept {
  uint32_t fired = 0;
  for (size_t i = 0; i < k_indicators.size(); ++i) {
    const indicator which = static_cast<indicator>(i);
    if (indicator_measure(which, e) >= k_indicators[i].threshold) fired |= indicator_bit(which);
  }
  return fired;
}

}  // namespace varn::conversations
