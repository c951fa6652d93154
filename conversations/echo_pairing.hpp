// Echo pairing within one conversation: the requests still waiting for their reply and the
// recently answered ones, and the match of a reply to its request.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace varn::conversations {

// One request as the pairing remembers it.
struct echo_request {
  int64_t time_ns = 0;
  uint64_t frame = 0;    // frame number in its file
  uint64_t print = 0;    // fingerprint of the captured payload
  uint32_t file = 0;     // index of its input file in the run
  uint32_t captured = 0;
  uint32_t length = 0;
  uint16_t sequence = 0;
  bool answered = false;
};

enum class reply_match : uint8_t {
  answered,   // the earliest unanswered request with the reply's sequence number
  duplicate,  // that request had been answered already
  orphan,     // no request with that sequence number was seen
};

// Whether a reply returned its request's payload (RFC 792).
enum class echo_check : uint8_t { unknown, echoed, differs };

struct reply_pairing {
  reply_match match = reply_match::orphan;
  echo_check echo = echo_check::unknown;
  echo_request request;  // the request answered (answered, duplicate)
  int64_t rtt_ns = 0;    // reply time minus request time (answered)
};

class echo_book {
 public:
  // Requests and answered requests kept at most; beyond, the oldest answered one is forgotten
  // first, else the oldest waiting one (which then counts as unanswered).
  static constexpr size_t k_capacity = 16;

  // Remembers a request; returns how many waiting requests had to be dropped (0 or 1).
  uint32_t add_request(const echo_request& r);
  // Pairs a reply: the earliest waiting request with its sequence number whose payload it
  // returns, else the earliest waiting one with that sequence number; a sequence number already
  // answered makes a duplicate; none, an orphan.
  reply_pairing match_reply(uint16_t sequence, uint64_t print, uint32_t captured, uint32_t length, int64_t time_ns);
  // Forgets everything; returns the number of requests that were still waiting.
  uint32_t close();
  size_t heap_bytes() const noexcept { return m_more.capacity() * sizeof(echo_request); }

 private:
  // The requests in arrival order: the first in place (most conversations of a sweep or a
  // single ping never need more), the others behind it on the heap.
  size_t size() const noexcept { return m_has_first ? 1 + m_more.size() : 0; }
  echo_request& at(size_t i) noexcept { return i == 0 ? m_first : m_more[i - 1]; }
  void erase_at(size_t i);

  echo_request m_first;
  bool m_has_first = false;
  std::vector<echo_request> m_more;
};

// Whether a reply of CAPTURED/LENGTH bytes with fingerprint PRINT returns request R's payload.
echo_check compare_echo(const echo_request& r, uint64_t print, uint32_t captured, uint32_t length) noexcept;

}  // namespace varn::conversations
