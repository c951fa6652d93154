// The verdict on the echo traffic between two hosts: flagged as a tunnel or exfiltration, or not.
#pragma once

#include <cstdint>

#include "conversations/conversation.hpp"

namespace varn::conversations {

// A weak indicator counts only when the unrecognised payloads changed at least this often: a
// payload that never changes is an unknown sender's filler, not data, and two runs of a tool
// with a random payload (nping --data-length) change it once.
constexpr uint32_t k_weak_needs_changes = 2;

// Flagged when a strong indicator fired, or a weak one while the unrecognised payloads changed
// (E.data_changes >= k_weak_needs_changes). FIRED is fired_indicators(E).
bool is_flagged(uint32_t fired, const pair_evidence& e) noexcept;

// The indicators that count towards the verdict (the weak ones drop out when the data does not
// change); what a report names for a flagged conversation.
uint32_t deciding_indicators(uint32_t fired, const pair_evidence& e) noexcept;

}  // namespace varn::conversations
