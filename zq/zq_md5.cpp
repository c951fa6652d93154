#include "zq/zq_md5.hpp"

#include <cstring>

namespace zq {

namespace {

inline uint32_t load_le32(const uint8_t* p) noexcept {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline uint32_t rotl(uint32_t x, int s) noexcept { return (x << s) | (x >> (32 - s)); }

template <bool Count>
inline void count(uint32_t* hist, uint8_t b) noexcept {
  if constexpr (Count) ++hist[b];
}

// One step of each of the four rounds; F, G, H and I as RFC 1321 defines them.
inline void ff(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t x, int s, uint32_t t) noexcept {
  a = b + rotl(a + (d ^ (b & (c ^ d))) + x + t, s);
}
// G as the sum of its two disjoint halves: the half without B is ready before B is.
inline void gg(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t x, int s, uint32_t t) noexcept {
  a += (c & ~d) + x + t;
  a = b + rotl(a + (b & d), s);
}
inline void hh(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t x, int s, uint32_t t) noexcept {
  a = b + rotl(a + (b ^ c ^ d) + x + t, s);
}
inline void ii(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t x, int s, uint32_t t) noexcept {
  a = b + rotl(a + (c ^ (b | ~d)) + x + t, s);
}

// With COUNT, every byte of the blocks is also counted into HIST, one byte per step, so that
// the counting runs in the idle slots of the rounds' dependency chain.
template <bool Count>
void transform_blocks(uint32_t state[4], const uint8_t* p, size_t blocks, uint32_t* hist) noexcept {
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  for (; blocks > 0; --blocks, p += 64) {
    uint32_t x[16];
    for (int i = 0; i < 16; ++i) x[i] = load_le32(p + 4 * i);
    const uint32_t sa = a, sb = b, sc = c, sd = d;

    ff(a, b, c, d, x[0], 7, 0xd76aa478); count<Count>(hist, p[0]); ff(d, a, b, c, x[1], 12, 0xe8c7b756); count<Count>(hist, p[1]);
    ff(c, d, a, b, x[2], 17, 0x242070db); count<Count>(hist, p[2]); ff(b, c, d, a, x[3], 22, 0xc1bdceee); count<Count>(hist, p[3]);
    ff(a, b, c, d, x[4], 7, 0xf57c0faf); count<Count>(hist, p[4]); ff(d, a, b, c, x[5], 12, 0x4787c62a); count<Count>(hist, p[5]);
    ff(c, d, a, b, x[6], 17, 0xa8304613); count<Count>(hist, p[6]); ff(b, c, d, a, x[7], 22, 0xfd469501); count<Count>(hist, p[7]);
    ff(a, b, c, d, x[8], 7, 0x698098d8); count<Count>(hist, p[8]); ff(d, a, b, c, x[9], 12, 0x8b44f7af); count<Count>(hist, p[9]);
    ff(c, d, a, b, x[10], 17, 0xffff5bb1); count<Count>(hist, p[10]); ff(b, c, d, a, x[11], 22, 0x895cd7be); count<Count>(hist, p[11]);
    ff(a, b, c, d, x[12], 7, 0x6b901122); count<Count>(hist, p[12]); ff(d, a, b, c, x[13], 12, 0xfd987193); count<Count>(hist, p[13]);
    ff(c, d, a, b, x[14], 17, 0xa679438e); count<Count>(hist, p[14]); ff(b, c, d, a, x[15], 22, 0x49b40821); count<Count>(hist, p[15]);

    gg(a, b, c, d, x[1], 5, 0xf61e2562); count<Count>(hist, p[16]); gg(d, a, b, c, x[6], 9, 0xc040b340); count<Count>(hist, p[17]);
    gg(c, d, a, b, x[11], 14, 0x265e5a51); count<Count>(hist, p[18]); gg(b, c, d, a, x[0], 20, 0xe9b6c7aa); count<Count>(hist, p[19]);
    gg(a, b, c, d, x[5], 5, 0xd62f105d); count<Count>(hist, p[20]); gg(d, a, b, c, x[10], 9, 0x02441453); count<Count>(hist, p[21]);
    gg(c, d, a, b, x[15], 14, 0xd8a1e681); count<Count>(hist, p[22]); gg(b, c, d, a, x[4], 20, 0xe7d3fbc8); count<Count>(hist, p[23]);
    gg(a, b, c, d, x[9], 5, 0x21e1cde6); count<Count>(hist, p[24]); gg(d, a, b, c, x[14], 9, 0xc33707d6); count<Count>(hist, p[25]);
    gg(c, d, a, b, x[3], 14, 0xf4d50d87); count<Count>(hist, p[26]); gg(b, c, d, a, x[8], 20, 0x455a14ed); count<Count>(hist, p[27]);
    gg(a, b, c, d, x[13], 5, 0xa9e3e905); count<Count>(hist, p[28]); gg(d, a, b, c, x[2], 9, 0xfcefa3f8); count<Count>(hist, p[29]);
    gg(c, d, a, b, x[7], 14, 0x676f02d9); count<Count>(hist, p[30]); gg(b, c, d, a, x[12], 20, 0x8d2a4c8a); count<Count>(hist, p[31]);

    hh(a, b, c, d, x[5], 4, 0xfffa3942); count<Count>(hist, p[32]); hh(d, a, b, c, x[8], 11, 0x8771f681); count<Count>(hist, p[33]);
    hh(c, d, a, b, x[11], 16, 0x6d9d6122); count<Count>(hist, p[34]); hh(b, c, d, a, x[14], 23, 0xfde5380c); count<Count>(hist, p[35]);
    hh(a, b, c, d, x[1], 4, 0xa4beea44); count<Count>(hist, p[36]); hh(d, a, b, c, x[4], 11, 0x4bdecfa9); count<Count>(hist, p[37]);
    hh(c, d, a, b, x[7], 16, 0xf6bb4b60); count<Count>(hist, p[38]); hh(b, c, d, a, x[10], 23, 0xbebfbc70); count<Count>(hist, p[39]);
    hh(a, b, c, d, x[13], 4, 0x289b7ec6); count<Count>(hist, p[40]); hh(d, a, b, c, x[0], 11, 0xeaa127fa); count<Count>(hist, p[41]);
    hh(c, d, a, b, x[3], 16, 0xd4ef3085); count<Count>(hist, p[42]); hh(b, c, d, a, x[6], 23, 0x04881d05); count<Count>(hist, p[43]);
    hh(a, b, c, d, x[9], 4, 0xd9d4d039); count<Count>(hist, p[44]); hh(d, a, b, c, x[12], 11, 0xe6db99e5); count<Count>(hist, p[45]);
    hh(c, d, a, b, x[15], 16, 0x1fa27cf8); count<Count>(hist, p[46]); hh(b, c, d, a, x[2], 23, 0xc4ac5665); count<Count>(hist, p[47]);

    ii(a, b, c, d, x[0], 6, 0xf4292244); count<Count>(hist, p[48]); ii(d, a, b, c, x[7], 10, 0x432aff97); count<Count>(hist, p[49]);
    ii(c, d, a, b, x[14], 15, 0xab9423a7); count<Count>(hist, p[50]); ii(b, c, d, a, x[5], 21, 0xfc93a039); count<Count>(hist, p[51]);
    ii(a, b, c, d, x[12], 6, 0x655b59c3); count<Count>(hist, p[52]); ii(d, a, b, c, x[3], 10, 0x8f0ccc92); count<Count>(hist, p[53]);
    ii(c, d, a, b, x[10], 15, 0xffeff47d); count<Count>(hist, p[54]); ii(b, c, d, a, x[1], 21, 0x85845dd1); count<Count>(hist, p[55]);
    ii(a, b, c, d, x[8], 6, 0x6fa87e4f); count<Count>(hist, p[56]); ii(d, a, b, c, x[15], 10, 0xfe2ce6e0); count<Count>(hist, p[57]);
    ii(c, d, a, b, x[6], 15, 0xa3014314); count<Count>(hist, p[58]); ii(b, c, d, a, x[13], 21, 0x4e0811a1); count<Count>(hist, p[59]);
    ii(a, b, c, d, x[4], 6, 0xf7537e82); count<Count>(hist, p[60]); ii(d, a, b, c, x[11], 10, 0xbd3af235); count<Count>(hist, p[61]);
    ii(c, d, a, b, x[2], 15, 0x2ad7d2bb); count<Count>(hist, p[62]); ii(b, c, d, a, x[9], 21, 0xeb86d391); count<Count>(hist, p[63]);

    a += sa;
    b += sb;
    c += sc;
    d += sd;
  }
  state[0] = a;
  state[1] = b;
  state[2] = c;
  state[3] = d;
}

}  // namespace

bool md5_init(md5_context* ctx) noexcept {
  if (ctx == nullptr) return false;
  ctx->state[0] = 0x67452301;
  ctx->state[1] = 0xefcdab89;
  ctx->state[2] = 0x98badcfe;
  ctx->state[3] = 0x10325476;
  ctx->count[0] = ctx->count[1] = 0;
  std::memset(ctx->buffer, 0, sizeof ctx->buffer);
  return true;
}

bool md5_update(md5_context* ctx, const uint8_t* data, uint32_t length) noexcept {
  if (ctx == nullptr || data == nullptr || length == 0) return false;
  uint32_t used = (ctx->count[0] >> 3) & 63;
  const uint32_t bits_low = length << 3;
  ctx->count[0] += bits_low;
  if (ctx->count[0] < bits_low) ++ctx->count[1];
  ctx->count[1] += length >> 29;

  if (used != 0) {
    const uint32_t room = 64 - used;
    if (length < room) {
      std::memcpy(ctx->buffer + used, data, length);
      return true;
    }
    std::memcpy(ctx->buffer + used, data, room);
    transform_blocks<false>(ctx->state, ctx->buffer, 1, nullptr);
    data += room;
    length -= room;
  }
  const size_t blocks = length / 64;
  if (blocks > 0) {
    transform_blocks<false>(ctx->state, data, blocks, nullptr);
    data += blocks * 64;
    length -= static_cast<uint32_t>(blocks * 64);
  }
  if (length > 0) std::memcpy(ctx->buffer, data, length);
  return true;
}

bool md5_final(uint8_t digest[16], md5_context* ctx) noexcept {
  if (ctx == nullptr || digest == nullptr) return false;
  const uint32_t used = (ctx->count[0] >> 3) & 63;
  uint8_t tail[128];
  std::memcpy(tail, ctx->buffer, 64);
  tail[used] = 0x80;
  const uint32_t total = used < 56 ? 64 : 128;
  std::memset(tail + used + 1, 0, total - used - 1);
  for (int i = 0; i < 4; ++i) {
    tail[total - 8 + i] = static_cast<uint8_t>(ctx->count[0] >> (8 * i));
    tail[total - 4 + i] = static_cast<uint8_t>(ctx->count[1] >> (8 * i));
  }
  transform_blocks<false>(ctx->state, tail, total / 64, nullptr);
  for (int i = 0; i < 4; ++i) {
    const uint32_t w = ctx->state[i];
    const uint8_t bytes[4] = {static_cast<uint8_t>(w), static_cast<uint8_t>(w >> 8),
                              static_cast<uint8_t>(w >> 16), static_cast<uint8_t>(w >> 24)};
    std::memcpy(digest + 4 * i, bytes, 4);
  }
  md5_init(ctx);
  return true;
}

bool md5_of_buffer(const uint8_t* data, uint32_t length, uint8_t result[16]) noexcept {
  md5_context ctx;
  md5_init(&ctx);
  if (!md5_update(&ctx, data, length)) return false;
  return md5_final(result, &ctx);
}

bool md5_of_buffer_counting(const uint8_t* data, uint32_t length, uint8_t result[16],
                            uint32_t histogram[256]) noexcept {
  if (histogram == nullptr) return md5_of_buffer(data, length, result);
  md5_context ctx;
  md5_init(&ctx);
  if (data == nullptr || length == 0) return false;
  const uint32_t whole = length & ~63u;
  if (whole > 0) transform_blocks<true>(ctx.state, data, whole / 64, histogram);
  for (uint32_t i = whole; i < length; ++i) ++histogram[data[i]];
  ctx.count[0] = length << 3;
  ctx.count[1] = length >> 29;
  if (length > whole) std::memcpy(ctx.buffer, data + whole, length - whole);
  return md5_final(result, &ctx);
}

void md5_to_text(const uint8_t digest[16], char out[32]) noexcept {
  struct pairs {
    char of[256][2];
    constexpr pairs() : of{} {
      constexpr char digits[] = "0123456789abcdef";
      for (int i = 0; i < 256; ++i) {
        of[i][0] = digits[i >> 4];
        of[i][1] = digits[i & 15];
      }
    }
  };
  static constexpr pairs k_pairs;
  for (int i = 0; i < 16; ++i) std::memcpy(out + 2 * i, k_pairs.of[digest[i]], 2);
}

std::string md5_to_text(const uint8_t digest[16]) {
  std::string text(32, '0');
  md5_to_text(digest, text.data());
  return text;
}

}  // namespace zq
