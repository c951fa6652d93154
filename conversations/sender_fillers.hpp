// Sender fillers: the payloads that ordinary ping programs put in their echo requests, told
// apart byte for byte, with the bytes where a sender writes its clock left out of the test. A
// payload that carries no data is "explained" by its filler; everything else is labelled none.
#pragma once

#include <cstdint>

namespace varn::conversations {

enum class filler : uint8_t {
  none,             // no known sender writes these bytes
  empty,            // no payload: nmap -PE, nping, hping3 --icmp
  iputils,          // Linux iputils ping: 16-byte little-endian timeval, then byte i = i
  iputils_pattern,  // iputils ping -p: the timeval, then the pattern from byte 16
  bsd,              // FreeBSD, macOS: 8-byte big-endian clock, then byte i = i
  solaris,          // Solaris, illumos (and 32-bit Linux): 8-byte little-endian timeval, byte i = i
  openbsd,          // OpenBSD: 16-byte timespec, 8-byte MAC, then byte i = i
  busybox,          // busybox ping: 4-byte clock, then one fill byte (-p)
  windows,          // Windows ping, PowerShell Test-Connection: "abcdefghijklmnopqrstuvw" repeated
  cisco,            // Cisco IOS: 0xab 0xcd repeated
  fping,            // all zero bytes: fping, a minimal busybox build
  mtr,              // mtr: 36 zero bytes, or one fill byte (-B) at any size
  hping3,           // hping3 -d N: N times 'X'
  traceroute,       // Linux traceroute -I: 0x48 0x49 ... (byte k = 0x40 + ((k + 8) & 0x3f))
  fping_random,     // fping -R: one glibc random() value per byte
  oping,            // liboping (oping, noping, collectd): its own name and address as text
  icmplib,          // Python icmplib: random letters and digits
  pattern,          // one pattern of 2 to 16 bytes repeated from byte 0 (Cisco, Juniper data
                    // patterns other than 0xabcd)
  message_fields,   // the fields of a timestamp (12 bytes) or address mask (4 bytes) message
  truncated,        // too little of the payload was captured to tell
  check_icmp,       // monitoring-plugins check_icmp: the timeval, its ping id, then zeros
  go_ping,          // Go pingers (pro-bing, go-ping: smokeping_prober, Telegraf): nanosecond
                    // clock, the pinger's tracker, then 0x01 bytes
  count_,
};

struct filler_match {
  filler label = filler::none;
  uint8_t clock_bytes = 0;     // leading bytes where the sender writes its clock (masked), or a
                               // timestamp or mask message's fields (where data begins when the
                               // label is none)
  uint8_t pattern_length = 0;  // the pattern's length (it starts behind the clock); 0: none
  uint32_t variant = 0;        // what the sender was told to send: a -p pattern, a fill byte
};

// Recognises the filler of an echo payload: CAPTURED bytes at P of a payload of LENGTH bytes
// (CAPTURED < LENGTH when the capture cut it).
filler_match recognise_filler(const uint8_t* p, uint32_t captured, uint32_t length) noexcept;

// The same for a message of request type KIND (8 and 128 echo, 13 timestamp, 15 information,
// 17 address mask), a request or a reply, captured at TIME_NS (nanoseconds since 1970; 0:
// unknown): timestamp and mask messages carry their fields, which are message_fields when they
// hold what senders and responders put there (times of day, a mask) and data otherwise; bytes
// behind the fields are recognised as a filler on their own. Senders whose clock must be told by
// the capture time (go_ping) are recognised here. For payloads labelled none, clock_bytes says
// where their data begins: behind the fields, behind leading bytes that hold the capture time
// (an unknown sender's clock), and from byte 16 on when more than 24 bytes follow (an unknown
// sender's clock of any kind).
filler_match recognise_payload(uint8_t kind, bool request, const uint8_t* p, uint32_t captured, uint32_t length,
                               int64_t time_ns = 0) noexcept;

// The leading bytes of N bytes at P that hold TIME_NS (within a day; capture times before 2000
// tell nothing) as a sender's clock: 4-byte seconds, 8-byte seconds, milli-, micro- or
// nanoseconds since 1970 or a double of seconds, in either byte order, with the microseconds or
// nanoseconds behind whole seconds. 0: none.
uint32_t leading_clock(const uint8_t* p, uint32_t n, int64_t time_ns) noexcept;

// The label's name as reports write it ("iputils", "none", ...).
const char* filler_name(filler f) noexcept;

// Whether the label stands for a known sender's payload (every label but none).
inline bool is_filler(filler f) noexcept { return f != filler::none; }

}  // namespace varn::conversations
