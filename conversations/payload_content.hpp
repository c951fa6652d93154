// What an unrecognised payload looks like: text, base64, or random bytes (encrypted or
// compressed data), judged for its length; and a fingerprint to tell payloads apart.
#pragma once

#include <cstdint>

namespace varn::conversations {

// A 64-bit fingerprint of N bytes at P (equal bytes, equal fingerprints; a different byte, a
// different fingerprint with overwhelming odds).
uint64_t payload_fingerprint(const uint8_t* p, uint32_t n) noexcept;

// Fingerprints of a payload in one pass: of all its bytes, and of its bytes from 16 on (the
// whole payload's when it has 16 bytes or fewer).
struct payload_prints {
  uint64_t whole = 0;
  uint64_t from_16 = 0;
};
payload_prints fingerprint_payload(const uint8_t* p, uint32_t n) noexcept;

enum class content_kind : uint8_t {
  binary,  // none of the kinds below
  text,    // printable ascii and line ends: text, hex digits, base64 or other encodings
  random,  // byte values and their successive differences spread as random bytes of this length
};

// Payloads shorter than this are not judged.
constexpr uint32_t k_min_judged_content = 16;
// At most this many leading bytes are examined.
constexpr uint32_t k_content_window = 256;

content_kind judge_content(const uint8_t* p, uint32_t n) noexcept;

// Shannon entropy in bits per byte of N bytes, and the value random bytes of that length reach
// on average less a margin (the threshold judge_content uses), both exposed for the tests and the
// manual.
double byte_entropy(const uint8_t* p, uint32_t n) noexcept;
double random_entropy_threshold(uint32_t n) noexcept;

}  // namespace varn::conversations
