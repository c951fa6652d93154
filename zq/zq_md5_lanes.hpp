// MD5 of many messages at once, one message per lane of the processor's vector unit.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zq {

struct md5_job {
  const uint8_t* data = nullptr;  // the message (need not outlive md5_many)
  uint32_t length = 0;
  uint8_t digest[16] = {};        // written when ok
  bool ok = false;                // false for a null or empty message, as md5_of_buffer refuses it
};

// Computes the digest of every job's message, exactly as md5_of_buffer does for each, sixteen
// messages at a time in vector lanes (AVX-512, AVX2 or plain SSE2 code, chosen once for the
// processor it runs on).
void md5_many(md5_job* jobs, size_t count) noexcept;

}  // namespace zq
