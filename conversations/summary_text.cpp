#include "conversations/summary_text.hpp"

#include <cstring>

#include "conversations/indicators.hpp"
#include "conversations/sender_fillers.hpp"
#include "report/icmp_names.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_address_text.hpp"
#include "zq/zq_text.hpp"

namespace varn::conversations {

namespace {

// Room for the longest line: fixed columns, two IPv6 addresses, every filler and indicator name.
constexpr size_t k_line_room = 1024;

char* put(char* p, const char* text) {
  const size_t n = std::strlen(text);
  std::memcpy(p, text, n);
  return p + n;
}
char* sep(char* p) { return put(p, " , "); }

// Pads the field begun at FIELD (ending at P) with blanks to WIDTH on the right.
char* pad_after(char* field, char* p, size_t width) {
  while (static_cast<size_t>(p - field) < width) *p++ = ' ';
  return p;
}

char* put_right(char* p, const char* text, size_t width) {
  const size_t n = std::strlen(text);
  for (size_t i = n; i < width; ++i) *p++ = ' ';
  return put(p, text);
}

// "yyyy-mm-dd" and "hh:mm:ss.mmm" of a capture time in nanoseconds since 1970, blank when the
// capture gave no time the report can write.
void date_time(int64_t ns, zq::capture_time_texts& times, char date[10], char time_of_day[12]) {
  std::memset(date, ' ', 10);
  std::memset(time_of_day, ' ', 12);
  if (ns <= 0) return;
  const uint64_t seconds = static_cast<uint64_t>(ns) / 1000000000u;
  const uint32_t micros = static_cast<uint32_t>(static_cast<uint64_t>(ns) % 1000000000u / 1000u);
  if (seconds > 0x7fffffffu) return;
  if (!times.format(static_cast<uint32_t>(seconds), micros, date, time_of_day)) {
    std::memset(date, ' ', 10);
    std::memset(time_of_day, ' ', 12);
  }
}

char* put_message(char* p, const conversation& c, bool ipv6) {
  if (c.echo()) {
    p = put(p, c.kind == 13 ? "timestamp" : c.kind == 15 ? "info" : c.kind == 17 ? "mask" : "echo");
    p = put(p, " id 0x");
    return zq::put_hex_fixed(p, c.discriminator, 4);
  }
  const uint8_t type = static_cast<uint8_t>(c.discriminator);
  const char* name = ipv6 ? icmpv6_type_name(type, 0xff) : icmpv4_type_name(type, 0);
  if (name[0] != '<') return put(p, name);
  return zq::put_u64(put(p, "type "), type);
}

// NS as milliseconds with three decimals.
char* put_ms(char* p, int64_t ns) {
  const uint64_t us = (static_cast<uint64_t>(ns < 0 ? 0 : ns) + 500) / 1000;
  p = zq::put_u64(p, us / 1000);
  *p++ = '.';
  const uint32_t frac = static_cast<uint32_t>(us % 1000);
  *p++ = static_cast<char>('0' + frac / 100);
  *p++ = static_cast<char>('0' + frac / 10 % 10);
  *p++ = static_cast<char>('0' + frac % 10);
  return p;
}

}  // namespace

std::string indicator_names(uint32_t bits, const char* separator) {
  std::string s;
  for (size_t i = 0; i < k_indicators.size(); ++i) {
    if ((bits & (1u << i)) == 0) continue;
    if (!s.empty()) s += separator;
    s += k_indicators[i].name;
  }
  return s;
}

std::string conversation_column_header() {
  return "  first , date [utc] ,  start [utc] ,    end [utc] , proto  ,         initiator         ,"
         "        responder         ,        message         , frames ,   req ,   rep , unans , orphn ,"
         "  mism ,   dup ,   rtt min/mean/max [ms]  , bytes out ,  bytes in , fillers , verdict\n\n";
}

void write_conversation_line(uni::out_stream& out, const closed_conversation& cc, zq::capture_time_texts& times) {
  const conversation& c = cc.c;
  const bool v6 = cc.pair.ipv6;
  char* const line = out.reserve(k_line_room);
  char* p = zq::put_u64_right(line, c.first_frame, 7);
  if (cc.flagged) std::memcpy(line, "**", 2);
  p = sep(p);
  char date[10], start[12], end_date[10], end[12];
  date_time(c.first_ns, times, date, start);
  date_time(c.last_ns, times, end_date, end);
  std::memcpy(p, date, 10);
  p = sep(p + 10);
  std::memcpy(p, start, 12);
  p = sep(p + 12);
  std::memcpy(p, end, 12);
  p = sep(p + 12);
  p = put(p, v6 ? "icmpv6" : "icmp  ");
  p = sep(p);
  char* field = p;
  p = pad_after(field, v6 ? zq::put_ipv6_text(p, cc.initiator, 16) : zq::put_ipv4_text(p, cc.initiator), 25);
  p = sep(p);
  field = p;
  p = pad_after(field, v6 ? zq::put_ipv6_text(p, cc.responder, 16) : zq::put_ipv4_text(p, cc.responder), 24);
  p = sep(p);
  field = p;
  p = pad_after(field, put_message(p, c, v6), 22);
  p = sep(p);
  p = zq::put_u64_right(p, c.frames, 6);
  for (uint32_t v : {c.requests, c.replies, c.unanswered, c.orphans, c.mismatched, c.duplicates}) {
    p = sep(p);
    p = c.echo() ? zq::put_u64_right(p, v, 5) : put_right(p, "-", 5);
  }
  p = sep(p);
  if (c.rtt_count == 0) {
    p = put_right(p, "-", 24);
  } else {
    char rtt[96];
    char* r = put_ms(rtt, c.rtt_min_ns);
    *r++ = '/';
    r = put_ms(r, (c.rtt_sum_ns + c.rtt_count / 2) / c.rtt_count);
    *r++ = '/';
    r = put_ms(r, c.rtt_max_ns);
    *r = '\0';
    p = put_right(p, rtt, 24);
  }
  p = sep(p);
  p = zq::put_u64_right(p, c.bytes_out, 9);
  p = sep(p);
  p = c.echo() ? zq::put_u64_right(p, c.bytes_in, 9) : put_right(p, "-", 9);
  p = sep(p);
  if (!c.echo() || c.fillers == 0) {
    *p++ = '-';
  } else {
    bool first = true;
    for (unsigned i = 0; i < static_cast<unsigned>(filler::count_); ++i) {
      if ((c.fillers & (1u << i)) == 0) continue;
      if (!first) *p++ = '+';
      p = put(p, filler_name(static_cast<filler>(i)));
      first = false;
    }
  }
  p = sep(p);
  if (cc.indicators == 0) {
    *p++ = '-';
  } else {
    p = put(p, cc.flagged ? "FLAGGED: " : "- (");
    bool first = true;
    for (size_t i = 0; i < k_indicators.size(); ++i) {
      if ((cc.indicators & (1u << i)) == 0) continue;
      if (!first) p = put(p, ", ");
      p = put(p, k_indicators[i].name);
      first = false;
    }
    if (!cc.flagged) *p++ = ')';
  }
  *p++ = '\n';
  out.commit(p);
}

}  // namespace varn::conversations
