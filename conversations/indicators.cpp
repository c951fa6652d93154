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
     "7 or more distinct data values between two hosts (6 changes from the first): data, not a sender's fixed "
     "filler (senders' clocks, values sent to several hosts and values sent again do not count)"},
    {"pattern_changes", 8, true,
     "8 or more distinct ping patterns (-p) or fill bytes, each carried by at most 2 payloads: data carried a "
     "pattern per process; a line test repeats each pattern, a random fill changes inside one conversation"},
    {"orphan_replies", 3, false,
     "replies carrying unrecognised payloads that answer no request seen: a tunnel's downstream, or requests "
     "the capture missed"},
    {"text_payload", 2, false,
     "data values of 8 bytes or more that are printable text, hex or base64 where a sender's filler belongs "
     "(fillers that are text are recognised first)"},
    {"high_entropy", 2, false,
     "data values whose byte values and successive differences are as spread as random bytes of the same "
     "length (within 0.4 bit): encrypted or compressed data, from 16 bytes on"},
    {"data_volume", 8192, false,
     "8 KiB or more of distinct data values between two hosts: beyond what diagnostic tools send"},
}};

evidence_measures measure_evidence(const pair_evidence& e) noexcept {
  value_counts v = e.values ? e.values->counts() : value_counts{};
  if (e.base64_seen) {
    v.data += e.letter_payloads;
    v.text += e.letter_payloads;
    v.bytes += e.letter_bytes;
  }
  evidence_measures m;
  m.signature_frames = e.signature_frames;
  m.mismatched_replies = e.mismatched_replies;
  m.changes = v.data > 0 ? v.data - 1 : 0;
  m.patterns = v.patterns;
  m.orphans = e.data_orphans;
  m.text = v.text;
  m.random = v.random;
  m.bytes = v.bytes;
  return m;
}

uint64_t indicator_measure(indicator i, const evidence_measures& m) noexcept {
  switch (i) {
    case indicator::tunnel_signature: return m.signature_frames;
    case indicator::reply_not_echo: return m.mismatched_replies;
    case indicator::payload_changes: return m.changes;
    case indicator::pattern_changes: return m.patterns;
    case indicator::orphan_replies: return m.orphans;
    case indicator::text_payload: return m.text;
    case indicator::high_entropy: return m.random;
    case indicator::data_volume: return m.bytes;
    default: return 0;
  }
}

uint32_t fired_indicators(const evidence_measures& m) noexcept {
  uint32_t fired = 0;
  for (size_t i = 0; i < k_indicators.size(); ++i) {
    const indicator which = static_cast<indicator>(i);
    if (indicator_measure(which, m) >= k_indicators[i].threshold) fired |= indicator_bit(which);
  }
  return fired;
}

}  // namespace varn::conversations
