// The conversation analysis of a run: every selected frame goes in, in order; conversations come
// out when they have been idle for the timeout (capture time) and at the end of the run, each
// with the verdict on the echo traffic between its two hosts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "capture/icmp_frame.hpp"
#include "conversations/conversation_table.hpp"
#include "conversations/echo_pairing.hpp"
#include "conversations/icmp_message.hpp"
#include "conversations/payload_content.hpp"
#include "conversations/sender_fillers.hpp"

namespace varn::conversations {

// A conversation as it is written.
struct closed_conversation {
  const conversation& c;
  const host_pair& pair;
  const uint8_t* initiator;  // 4 or 16 bytes; other messages: the source
  const uint8_t* responder;  // other messages: the destination
  uint32_t indicators;       // echo conversations: the indicators deciding the verdict (or fired)
  bool flagged;
};

class conversation_sink {
 public:
  virtual ~conversation_sink() = default;
  virtual void conversation_closed(const closed_conversation& closed) = 0;
};

// What the analysis made of one frame (for the frame's own report).
struct frame_analysis {
  bool read = false;  // false: the frame's IP header was cut off; it took no part
  echo_role role = echo_role::none;
  fragment_place fragment = fragment_place::whole;
  filler label = filler::none;  // echo payloads
  reply_pairing pairing;        // replies
};

class conversation_tracker {
 public:
  // Echo conversations between two hosts wait for each other when they close, at most this many
  // per pair; beyond, the oldest is written with the verdict as it stands.
  static constexpr size_t k_max_held = 64;

  conversation_tracker(int64_t idle_timeout_ns, conversation_sink& sink);
  ~conversation_tracker();
  conversation_tracker(const conversation_tracker&) = delete;
  conversation_tracker& operator=(const conversation_tracker&) = delete;

  // Takes frame F of input file FILE (its index in the run).
  frame_analysis add_frame(const icmp_frame& f, uint32_t file);
  // Closes every conversation and writes them in the order they started.
  void finish();

  size_t live_conversations() const noexcept { return m_table.live_conversations(); }
  size_t reserved_bytes() const noexcept { return m_table.reserved_bytes(); }

 private:
  struct fragment_entry {
    uint64_t key = 0;
    uint32_t conversation = k_no_index;
    bool from_initiator = true;
  };

  void close_idle();
  void close(uint32_t c);
  void close_pair(uint32_t p);
  void emit(uint32_t c);
  void release(uint32_t c);
  void record_sent_data(pair_evidence& e, const filler_match& fm, const icmp_message& m, const payload_prints& prints);
  void add_echo(const icmp_message& m, uint32_t file, uint64_t frame, frame_analysis& out);
  void add_other(const icmp_message& m, uint32_t file, uint64_t frame);
  void add_fragment(const icmp_message& m);
  static uint64_t fragment_key(const icmp_message& m) noexcept;

  int64_t m_timeout_ns;
  conversation_sink& m_sink;
  conversation_table m_table;
  int64_t m_now_ns = 0;
  bool m_started = false;
  std::vector<fragment_entry> m_fragments;
};

}  // namespace varn::conversations
