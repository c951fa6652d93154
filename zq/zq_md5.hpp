// MD5 message digest (RFC 1321) and its text form.
#pragma once

#include <cstdint>
#include <string>

namespace zq {

struct md5_context {
  uint32_t state[4];      // chaining words A, B, C, D
  uint32_t count[2];      // message length in bits: low word, high word
  uint8_t buffer[64];     // bytes of the block being filled
};

// Sets the chaining words and clears the length and the buffer. False for a null context.
bool md5_init(md5_context* ctx) noexcept;

// Absorbs LENGTH bytes. False, doing nothing, for a null context or data pointer or a zero length.
bool md5_update(md5_context* ctx, const uint8_t* data, uint32_t length) noexcept;

// Pads, appends the bit length, writes the 16-byte digest and re-initialises the context.
bool md5_final(uint8_t digest[16], md5_context* ctx) noexcept;

// One-shot digest. False (RESULT untouched) when md5_update refuses the input, e.g. for length 0.
bool md5_of_buffer(const uint8_t* data, uint32_t length, uint8_t result[16]) noexcept;

// md5_of_buffer that also adds the count of every byte value of DATA to HISTOGRAM (256 bins),
// in the same pass over the data. A null HISTOGRAM counts nothing.
bool md5_of_buffer_counting(const uint8_t* data, uint32_t length, uint8_t result[16],
                            uint32_t histogram[256]) noexcept;

// Writes the 32 lower-case hex digits of DIGEST to OUT (no terminator).
void md5_to_text(const uint8_t digest[16], char out[32]) noexcept;
// The same as a string.
std::string md5_to_text(const uint8_t digest[16]);

}  // namespace zq
