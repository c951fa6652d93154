#include "conversations/sender_fillers.hpp"

#include <cstddef>
#include <array>
#include <cstring>

namespace varn::conversations {

namespace {

constexpr std::array<const char*, static_cast<size_t>(filler::count_)> k_names = {
    "none", "empty", "iputils", "iputils-pattern", "bsd", "solaris", "openbsd", "busybox", "windows",
    "cisco", "fping", "mtr", "hping3", "traceroute", "fping-random", "oping", "icmplib", "pattern", "message-fields", "truncated"};

// Fewer captured bytes than this, of a payload the capture cut, are not enough to tell a filler
// from data: the longest clock prefix (OpenBSD's) is 24 bytes.
constexpr uint32_t k_min_judged = 24;
// Repeated fill bytes (other than zeros) are a filler from this many on.
constexpr uint32_t k_min_fill = 8;

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
// letters as hex text or as base64 of text, which the draw tells apart: hex text has no letter
// beyond "f", and base64 of 7-bit text starts every group of four with one of the 32 symbols
// A-Z, a-f (the byte's top bit is 0), which random letters do at every fourth place with odds
// of 0.52 each.
bool icmplib_letters(const uint8_t* p, uint32_t n) noexcept {
  if (n < 16) return false;
  bool beyond_hex = false, text_groups = true;
  for (uint32_t i = 0; i < n; ++i) {
    const uint8_t b = p[i];
    const bool digit = b >= '0' && b <= '9';
    const bool lower = b >= 'a' && b <= 'z';
    const bool upper = b >= 'A' && b <= 'Z';
    if (!digit && !lower && !upper) return false;
    beyond_hex = beyond_hex || (lower && b > 'f') || (upper && b > 'F');
    if ((i & 3) == 0) text_groups = text_groups && (upper || (lower && b <= 'f'));
  }
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

}  // namespace

const char* filler_name(filler f) noexcept {
  const size_t i = static_cast<size_t>(f);
  return i < k_names.size() ? k_names[i] : "none";
}

filler_match recognise_filler(const uint8_t* p, uint32_t captured, uint32_t length) noexcept {
  if (captured > length) captured = length;
  if (length == 0) return {filler::empty, 0, 0};
  if (captured < length && captured < k_min_judged) return {filler::truncated, 0, 0};
  const uint32_t n = captured;

  // One byte value throughout (a fill byte needs 8 bytes to tell it from data).
  if (all_equal(p, 1, n, p[0])) {
    if (p[0] == 0) return {length == 36 ? filler::mtr : filler::fping, 0, 0};
    if (p[0] == 'X' && n >= k_min_fill) return {filler::hping3, 0, 0};
    if (n >= k_min_fill) return {filler::mtr, 0, p[0]};
  }
  // Fixed sequences from byte 0.
  if (follows(p, 0, n, k_windows)) return {filler::windows, 0, 0};
  if (follows(p, 0, n, k_cisco)) return {filler::cisco, 0, 0};
  if (follows(p, 0, n, k_traceroute)) return {filler::traceroute, 0, 0};
  if (follows(p, 0, n, k_oping)) return {filler::oping, 0, 0};
  // A clock, then byte i = i.
  if (counter_from(p, 16, n) && n >= 16) {
    if (linux_timeval(p, n)) return {filler::iputils, 16, 0};
    if (big_endian_timeval(p, n)) return {filler::solaris, 16, 0};
  }
  if (n >= 8 && counter_from(p, 8, n)) {
    if (bsd_clock(p, n)) return {filler::bsd, 8, 0};
    if (le8_clock(p, n)) return {filler::solaris, 8, 0};
  }
  // FreeBSD, macOS ping6: the 8-byte clock, then 0x00, 0x01, ... from byte 8.
  if (n >= 8 && follows(p + 8, 0, n - 8, k_counter) && (bsd_clock(p, n) || le8_clock(p, n)))
    return {bsd_clock(p, n) ? filler::bsd : filler::solaris, 8, 0};
  if (n >= 24 && counter_from(p, 24, n) && openbsd_clock(p, n)) return {filler::openbsd, 24, 0};
  if (counter_from(p, 0, n)) return {filler::iputils, 0, 0};  // iputils -s below 16: no clock
  // busybox: a 4-byte clock, then one fill byte.
  if (n >= 4 + k_min_fill && all_equal(p, 5, n, p[4])) return {filler::busybox, 4, p[4]};
  // iputils -p.
  const uint32_t start = length >= 16 ? 16 : 0;
  if (start == 0 || linux_timeval(p, n)) {
    const uint32_t period = pattern_period(p, n, length, start);
    if (period != 0) return {filler::iputils_pattern, static_cast<uint8_t>(start), pattern_hash(p + start, period)};
  }
  // FreeBSD, macOS -p: the pattern behind the 8-byte clock.
  if (bsd_clock(p, n) || le8_clock(p, n)) {
    const uint32_t period = pattern_period(p, n, length, 8);
    if (period != 0) return {bsd_clock(p, n) ? filler::bsd : filler::solaris, 8, pattern_hash(p + 8, period)};
  }
  // A data pattern from byte 0, at least four copies (routers' extended ping).
  if (length >= 16) {
    const uint32_t period = pattern_period(p, n, length, 0);
    if (period >= 2 && length >= 4 * period) return {filler::pattern, 0, pattern_hash(p, period)};
  }
  if (glibc_random_bytes(p, n)) return {filler::fping_random, 0, 0};
  if (icmplib_letters(p, n)) return {filler::icmplib, 0, 0};
  return {filler::none, 0, 0};
}

filler_match recognise_payload(uint8_t kind, const uint8_t* p, uint32_t captured, uint32_t length) noexcept {
  // Timestamp messages: originate, receive and transmit times; address mask messages: the mask.
  if ((kind == 13 && length == 12) || (kind == 17 && length == 4)) return {filler::message_fields, 0, 0};
  return recognise_filler(p, captured, length);
}

}  // namespace varn::conversations
