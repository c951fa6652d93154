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
  count_,
};

struct filler_match {
  filler label = filler::none;
  uint8_t clock_bytes = 0;  // leading bytes where the sender writes its clock (masked)
  uint32_t variant = 0;     // what the sender was told to send: a -p pattern, a fill byte
};

// Recognises the filler of an echo payload: CAPTURED bytes at P of a payload of LENGTH bytes
// (CAPTURED < LENGTH when the capture cut it).
filler_match recognise_filler(const uint8_t* p, uint32_t captured, uint32_t length) noexcept;

// The same for a message of request type KIND (8 and 128 echo, 13 timestamp, 15 information,
// 17 address mask): timestamp and mask messages carry their fields, not a filler.
filler_match recognise_payload(uint8_t kind, const uint8_t* p, uint32_t captured, uint32_t length) noexcept;

// The label's name as reports write it ("iputils", "none", ...).
const char* filler_name(filler f) noexcept;

// Whether the label stands for a known sender's payload (every label but none).
inline bool is_filler(filler f) noexcept { return f != filler::none; }

}  // namespace varn::conversations
