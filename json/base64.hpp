// Base64 (RFC 4648 section 4: the standard alphabet, "=" padding, no line breaks), the form JSON
// reports give raw bytes in.
#pragma once

#include <cstddef>
#include <cstdint>

namespace varn::json {

// Characters of the base64 text of N bytes.
constexpr size_t base64_size(size_t n) noexcept { return (n + 2) / 3 * 4; }

// Writes the base64 text of BYTES[0, N) at P (base64_size(N) characters) and returns the end.
// A text can be written in pieces: every piece but the last must hold a multiple of 3 bytes.
char* put_base64(char* p, const uint8_t* bytes, size_t n) noexcept;

}  // namespace varn::json
