#include "conversations/echo_pairing.hpp"

namespace varn::conversations {

echo_check compare_echo(const echo_request& r, uint64_t print, uint32_t captured, uint32_t length) noexcept {
  if (r.length != length) return echo_check::differs;
  if (r.captured != captured) return echo_check::unknown;  // cut at different lengths
  return r.print == print ? echo_check::echoed : echo_check::differs;
}

uint32_t echo_book::add_request(const echo_request& r) {
  uint32_t dropped = 0;
  if (m_requests.size() >= k_capacity) {
    size_t victim = 0;
    while (victim < m_requests.size() && !m_requests[victim].answered) ++victim;
    if (victim == m_requests.size()) {
      victim = 0;
      dropped = 1;
    }
    m_requests.erase(m_requests.begin() + static_cast<std::ptrdiff_t>(victim));
  }
  if (m_requests.capacity() == 0) m_requests.reserve(1);
  m_requests.push_back(r);
  return dropped;
}

reply_pairing echo_book::match_reply(uint16_t sequence, uint64_t print, uint32_t captured, uint32_t length,
                                     int64_t time_ns) {
  reply_pairing out;
  size_t first_waiting = m_requests.size(), echoing = m_requests.size(), last_answered = m_requests.size();
  for (size_t i = 0; i < m_requests.size(); ++i) {
    const echo_request& r = m_requests[i];
    if (r.sequence != sequence) continue;
    if (r.answered) {
      last_answered = i;
    } else {
      if (first_waiting == m_requests.size()) first_waiting = i;
      if (echoing == m_requests.size() && compare_echo(r, print, captured, length) == echo_check::echoed) echoing = i;
    }
  }
  const size_t chosen = echoing != m_requests.size() ? echoing : first_waiting;
  if (chosen != m_requests.size()) {
    echo_request& r = m_requests[chosen];
    r.answered = true;
    out.match = reply_match::answered;
    out.request = r;
    out.echo = compare_echo(r, print, captured, length);
    out.rtt_ns = time_ns - r.time_ns;
    return out;
  }
  if (last_answered != m_requests.size()) {
    out.match = reply_match::duplicate;
    out.request = m_requests[last_answered];
    out.echo = compare_echo(out.request, print, captured, length);
    return out;
  }
  return out;
}

uint32_t echo_book::close() {
  uint32_t waiting = 0;
  for (const echo_request& r : m_requests) waiting += !r.answered;
  std::vector<echo_request>().swap(m_requests);
  return waiting;
}

}  // namespace varn::conversations
