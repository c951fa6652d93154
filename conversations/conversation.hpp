// The records of the conversation analysis: one conversation (an echo exchange under one
// identifier, or one kind of other message between two hosts), and one host pair with the
// evidence gathered over all the echo traffic between its two hosts.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "conversations/echo_pairing.hpp"

namespace varn::conversations {

constexpr uint32_t k_no_index = 0xffffffffu;

// What the echo traffic between two hosts showed, over all its conversations.
struct pair_evidence {
  uint32_t signature_frames = 0;    // payloads with a known tunnel header
  uint32_t signatures = 0;          // bit per tunnel_signature kind seen
  uint32_t mismatched_replies = 0;  // replies that did not return their request's payload
  uint32_t data_orphans = 0;        // replies to no seen request carrying unrecognised payloads
  uint32_t data_payloads = 0;       // sent payloads (requests, orphan replies) no sender explains
  uint32_t data_changes = 0;        // of them, payloads unlike the one before
  uint32_t text_payloads = 0;       // of them, text or encoded text
  uint32_t random_payloads = 0;     // of them, random-looking for their length
  uint64_t data_bytes = 0;          // their captured bytes
  uint64_t last_data_print = 0;     // fingerprint of the last one
  std::array<uint32_t, 8> patterns{};  // distinct sender patterns (-p) seen, up to 8
  uint8_t distinct_patterns = 0;
};

struct conversation {
  uint32_t pair = k_no_index;  // its host pair
  uint16_t discriminator = 0;  // echo: the identifier; other messages: the type
  uint8_t kind = 0;            // echo: the request type (8, 13, 15, 17, 128); other messages: 0
  bool initiator_first = true; // the initiator (other messages: the source) is the pair's first host
  bool held = false;           // closed, waiting for its host pair to close
  bool first_in_ns = false;    // the capture gave its first frame's time in nanoseconds
  bool last_in_ns = false;     // ... and its last frame's
  int64_t first_ns = 0, last_ns = 0;
  uint64_t first_frame = 0, last_frame = 0;
  uint32_t first_file = 0, last_file = 0;
  uint32_t frames = 0;
  uint32_t requests = 0, replies = 0, unanswered = 0, orphans = 0, mismatched = 0, duplicates = 0;
  uint32_t rtt_count = 0;
  int64_t rtt_min_ns = 0, rtt_max_ns = 0, rtt_sum_ns = 0;
  uint64_t bytes_out = 0;  // payload bytes from the initiator (other messages: from the source)
  uint64_t bytes_in = 0;   // payload bytes from the responder
  uint32_t fillers = 0;    // bit per filler label seen in its echo payloads
  uint32_t lru_prev = k_no_index, lru_next = k_no_index;
  echo_book book;

  bool echo() const noexcept { return kind != 0; }
};

struct host_pair {
  std::array<uint8_t, 16> first{}, second{};  // first < second (address bytes compared)
  bool ipv6 = false;
  uint32_t live = 0;           // conversations not yet closed
  std::vector<uint32_t> held;  // closed echo conversations written when the pair closes
  pair_evidence evidence;
};

}  // namespace varn::conversations
