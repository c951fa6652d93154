// The JSON rendering of conversations: one "icmp_conversation" event per conversation, and the
// members a frame's "icmp" event gains from the analysis (its filler and its pairing).
#pragma once

#include <string_view>

#include "conversations/conversation_tracker.hpp"
#include "json/json_text.hpp"

namespace varn::conversations {

// Writes the event of C to J, its line end included. FIRST_FILE names the file of its first
// frame, LAST_FILE the file of its last.
void write_conversation_event(json::text& j, const closed_conversation& c, std::string_view first_file,
                              std::string_view last_file);

// Writes the members of A (each starting with a comma, after json::text::continue_object()) to
// J: "filler" for echo payloads; for replies "reply" (answered, duplicate or orphan), and for
// the first two "request_frame" (with "request_file" when the request came in another file than
// CURRENT_FILE), "rtt_ms" (answered) and "echoed" (true, false, or null when the capture cut the
// two payloads differently).
void write_frame_members(json::text& j, const frame_analysis& a, uint32_t current_file,
                         std::string_view request_file_name);

}  // namespace varn::conversations
