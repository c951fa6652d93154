#include "conversations/sender_fillers.hpp"

#include <cstddef>
#include <array>
#include <cstring>

namespace varn::conversations {

namespace {

constexpr std::array<const char*, static_cast<size_t>(filler::count_)> k_names = {
    "none", "empty", "iputils", "iputils-pattern", "bsd", "solaris", "openbsd", "busybox", "windows",
    "cisco", "fping", "mtr", "hping3", "traceroute", "fping-random", "oping", "icmplib", "pattern", "message-fields", "truncated", "check-icmp", "go-ping"};

// Fewer captured bytes than this, of a payload the capture cut, are not enough to tell a filler
// from data: the longest clock prefix (OpenBSD's) is 24 bytes.
constexpr uint32_t k_min_judged = 24;
// Repeated fill bytes (other than zeros) are a filler from this many on.
constexpr uint32_t k_min_fill = 8;
// Unrecognised payloads longer than this are compared from byte 16 on: an unknown sender's clock
// at the front does not make its payloads "change".
constexpr uint32_t k_compare_from_16_above = 24;

uint32_t le32(const uint8_t* p) noexcept {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}
uint32_t be32(const uint8_t* p) noexcept {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
         static_cast<uint32_t>(p[3]);
}

bool all_equal(const uint8_t* p, uint32_t from, uint32_t to, uint8_t value) noexcept {
  if (from >= to) return true;
  // Every byte equal to the next one, and the first one VALUE.
  return p[from] == value && std::memcmp(p + from, p + from + 1, to - from - 1) == 0;
}

// A sequence that repeats with a period, laid out long enough that any run of k_chunk bytes
// starting at any phase can be compared with memcmp.
constexpr uint32_t k_chunk = 256;
struct cycle {
  uint32_t period;
  std::array<uint8_t, 256 + k_chunk> bytes;
};
template <typename Byte>
constexpr cycle make_cycle(uint32_t period, Byte byte) {
  cycle c{period, {}};
  for (uint32_t i = 0; i < c.bytes.size(); ++i) c.bytes[i] = byte(i % period);
  return c;
}
constexpr cycle k_counter = make_cycle(256, [](uint32_t i) { return static_cast<uint8_t>(i); });
constexpr cycle k_windows = make_cycle(23, [](uint32_t i) { return static_cast<uint8_t>('a' + i); });
constexpr cycle k_cisco = make_cycle(2, [](uint32_t i) { return static_cast<uint8_t>(i == 0 ? 0xab : 0xcd); });
// traceroute -I fills from the ICMP header on: payload byte k is sequence byte k + 8.
constexpr cycle k_traceroute = make_cycle(64, [](uint32_t i) { return static_cast<uint8_t>(0x40 + ((i + 8) & 0x3f)); });

// Whether P[FROM, N) holds C's bytes, byte i of P being C's byte i modulo the period.
bool follows(const uint8_t* p, uint32_t from, uint32_t n, const cycle& c) noexcept {
  for (uint32_t i = from; i < n; i += k_chunk) {
    const uint32_t len = n - i < k_chunk ? n - i : k_chunk;
    if (std::memcmp(p + i, c.bytes.data() + i % c.period, len) != 0) return false;
  }
  return true;
}

// Byte i = i (modulo 256) from byte FROM on.
bool counter_from(const uint8_t* p, uint32_t from, uint32_t n) noexcept { return follows(p, from, n, k_counter); }

// iputils: struct timeval in x86-64 order, seconds below 2^32 and microseconds below 10^6.
bool linux_timeval(const uint8_t* p, uint32_t n) noexcept {
  return n >= 16 && all_equal(p, 4, 8, 0) && all_equal(p, 11, 16, 0) && le32(p + 8) < 1000000;
}
// Solaris/illumos on SPARC, 64-bit: the same timeval in big-endian order.
bool big_endian_timeval(const uint8_t* p, uint32_t n) noexcept {
  return n >= 16 && all_equal(p, 0, 4, 0) && all_equal(p, 8, 12, 0) && be32(p + 12) < 1000000;
}
// FreeBSD, macOS: 32-bit seconds and microseconds, big-endian.
bool bsd_clock(const uint8_t* p, uint32_t n) noexcept { return n >= 8 && be32(p + 4) < 1000000; }
// Solaris/illumos on x86, 32-bit Linux: the same in little-endian order.
bool le8_clock(const uint8_t* p, uint32_t n) noexcept { return n >= 8 && le32(p + 4) < 1000000; }
// OpenBSD: 64-bit seconds and nanoseconds, big-endian, then a 64-bit MAC.
bool openbsd_clock(const uint8_t* p, uint32_t n) noexcept {
  return n >= 24 && all_equal(p, 8, 12, 0) && be32(p + 12) < 1000000000;
}

// fping -R: byte k is the low byte of the k-th glibc random() value. glibc's generator adds
// (r[i] = r[i-3] + r[i-31] modulo 2^32, output r[i] >> 1), so every output's low byte is the sum
// of those 3 and 31 places before it, or one more (the carry out of the bit shifted away). Nine
// such bytes or more leave a chance match at 2^-63 or less.
bool glibc_random_bytes(const uint8_t* p, uint32_t n) noexcept {
  if (n < 40) return false;
  for (uint32_t i = 31; i < n; ++i)
    if (static_cast<uint8_t>(p[i] - p[i - 3] - p[i - 31]) > 1) return false;
  return true;
}

// liboping's default data: this text, repeated to the payload's size.
constexpr char k_oping_text[] = "liboping -- ICMP ping library <http://octo.it/liboping/>";
constexpr cycle k_oping = make_cycle(sizeof k_oping_text - 1, [](uint32_t i) {
  return static_cast<uint8_t>(k_oping_text[i]);
});

// icmplib: every byte drawn at random from the 62 letters and digits. Data travels in the same
// letters as hex text, base32 or base64 of text, which the draw tells apart: hex text has no
// letter beyond "f", base32 one case only, and base64 of 7-bit text starts every group of four
// with one of the 32 symbols A-Z, a-f (the byte's top bit is 0), which random letters do at
// every fourth place with odds of 0.52 each.
bool icmplib_letters(const uint8_t* p, uint32_t n) noexcept {
  if (n < 16) return false;
  bool beyond_hex = false, text_groups = true, any_lower = false, any_upper = false;
  for (uint32_t i = 0; i < n; ++i) {
    const uint8_t b = p[i];
    const bool digit = b >= '0' && b <= '9';
    const bool lower = b >= 'a' && b <= 'z';
    const bool upper = b >= 'A' && b <= 'Z';
    if (!digit && !lower && !upper) return false;
    beyond_hex = beyond_hex || (lower && b > 'f') || (upper && b > 'F');
    any_lower = any_lower || lower;
    any_upper = any_upper || upper;
    if ((i & 3) == 0) text_groups = text_groups && (upper || (lower && b <= 'f'));
  }
  // Base32 has letters of one case only; 24 random letters and digits lack one with odds of 1 in
  // 200,000.
  if (n >= 24 && !(any_lower && any_upper)) return false;
  return beyond_hex && !text_groups;
}

uint32_t pattern_hash(const uint8_t* p, uint32_t n) noexcept {
  uint32_t h = 2166136261u ^ n;
  for (uint32_t i = 0; i < n; ++i) h = (h ^ p[i]) * 16777619u;
  return h | 1;  // never 0: 0 means "no variant"
}

// iputils -p: the pattern (1 to 16 bytes) repeats from byte 0 in whole copies, the bytes behind
// the last whole copy are 0 or the pattern's next bytes, and the clock overwrites bytes 0-15. At least two copies must be
// visible behind the clock. Returns the pattern length, or 0.
uint32_t pattern_period(const uint8_t* p, uint32_t captured, uint32_t length, uint32_t start) noexcept {
  for (uint32_t period = 1; period <= 16; ++period) {
    const uint32_t whole = length / period * period;
    const uint32_t seen = whole < captured ? whole : captured;
    if (seen < start + 2 * period) continue;
    bool repeats = true;
    for (uint32_t i = start + period; i < seen && repeats; ++i) repeats = p[i] == p[i - period];
    if (!repeats) continue;
    // Behind the last whole copy: zeros, or the pattern going on (it depends on the order of
    // iputils' options).
    const uint32_t tail_end = length < captured ? length : captured;
    bool continues = true;
    for (uint32_t i = seen; i < tail_end && continues; ++i) continues = p[i] == p[i - period];
    if (continues || all_equal(p, seen, tail_end, 0)) return period;
  }
  return 0;
}

// check_icmp (monitoring-plugins): its struct of the send time (a timeval) and a ping id of 10,
// with the struct's 6 bytes of padding as the stack left them, then the zeroed buffer.
bool check_icmp_data(const uint8_t* p, uint32_t n) noexcept {
  return n >= 24 && linux_timeval(p, n) && p[16] == 10 && p[17] == 0 && all_equal(p, 24, n, 0);
}

uint64_t be64(const uint8_t* p) noexcept { return static_cast<uint64_t>(be32(p)) << 32 | be32(p + 4); }
uint64_t le64(const uint8_t* p) noexcept { return static_cast<uint64_t>(le32(p + 4)) << 32 | le32(p); }

constexpr int64_t k_ns_per_second = 1000000000;
// A sender's clock may be this far from the capture's.
constexpr int64_t k_clock_tolerance_s = 86400;
// Capture times before 2000 are a recorder without a clock: they tell no sender's clock.
constexpr int64_t k_clock_capture_from_ns = 946684800ll * k_ns_per_second;

// The seconds since 1970 a sender's clock may show at a capture time.
struct clock_window {
  uint64_t low = 0, high = 0;
  explicit clock_window(int64_t time_ns) noexcept {
    const int64_t seconds = time_ns / k_ns_per_second;
    low = static_cast<uint64_t>(seconds > k_clock_tolerance_s ? seconds - k_clock_tolerance_s : 1);
    high = static_cast<uint64_t>(seconds + k_clock_tolerance_s);
  }
  // Whether VALUE, in units of 1/PER_SECOND seconds, is within the window.
  bool holds(uint64_t value, uint64_t per_second) const noexcept {
    return value >= low * per_second && value <= high * per_second;
  }
  bool holds_double(uint64_t bits) const noexcept {
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d >= static_cast<double>(low) && d <= static_cast<double>(high);  // false for NaN
  }
};

// Go pingers (pro-bing, go-ping): the send time as big-endian nanoseconds, the pinger's tracker
// (a version 4 UUID, or 8 random bytes in go-ping), then 0x01 to the payload's end.
bool go_ping_data(const uint8_t* p, uint32_t n, int64_t time_ns) noexcept {
  if (n < 16 || time_ns < k_clock_capture_from_ns || !clock_window(time_ns).holds(be64(p), k_ns_per_second))
    return false;
  const bool uuid = n >= 24 && (p[14] >> 4) == 4 && (p[16] >> 6) == 2;
  return all_equal(p, uuid ? 24 : 16, n, 1);
}

// RFC 792: a time of day in milliseconds since midnight UT, or any value with the high-order
// bit set when the sender has no such time.
bool time_of_day(uint32_t t) noexcept { return t < 86400000u || (t & 0x80000000u) != 0; }

// A timestamp request carries the sender's time in the originate field and leaves receive and
// transmit zero (nmap and nping send zeros throughout, hping3 and scamper the time and two zeros,
// GNU inetutils copies its time into all three); a reply carries the responder's times in
// receive and transmit (originate is the request's).
bool timestamp_fields(const uint8_t* p, bool request) noexcept {
  const uint32_t originate = be32(p), receive = be32(p + 4), transmit = be32(p + 8);
  if (!request) return time_of_day(receive) && time_of_day(transmit);
  return time_of_day(originate) &&
         ((receive == 0 && transmit == 0) || (receive == originate && transmit == originate));
}

// An address mask: zero (RFC 950 requests) or ones followed by zeros.
bool mask_field(const uint8_t* p) noexcept {
  const uint32_t inverse = ~be32(p);
  return (inverse & (inverse + 1)) == 0;
}

}  // namespace

const char* filler_name(filler f) noexcept {
  const size_t i = static_cast<size_t>(f);
  return i < k_names.size() ? k_names[i] : "none";
}

filler_match recognise_filler(const uint8_t* p, uint32_t captured, uint32_t length) noexcept {
  if (captured > length) captured = length;
  if (length == 0) return {filler::empty};
  if (captured < length && captured < k_min_judged) return {filler::truncated};
  const uint32_t n = captured;

  // One byte value throughout (a fill byte needs 8 bytes to tell it from data).
  if (all_equal(p, 1, n, p[0])) {
    if (p[0] == 0) return {length == 36 ? filler::mtr : filler::fping};
    if (p[0] == 'X' && n >= k_min_fill) return {filler::hping3};
    if (n >= k_min_fill) return {filler::mtr, 0, 1, p[0]};
  }
  // Fixed sequences from byte 0.
  if (follows(p, 0, n, k_windows)) return {filler::windows};
  if (follows(p, 0, n, k_cisco)) return {filler::cisco};
  if (follows(p, 0, n, k_traceroute)) return {filler::traceroute};
  if (follows(p, 0, n, k_oping)) return {filler::oping};
  // A clock, then byte i = i.
  if (counter_from(p, 16, n) && n >= 16) {
    if (linux_timeval(p, n)) return {filler::iputils, 16};
    if (big_endian_timeval(p, n)) return {filler::solaris, 16};
  }
  if (n >= 8 && counter_from(p, 8, n)) {
    if (bsd_clock(p, n)) return {filler::bsd, 8};
    if (le8_clock(p, n)) return {filler::solaris, 8};
  }
  // FreeBSD, macOS ping6: the 8-byte clock, then 0x00, 0x01, ... from byte 8.
  if (n >= 8 && follows(p + 8, 0, n - 8, k_counter) && (bsd_clock(p, n) || le8_clock(p, n)))
    return {bsd_clock(p, n) ? filler::bsd : filler::solaris, 8};
  if (n >= 24 && counter_from(p, 24, n) && openbsd_clock(p, n)) return {filler::openbsd, 24};
  if (counter_from(p, 0, n)) return {filler::iputils};  // iputils -s below 16: no clock
  // busybox: a 4-byte clock, then one fill byte.
  if (n >= 4 + k_min_fill && all_equal(p, 5, n, p[4])) return {filler::busybox, 4, static_cast<uint8_t>(p[4] != 0), p[4]};
  // iputils -p.
  const uint32_t start = length >= 16 ? 16 : 0;
  if (start == 0 || linux_timeval(p, n)) {
    const uint32_t period = pattern_period(p, n, length, start);
    if (period != 0)
      return {filler::iputils_pattern, static_cast<uint8_t>(start), static_cast<uint8_t>(period), pattern_hash(p + start, period)};
  }
  // FreeBSD, macOS -p: the pattern behind the 8-byte clock.
  if (bsd_clock(p, n) || le8_clock(p, n)) {
    const uint32_t period = pattern_period(p, n, length, 8);
    if (period != 0)
      return {bsd_clock(p, n) ? filler::bsd : filler::solaris, 8, static_cast<uint8_t>(period), pattern_hash(p + 8, period)};
  }
  // A data pattern from byte 0, at least four copies (routers' extended ping).
  if (length >= 16) {
    const uint32_t period = pattern_period(p, n, length, 0);
    if (period >= 2 && length >= 4 * period) return {filler::pattern, 0, static_cast<uint8_t>(period), pattern_hash(p, period)};
  }
  if (check_icmp_data(p, n)) return {filler::check_icmp, 16};
  if (glibc_random_bytes(p, n)) return {filler::fping_random};
  if (icmplib_letters(p, n)) return {filler::icmplib};
  return {filler::none};
}

uint32_t leading_clock(const uint8_t* p, uint32_t n, int64_t time_ns) noexcept {
  if (time_ns < k_clock_capture_from_ns || n < 4) return 0;
  const clock_window w(time_ns);
  if (n >= 8) {
    for (const bool big : {true, false}) {
      const uint64_t v = big ? be64(p) : le64(p);
      if (w.holds(v, 1)) {
        // 64-bit seconds; a timeval or timespec has the fraction behind them.
        const uint64_t fraction = n >= 16 ? (big ? be64(p + 8) : le64(p + 8)) : k_ns_per_second;
        return fraction < static_cast<uint64_t>(k_ns_per_second) ? 16 : 8;
      }
      if (w.holds(v, 1000) || w.holds(v, 1000000) || w.holds(v, k_ns_per_second) || w.holds_double(v)) return 8;
    }
  }
  for (const bool big : {true, false}) {
    if (!w.holds(big ? be32(p) : le32(p), 1)) continue;
    // 32-bit seconds, and the fraction behind them.
    return n >= 8 && (big ? be32(p + 4) : le32(p + 4)) < k_ns_per_second ? 8 : 4;
  }
  return 0;
}

namespace {

// Recognises the payload of an echo-style message (no fields) or the bytes behind a timestamp or
// mask message's fields (BEHIND_FIELDS: their sender's clock is in the fields).
filler_match recognise_data(const uint8_t* p, uint32_t captured, uint32_t length, int64_t time_ns,
                            bool behind_fields) noexcept {
  filler_match m = recognise_filler(p, captured, length);
  if (m.label != filler::none) return m;
  const uint32_t n = captured < length ? captured : length;
  if (time_ns > 0 && go_ping_data(p, n, time_ns)) return {filler::go_ping, 8};
  const uint32_t clock = leading_clock(p, n, time_ns);
  m.clock_bytes = static_cast<uint8_t>(!behind_fields && n > k_compare_from_16_above && clock < 16 ? 16 : clock);
  return m;
}

}  // namespace

filler_match recognise_payload(uint8_t kind, bool request, const uint8_t* p, uint32_t captured, uint32_t length,
                               int64_t time_ns) noexcept {
  // Timestamp messages: originate, receive and transmit times; address mask messages: the mask.
  const uint32_t fields = kind == 13 ? 12 : kind == 17 ? 4 : 0;
  if (fields == 0 || length < fields) return recognise_data(p, captured, length, time_ns, false);
  if (captured < fields) return {filler::truncated};
  // Fields no sender or responder writes carry data.
  if (!(kind == 13 ? timestamp_fields(p, request) : mask_field(p))) return {filler::none};
  if (length == fields) return {filler::message_fields, static_cast<uint8_t>(fields)};
  filler_match rest = recognise_data(p + fields, captured - fields, length - fields, time_ns, true);
  if (rest.label != filler::none && rest.label != filler::truncated) return {filler::message_fields, static_cast<uint8_t>(fields)};
  rest.clock_bytes = static_cast<uint8_t>(rest.clock_bytes + fields);
  return rest;
}

}  // namespace varn::conversations
