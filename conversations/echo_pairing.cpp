#include "conversations/echo_pairing.hpp"

namespace varn::conversations {

echo_check compare_echo(const echo_request& r, uint64_t print, uint32_t captured, uint32_t length) noexcept {
  if (r.length != length) return echo_check::differs;
  if (r.captured != captured) return echo_check::unknown;  // cut at different lengths
  return r.print == print ? echo_check::echoed : echo_check::differs;
}

void echo_book::erase_at(size_t i) {
  if (i == 0) {
    if (m_more.empty()) {
      m_has_first = false;
      return;
    }
    m_first = m_more.front();
    i = 1;
  }
  m_more.erase(m_more.begin() + static_cast<std::ptrdiff_t>(i - 1));
}

uint32_t echo_book::add_request(const echo_request& r) {
  uint32_t dropped = 0;
  if (size() >= k_capacity) {
    size_t victim = 0;
    while (victim < size() && !at(victim).answered) ++victim;
    if (victim == size()) {
      victim = 0;
      dropped = 1;
    }
    erase_at(victim);
  }
  if (!m_has_first) {
    m_first = r;
    m_has_first = true;
  } else {
    m_more.push_back(r);
  }
  return dropped;
}

reply_pairing echo_book::match_reply(uint16_t sequence, uint64_t print, uint32_t captured, uint32_t length,
                                     int64_t time_ns) {
  reply_pairing out;
  const size_t n = size();
  size_t first_waiting = n, echoing = n, last_answered = n;
  for (size_t i = 0; i < n; ++i) {
    const echo_request& r = at(i);
    if (r.sequence != sequence) continue;
    if (r.answered) {
      last_answered = i;
    } else {
      if (first_waiting == n) first_waiting = i;
      if (echoing == n && compare_echo(r, print, captured, length) == echo_check::echoed) echoing = i;
    }
  }
  const size_t chosen = echoing != n ? echoing : first_waiting;
  if (chosen != n) {
    echo_request& r = at(chosen);
    r.answered = true;
    out.match = reply_match::answered;
    out.request = r;
    out.echo = compare_echo(r, print, captured, length);
    out.rtt_ns = time_ns - r.time_ns;
    return out;
  }
  if (last_answered != n) {
    out.match = reply_match::duplicate;
    out.request = at(last_answered);
    out.echo = compare_echo(out.request, print, captured, length);
  }
  return out;
}

uint32_t echo_book::close() {
  uint32_t waiting = 0;
  for (size_t i = 0; i < size(); ++i) waiting += !at(i).answered;
  m_has_first = false;
  std::vector<echo_request>().swap(m_more);
  return waiting;
}

}  // namespace varn::conversations
